#include <filesystem>

#include "driver_channel.h"
#include "temp_folder.h"

namespace zotest {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kNotFound = 2;

// C:\x as the driver gets it: \Device\HarddiskVolume1\x.
std::wstring NtPath(const fs::path& path) {
    const std::wstring text = path.wstring();
    wchar_t device[260];
    EXPECT_NE(QueryDosDeviceW(text.substr(0, 2).c_str(), device, 260), 0u);
    return device + text.substr(2);
}

class SimulatorFiles : public ChannelTest {
  protected:
    [[nodiscard]] IoResult Copy(const fs::path& from, const fs::path& to, bool subfolders, bool overwrite,
                                ZoProtectorCopyDirectoryResult& result) const {
        ZoProtectorCopyDirectoryRequest request{};
        SetField(request.sourceDir, NtPath(from));
        SetField(request.destinationDir, NtPath(to));
        request.option1 = subfolders;
        request.option2 = overwrite;
        return Send(ZOP_IOCTL_COPY_DIRECTORY, &request, sizeof(request), &result, sizeof(result));
    }
    [[nodiscard]] std::uint32_t Replace(const fs::path& target, const fs::path& source, const fs::path& staging) const {
        ZoProtectorReplaceFileRequest request{};
        SetField(request.targetPath, NtPath(target));
        SetField(request.sourcePath, NtPath(source));
        SetField(request.stagingPath, NtPath(staging));
        return Give(ZOP_IOCTL_REPLACE_FILE, request);
    }

    TempFolder folder_;
};

TEST_F(SimulatorFiles, CopyMovesTheWholeTreeWithTimes) {
    const std::string big(200'000, '\xA5');  // more than one block
    WriteFileBytes(folder_ / "from" / "a.dmp", big);
    WriteFileBytes(folder_ / "from" / "empty", "");
    WriteFileBytes(folder_ / "from" / "sub" / "deep" / "b.txt", "b");
    WriteFileBytes(folder_ / "from" / L"gr\u00FC\u00DFe" / "c", "c");
    const auto old = fs::last_write_time(folder_ / "from" / "a.dmp") - std::chrono::hours(1000);
    fs::last_write_time(folder_ / "from" / "a.dmp", old);
    ZoProtectorCopyDirectoryResult result{};
    const IoResult io = Copy(folder_ / "from", folder_ / "to", true, true, result);
    EXPECT_EQ(io.error, 0u);
    EXPECT_EQ(io.returned, 16u);
    EXPECT_EQ(result.filesCopied, 4u);
    EXPECT_EQ(result.dirsCopied, 4u) << "the destination itself, sub, deep, and the one beyond ASCII";
    EXPECT_EQ(result.skipped, 0u);
    EXPECT_EQ(ReadFileBytes(folder_ / "to" / "a.dmp"), big);
    EXPECT_EQ(ReadFileBytes(folder_ / "to" / "sub" / "deep" / "b.txt"), "b");
    EXPECT_EQ(ReadFileBytes(folder_ / "to" / L"gr\u00FC\u00DFe" / "c"), "c");
    EXPECT_TRUE(fs::exists(folder_ / "to" / "empty"));
    EXPECT_EQ(fs::last_write_time(folder_ / "to" / "a.dmp"), old);
}

TEST_F(SimulatorFiles, TheOptionsDecideOnSubfoldersAndExistingFiles) {
    WriteFileBytes(folder_ / "from" / "a", "new");
    WriteFileBytes(folder_ / "from" / "b", "new");
    WriteFileBytes(folder_ / "from" / "sub" / "c", "new");
    struct {
        bool subfolders, overwrite;
        std::uint32_t files, dirs, skipped;
        const char* a;
    } const cases[] = {
        {false, false, 1, 0, 2, "old"},
        {false, true, 2, 0, 1, "new"},
        {true, false, 2, 1, 1, "old"},
        {true, true, 3, 1, 0, "new"},
    };
    for (const auto& c : cases) {
        RemoveTree((folder_ / "to").wstring());
        WriteFileBytes(folder_ / "to" / "a", "old");
        ZoProtectorCopyDirectoryResult result{};
        EXPECT_EQ(Copy(folder_ / "from", folder_ / "to", c.subfolders, c.overwrite, result).error, 0u);
        EXPECT_EQ(result.filesCopied, c.files);
        EXPECT_EQ(result.dirsCopied, c.dirs);
        EXPECT_EQ(result.skipped, c.skipped);
        EXPECT_EQ(ReadFileBytes(folder_ / "to" / "a"), c.a);
    }
}

TEST_F(SimulatorFiles, CopyRefusesWhatItCannotBegin) {
    WriteFileBytes(folder_ / "from" / "a", "a");
    ZoProtectorCopyDirectoryResult result{};
    EXPECT_EQ(Copy(folder_ / "missing", folder_ / "to", true, true, result).error, kNotFound);
    EXPECT_FALSE(fs::exists(folder_ / "to"));
    EXPECT_EQ(Copy(folder_ / "from", folder_ / "no" / "parent", true, true, result).error, 3u);
    for (const wchar_t* onto : {L"FROM\\inside", L"from", L"from\\", L"from\\\\"}) {
        EXPECT_EQ(Copy(folder_ / "from", folder_ / onto, true, true, result).error, 87u) << fs::path(onto);
        EXPECT_EQ(Copy(folder_ / "from\\", folder_ / onto, true, true, result).error, 87u) << fs::path(onto);
    }
    EXPECT_EQ(ReadFileBytes(folder_ / "from" / "a"), "a") << "copied onto itself";
    EXPECT_EQ(Copy(folder_ / "from", folder_ / "from2", true, true, result).error, 0u) << "only begins like it";
    const ZoProtectorCopyDirectoryRequest empty{};
    EXPECT_EQ(Send(ZOP_IOCTL_COPY_DIRECTORY, &empty, sizeof(empty), &result, sizeof(result)).error, 87u);
}

TEST_F(SimulatorFiles, ReplaceStagesTheOldFileAndPutsACopyInPlace) {
    const fs::path target = folder_ / "driver.sys", source = folder_ / "new.sys", staging = folder_ / "old.tmp";
    WriteFileBytes(target, "old");
    WriteFileBytes(source, "new contents");
    {
        // A reader that shares deletion is what a loaded image is like: it can be renamed but not overwritten.
        const zo::OwnedFile held(CreateFileW(target.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                             OPEN_EXISTING, 0, nullptr));
        ASSERT_TRUE(held);
        EXPECT_EQ(Replace(target, source, staging), 0u);
    }
    EXPECT_EQ(ReadFileBytes(target), "new contents");
    EXPECT_EQ(ReadFileBytes(staging), "old");
    EXPECT_EQ(ReadFileBytes(source), "new contents");
}

TEST_F(SimulatorFiles, AFailedReplaceLeavesTheOldFileInPlace) {
    const fs::path target = folder_ / "t", source = folder_ / "s", staging = folder_ / "old";
    WriteFileBytes(target, "old");
    WriteFileBytes(source, "new");
    WriteFileBytes(folder_ / "taken", "x");
    EXPECT_EQ(Replace(target, folder_ / "missing", staging), kNotFound);
    EXPECT_EQ(Replace(folder_ / "missing", source, staging), kNotFound);
    EXPECT_EQ(Replace(target, source, folder_ / "taken"), 183u);
    EXPECT_EQ(Replace(target, source, folder_ / "no" / "such"), 3u);
    EXPECT_EQ(Replace(target, target, staging), 0u) << "a file may replace itself";
    EXPECT_EQ(ReadFileBytes(target), "old");
    EXPECT_FALSE(fs::exists(folder_ / "missing"));
    EXPECT_EQ(ReadFileBytes(folder_ / "taken"), "x");
    DeleteFileW(staging.c_str());

    // A source that opens but cannot be read, so that the copy breaks off after the target has been moved: a locked
    // file on Windows, where Wine does not hold readers up, but shows a Unix file that fails to be read.
    const zo::OwnedFile lock(CreateFileW(source.c_str(), GENERIC_READ | GENERIC_WRITE,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                         0, nullptr));
    ASSERT_TRUE(LockFile(lock.Get(), 0, 0, 100, 0));
    const fs::path unreadable = L"Z:\\proc\\self\\mem";
    EXPECT_NE(Replace(target, fs::exists(unreadable) ? unreadable : source, staging), 0u);
    EXPECT_EQ(ReadFileBytes(target), "old");
    EXPECT_FALSE(fs::exists(staging));
}

}  // namespace
}  // namespace zotest
