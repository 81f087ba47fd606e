#include "debug_output.h"
#include "driver_set_up.h"
#include "log_reader.h"
#include "text.h"

namespace zotest {
namespace {

class InitialisedTest : public DriverTest {
  protected:
    void SetUp() override {
        DriverTest::SetUp();
        ASSERT_EQ(ZoProtector_Initialize(), ZOP_OK);
    }
    void TearDown() override { ZoProtector_Uninitialize(); }
};

class CopyDirectoryTest : public InitialisedTest {
  protected:
    CopyDirectoryTest() {
        WriteFileBytes(folder_ / L"from" / L"a.dmp", "a");
        WriteFileBytes(folder_ / L"from" / L"below" / L"b.dmp", "b");
    }

    int32_t Copy(const wchar_t* from, const wchar_t* to, int32_t option1 = 1, uint32_t option2 = 1) {
        counters_ = {7, 7, 7};
        return ZoProtector_CopyDirectory(from, to, option1, option2, &counters_[0], &counters_[1], &counters_[2]);
    }

    using Counters = std::array<uint32_t, 3>;

    const TempFolder folder_;
    const std::wstring from_ = (folder_ / L"from").wstring();
    const std::wstring to_ = (folder_ / L"to \x00E9").wstring();
    Counters counters_{};  // files, folders, skipped
};

TEST_F(CopyDirectoryTest, SendsPathsAndOptions) {
    EXPECT_EQ(Copy(from_.c_str(), to_.c_str(), -5, 0x100), ZOP_OK);
    EXPECT_EQ(ReadFileBytes(std::filesystem::path(to_) / L"below" / L"b.dmp"), "b");
    EXPECT_EQ(counters_[0], 2u);

    const ZoSimRequest sent = Simulator().LastRequest();
    EXPECT_EQ(sent.code, 0x8000C100u);
    EXPECT_EQ(sent.inLength, 2084u);
    EXPECT_EQ(sent.outLength, 16u);
    const auto record = RecordOf<ZoProtectorCopyDirectoryRequest>(sent);
    EXPECT_EQ(FieldText(record.sourceDir), NtPath(from_));
    EXPECT_EQ(FieldText(record.destinationDir), NtPath(to_));
    EXPECT_EQ(record.option1, 1);
    EXPECT_EQ(record.option2, 1);

    EXPECT_EQ(ZoProtector_CopyDirectory(from_.c_str(), to_.c_str(), 0, 0, nullptr, nullptr, nullptr), ZOP_OK);
    const auto second = RecordOf<ZoProtectorCopyDirectoryRequest>(Simulator().LastRequest());
    EXPECT_EQ(second.option1 + second.option2, 0);
}

TEST_F(CopyDirectoryTest, DeliversTheCountersThatTheDriverSent) {
    constexpr uint32_t kWarnAndPerform = ZOSIM_FAULT_STATUS | ZOSIM_FAULT_PERFORM | ZOSIM_FAULT_WORDS;
    constexpr uint32_t kReturn = ZOSIM_FAULT_RETURNED | ZOSIM_FAULT_WORDS;
    constexpr Counters kSent = {21, 22, 23};
    const Rows<uint32_t, uint32_t, uint32_t, int32_t, Counters> rows = {
        {"success", ZOSIM_FAULT_WORDS, 0, 0, ZOP_OK, kSent},
        {"warning with counters", kWarnAndPerform, 0x80000005, 0, ZOP_E_FAILED, kSent},
        {"error", ZOSIM_FAULT_STATUS, 0xC0000022, 0, ZOP_E_ACCESS_DENIED, {}},
        {"one byte short", kReturn, 0, 15, ZOP_OK, {}},
        {"more than the buffer holds", kReturn, 0, 17, ZOP_OK, kSent},
    };
    for (const auto& [name, flags, ntStatus, returned, expected, counters] : rows) {
        SCOPED_TRACE(name);
        Simulator().AddFault({ZOP_IOCTL_COPY_DIRECTORY, 0, 1, flags, ntStatus, returned, 0, 7, {21, 22, 23, 0}});
        const DebugOutput output;
        EXPECT_EQ(Copy(from_.c_str(), to_.c_str()), expected);
        EXPECT_EQ(counters_, counters);
        EXPECT_TRUE(AnyLineEndsWith(
            output.Strings(),
            zo::Format("[INFO ] CopyDirectory: '{}' -> '{}' files={} dirs={} skipped={}\r\n", zo::Utf8FromWide(from_),
                       zo::Utf8FromWide(to_), counters[0], counters[1], counters[2])));
    }
}

TEST_F(CopyDirectoryTest, ChecksBeforeItSends) {
    ZoProtector_Uninitialize();
    const std::wstring tooLong(260, L'x');
    const Rows<bool, const wchar_t*, const wchar_t*, int32_t> rows = {
        {"no source, closed", false, nullptr, L"C:\\a", ZOP_E_INVALID_ARG},
        {"empty destination, closed", false, L"C:\\a", L"", ZOP_E_INVALID_ARG},
        {"closed", false, L"C:\\a", L"C:\\b", ZOP_E_NOT_INITIALIZED},
        {"destination too long", true, L"C:\\a", tooLong.c_str(), ZOP_E_INVALID_ARG},
        {"no such drive", true, L"Q:\\a", L"C:\\b", ZOP_E_FAILED},
    };
    const uint64_t before = Simulator().RequestCount();
    for (const auto& [name, initialised, from, to, expected] : rows) {
        SCOPED_TRACE(name);
        ASSERT_EQ(initialised ? ZoProtector_Initialize() : ZOP_OK, ZOP_OK);
        EXPECT_EQ(Copy(from, to), expected);
        EXPECT_EQ(counters_, Counters{});
    }
    EXPECT_EQ(Simulator().Requests(before + 1).size(), 1u) << "the handshake alone";
}

class SelfProtectTest : public InitialisedTest {
  protected:
    SelfProtectTest() { SetImagePath(InstalledDriverPath()); }

    std::wstring ProtectedFile() const {
        const auto files = Simulator().Table<ZopFileRuleRecord>(ZOSIM_TABLE_FILE);
        return files.size() == 1 ? FieldText(files[0].path) : std::to_wstring(files.size()) + L" file rules";
    }
};

TEST_F(SelfProtectTest, ProtectsFileAndServiceKeyOnceInWhateverFormThePathIsStored) {
    for (const auto& [name, path] : StoredImagePaths()) {
        SCOPED_TRACE(name);
        SetImagePath(path);
        EXPECT_EQ(ZoProtector_AddDriverSelfProtect(), ZOP_OK);
        EXPECT_EQ(_wcsicmp(ProtectedFile().c_str(), NtPath(InstalledDriverPath()).c_str()), 0) << ProtectedFile();
    }
    EXPECT_EQ(Simulator().State().fileProtectEnabled, 1u);
    const auto keys = Simulator().Table<ZopRegistryRuleRecord>(ZOSIM_TABLE_REGISTRY);
    ASSERT_EQ(keys.size(), 1u);
    EXPECT_EQ(FieldText(keys[0].key), L"\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Services\\ZoProtector");
    EXPECT_EQ(keys[0].recursive, 1);
}

TEST_F(SelfProtectTest, ProtectsTheFileBesideTheExecutableWhenTheImagePathIsEmpty) {
    SetImagePath(L"\\??\\");
    ASSERT_EQ(ZoProtector_AddDriverSelfProtect(), ZOP_OK);
    EXPECT_EQ(ProtectedFile(), NtPath(SimulatorFile()));
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
}  // namespace zotest
