#include <string>
#include <vector>

#include "debug_output.h"
#include "driver_set_up.h"
#include "log_reader.h"

namespace {

using zotest::FieldText;
using zotest::WriteFileBytes;

std::wstring NtPath(const std::wstring& path) {
    wchar_t device[MAX_PATH] = {};
    QueryDosDeviceW(path.substr(0, 2).c_str(), device, MAX_PATH);
    return device + path.substr(2);
}

std::string Utf8(const std::wstring& text) {
    const auto utf8 = std::filesystem::path(text).u8string();
    return {utf8.begin(), utf8.end()};
}

class CopyDirectoryTest : public zotest::DriverTest {
  protected:
    void SetUp() override {
        DriverTest::SetUp();
        WriteFileBytes(folder_ / L"from" / L"a.dmp", "a");
        WriteFileBytes(folder_ / L"from" / L"below" / L"b.dmp", "b");
    }
    void TearDown() override { ZoProtector_Uninitialize(); }

    const zotest::TempFolder folder_;
    const std::wstring from_ = (folder_ / L"from").wstring();
    const std::wstring to_ = (folder_ / L"to \x00E9").wstring();
};

TEST_F(CopyDirectoryTest, CopiesAndCounts) {
    ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
    uint32_t files = 7;
    uint32_t folders = 7;
    uint32_t skipped = 7;
    const zotest::DebugOutput output;
    EXPECT_EQ(ZoProtector_CopyDirectory(from_.c_str(), to_.c_str(), -5, 0x100, &files, &folders, &skipped), ZOP_OK);
    EXPECT_EQ(zotest::ReadFileBytes(std::filesystem::path(to_) / L"a.dmp"), "a");
    EXPECT_EQ(zotest::ReadFileBytes(std::filesystem::path(to_) / L"below" / L"b.dmp"), "b");
    EXPECT_EQ(files, 2u);
    EXPECT_EQ(skipped, 0u);
    EXPECT_TRUE(zotest::AnyLineEndsWith(output.Strings(), "[INFO ] CopyDirectory: '" + Utf8(from_) + "' -> '" +
                                                              Utf8(to_) + "' files=2 dirs=" + std::to_string(folders) +
                                                              " skipped=0\r\n"));

    const ZoSimRequest sent = Simulator().LastRequest();
    EXPECT_EQ(sent.code, 0x8000C100u);
    EXPECT_EQ(sent.inLength, 2084u);
    EXPECT_EQ(sent.outLength, 16u);
    const auto record = zotest::RecordOf<ZoProtectorCopyDirectoryRequest>(sent);
    EXPECT_EQ(FieldText(record.sourceDir), NtPath(from_));
    EXPECT_EQ(FieldText(record.destinationDir), NtPath(to_));
    EXPECT_EQ(record.option1, 1);
    EXPECT_EQ(record.option2, 1);

    EXPECT_EQ(ZoProtector_CopyDirectory(from_.c_str(), to_.c_str(), 0, 0, nullptr, nullptr, &skipped), ZOP_OK);
    const auto second = zotest::RecordOf<ZoProtectorCopyDirectoryRequest>(Simulator().LastRequest());
    EXPECT_EQ(second.option1 + second.option2, 0);
}

TEST_F(CopyDirectoryTest, DeliversCountersAsFarAsTheDriverToldThem) {
    ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
    const struct {
        const char* what;
        uint32_t flags;
        uint32_t ntStatus;
        uint32_t returned;
        int32_t expected;
        uint32_t expectedFiles;
    } rows[] = {
        {"failing with counters", ZOSIM_FAULT_STATUS | ZOSIM_FAULT_PERFORM | ZOSIM_FAULT_WORDS, 0x80000005, 0,
         ZOP_E_FAILED, 21},
        {"failing", ZOSIM_FAULT_STATUS, 0xC0000022, 0, ZOP_E_ACCESS_DENIED, 0},
        {"one byte short", ZOSIM_FAULT_RETURNED | ZOSIM_FAULT_WORDS, 0, 15, ZOP_OK, 0},
        {"claiming more than the buffer", ZOSIM_FAULT_RETURNED | ZOSIM_FAULT_WORDS, 0, 17, ZOP_OK, 21},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        ZoSimFault fault{ZOP_IOCTL_COPY_DIRECTORY, 0, 1, row.flags, row.ntStatus, row.returned, 0, 7, {21, 22, 23, 0}};
        Simulator().AddFault(fault);
        uint32_t counters[3] = {7, 7, 7};
        const zotest::DebugOutput output;
        EXPECT_EQ(ZoProtector_CopyDirectory(from_.c_str(), to_.c_str(), 1, 1, &counters[0], &counters[1], &counters[2]),
                  row.expected);
        EXPECT_EQ(counters[0], row.expectedFiles);
        EXPECT_TRUE(zotest::AnyLineEndsWith(output.Strings(), row.expectedFiles == 0
                                                                  ? "' files=0 dirs=0 skipped=0\r\n"
                                                                  : "' files=21 dirs=22 skipped=23\r\n"));
    }
}

TEST_F(CopyDirectoryTest, ChecksBeforeItSends) {
    const std::wstring tooLong(260, L'x');
    const struct {
        bool initialised;
        const wchar_t* from;
        const wchar_t* to;
        int32_t expected;
    } rows[] = {
        {false, nullptr, L"C:\\a", ZOP_E_INVALID_ARG},        {false, L"C:\\a", L"", ZOP_E_INVALID_ARG},
        {false, L"C:\\a", L"C:\\b", ZOP_E_NOT_INITIALIZED},   {true, L"", L"C:\\b", ZOP_E_INVALID_ARG},
        {true, L"C:\\a", tooLong.c_str(), ZOP_E_INVALID_ARG}, {true, L"Q:\\a", L"C:\\b", ZOP_E_FAILED},
    };
    for (const auto& row : rows) {
        if (row.initialised) {
            ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
        }
        const uint64_t before = Simulator().RequestCount();
        uint32_t counters[3] = {7, 7, 7};
        EXPECT_EQ(ZoProtector_CopyDirectory(row.from, row.to, 1, 1, &counters[0], &counters[1], &counters[2]),
                  row.expected);
        EXPECT_EQ(counters[0] + counters[1] + counters[2], 0u);
        EXPECT_EQ(Simulator().RequestCount(), before);
    }
}

class SelfProtectTest : public zotest::BareSystemTest {
  protected:
    void SetUp() override {
        BareSystemTest::SetUp();
        ASSERT_EQ(ZoProtector_InstallDriver(nullptr, 3, nullptr, 0), ZOP_OK);
        ASSERT_EQ(ZoProtector_StartDriver(), ZOP_OK);
    }
};

TEST_F(SelfProtectTest, ProtectsFileAndKeyOnce) {
    EXPECT_EQ(ZoProtector_AddDriverSelfProtect(), ZOP_E_NOT_INITIALIZED);
    ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
    const zotest::SimulatorClient simulator;
    // With a prefix in the image path or without one it is the same rule.
    for (const wchar_t* prefix : {L"\\??\\", L"\\\\?\\", L""}) {
        zotest::SetImagePath(prefix + zotest::InstalledDriverPath());
        EXPECT_EQ(ZoProtector_AddDriverSelfProtect(), ZOP_OK);
    }

    const auto files = simulator.Table<ZopFileRuleRecord>(ZOSIM_TABLE_FILE);
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(FieldText(files[0].path), NtPath(zotest::InstalledDriverPath()));
    const auto keys = simulator.Table<ZopRegistryRuleRecord>(ZOSIM_TABLE_REGISTRY);
    ASSERT_EQ(keys.size(), 1u);
    EXPECT_EQ(FieldText(keys[0].key), L"\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Services\\ZoProtector");
    EXPECT_EQ(keys[0].recursive, 1);
    EXPECT_EQ(simulator.State().fileProtectEnabled, 1u);
}

TEST_F(SelfProtectTest, ReturnsTheFirstFailureAndSendsNothingAfterIt) {
    ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
    const zotest::SimulatorClient simulator;
    const struct {
        uint32_t code;
        uint64_t sent;
    } rows[] = {{ZOP_IOCTL_ADD_FILE_RULE, 1}, {ZOP_IOCTL_ENABLE_FILE_PROTECT, 2}, {ZOP_IOCTL_ADD_REGISTRY_RULE, 3}};
    for (const auto& row : rows) {
        simulator.Reset();
        simulator.FailNext(row.code, 0xC0000044);
        EXPECT_EQ(ZoProtector_AddDriverSelfProtect(), ZOP_E_QUOTA_EXCEEDED);
        EXPECT_EQ(simulator.RequestCount(), row.sent);
    }
    // A path of which nothing is left says nothing; the file beside the executable is meant then.
    simulator.Reset();
    zotest::SetImagePath(L"\\??\\");
    ASSERT_EQ(ZoProtector_AddDriverSelfProtect(), ZOP_OK);
    EXPECT_EQ(FieldText(simulator.Table<ZopFileRuleRecord>(ZOSIM_TABLE_FILE)[0].path), NtPath(zotest::SimulatorFile()));
}

}  // namespace
