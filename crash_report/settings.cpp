#include "settings.h"

#include "local_app_data.h"

// The build passes narrow literals; next to a wide one they become wide.
#define ZO_WIDE(text) L"" text

namespace zocrash {

namespace {

constexpr std::uint32_t kDefaultLcid = 2502;
constexpr std::uint64_t kDefaultMaxDumpBytes = 0xA00000;
constexpr std::uint32_t kDefaultNetworkWaitSeconds = 300;

void TakeText(std::wstring& setting, const wchar_t* given) {
    if (given != nullptr && given[0] != L'\0') setting = given;
}

template <typename Number>
void TakeNumber(Number& setting, Number given) {
    if (given != 0) setting = given;
}

CrashReportSettings Defaults() {
    CrashReportSettings settings;
    settings.serverUrl = ZO_WIDE(ZO_CRASH_SERVER_URL);
    settings.appName = L"TeskShield";
    settings.appVersion = L"100.0.100.1";
    settings.toolName = L"Tesk Bug Report Tool";
    settings.lcid = kDefaultLcid;
    settings.toolVersionMajor = 3;
    settings.toolVersionMinor = 1;
    settings.compareFilePath = DefaultComparePath();
    settings.maxDumpBytes = kDefaultMaxDumpBytes;
    settings.networkWaitSeconds = kDefaultNetworkWaitSeconds;
    return settings;
}

}  // namespace

std::wstring DefaultComparePath() {
    const std::filesystem::path folder = zo::LocalAppDataFolder();
    return folder.empty() ? std::wstring() : (folder / ZOCRASH_DEFAULT_RECORD).wstring();
}

const char* ContactAddress() noexcept {
    return ZO_CRASH_CONTACT;
}

CrashReportSettings MakeSettings(const ZoCrashReportConfig* config) {
    CrashReportSettings settings = Defaults();
    if (config == nullptr) return settings;
    TakeText(settings.serverUrl, config->serverUrl);
    TakeText(settings.appName, config->appName);
    TakeText(settings.appVersion, config->appVersion);
    TakeNumber(settings.lcid, config->lcid);
    TakeText(settings.minidumpDir, config->minidumpDir);
    TakeText(settings.compareFilePath, config->compareFilePath);
    settings.uploadAll = config->uploadAll != 0;
    TakeNumber(settings.maxDumpBytes, config->maxDumpBytes);
    TakeNumber(settings.networkWaitSeconds, config->networkWaitSeconds);
    return settings;
}

}  // namespace zocrash
