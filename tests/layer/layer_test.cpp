// Each function of the C++ layer against its C function: the same requests, the same results, the same statuses.

#include <gtest/gtest.h>

#include <set>

#include "import_hook.h"
#include "installed_driver.h"
#include "layer_rows.h"
#include "loaded_library.h"
#include "temp_folder.h"

namespace layertest {
namespace {

using zostatus::Status;

// The commands that reached the driver, each once where the same one is sent again: a list is asked for its size first.
std::vector<std::string> Commands(std::uint64_t from) {
    std::vector<std::string> commands;
    for (const ZoSimRequest& request : simulator->Requests(from)) {
        Output command;
        command.Add(request.code);
        command.AddBytes(request.in, request.inLength);
        if (commands.empty() || commands.back() != command.text) commands.push_back(command.text);
    }
    return commands;
}

// The tree that is copied and sealed, in a folder that all tests share.
class LayerTest : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        static const zotest::TempFolder temporary;
        folder = temporary.Path().wstring();
        zotest::WriteFileBytes(temporary / "tree/file.txt", "contents");
        zotest::WriteFileBytes(temporary / "tree/below/other.txt", "other contents");
    }

    static void ExpectSameWork(const Row& row) {
        SCOPED_TRACE(row.function);
        Output throughC;
        Output throughLayer;
        if (row.before != nullptr) row.before();
        ASSERT_GE(row.throughC(throughC), 0);
        if (row.before != nullptr) row.before();
        row.throughLayer(throughLayer, {});
        EXPECT_EQ(throughLayer.text, throughC.text);
    }

    static void ExpectSameFailure(const Row& row) {
        SCOPED_TRACE(row.function);
        Output ignored;
        const std::int32_t status = row.throughC(ignored);
        ASSERT_LT(status, 0);
        std::error_code error;
        row.throughLayer(ignored, error);
        EXPECT_EQ(error, zostatus::CodeOf(status));
        try {
            row.throughLayer(ignored, {});
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::system_error& thrown) {
            EXPECT_EQ(thrown.code(), error);
            EXPECT_TRUE(std::string(thrown.what()).starts_with(std::string(row.function) + ": ")) << thrown.what();
        }
    }
};

class ChannelTest : public LayerTest {
  protected:
    void SetUp() override {
        simulator = &client_;
        session = &session_;
        client_.Reset();
    }

    zotest::InstalledDriver driver_;
    zotest::SimulatorClient client_;
    zoprotector::Session session_;
};

TEST_F(ChannelTest, FunctionsSendAndGiveWhatTheirCFunctionsDo) {
    for (const Row& row : ChannelRows()) {
        SCOPED_TRACE(row.function);
        std::vector<std::string> commands[2];
        Output outputs[2];
        for (const bool layer : {false, true}) {
            client_.Reset();
            if (row.before != nullptr) row.before();
            const std::uint64_t from = client_.RequestCount() + 1;
            if (layer) {
                row.throughLayer(outputs[1], {});
            } else {
                ASSERT_GE(row.throughC(outputs[0]), 0);
            }
            commands[layer] = Commands(from);
        }
        EXPECT_FALSE(commands[0].empty());
        EXPECT_EQ(commands[1], commands[0]);
        EXPECT_EQ(outputs[1].text, outputs[0].text);
    }
}

TEST_F(ChannelTest, FunctionsThrowTheirStatusOrHandItOver) {
    client_.FailNext(ZOSIM_ANY_CODE, 0xC0000022, ZOSIM_FOR_EVER);
    for (const Row& row : ChannelRows())
        ExpectSameFailure(row);
}

TEST_F(ChannelTest, SessionEndsTheChannelOnceAndOnlyWhereItIsHeld) {
    const auto devices = [this] { return client_.State().openNow; };
    EXPECT_EQ(devices(), 1u);
    {
        const zoprotector::Session moved = std::move(session_);
        EXPECT_FALSE(session_);
        EXPECT_TRUE(moved);
        session_.Close();
        EXPECT_EQ(devices(), 1u);
    }
    EXPECT_EQ(devices(), 0u);
}

TEST_F(ChannelTest, ListsGiveTheWholeTableOrFail) {
    for (int i = 0; i < 100; ++i)
        session_.AddProcessProtectByPath(L"C:\\item" + std::to_wstring(i));
    const auto entries = session_.ListProcessProtectRules();
    ASSERT_EQ(entries.size(), 100u);
    EXPECT_TRUE(zoprotector::TextOf(zoprotector::RecordOf(entries[99]).path).ends_with(L"\\item99"));

    constexpr std::uint32_t kTotalAlone = 1;  // of the words of the reply's header
    client_.AddFault({ZOP_IOCTL_LIST_PROCESS_RULES, 0, ZOSIM_FOR_EVER, ZOSIM_FAULT_WORDS, 0, 0, 0, kTotalAlone, {200}});
    std::error_code error;
    EXPECT_TRUE(session_.ListProcessProtectRules(error).empty());
    EXPECT_EQ(error, Status::kFailed);
}

TEST_F(ChannelTest, EventReadersGiveEveryEventOrItsLoss) {
    std::uint32_t lost = 0;
    zoprotector::EventReader reader(session_, [&](std::uint32_t count) { lost += count; }, 300);
    std::uint32_t read = 0;
    client_.InjectEvents(ZOSIM_RING_EVENTS, ZOP_EVENT_RING_SIZE + 5);
    do {
        read += static_cast<std::uint32_t>(reader.Poll().size());
    } while (reader.MayHaveMore());
    EXPECT_EQ(read, ZOP_EVENT_RING_SIZE);
    EXPECT_EQ(lost, 5u);

    // Neither a failure nor a reply without a header moves the position.
    client_.FailNext(ZOP_IOCTL_DRAIN_EVENTS, 0xC0000022);
    EXPECT_THROW(static_cast<void>(reader.Poll()), std::system_error);
    client_.ReturnBytes(ZOP_IOCTL_DRAIN_EVENTS, 0);
    EXPECT_TRUE(reader.Poll().empty());
    client_.InjectEvents(ZOSIM_RING_EVENTS, 2);
    EXPECT_EQ(reader.Poll().size(), 2u);
    EXPECT_EQ(lost, 5u);
    reader.StartAgain();
    EXPECT_EQ(reader.Poll().size(), 300u);
}

SC_HANDLE WINAPI NoManager(const wchar_t*, const wchar_t*, DWORD) {
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
}
DWORD WINAPI NoVersion(const wchar_t*, DWORD*) {
    SetLastError(ERROR_ACCESS_DENIED);
    return 0;
}
NTSTATUS WINAPI NoCryptography(BCRYPT_ALG_HANDLE*, const wchar_t*, const wchar_t*, ULONG) {
    return static_cast<NTSTATUS>(0xC0000001);
}

TEST_F(LayerTest, FunctionsWithoutAChannelDoWhatTheirCFunctionsDo) {
    zotest::RemoveDriverService();
    for (const auto* rows : {&OtherRows(), &CrashRows()}) {
        for (const Row& row : *rows)
            ExpectSameWork(row);
    }
    zotest::RemoveDriverService();
}

TEST_F(LayerTest, FunctionsWithoutAChannelThrowTheirStatusOrHandItOver) {
    const zotest::ImportHook manager("OpenSCManagerW", &NoManager);
    const zotest::ImportHook version("GetFileVersionInfoSizeW", &NoVersion);
    const zotest::ImportHook cryptography("BCryptOpenAlgorithmProvider", &NoCryptography);
    for (const Row& row : OtherRows())
        ExpectSameFailure(row);
}

TEST_F(LayerTest, EveryExportHasItsRow) {
    std::multiset<std::string> rows;
    for (const auto* table : {&ChannelRows(), &OtherRows(), &CrashRows()}) {
        for (const Row& row : *table)
            rows.insert(row.function);
    }
    rows.insert({"ZoProtector_Initialize", "ZoProtector_Uninitialize"});  // the life of a Session
    std::multiset<std::string> exports;
    const auto* base = reinterpret_cast<const BYTE*>(GetModuleHandleW(L"ZoProtectorLib.dll"));
    const auto* nt =
        reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const auto* table = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(
        base + nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress);
    const auto* names = reinterpret_cast<const DWORD*>(base + table->AddressOfNames);
    for (DWORD i = 0; i < table->NumberOfNames; ++i)
        exports.insert(reinterpret_cast<const char*>(base + names[i]));
    EXPECT_EQ(rows, exports);
}

TEST(Codes, SayWhatHappenedAndCompareWithTheStandardConditions) {
    const struct {
        std::int32_t status;
        std::errc condition;
        const char* text;
    } cases[] = {
        {ZOP_E_ACCESS_DENIED, std::errc::permission_denied, "Access was denied."},
        {ZOSIG_E_VERIFY_FAILED, {}, "The folder differs from its manifest."},
        {ZOP_STATUS_FROM_WIN32(ERROR_FILE_NOT_FOUND), std::errc::no_such_file_or_directory, nullptr},
        {static_cast<std::int32_t>(0xD0000001), {}, "The call failed with status 0xD0000001."},
    };
    for (const auto& row : cases) {
        const std::error_code code = zostatus::CodeOf(row.status);
        SCOPED_TRACE(code.message());
        EXPECT_EQ(code.value(), row.status);
        EXPECT_FALSE(code.message().empty());
        EXPECT_TRUE(row.text == nullptr || code.message() == row.text);
        EXPECT_TRUE(row.condition == std::errc{} || code == row.condition);
    }
    EXPECT_EQ(zostatus::CodeOf(ZOSIG_E_TAMPERED), Status::kTampered);
    EXPECT_FALSE(zostatus::CodeOf(1));
}

}  // namespace
}  // namespace layertest
