#include <algorithm>
#include <cwchar>
#include <filesystem>

#include "hex.h"
#include "layer_rows.h"
#include "loaded_library.h"
#include "temp_folder.h"

namespace layertest {
namespace {

std::wstring Below(const wchar_t* name) {
    return folder + L"\\" + name;
}
std::wstring Driver(const wchar_t* name = L"ZoProtectorDriver.sys") {
    return (zotest::ProgramFolder() / name).wstring();
}

void Installed() {
    ZoProtector_UninstallDriver();
    ZoProtector_InstallDriver(Driver().c_str(), ZOP_START_DEMAND, L"385111", 1);
}

// What the service manager then has.
void AddDriver(Output& output) {
    std::error_code unread;  // zeros, where the service manager is scripted to refuse
    const ZoProtectorDriverStatus status = zoprotector::QueryDriverStatus(unread);
    output.Add(status.state, status.startType);
    output.AddRecord(status.altitude);
}

// A tree of two folders, sealed as sealer does it; what was reported goes into the output.
void AddFindings(Output& output, const ZoSignerVerifyResult& result) {
    output.Add(result.ok, result.bad, result.missing, result.extra, result.directories);
    output.AddRecord(result.thumbprint);
}
void AddMessage(void* output, std::uint32_t level, const wchar_t* message) {
    static_cast<Output*>(output)->Add(level);
    static_cast<Output*>(output)->AddBytes(message, std::wcslen(message) * sizeof(wchar_t));
}
void AddMessages(void* output, std::int32_t level, const wchar_t* message) {
    AddMessage(output, static_cast<std::uint32_t>(level), message);
}
template <typename Level>
auto MessagesInto(Output& output) {
    return [&output](Level level, std::wstring_view message) {
        AddMessage(&output, static_cast<std::uint32_t>(level), message.data());
    };
}

std::int32_t VerifyThroughC(ZoSigner_VerifyDirectoryFn verify, Output& output) {
    const std::wstring root = Below(L"tree"), manifest = Below(L"manifest"), keys = Below(L"keys");
    ZoSignerVerifyOptions options{};
    options.root = root.c_str();
    options.manifest = manifest.c_str();
    options.keystore = keys.c_str();
    options.logCallback = &AddMessage;
    options.logContext = &output;
    ZoSignerVerifyResult result{};
    const std::int32_t status = verify(&options, &result);
    AddFindings(output, result);
    return status;
}
template <typename Verify>
void VerifyThroughLayer(const Verify& verify, Output& output, ErrorTo error) {
    const std::wstring root = Below(L"tree"), manifest = Below(L"manifest"), keys = Below(L"keys");
    AddFindings(output, verify({.root = root, .manifest = manifest, .keystore = keys},
                               MessagesInto<zosigner::Level>(output), error));
}

std::error_code ignored;  // a failed preparation shows in what follows

// The build embeds the development key unless it is told another.
void SealWithTheBuiltInKey() {
    std::string text = zotest::ReadFileBytes(zotest::ProgramFolder() / "development_private_key.hex");
    std::erase_if(text, [](char character) { return character == '\n' || character == '\r'; });
    std::vector<std::uint8_t> key;
    static_cast<void>(zo::DecodeHex(text, key));
    zosigner::SignDirectory({.root = Below(L"tree"), .manifest = Below(L"manifest"), .keyBlob = key}, {}, {}, ignored);
}

std::int32_t SignThroughC(Output& output) {
    const std::wstring root = Below(L"tree"), manifest = Below(L"manifest"), keys = Below(L"keys");
    ZoSignerSignOptions options{};
    options.root = root.c_str();
    options.manifest = manifest.c_str();
    options.keystore = keys.c_str();
    options.sealMode = ZOSIG_SEAL_ASK;
    options.sealCallback = [](void*, const wchar_t* path, std::int32_t* seal, std::int32_t*) {
        *seal = path[0] == L'.';
        return 0;
    };
    options.logCallback = &AddMessage;
    options.logContext = &output;
    ZoSignerSignResult result{};
    const std::int32_t status = ZoSigner_SignDirectory(&options, &result);
    output.AddRecord(result);
    return status;
}
void SignThroughLayer(Output& output, ErrorTo error) {
    const std::wstring root = Below(L"tree"), manifest = Below(L"manifest"), keys = Below(L"keys");
    output.AddRecord(zosigner::SignDirectory(
        {.root = root, .manifest = manifest, .keystore = keys}, MessagesInto<zosigner::Level>(output),
        [](std::wstring_view path) { return zosigner::SealAnswer{.seal = path == L"."}; }, error));
}

// The crash reporter's functions show what they did in the run that follows. Nobody listens at this address.
constexpr wchar_t kNoServer[] = L"https://127.0.0.1:9/crash";

std::wstring Dumps() {
    return Below(L"dumps");
}
std::wstring Record() {
    return Below(L"record");
}
std::wstring Dump() {
    return Below(L"dumps\\a.dmp");
}
zocrashreport::Reporter ConfiguredReporter(ErrorTo error = {}) {
    return zocrashreport::Reporter(
        {.serverUrl = kNoServer, .minidumpDir = Dumps(), .compareFilePath = Record(), .uploadAll = true}, error);
}
std::int32_t ConfigureThroughC() {
    const std::wstring dumps = Dumps(), record = Record();
    ZoCrashReportConfig config{};
    config.serverUrl = kNoServer;
    config.minidumpDir = dumps.c_str();
    config.compareFilePath = record.c_str();
    config.uploadAll = 1;
    return ZoCrashReport_Initialize(&config);
}
std::int32_t Refuse(void*, const std::uint8_t*, std::uint32_t, std::uint8_t*, std::uint32_t, std::uint32_t*) {
    return ZOP_E_FAILED;
}
void AddOutcome(Output& output, std::int32_t status, const ZoCrashRunStats& stats) {
    output.Add(status);
    output.AddRecord(stats);
}
std::int32_t Run(Output& output) {
    ZoCrashRunStats stats{};
    ZoCrashReport_SetLogger(&AddMessages, &output);
    const std::int32_t status = ZoCrashReport_Run(&stats);
    ZoCrashReport_SetLogger(nullptr, nullptr);
    AddOutcome(output, status, stats);
    return status;
}
void NewDump() {
    zotest::RemoveTree(Record());
    zotest::WriteFileBytes(Dump(), zotest::ReadFileBytes(zotest::ProgramFolder() / "dumps" / "ours.dmp"));
    ConfigureThroughC();
    ZoCrashReport_SetTargetDrivers(nullptr, 0);
    ZoCrashReport_SetBodyScrambler(&Refuse, nullptr);
    ZoCrashReport_NotifyNetworkOk();
}

}  // namespace

const std::vector<Row>& OtherRows() {
    static const std::vector<Row> rows = {
        {"ZoProtector_InstallDriver",
         [](Output& output) {
             const std::int32_t status = ZoProtector_InstallDriver(Driver().c_str(), ZOP_START_AUTO, L"385222", 0);
             if (status >= 0) AddDriver(output);
             return status;
         },
         [](Output& output, ErrorTo error) {
             zoprotector::InstallDriver(
                 {.sourcePath = Driver(), .startType = zoprotector::StartType::kAuto, .altitude = L"385222"}, error);
             AddDriver(output);
         },
         Installed},
        {"ZoProtector_ChangeDriverStartType",
         [](Output& output) {
             const std::int32_t status = ZoProtector_ChangeDriverStartType(ZOP_START_SYSTEM);
             if (status >= 0) AddDriver(output);
             return status;
         },
         [](Output& output, ErrorTo error) {
             zoprotector::ChangeDriverStartType(zoprotector::StartType::kSystem, error);
             AddDriver(output);
         },
         Installed},
        {"ZoProtector_StartDriver", [](Output&) { return ZoProtector_StartDriver(); },
         [](Output&, ErrorTo error) { zoprotector::StartDriver(error); }, Installed},
        {"ZoProtector_StopDriver", [](Output&) { return ZoProtector_StopDriver(); },
         [](Output&, ErrorTo error) { zoprotector::StopDriver(error); }, Installed},
        {"ZoProtector_QueryDriverStatus",
         [](Output& output) {
             ZoProtectorDriverStatus status{};
             const std::int32_t result = ZoProtector_QueryDriverStatus(&status);
             output.AddRecord(status);
             return result;
         },
         [](Output& output, ErrorTo error) { output.AddRecord(zoprotector::QueryDriverStatus(error)); }, Installed},
        {"ZoProtector_GetDriverFileVersion",
         [](Output& output) {
             zoprotector::FileVersion v;
             const std::int32_t status = ZoProtector_GetDriverFileVersion(&v.major, &v.minor, &v.build, &v.revision);
             output.AddRecord(v);
             return status;
         },
         [](Output& output, ErrorTo error) { output.AddRecord(zoprotector::GetDriverFileVersion(error)); },
         [] {
             ZoProtector_UninstallDriver();
             ZoProtector_InstallDriver(Driver(L"ZoProtectorDriver_1_0_1.sys").c_str(), ZOP_START_DEMAND, nullptr, 1);
         }},
        {"ZoProtector_UpgradeDriver",
         [](Output& output) {
             std::uint32_t done[2] = {};
             const std::int32_t status =
                 ZoProtector_UpgradeDriver(Driver(L"ZoProtectorDriver_1_0_1.sys").c_str(), done, done + 1);
             output.Add(done[0], done[1]);
             return status;
         },
         [](Output& output, ErrorTo error) {
             const auto done = zoprotector::UpgradeDriver(Driver(L"ZoProtectorDriver_1_0_1.sys"), error);
             output.Add(int{done.replaced}, int{done.byDriver});
         },
         Installed},
        {"ZoProtector_UninstallDriver", [](Output&) { return ZoProtector_UninstallDriver(); },
         [](Output&, ErrorTo error) { zoprotector::UninstallDriver(error); }, Installed},
        {"ZoProtector_GetHardwareId",
         [](Output& output) {
             zoprotector::HardwareId id;
             const std::int32_t status = ZoProtector_GetHardwareId(id.digits.data(), 65);
             output.AddRecord(id);
             return status;
         },
         [](Output& output, ErrorTo error) { output.AddRecord(zoprotector::GetHardwareId(error)); }},
        {"ZoProtector_GetHardwareIdBytes",
         [](Output& output) {
             std::uint8_t bytes[32] = {};
             std::uint32_t written = 0;
             const std::int32_t status = ZoProtector_GetHardwareIdBytes(bytes, 32, &written);
             output.AddRecord(bytes);
             return status;
         },
         [](Output& output, ErrorTo error) { output.AddRecord(zoprotector::GetHardwareIdBytes(error)); }},

        {"ZoSigner_GenerateKeyPair", [](Output&) { return ZoSigner_GenerateKeyPair(Below(L"keys").c_str()); },
         [](Output&, ErrorTo error) { zosigner::GenerateKeyPair(Below(L"keys"), error); }},
        {"ZoSigner_GetPublicKeyThumbprint",
         [](Output& output) {
             zosigner::Thumbprint thumbprint{};
             const std::int32_t status = ZoSigner_GetPublicKeyThumbprint(Below(L"keys").c_str(), thumbprint.data());
             output.AddRecord(thumbprint);
             return status;
         },
         [](Output& output, ErrorTo error) {
             output.AddRecord(zosigner::GetPublicKeyThumbprint(Below(L"keys"), error));
         }},
        {"ZoSigner_SignDirectory", SignThroughC, SignThroughLayer},
        {"ZoSigner_VerifyDirectory", [](Output& output) { return VerifyThroughC(&ZoSigner_VerifyDirectory, output); },
         [](Output& output, ErrorTo error) { VerifyThroughLayer(zosigner::VerifyDirectory, output, error); }},
        {"ZoSigner_VerifyDirectoryWithEmbeddedKey",
         [](Output& output) { return VerifyThroughC(&ZoSigner_VerifyDirectoryWithEmbeddedKey, output); },
         [](Output& output, ErrorTo error) {
             VerifyThroughLayer(zosigner::VerifyDirectoryWithEmbeddedKey, output, error);
         },
         SealWithTheBuiltInKey},
    };
    return rows;
}

const std::vector<Row>& CrashRows() {
    static const std::vector<Row> rows = {
        {"ZoCrashReport_Initialize",
         [](Output& output) {
             const std::int32_t status = ConfigureThroughC();
             Run(output);
             return status;
         },
         [](Output& output, ErrorTo error) {
             const auto reporter = ConfiguredReporter(error);
             Run(output);
         },
         [] {
             NewDump();
             ZoCrashReport_Initialize(nullptr);
         }},
        {"ZoCrashReport_Uninitialize",
         [](Output& output) {
             const std::int32_t status = ZoCrashReport_Uninitialize();
             Run(output);
             return status;
         },
         [](Output& output, ErrorTo) {
             {
                 const auto reporter = ConfiguredReporter();
                 zocrashreport::Cancel();
             }
             Run(output);
         },
         [] {
             NewDump();
             ZoCrashReport_Cancel();
         }},
        {"ZoCrashReport_SetLogger", [](Output& output) { return Run(output); },
         [](Output& output, ErrorTo error) {
             auto reporter = ConfiguredReporter();
             AddOutcome(output, 0, reporter.Run(MessagesInto<zocrashreport::Level>(output), error));
         },
         NewDump},
        {"ZoCrashReport_SetBodyScrambler",
         [](Output& output) {
             const auto scramble = [](void* into, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t* out,
                                      std::uint32_t room, std::uint32_t* length) -> std::int32_t {
                 static_cast<Output*>(into)->Add(inLength, room);
                 *length = inLength + 1;
                 if (room < *length) return ZOP_STATUS_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
                 std::reverse_copy(in, in + inLength, out);
                 return 0;
             };
             const std::int32_t status = ZoCrashReport_SetBodyScrambler(scramble, &output);
             Run(output);
             return status;
         },
         [](Output& output, ErrorTo error) {
             auto reporter = ConfiguredReporter();
             reporter.SetBodyScrambler(
                 [&output](std::span<const std::uint8_t> document, std::span<std::uint8_t> room) {
                     output.Add(document.size(), room.size());
                     if (room.size() > document.size())
                         std::reverse_copy(document.begin(), document.end(), room.begin());
                     return document.size() + 1;
                 },
                 error);
             Run(output);
         },
         NewDump},
        {"ZoCrashReport_SetTargetDrivers",
         [](Output& output) {
             const char* const names[] = {"nt", "zop"};
             const std::int32_t status = ZoCrashReport_SetTargetDrivers(names, 2);
             Run(output);
             return status;
         },
         [](Output& output, ErrorTo error) {
             zocrashreport::SetTargetDrivers({"nt", "zop"}, error);
             Run(output);
         },
         NewDump},
        {"ZoCrashReport_NotifyNetworkOk", [](Output&) { return ZoCrashReport_NotifyNetworkOk(); },
         [](Output&, ErrorTo error) { zocrashreport::NotifyNetworkOk(error); }, NewDump},
        {"ZoCrashReport_Cancel",
         [](Output& output) {
             const std::int32_t status = ZoCrashReport_Cancel();
             Run(output);
             return status;
         },
         [](Output& output, ErrorTo error) {
             zocrashreport::Cancel(error);
             Run(output);
         },
         NewDump},
        {"ZoCrashReport_ResetCancel",
         [](Output& output) {
             const std::int32_t status = ZoCrashReport_ResetCancel();
             Run(output);
             return status;
         },
         [](Output& output, ErrorTo error) {
             zocrashreport::ResetCancel(error);
             Run(output);
         },
         [] {
             NewDump();
             ZoCrashReport_Cancel();
         }},
        {"ZoCrashReport_Run", [](Output& output) { return Run(output); },
         [](Output& output, ErrorTo error) {
             auto reporter = ConfiguredReporter();
             AddOutcome(output, 0, reporter.Run(MessagesInto<zocrashreport::Level>(output), error));
         },
         NewDump},
        {"ZoCrashReport_UploadSingleDump",
         [](Output& output) {
             ZoCrashRunStats stats{};
             const std::int32_t status = ZoCrashReport_UploadSingleDump(Dump().c_str(), &stats);
             AddOutcome(output, 0, stats);
             return status;
         },
         [](Output& output, ErrorTo error) {
             auto reporter = ConfiguredReporter();
             AddOutcome(output, 0, reporter.UploadSingleDump(Dump(), {}, error));
         },
         NewDump},
    };
    return rows;
}

}  // namespace layertest
