#include <string>
#include <vector>

#include "debug_output.h"
#include "driver_set_up.h"
#include "log_reader.h"
#include "rows.h"
#include "text.h"

namespace {

using zotest::FieldText;
using zotest::NtPath;
using zotest::WriteFileBytes;

bool IsSamePath(const std::wstring& first, const std::wstring& second) {
    return CompareStringOrdinal(first.c_str(), -1, second.c_str(), -1, TRUE) == CSTR_EQUAL;
}

class CopyDirectoryTest : public zotest::DriverTest {
  protected:
    void SetUp() override {
        DriverTest::SetUp();
        WriteFileBytes(folder_ / L"from" / L"a.dmp", "a");
        WriteFileBytes(folder_ / L"from" / L"below" / L"b.dmp", "b");
        ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
    }
    void TearDown() override { ZoProtector_Uninitialize(); }

    int32_t Copy(const wchar_t* from, const wchar_t* to, int32_t option1 = 1, uint32_t option2 = 1) {
        files_ = folders_ = skipped_ = 7;
        return ZoProtector_CopyDirectory(from, to, option1, option2, &files_, &folders_, &skipped_);
    }

    const zotest::TempFolder folder_;
    const std::wstring from_ = (folder_ / L"from").wstring();
    const std::wstring to_ = (folder_ / L"to \x00E9").wstring();
    uint32_t files_ = 0;
    uint32_t folders_ = 0;
    uint32_t skipped_ = 0;
};

TEST_F(CopyDirectoryTest, SendsPathsAndOptions) {
    EXPECT_EQ(Copy(from_.c_str(), to_.c_str(), -5, 0x100), ZOP_OK);
    EXPECT_EQ(zotest::ReadFileBytes(std::filesystem::path(to_) / L"a.dmp"), "a");
    EXPECT_EQ(zotest::ReadFileBytes(std::filesystem::path(to_) / L"below" / L"b.dmp"), "b");
    EXPECT_EQ(files_, 2u);
    EXPECT_EQ(skipped_, 0u);

    const ZoSimRequest sent = Simulator().LastRequest();
    EXPECT_EQ(sent.code, 0x8000C100u);
    EXPECT_EQ(sent.inLength, 2084u);
    EXPECT_EQ(sent.outLength, 16u);
    const auto record = zotest::RecordOf<ZoProtectorCopyDirectoryRequest>(sent);
    EXPECT_EQ(FieldText(record.sourceDir), NtPath(from_));
    EXPECT_EQ(FieldText(record.destinationDir), NtPath(to_));
    EXPECT_EQ(record.option1, 1);
    EXPECT_EQ(record.option2, 1);

    EXPECT_EQ(ZoProtector_CopyDirectory(from_.c_str(), to_.c_str(), 0, 0, nullptr, nullptr, nullptr), ZOP_OK);
    const auto second = zotest::RecordOf<ZoProtectorCopyDirectoryRequest>(Simulator().LastRequest());
    EXPECT_EQ(second.option1 + second.option2, 0);
}

TEST_F(CopyDirectoryTest, DeliversTheCountersThatTheDriverSent) {
    constexpr uint32_t kWarnAndPerform = ZOSIM_FAULT_STATUS | ZOSIM_FAULT_PERFORM | ZOSIM_FAULT_WORDS;
    constexpr uint32_t kReturn = ZOSIM_FAULT_RETURNED | ZOSIM_FAULT_WORDS;
    const zotest::Rows<uint32_t, uint32_t, uint32_t, int32_t, bool> rows = {
        {"success", ZOSIM_FAULT_WORDS, 0, 0, ZOP_OK, true},
        {"warning with counters", kWarnAndPerform, 0x80000005, 0, ZOP_E_FAILED, true},
        {"error", ZOSIM_FAULT_STATUS, 0xC0000022, 0, ZOP_E_ACCESS_DENIED, false},
        {"one byte short", kReturn, 0, 15, ZOP_OK, false},
        {"more than the buffer holds", kReturn, 0, 17, ZOP_OK, true},
    };
    for (const auto& [name, flags, ntStatus, returned, expected, hasCounters] : rows) {
        SCOPED_TRACE(name);
        Simulator().AddFault({ZOP_IOCTL_COPY_DIRECTORY, 0, 1, flags, ntStatus, returned, 0, 7, {21, 22, 23, 0}});
        const zotest::DebugOutput output;
        EXPECT_EQ(Copy(from_.c_str(), to_.c_str()), expected);
        EXPECT_EQ(files_, hasCounters ? 21u : 0u);
        EXPECT_EQ(folders_, hasCounters ? 22u : 0u);
        EXPECT_EQ(skipped_, hasCounters ? 23u : 0u);
        EXPECT_TRUE(zotest::AnyLineEndsWith(
            output.Strings(),
            "[INFO ] CopyDirectory: '" + zo::Utf8FromWide(from_) + "' -> '" + zo::Utf8FromWide(to_) +
                (hasCounters ? "' files=21 dirs=22 skipped=23\r\n" : "' files=0 dirs=0 skipped=0\r\n")));
    }
}

TEST_F(CopyDirectoryTest, ChecksBeforeItSends) {
    ZoProtector_Uninitialize();
    const std::wstring tooLong(260, L'x');
    const zotest::Rows<bool, const wchar_t*, const wchar_t*, int32_t> rows = {
        {"no source, closed", false, nullptr, L"C:\\a", ZOP_E_INVALID_ARG},
        {"empty destination, closed", false, L"C:\\a", L"", ZOP_E_INVALID_ARG},
        {"closed", false, L"C:\\a", L"C:\\b", ZOP_E_NOT_INITIALIZED},
        {"empty source", true, L"", L"C:\\b", ZOP_E_INVALID_ARG},
        {"destination too long", true, L"C:\\a", tooLong.c_str(), ZOP_E_INVALID_ARG},
        {"no such drive", true, L"Q:\\a", L"C:\\b", ZOP_E_FAILED},
    };
    for (const auto& [name, initialised, from, to, expected] : rows) {
        SCOPED_TRACE(name);
        ASSERT_EQ(initialised ? ZoProtector_Initialize() : ZOP_OK, ZOP_OK);
        const uint64_t before = Simulator().RequestCount();
        EXPECT_EQ(Copy(from, to), expected);
        EXPECT_EQ(files_ + folders_ + skipped_, 0u);
        EXPECT_EQ(Simulator().RequestCount(), before);
    }
}

class SelfProtectTest : public zotest::DriverTest {
  protected:
    void SetUp() override {
        DriverTest::SetUp();
        zotest::SetImagePath(zotest::InstalledDriverPath());
        ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
    }
    void TearDown() override { ZoProtector_Uninitialize(); }

    std::wstring ProtectedFile() const {
        const auto files = Simulator().Table<ZopFileRuleRecord>(ZOSIM_TABLE_FILE);
        return files.size() == 1 ? FieldText(files[0].path) : std::to_wstring(files.size()) + L" file rules";
    }
};

TEST_F(SelfProtectTest, NeedsAnInitialisedLibrary) {
    ZoProtector_Uninitialize();
    EXPECT_EQ(ZoProtector_AddDriverSelfProtect(), ZOP_E_NOT_INITIALIZED);
}

TEST_F(SelfProtectTest, ProtectsTheConfiguredFileOnceInWhateverFormItsPathIsStored) {
    for (const auto& stored : zotest::StoredImagePaths()) {
        SCOPED_TRACE(stored.name);
        zotest::SetImagePath(stored.text);
        EXPECT_EQ(ZoProtector_AddDriverSelfProtect(), ZOP_OK);
        EXPECT_TRUE(IsSamePath(ProtectedFile(), NtPath(zotest::InstalledDriverPath())));
    }
    EXPECT_EQ(Simulator().State().fileProtectEnabled, 1u);
}

TEST_F(SelfProtectTest, ProtectsTheServiceKeyWithItsSubkeys) {
    for (int i = 0; i < 2; ++i)
        ASSERT_EQ(ZoProtector_AddDriverSelfProtect(), ZOP_OK) << "a rule that exists is a success";
    const auto keys = Simulator().Table<ZopRegistryRuleRecord>(ZOSIM_TABLE_REGISTRY);
    ASSERT_EQ(keys.size(), 1u);
    EXPECT_EQ(FieldText(keys[0].key), L"\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Services\\ZoProtector");
    EXPECT_EQ(keys[0].recursive, 1);
}

TEST_F(SelfProtectTest, ProtectsTheFileBesideTheExecutableWhenTheImagePathIsEmpty) {
    zotest::SetImagePath(L"\\??\\");
    ASSERT_EQ(ZoProtector_AddDriverSelfProtect(), ZOP_OK);
    EXPECT_EQ(ProtectedFile(), NtPath(zotest::SimulatorFile()));
}

TEST_F(SelfProtectTest, StopsAtTheFirstFailure) {
    uint64_t sent = 0;
    for (const uint32_t code : {ZOP_IOCTL_ADD_FILE_RULE, ZOP_IOCTL_ENABLE_FILE_PROTECT, ZOP_IOCTL_ADD_REGISTRY_RULE}) {
        Simulator().Reset();
        Simulator().FailNext(code, 0xC0000044);
        EXPECT_EQ(ZoProtector_AddDriverSelfProtect(), ZOP_E_QUOTA_EXCEEDED);
        EXPECT_EQ(Simulator().RequestCount(), ++sent);
    }
}

}  // namespace
