#include <filesystem>

#include "driver_channel.h"
#include "temp_folder.h"

namespace zotest {
namespace {

namespace fs = std::filesystem;

// C:\x as the driver gets it: \Device\HarddiskVolume1\x.
std::wstring NtPath(fs::path path) {
    wchar_t device[260];
    EXPECT_NE(QueryDosDeviceW(path.root_name().c_str(), device, 260), 0u);
    return device + path.make_preferred().wstring().substr(2);
}

// Files and folders are named by their paths below the test's folder.
class SimulatorFiles : public ChannelTest {
  protected:
    [[nodiscard]] std::uint32_t Copy(const fs::path& from, const fs::path& to, bool subfolders = true,
                                     bool overwrite = true) {
        ZoProtectorCopyDirectoryRequest request{};
        SetField(request.sourceDir, NtPath(folder_ / from));
        SetField(request.destinationDir, NtPath(folder_ / to));
        request.option1 = subfolders;
        request.option2 = overwrite;
        return Send(ZOP_IOCTL_COPY_DIRECTORY, &request, sizeof(request), &copied_, sizeof(copied_)).error;
    }
    [[nodiscard]] std::uint32_t Replace(const fs::path& target, const fs::path& source, const fs::path& staging) const {
        ZoProtectorReplaceFileRequest request{};
        SetField(request.targetPath, NtPath(folder_ / target));
        SetField(request.sourcePath, NtPath(folder_ / source));
        SetField(request.stagingPath, NtPath(folder_ / staging));
        return Give(ZOP_IOCTL_REPLACE_FILE, request);
    }
    void Write(const fs::path& path, const std::string& bytes) const { WriteFileBytes(folder_ / path, bytes); }
    [[nodiscard]] std::string Read(const fs::path& path) const { return ReadFileBytes(folder_ / path); }

    TempFolder folder_;
    ZoProtectorCopyDirectoryResult copied_{};
};

TEST_F(SimulatorFiles, ACopyIsOfWhatTheOptionsSayWithTimes) {
    const std::string big(200'000, '\xA5');  // more than one block
    Write(L"from/gr\u00FC\u00DFe", big);
    Write("from/b", "new");
    Write("from/sub/deep/c", "");
    const auto old = fs::last_write_time(folder_ / "from/b") - std::chrono::hours(1000);
    fs::last_write_time(folder_ / "from/b", old);
    const struct {
        bool subfolders, overwrite;
        std::uint32_t files, dirs, skipped;
    } cases[] = {{false, false, 1, 0, 2}, {false, true, 2, 0, 1}, {true, false, 2, 2, 1}, {true, true, 3, 2, 0}};
    for (const auto& c : cases) {
        RemoveTree((folder_ / "to").wstring());
        Write("to/b", "old");
        EXPECT_EQ(Copy("from", "to", c.subfolders, c.overwrite), 0u);
        EXPECT_EQ(copied_.filesCopied, c.files);
        EXPECT_EQ(copied_.dirsCopied, c.dirs);
        EXPECT_EQ(copied_.skipped, c.skipped);
        EXPECT_EQ(Read(L"to/gr\u00FC\u00DFe"), big);
        EXPECT_EQ(Read("to/b"), c.overwrite ? "new" : "old");
        EXPECT_EQ(fs::last_write_time(folder_ / "to/b") == old, c.overwrite);
        EXPECT_EQ(fs::exists(folder_ / "to/sub/deep/c"), c.subfolders);
    }
}

TEST_F(SimulatorFiles, ACopyIsRefusedThatCannotBegin) {
    Write("from/a", "a");
    EXPECT_EQ(Copy("missing", "to"), 2u);
    EXPECT_FALSE(fs::exists(folder_ / "to"));
    EXPECT_EQ(Copy("from", "no/parent"), 3u);
    for (const wchar_t* onto : {L"FROM\\inside", L"from", L"from\\\\"}) {
        EXPECT_EQ(Copy("from", onto), 87u) << fs::path(onto);
        EXPECT_EQ(Copy("from\\", onto), 87u) << fs::path(onto);
    }
    EXPECT_EQ(Copy("from", "from2"), 0u) << "only begins like it";
    const ZoProtectorCopyDirectoryRequest empty{};
    EXPECT_EQ(Send(ZOP_IOCTL_COPY_DIRECTORY, &empty, sizeof(empty), &copied_, sizeof(copied_)).error, 87u);
}

// That it replaces, also what is in use, is seen in the upgrade by the driver.
TEST_F(SimulatorFiles, AFailedReplaceLeavesTheOldFileInPlace) {
    Write("target", "old");
    Write("source", "new");
    Write("taken", "x");
    EXPECT_EQ(Replace("target", "missing", "staging"), 2u);
    EXPECT_EQ(Replace("missing", "source", "staging"), 2u);
    EXPECT_EQ(Replace("target", "source", "taken"), 183u);
    EXPECT_EQ(Replace("target", "source", "no/such"), 3u);
    // A source that opens but cannot be read, so that the copy breaks off after the target has been moved: a locked
    // file on Windows, where Wine does not hold readers up, but shows a Unix file that fails to be read.
    const zo::OwnedFile lock(
        CreateFileW((folder_ / "source").c_str(), GENERIC_READ | GENERIC_WRITE, 7, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(LockFile(lock.Get(), 0, 0, 100, 0));
    const fs::path unreadable = L"Z:\\proc\\self\\mem";
    EXPECT_NE(Replace("target", fs::exists(unreadable) ? unreadable : "source", "staging"), 0u);
    EXPECT_EQ(Read("target"), "old");
    EXPECT_EQ(Read("taken"), "x");
    EXPECT_FALSE(fs::exists(folder_ / "missing"));
    EXPECT_FALSE(fs::exists(folder_ / "staging"));
}

}  // namespace
}  // namespace zotest
