// Listings as file systems give them that the test's own cannot: refused, broken off, with names that are not UTF-16,
// without file ids. Import hooks stand in for them.

#include <map>
#include <string_view>

#include "error_text.h"
#include "sealed_tree.h"

namespace zotest {
namespace {

// ---- Folders that are denied

// While this lives, folders whose paths end in these ways refuse to be opened and looked at, with these errors.
class RefusedFolders {
  public:
    explicit RefusedFolders(std::map<std::wstring, DWORD> errors) : errors_(std::move(errors)) {}

  private:
    bool IsRefused(std::wstring_view path) const {
        const auto found = std::ranges::find_if(errors_, [&](auto& item) { return path.ends_with(item.first); });
        if (found != errors_.end()) SetLastError(found->second);
        return found != errors_.end();
    }

    std::map<std::wstring, DWORD> errors_;
    ImportHook create_{"CreateFileW", CreateFileW, [this](const wchar_t* path, auto... rest) {
                           return IsRefused(path) ? INVALID_HANDLE_VALUE : CreateFileW(path, rest...);
                       }};
    ImportHook attributes_{"GetFileAttributesW", GetFileAttributesW, [this](const wchar_t* path) {
                               return IsRefused(path) ? INVALID_FILE_ATTRIBUTES : GetFileAttributesW(path);
                           }};
};

std::string Unseen(const SealedTree& tree, const std::string& folder, DWORD error) {
    return "2 cannot list sealed dir '" + tree.Shown(folder) + "': " + zo::ErrorText(error);
}

TEST(VerifyListing, ReturnsTheErrorOfTheFirstFolderThatIsNotSeenAndChecksTheRest) {
    const StandardTree tree;
    tree.Write("open/new", "");
    tree.Write("new", "");
    const RefusedFolders refused({{L"\\d\\e", 32}, {L"\\empty", 5}});
    tree.ExpectFindings({{kExtraFile, "new"}}, {Unseen(tree, "d/e", 32), Unseen(tree, "empty", 5)},
                        static_cast<std::int32_t>(0x80070020));
}

TEST(VerifyListing, TakesAFolderAsGoneOnlyWhenItIsNotFound) {
    const StandardTree tree;
    for (const DWORD error : {2u, 3u, 5u, 21u, 53u, 123u, 267u, 1920u}) {
        SCOPED_TRACE(error);
        const RefusedFolders refused({{L"\\empty", error}});
        const bool isGone = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
        tree.ExpectFindings({}, isGone ? Lines{} : Lines{Unseen(tree, "empty", error)},
                            isGone ? 0 : static_cast<std::int32_t>(0x80070000 | error));
    }
}

// ---- Listings that are changed on their way

TEST(SignAndVerifyListing, ReportListingsThatBreakOffAndUseWhatTheyGave) {
    // With the reads before the one that fails, the entries that signing finds, and the number of reports.
    const Rows<int, std::uint32_t, std::ptrdiff_t> rows = {
        {"at the root's end", 1, 2, 1}, {"for d", 2, 1, 1}, {"at the end of d", 3, 2, 1}, {"nowhere", 4, 2, 0}};
    const SealedTree tree{"a", "d/f"};
    ASSERT_EQ(tree.Sign().status, 0);
    const std::wstring other = (tree.folder / "other.zosig").wstring();
    int workingReads = 0;
    const ImportHook hook("GetFileInformationByHandleEx", GetFileInformationByHandleEx,
                          [&](HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, auto... rest) {
                              if (kind == FileIdInfo || workingReads-- != 0)
                                  return GetFileInformationByHandleEx(file, kind, rest...);
                              SetLastError(ERROR_ACCESS_DENIED);
                              return FALSE;
                          });
    for (const auto& [where, working, entries, reports] : rows) {
        SCOPED_TRACE(where);
        workingReads = working;
        const auto verification = tree.Verify();
        EXPECT_EQ(verification.status, reports == 0 ? 0 : static_cast<std::int32_t>(0x80070005));
        EXPECT_EQ(std::ssize(verification.messages), 1 + reports);
        EXPECT_EQ(verification.result.ok, 2u);
        workingReads = working;
        const auto signing = tree.Sign([&](auto& options) { options.manifest = other.c_str(); });
        EXPECT_EQ(signing.status, 0);
        EXPECT_EQ(signing.result.entries, entries);
        EXPECT_EQ(std::ranges::count(signing.messages, "1 iter: " + zo::ErrorText(5)), reports);
        EXPECT_EQ(std::ssize(signing.messages), 3 + reports);
    }
}

// Lets a test change each record of a listing.
class ChangedListing {
  public:
    using Change = void (*)(FILE_FULL_DIR_INFO& record, std::wstring_view name);
    explicit ChangedListing(Change change) : change_(change) {}

  private:
    void ChangeRecords(void* buffer) const {
        for (auto* next = static_cast<std::byte*>(buffer);;) {
            auto& record = *reinterpret_cast<FILE_FULL_DIR_INFO*>(next);
            change_(record, {record.FileName, record.FileNameLength / sizeof(wchar_t)});
            if (record.NextEntryOffset == 0) return;
            next += record.NextEntryOffset;
        }
    }

    Change change_;
    ImportHook hook_{"GetFileInformationByHandleEx", GetFileInformationByHandleEx,
                     [this](HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, void* buffer, DWORD size) {
                         const BOOL done = GetFileInformationByHandleEx(file, kind, buffer, size);
                         if (done && kind != FileIdInfo) ChangeRecords(buffer);
                         return done;
                     }};
};

// Such names cannot be made here. "#" stands for an unpaired surrogate, "%" for a control character.
void SpoilNames(FILE_FULL_DIR_INFO& record, std::wstring_view name) {
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == L'#') record.FileName[i] = name.ends_with(L'#') ? L'\xD800' : L'\xDC00';
        if (name[i] == L'%') record.FileName[i] = L'\x1F';
    }
}

TEST(SignListing, LeavesOutNamesThatAManifestCannotHold) {
    const SealedTree tree{"%.lnk", "a#.txt", "b%", "d#/f", "e\xF4\x8F\xBF\xBF\xF4\x8F\xB0\x80\xEE\x80\x80"};
    const ChangedListing listing(SpoilNames);
    const auto outcome = tree.Sign();
    EXPECT_EQ(outcome.status, 0);
    const std::string control = "1 name with control characters: ";
    const std::string surrogate = "1 name that is not valid UTF-16: ";
    EXPECT_EQ(Lines(outcome.messages.begin() + 1, outcome.messages.end() - 2),
              (Lines{control + tree.Shown("\x1F.lnk"), surrogate + tree.Shown("a\xEF\xBF\xBD.txt"),
                     control + tree.Shown("b\x1F"), surrogate + tree.Shown("d\xEF\xBF\xBD")}));
    const std::string manifest = tree.ManifestBytes();
    EXPECT_EQ(manifest.substr(manifest.find("----"), 9), "----\nD S ");
    EXPECT_EQ(outcome.result.entries, 1u) << "whole surrogate pairs and what follows them in value are fine";
    EXPECT_EQ(outcome.result.directories, 1u);
}

// The replacement character stands for anything that cannot be converted, so it must not match a listed name.
TEST(VerifyListing, ReportsNamesThatAreNotUtf16AsExtraWhateverIsListed) {
    const SealedTree tree{"caf\xEF\xBF\xBD.txt", "dir\xEF\xBF\xBD/f"};
    ASSERT_EQ(tree.Sign().status, 0);
    tree.Write("caf#.txt", "");
    tree.MakeFolder("dir#");
    const ChangedListing listing(SpoilNames);
    const auto outcome = tree.Verify();
    EXPECT_EQ(outcome.status, ZOSIG_E_VERIFY_FAILED);
    EXPECT_EQ(outcome.result.ok, 2u);
    EXPECT_EQ(outcome.result.extra, 2u);
    EXPECT_EQ(outcome.messages[0], tree.Shown({kExtraFile, "caf\xEF\xBF\xBD.txt"}));
}

// ---- Which item is the manifest

// A volume whose 64-bit file numbers do not tell files apart: they are zero for all, or only begin a longer id.
struct ManifestInTree : testing::TestWithParam<std::string> {
    SealedTree tree;
    const ImportHook idHook{"GetFileInformationByHandleEx", GetFileInformationByHandleEx,
                            [](HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, void* buffer, DWORD size) {
                                if (kind == FileIdInfo && GetParam() == "NoIds") {
                                    SetLastError(ERROR_INVALID_PARAMETER);
                                    return FALSE;
                                }
                                const BOOL done = GetFileInformationByHandleEx(file, kind, buffer, size);
                                if (kind == FileIdInfo && GetParam() == "ZeroIds")
                                    static_cast<FILE_ID_INFO*>(buffer)->FileId = {};
                                return done;
                            }};
    const ImportHook numberHook{"GetFileInformationByHandle", GetFileInformationByHandle,
                                [](HANDLE file, BY_HANDLE_FILE_INFORMATION* information) {
                                    const BOOL done = GetFileInformationByHandle(file, information);
                                    information->nFileIndexHigh = information->nFileIndexLow = 0;
                                    return done;
                                }};

    void SetUp() override {
        tree.manifest = tree.At("d/seal.zosig");
        ASSERT_EQ(tree.Sign().status, 0);
        ASSERT_EQ(tree.Sign().status, 0) << "now that its folder is there";
    }

    // A file that shares everything with the manifest but its identity.
    void CopyManifest(const std::string& path) const {
        tree.Write(path, tree.ManifestBytes());
        WIN32_FILE_ATTRIBUTE_DATA data{};
        GetFileAttributesExW(tree.manifest.c_str(), GetFileExInfoStandard, &data);
        const zo::OwnedFile copy(
            CreateFileW(tree.At(path).c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        SetFileTime(copy.Get(), &data.ftCreationTime, &data.ftLastAccessTime, &data.ftLastWriteTime);
    }
};

TEST_P(ManifestInTree, IsRecognisedHoweverItsPathIsSpelt) {
    const std::wstring path = tree.manifest.wstring();
    const std::wstring folder = tree.At("d").wstring();
    for (const std::wstring& spelling : {path, folder + L"\\SEAL.zosig", folder + L"/./seal.zosig",
                                         folder + L"\\..\\d\\seal.zosig", L"\\\\?\\" + path}) {
        tree.manifest = spelling;
        EXPECT_EQ(tree.Verify().status, 0) << tree.manifest;
        EXPECT_EQ(tree.Sign().result.entries, 0u) << tree.manifest;
    }
    const ChangedListing late([](FILE_FULL_DIR_INFO& record, std::wstring_view) { record.EndOfFile = {}; });
    EXPECT_EQ(tree.Verify().status, 0) << "listed with the size before it was written";
}

TEST_P(ManifestInTree, IsNotAnotherFileOfTheSameSizeAndTimes) {
    CopyManifest("d/copy");
    CopyManifest("seal.zosig");
    const auto outcome = tree.Verify();
    EXPECT_EQ(outcome.messages[0], tree.Shown({kExtraFile, "seal.zosig"}));
    EXPECT_EQ(outcome.result.extra, 2u);
    EXPECT_EQ(tree.Sign().result.entries, 2u);
}

// A hard link shown as a link has the identity of what it leads to.
TEST_P(ManifestInTree, IsALinkOnlyWhenTheLinksOwnPathIsGiven) {
    tree.LinkToManifest("d/link.zosig");
    const ChangedListing listing([](FILE_FULL_DIR_INFO& record, std::wstring_view name) {
        if (name == L"link.zosig") record.FileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
    });
    EXPECT_EQ(tree.Verify().messages[0], tree.Shown({kExtraLink, "d/link.zosig"}));
    tree.manifest = tree.At("D\\Link.zosig");
    const auto outcome = tree.Verify();
    EXPECT_EQ(outcome.status, 0) << outcome.messages[0];
}

INSTANTIATE_TEST_SUITE_P(OnAVolumeWith, ManifestInTree, testing::Values("Ids", "NoIds", "ZeroIds"),
                         [](const auto& volume) { return volume.param; });

}  // namespace
}  // namespace zotest
