#include <filesystem>

#include "driver_channel.h"
#include "temp_folder.h"

namespace zotest {
namespace {

namespace fs = std::filesystem;

// Files and folders are named by their paths below the test's folder.
class SimulatorFiles : public ChannelTest {
  protected:
    [[nodiscard]] std::uint32_t Copy(const fs::path& from, const fs::path& to, bool subfolders = true,
                                     bool overwrite = true) {
        ZoProtectorCopyDirectoryRequest request{};
        SetField(request.sourceDir, NtPath((folder_ / from).make_preferred().wstring()));
        SetField(request.destinationDir, NtPath((folder_ / to).make_preferred().wstring()));
        request.option1 = subfolders;
        request.option2 = overwrite;
        return Send(ZOP_IOCTL_COPY_DIRECTORY, &request, sizeof(request), &copied_, sizeof(copied_)).error;
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

}  // namespace
}  // namespace zotest
