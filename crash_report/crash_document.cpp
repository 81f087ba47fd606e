#include "crash_document.h"

#include <windows.h>

#include <string>

#include "base64.h"
#include "errors.h"
#include "files.h"
#include "format.h"
#include "machine_guid.h"
#include "text.h"

namespace zocrash {

namespace {

OSVERSIONINFOW SystemVersion() {
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    static_assert(sizeof(version) == 276);
    // Deprecated, but the protocol wants the version that this process is shown, which depends on its manifest.
#ifdef _MSC_VER
#pragma warning(push)
#pragma warning(disable : 4996)
#endif
    GetVersionExW(&version);
#ifdef _MSC_VER
#pragma warning(pop)
#endif
    return version;
}

std::string LocalTimestamp() {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return TimestampText(now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond);
}

// The previous dump's text is freed first: growing a string keeps the old memory until the new one is filled.
void EncodeInto(const std::string& bytes, std::string& field) {
    std::string().swap(field);
    EncodeBase64(bytes, field);
}

}  // namespace

CrashProtocolDocument::CrashProtocolDocument(const CrashReportSettings& settings) {
    const OSVERSIONINFOW version = SystemVersion();
    fields_ = {
        {"AppName", zo::AnsiFromWide(settings.appName)},
        {"AppVer", zo::AnsiFromWide(settings.appVersion)},
        {"TimeStamp", LocalTimestamp()},
        {"LCID", std::to_string(settings.lcid)},
        {"OSID", std::to_string(version.dwPlatformId)},
        {"OSMajVer", std::to_string(version.dwMajorVersion)},
        {"OSMinVer", std::to_string(version.dwMinorVersion)},
        {"OSBuildNo", std::to_string(version.dwBuildNumber)},
        {"ToolVer", zo::Format("{}.{}", settings.toolVersionMajor, settings.toolVersionMinor)},
        {"GUID_TeskWarden", MachineGuid()},
        {"UIN", "10000"},
        {"Contact", ContactAddress()},
        {"Cmd", ""},
        {"CrashSignature", ""},
        {"ModuleName", ""},
        {"ErrAddr", ""},
    };
}

RequestBody CrashProtocolDocument::Query(const DumpAnalysisResult& analysis) {
    fields_["Cmd"] = '1';
    fields_["CrashSignature"] = analysis.signature;
    fields_["ModuleName"] = "ntos";
    fields_["ErrAddr"] = AddressText(analysis.exceptionAddress);
    return RenderDocument(fields_);
}

std::int32_t CrashProtocolDocument::BuildFullDocument(const DumpAnalysisResult& analysis, RequestBody& document) {
    {
        std::string dump;
        // Whoever wrote the dump may still hold it open, and that must not cost the report.
        const std::wstring path = zo::WideFromAnsi(analysis.dumpPath);
        if (!zo::ReadWholeFile(path.c_str(), dump, zo::Sharing::kReadWriteDelete) || dump.empty()) {
            return zo::HresultFromWin32(ERROR_FILE_NOT_FOUND);
        }
        if (analysis.loadOutput.empty()) return zo::kFail;
        fields_["CrashDumpLen"] = std::to_string(dump.size());
        EncodeInto(dump, fields_["MinDump"]);
    }
    EncodeInto(analysis.loadOutput, fields_["CrashStack"]);
    fields_["CrashStackLen"] = std::to_string(analysis.loadOutput.size());
    fields_["CrashStackBase64Len"] = std::to_string(fields_["CrashStack"].size());
    fields_["CrashDumpBase64Len"] = std::to_string(fields_["MinDump"].size());
    fields_["Cmd"] = '2';
    document = RenderDocument(fields_);
    return zo::kOk;
}

}  // namespace zocrash
