// What each function of the C++ layer makes of its call: which C function it calls with which arguments, and what it
// hands back.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>

#include "c_fakes.h"
#include "import_hook.h"
#include "zocrashreport.hpp"
#include "zoprotector.hpp"
#include "zosigner.hpp"

namespace layertest {
namespace {

using zoprotector::Depth;
using zostatus::ErrorTo;

const auto noteMessage = [](auto level, std::wstring_view message) {
    Note(static_cast<std::uint32_t>(level), message);
};
void NoteFinding(zosigner::Level level, std::wstring_view message) {
    noteMessage(level, message);
}
const auto noteFolder = [](std::wstring_view folder) {
    Note(0, folder);
    return zosigner::SealAnswer{.seal = false, .applyToRest = true};
};
std::size_t Reverse(std::span<const std::uint8_t> document, std::span<std::uint8_t> room) {
    if (room.size() > document.size()) std::ranges::reverse_copy(document, room.begin());
    return document.size() + 1;
}

// What the layer hands back begins with what the fakes filled in; a list is empty, and flags have a test of their own.
template <typename Result>
void ExpectFilledIn(const Result& result) {
    if (sizeof result <= sizeof(zoprotector::Upgraded)) return;
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&result);
    ASSERT_GE(filledIn.size(), sizeof result);
    EXPECT_TRUE(std::equal(bytes, bytes + sizeof result, filledIn.begin()));
}
template <typename Record>
void ExpectFilledIn(const std::vector<Record>& list) {
    EXPECT_TRUE(list.empty());
}

struct Row {
    std::string function;
    std::string expectedCalls;
    void (*fake)();
    std::function<void(ErrorTo error)> callThroughLayer;
};
template <typename Export, typename Through>
Row MakeRow(const std::string& function, const std::string& expectedCalls, Through through) {
    Fake<Through, Export>::function = function;
    return {function, expectedCalls, reinterpret_cast<void (*)()>(&Fake<Through, Export>::Call), [=](ErrorTo error) {
                if constexpr (std::is_void_v<std::invoke_result_t<Through, ErrorTo>>) {
                    through(error);
                } else {
                    ExpectFilledIn(through(error));
                }
            }};
}

// The C function, its arguments as they show in a call, and the call of the layer that leads there.
#define ZO_ROW(function, arguments, ...) ZO_CALLS_ROW(function, #function "(" arguments ") ", __VA_ARGS__)
#define ZO_SESSION_ROW(name, arguments, ...) ZO_ROW(ZoProtector_##name, arguments, session->name(__VA_ARGS__))
// With all calls that are made on the way.
#define ZO_CALLS_ROW(function, expectedCalls, ...) \
    MakeRow<decltype(function)>(#function, expectedCalls, [](ErrorTo error) { return __VA_ARGS__; })

zoprotector::Session* session;
zocrashreport::Reporter* reporter;
constexpr ZopSignaturePolicy kPolicy = {2, 200, {}};
constexpr std::uint8_t kKey[] = {5, 6, 7};
constexpr const char kRun[] =
    "ZoCrashReport_SetLogger(function, pointer) ZoCrashReport_Run(out) [2 message] [2 message] "
    "ZoCrashReport_SetLogger(null, "
    "null) ";

// Polls the reader once; the losses are noted, of which there are none.
template <typename Reader>
void Poll(Reader reader, ErrorTo error) {
    EXPECT_TRUE(reader.Poll(error).empty());
}
const auto onLost = [](std::uint32_t lost) { ADD_FAILURE() << lost; };

// NOLINTNEXTLINE(readability-function-size): a table
const std::vector<Row>& Rows() {
    static const std::vector<Row> rows = {
        ZO_CALLS_ROW(ZoProtector_Initialize, "ZoProtector_Initialize() ZoProtector_Uninitialize() ",
                     zoprotector::Session(error).Close()),
        ZO_CALLS_ROW(ZoProtector_Uninitialize, "ZoProtector_Initialize() ZoProtector_Uninitialize() ",
                     zoprotector::Session(error).Close()),
        ZO_SESSION_ROW(GetVersion, "out, out, out", error),
        ZO_SESSION_ROW(GetStatus, "out", error),
        ZO_SESSION_ROW(SetMasterEnabled, "1", true, error),
        ZO_SESSION_ROW(GetMasterEnabled, "out", error),
        ZO_SESSION_ROW(ForceCrash, "", error),

        ZO_SESSION_ROW(AddProcessProtectByPath, "C:\\a", L"C:\\a", error),
        ZO_SESSION_ROW(AddProcessProtectByFolder, "C:\\a, 1", std::wstring(L"C:\\a"), Depth::kWithChildren, error),
        ZO_SESSION_ROW(RemoveProcessProtect, "C:\\a", L"C:\\a", error),
        ZO_SESSION_ROW(ClearAllProcessProtect, "", error),
        ZO_SESSION_ROW(ListProcessProtectRules, "pointer, 64, out, out", error),

        ZO_SESSION_ROW(AddFileProtectByPath, "C:\\a", L"C:\\a", error),
        ZO_SESSION_ROW(AddFileProtectByFolder, "C:\\a, 0, *.dll", L"C:\\a",
                       {.depth = Depth::kThisOnly, .filter = L"*.dll"}, error),
        ZO_ROW(
            ZoProtector_AddFileProtectScoped, "C:\\a, 1, 0, *.dll, C:\\b, 0, 1, 1",
            session->AddFileProtectScoped(
                L"C:\\a", L"C:\\b",
                {.depth = Depth::kThisOnly, .filter = L"*.dll", .scopeDepth = Depth::kWithChildren, .exclusive = true},
                error)),
        ZO_SESSION_ROW(RemoveFileProtect, "C:\\a", L"C:\\a", error),
        ZO_SESSION_ROW(ClearAllFileProtect, "", error),
        ZO_SESSION_ROW(EnableFileProtect, "1", true, error),
        ZO_SESSION_ROW(AddFileIgnoreProcess, "C:\\a, 1, 0", L"C:\\a", {.isFolder = true}, error),
        ZO_SESSION_ROW(RemoveFileIgnoreProcess, "C:\\a", L"C:\\a", error),
        ZO_SESSION_ROW(ClearAllFileIgnoreProcesses, "", error),
        ZO_SESSION_ROW(ListFileProtectRules, "pointer, 64, out, out", error),

        ZO_SESSION_ROW(AddRegistryProtectByKey, "HKLM\\a, 0", L"HKLM\\a", Depth::kThisOnly, error),
        ZO_SESSION_ROW(RemoveRegistryProtect, "HKLM\\a", L"HKLM\\a", error),
        ZO_SESSION_ROW(ClearAllRegistryProtect, "", error),
        ZO_SESSION_ROW(AddRegistryIgnoreProcess, "C:\\a, 0, 1", L"C:\\a", {.depth = Depth::kWithChildren}, error),
        ZO_SESSION_ROW(RemoveRegistryIgnoreProcess, "C:\\a", L"C:\\a", error),
        ZO_SESSION_ROW(ClearAllRegistryIgnoreProcesses, "", error),
        ZO_SESSION_ROW(ListRegistryProtectRules, "pointer, 64, out, out", error),

        ZO_SESSION_ROW(SetSignaturePolicy, "2 200", kPolicy, error),
        ZO_SESSION_ROW(GetSignaturePolicy, "out", error),
        ZO_SESSION_ROW(QueryPidSignature, "9, out, out", 9, error),
        ZO_SESSION_ROW(RefreshPidSignature, "9, out, out", 9, error),
        ZO_SESSION_ROW(AddSignatureOverride, "9", 9, error),
        ZO_SESSION_ROW(RemoveSignatureOverride, "9", 9, error),
        ZO_SESSION_ROW(ClearAllSignatureOverrides, "", error),
        ZO_SESSION_ROW(EnableDllLoadFilter, "1", true, error),
        ZO_SESSION_ROW(AddDllWhitelistFolder, "C:\\a, 1", L"C:\\a", Depth::kWithChildren, error),
        ZO_SESSION_ROW(RemoveDllWhitelistFolder, "C:\\a", L"C:\\a", error),
        ZO_SESSION_ROW(ClearAllDllWhitelist, "", error),
        ZO_SESSION_ROW(ListDllWhitelistRules, "pointer, 64, out, out", error),

        ZO_ROW(ZoProtector_DrainEvents, "0, pointer, 2, out, out, out",
               Poll(zoprotector::EventReader(*session, onLost, 2), error)),
        ZO_ROW(ZoProtector_DrainRegistryEvents, "0, pointer, 2, out, out, out",
               Poll(zoprotector::RegistryEventReader(*session, onLost, 2), error)),
        ZO_SESSION_ROW(GetStats, "out", error),
        ZO_SESSION_ROW(GetUnsignedBypassAttempts, "out", error),
        ZO_SESSION_ROW(CopyDirectory, "from, to, 1, 0, out, out, out", std::filesystem::path("from"), L"to",
                       {.option1 = true}, error),
        ZO_SESSION_ROW(AddDriverSelfProtect, "", error),

        ZO_ROW(ZoProtector_InstallDriver, "a.sys, 2, 385222, 0",
               zoprotector::InstallDriver(
                   {.sourcePath = L"a.sys", .startType = zoprotector::StartType::kAuto, .altitude = L"385222"}, error)),
        ZO_ROW(ZoProtector_InstallDriver, "null, 3, null, 1", zoprotector::InstallDriver({.allowUnload = true}, error)),
        ZO_ROW(ZoProtector_ChangeDriverStartType, "1",
               zoprotector::ChangeDriverStartType(zoprotector::StartType::kSystem, error)),
        ZO_ROW(ZoProtector_StartDriver, "", zoprotector::StartDriver(error)),
        ZO_ROW(ZoProtector_StopDriver, "", zoprotector::StopDriver(error)),
        ZO_ROW(ZoProtector_UninstallDriver, "", zoprotector::UninstallDriver(error)),
        ZO_ROW(ZoProtector_QueryDriverStatus, "out", zoprotector::QueryDriverStatus(error)),
        ZO_ROW(ZoProtector_GetDriverFileVersion, "out, out, out, out", zoprotector::GetDriverFileVersion(error)),
        ZO_ROW(ZoProtector_UpgradeDriver, "b.sys, out, out", zoprotector::UpgradeDriver(L"b.sys", error)),
        ZO_ROW(ZoProtector_GetHardwareId, "out, 65", zoprotector::GetHardwareId(error)),
        ZO_ROW(ZoProtector_GetHardwareIdBytes, "out, 32, out", zoprotector::GetHardwareIdBytes(error)),

        ZO_ROW(ZoSigner_GenerateKeyPair, "keys", zosigner::GenerateKeyPair(L"keys", error)),
        ZO_ROW(ZoSigner_GetPublicKeyThumbprint, "keys, out", zosigner::GetPublicKeyThumbprint(L"keys", error)),
        ZO_ROW(ZoSigner_SignDirectory, "root manifest keys null 0 1 7 7, out",
               zosigner::SignDirectory(
                   {.root = L"root", .manifest = L"manifest", .keystore = L"keys", .seal = zosigner::SealMode::kNone},
                   {}, {}, error)),
        ZO_CALLS_ROW(ZoSigner_SignDirectory,
                     "[0 a/b] [2 message] [2 message] ZoSigner_SignDirectory(root manifest null 5 3 2 0 1, out) ",
                     zosigner::SignDirectory({.root = L"root", .manifest = L"manifest", .keyBlob = kKey}, noteMessage,
                                             noteFolder, error)),
        ZO_CALLS_ROW(ZoSigner_VerifyDirectory,
                     "[2 message] [2 message] ZoSigner_VerifyDirectory(root manifest keys null 0, out) ",
                     zosigner::VerifyDirectory({.root = L"root", .manifest = L"manifest", .keystore = L"keys"},
                                               NoteFinding, error)),
        ZO_ROW(ZoSigner_VerifyDirectoryWithEmbeddedKey, "root manifest null 5 3, out",
               zosigner::VerifyDirectoryWithEmbeddedKey({.root = L"root", .manifest = L"manifest", .keyBlob = kKey}, {},
                                                        error)),

        ZO_ROW(ZoCrashReport_Initialize, "url name version 1033 dumps record 1 5 6",
               reporter->Initialize({.serverUrl = L"url",
                                     .appName = L"name",
                                     .appVersion = L"version",
                                     .lcid = 1033,
                                     .minidumpDir = L"dumps",
                                     .compareFilePath = L"record",
                                     .uploadAll = true,
                                     .maxDumpBytes = 5,
                                     .networkWaitSeconds = 6},
                                    error)),
        ZO_CALLS_ROW(ZoCrashReport_Uninitialize,
                     "ZoCrashReport_Initialize(null null null 0 null null 0 0 0) ZoCrashReport_Uninitialize() ",
                     static_cast<void>(zocrashreport::Reporter({}, error))),
        ZO_CALLS_ROW(ZoCrashReport_SetLogger, kRun, reporter->Run(noteMessage, error)),
        ZO_CALLS_ROW(ZoCrashReport_Run, kRun, reporter->Run(noteMessage, error)),
        ZO_CALLS_ROW(ZoCrashReport_UploadSingleDump,
                     "ZoCrashReport_SetLogger(null, pointer) ZoCrashReport_UploadSingleDump(a.dmp, out) "
                     "ZoCrashReport_SetLogger(null, null) ",
                     reporter->UploadSingleDump(L"a.dmp", {}, error)),
        ZO_ROW(ZoCrashReport_SetBodyScrambler, "function, pointer", reporter->SetBodyScrambler(Reverse, error)),
        ZO_ROW(ZoCrashReport_SetBodyScrambler, "null, null", reporter->SendPlainDocuments(error)),
        ZO_ROW(ZoCrashReport_SetTargetDrivers, "nt zop, 2", zocrashreport::SetTargetDrivers({"nt", "zop"}, error)),
        ZO_ROW(ZoCrashReport_NotifyNetworkOk, "", zocrashreport::NotifyNetworkOk(error)),
        ZO_ROW(ZoCrashReport_Cancel, "", zocrashreport::Cancel(error)),
        ZO_ROW(ZoCrashReport_ResetCancel, "", zocrashreport::ResetCancel(error)),
    };
    return rows;
}

// Every call that this program makes of the library reaches a fake.
class Forwarding : public testing::Test {
    std::map<std::string, zotest::ImportHook> hooks_;  // goes after the session and the reporter

  protected:
    Forwarding() {
        for (const Row& row : Rows())
            hooks_.try_emplace(row.function, GetModuleHandleW(nullptr), row.function.c_str(), row.fake);
        StartOver(ZOP_OK);
        session = &session_.emplace();
        reporter = &reporter_.emplace();
    }

    static void StartOver(std::int32_t newAnswer) {
        calls.clear();
        filledIn.clear();
        numbers.clear();
        answer = newAnswer;
    }

    std::optional<zoprotector::Session> session_;
    std::optional<zocrashreport::Reporter> reporter_;
};

TEST_F(Forwarding, ArgumentsReachTheCFunctionAndItsOutputsTheCaller) {
    for (const Row& row : Rows()) {
        SCOPED_TRACE(row.function);
        StartOver(ZOP_OK);
        row.callThroughLayer({});
        EXPECT_EQ(calls, row.expectedCalls);
    }
}

template <typename Error, typename Calls>
Error Thrown(const Calls& calls) {
    try {
        calls();
    } catch (const Error& error) {
        return error;
    }
    throw std::logic_error("nothing was thrown");
}

TEST_F(Forwarding, FailuresAreThrownOrHandedOver) {
    const std::set<std::string> silent = {"ZoProtector_Uninitialize", "ZoCrashReport_Uninitialize",
                                          "ZoCrashReport_SetLogger"};
    for (const Row& row : Rows()) {
        if (silent.contains(row.function)) continue;
        SCOPED_TRACE(row.function);
        StartOver(ZOP_E_ACCESS_DENIED);
        std::error_code error;
        row.callThroughLayer(error);
        EXPECT_EQ(error, zostatus::Status::kAccessDenied);
        StartOver(ZOP_E_ACCESS_DENIED);
        const auto thrown = Thrown<std::system_error>([&] { row.callThroughLayer({}); });
        EXPECT_EQ(thrown.code(), error);
        EXPECT_TRUE(std::string(thrown.what()).starts_with(row.function + ": ")) << thrown.what();
    }
}

TEST_F(Forwarding, ErrorsCarryWhatWasDoneBeforeTheFailure) {
    StartOver(ZOP_E_FAILED);
    ExpectFilledIn(Thrown<zosigner::VerifyError>([] { zosigner::VerifyDirectory({}); }).counts);
    StartOver(ZOP_E_FAILED);
    ExpectFilledIn(Thrown<zocrashreport::RunError>([] { reporter->Run(); }).stats);
}

TEST_F(Forwarding, EveryNumberButZeroIsTrue) {
    for (const std::uint32_t first : {0u, 2u}) {
        const std::uint32_t second = 2 - first;
        numbers = {first, first, second, second, first};
        EXPECT_EQ(session->GetMasterEnabled(), first != 0);
        const auto verdict = session->QueryPidSignature(9);
        EXPECT_TRUE(verdict.first == (first != 0) && verdict.second == (second != 0));
        const auto upgraded = zoprotector::UpgradeDriver(L"a.sys");
        EXPECT_TRUE(upgraded.replaced == (second != 0) && upgraded.byDriver == (first != 0));
    }
}

// Scramble with what was given to the library last, in a room of this size.
class Scrambling : public Forwarding {
  protected:
    std::int32_t Scramble(std::uint32_t room) {
        const std::uint8_t document[] = {1, 2, 3};
        return scrambler(context, document, 3, payload_, room, &length_);
    }

    std::uint8_t payload_[8] = {};
    std::uint32_t length_ = 0;
};

TEST_F(Scrambling, GetsTheDocumentAndTheRoom) {
    reporter->SetBodyScrambler(Reverse);
    EXPECT_EQ(Scramble(0), ZOP_STATUS_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(length_, 4u);
    EXPECT_EQ(Scramble(4), ZOP_OK);
    EXPECT_TRUE(payload_[0] == 3 && payload_[2] == 1);
    reporter->SetBodyScrambler([](auto, auto) { return std::size_t{SIZE_MAX}; });
    EXPECT_EQ(Scramble(8), ZOP_E_FAILED);
}

TEST_F(Scrambling, IsRefusedOnceTheReporterIsGone) {
    reporter->SetBodyScrambler(Reverse);
    reporter_.reset();
    EXPECT_TRUE(calls.ends_with("SetBodyScrambler(function, null) ZoCrashReport_Uninitialize() ")) << calls;
    EXPECT_EQ(Scramble(8), ZOP_E_FAILED);
}

struct Mine {
    Mine() { ++raised; }
    static inline int raised;
};

TEST_F(Scrambling, ExceptionsOfCallbacksArriveOnceTheCallIsOver) {
    const auto raise = [](auto...) { throw Mine(); };
    const auto raiseForFolder = [](auto) -> zosigner::SealAnswer { throw Mine(); };
    const auto raiseForDocument = [](auto, auto) -> std::size_t { throw Mine(); };
    const struct {
        const char* lastCalls;
        std::function<void()> callThroughLayer;
    } rows[] = {
        {"ZoSigner_SignDirectory(null null null null 0 0 7 7, out) ", [&] { zosigner::SignDirectory({}, raise); }},
        {"[0 no answer] ZoSigner_SignDirectory(null null null null 0 2 7 7, out) ",
         [&] { zosigner::SignDirectory({}, {}, raiseForFolder); }},
        {"ZoSigner_VerifyDirectory(null null null null 0, out) ", [&] { zosigner::VerifyDirectory({}, raise); }},
        {"ZoCrashReport_Run(out) ZoCrashReport_SetLogger(null, null) ", [&] { reporter->Run(raise); }},
        {"ZoCrashReport_SetLogger(null, null) ",
         [&] {
             reporter->SetBodyScrambler(raiseForDocument);
             reporter->Run([this, self = context](auto, auto) {
                 context = self;
                 EXPECT_EQ(Scramble(8), ZOP_E_FAILED);
             });
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.lastCalls);
        StartOver(ZOP_OK);
        Mine::raised = 0;
        EXPECT_THROW(row.callThroughLayer(), Mine);
        EXPECT_EQ(Mine::raised, 1);
        EXPECT_TRUE(calls.ends_with(row.lastCalls)) << calls;
    }
    reporter->Run();  // raises nothing again
}

}  // namespace
}  // namespace layertest
