// Listings as file systems give them that the test's own cannot: refused, broken off, with names that are not UTF-16,
// without file ids. Import hooks stand in for them.

#include <gtest/gtest.h>

#include <functional>
#include <string_view>

#include "error_text.h"
#include "import_hook.h"
#include "sealed_tree.h"

namespace zotest {
namespace {

constexpr std::int32_t kAccessDenied = static_cast<std::int32_t>(0x80070005);

// ---- Folders that are denied

// The error for a path, 0 to let it through.
std::function<std::uint32_t(std::wstring_view path)> errorFor;

bool Refused(const wchar_t* path) {
    const std::uint32_t error = errorFor(path);
    if (error != 0) SetLastError(error);
    return error != 0;
}
HANDLE WINAPI CreateUnlessRefused(const wchar_t* path, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security,
                                  DWORD disposition, DWORD flags, HANDLE model) {
    return Refused(path) ? INVALID_HANDLE_VALUE
                         : CreateFileW(path, access, sharing, security, disposition, flags, model);
}
DWORD WINAPI AttributesUnlessRefused(const wchar_t* path) {
    return Refused(path) ? INVALID_FILE_ATTRIBUTES : GetFileAttributesW(path);
}

// Folders refuse to be opened and looked at while this lives.
class RefusedFolders {
  public:
    explicit RefusedFolders(std::function<std::uint32_t(std::wstring_view)> error) { errorFor = std::move(error); }

  private:
    ImportHook create_{"CreateFileW", CreateUnlessRefused};
    ImportHook attributes_{"GetFileAttributesW", AttributesUnlessRefused};
};

std::string Unseen(const SealedTree& tree, const std::string& folder, std::uint32_t error) {
    return "2 cannot list sealed dir '" + tree.Shown(folder) + "': " + zo::ErrorText(error);
}

TEST(VerifyListing, ReturnsTheErrorOfTheFirstFolderThatIsNotSeenAndChecksTheRest) {
    const StandardTree tree;
    tree.Write("open/new", "");
    tree.Write("new", "");
    const RefusedFolders refused([](std::wstring_view path) {
        return path.ends_with(L"\\d\\e") ? 32u : path.ends_with(L"\\empty") ? 5u : 0u;
    });
    tree.ExpectFindings({{kExtraFile, "new"}}, {Unseen(tree, "d/e", 32), Unseen(tree, "empty", 5)},
                        static_cast<std::int32_t>(0x80070020));
}

TEST(VerifyListing, TakesAFolderAsGoneOnlyWhenItIsNotFound) {
    const StandardTree tree;
    for (const std::uint32_t error : {2u, 3u, 5u, 21u, 32u, 53u, 123u, 267u, 1920u}) {
        SCOPED_TRACE(error);
        const RefusedFolders refused(
            [error](std::wstring_view path) { return path.ends_with(L"\\empty") ? error : 0u; });
        const bool isGone = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
        tree.ExpectFindings({}, isGone ? Lines{} : Lines{Unseen(tree, "empty", error)},
                            isGone ? 0 : static_cast<std::int32_t>(0x80070000 | error));
    }
}

// ---- Listings that are changed on their way

// The reads of listings that still work before they fail with "access denied".
int workingReads;

BOOL WINAPI ListSome(HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, void* buffer, DWORD size) {
    if (kind == FileIdInfo || workingReads-- > 0) return GetFileInformationByHandleEx(file, kind, buffer, size);
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

// With the reads that work, the entries that signing still finds, and the number of reports.
constexpr Rows<int, std::uint32_t, std::ptrdiff_t> kBrokenListings = {
    {"at the root's end and for d", 1, 1, 2}, {"for d", 2, 1, 1}, {"at the end of d", 3, 2, 1}, {"nowhere", 4, 2, 0}};

TEST(SignListing, ReportsListingsThatBreakOffAndSignsWhatTheyGave) {
    const SealedTree tree{"a", "d/f"};
    const ImportHook hook("GetFileInformationByHandleEx", ListSome);
    for (const auto& [where, working, entries, reports] : kBrokenListings) {
        workingReads = working;
        const auto outcome = tree.Sign();
        EXPECT_EQ(outcome.status, 0) << where;
        EXPECT_EQ(outcome.result.entries, entries) << where;
        EXPECT_EQ(std::ranges::count(outcome.messages, "1 iter: " + zo::ErrorText(5)), reports) << where;
        EXPECT_EQ(std::ssize(outcome.messages), 3 + reports) << where;
    }
}

TEST(VerifyListing, ReportsASealedFolderWhoseListingBreaksOff) {
    const SealedTree tree{"a", "d/f"};
    ASSERT_EQ(tree.Sign().status, 0);
    const ImportHook hook("GetFileInformationByHandleEx", ListSome);
    for (const auto& [where, working, entries, reports] : kBrokenListings) {
        workingReads = working;
        const auto outcome = tree.Verify();
        EXPECT_EQ(outcome.status, reports == 0 ? 0 : kAccessDenied) << where;
        EXPECT_EQ(std::ssize(outcome.messages), 1 + reports) << where;
        EXPECT_EQ(outcome.result.ok, 2u) << where;
    }
}

// Called with each record of a listing.
void (*changeRecord)(FILE_FULL_DIR_INFO& record, std::wstring_view name);

BOOL WINAPI ListChanged(HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, void* buffer, DWORD size) {
    if (!GetFileInformationByHandleEx(file, kind, buffer, size)) return FALSE;
    if (kind == FileIdInfo) return TRUE;
    for (auto* next = static_cast<std::byte*>(buffer);;) {
        auto& record = *reinterpret_cast<FILE_FULL_DIR_INFO*>(next);
        changeRecord(record, {record.FileName, record.FileNameLength / sizeof(wchar_t)});
        if (record.NextEntryOffset == 0) return TRUE;
        next += record.NextEntryOffset;
    }
}

// Such names cannot be made here. "#" stands for an unpaired surrogate, "%" for a control character.
void SpoilNames(FILE_FULL_DIR_INFO& record, std::wstring_view name) {
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == L'#') record.FileName[i] = name.ends_with(L'#') ? L'\xD800' : L'\xDC00';
        if (name[i] == L'%') record.FileName[i] = L'\x1F';
    }
}

TEST(SignListing, LeavesOutNamesThatAManifestCannotHold) {
    const SealedTree tree{"%.lnk", "a#.txt", "b%", "d#/f", "e\xF0\x9F\x98\x80"};
    const ImportHook hook("GetFileInformationByHandleEx", ListChanged);
    changeRecord = SpoilNames;
    const auto outcome = tree.Sign();
    EXPECT_EQ(outcome.status, 0);
    const std::string control = "1 name with control characters: ";
    const std::string surrogate = "1 name that is not valid UTF-16: ";
    EXPECT_EQ(Lines(outcome.messages.begin() + 1, outcome.messages.end() - 2),
              (Lines{control + tree.Shown("\x1F.lnk"), surrogate + tree.Shown("a\xEF\xBF\xBD.txt"),
                     control + tree.Shown("b\x1F"), surrogate + tree.Shown("d\xEF\xBF\xBD")}));
    const std::string manifest = tree.ManifestBytes();
    EXPECT_EQ(manifest.substr(manifest.find("----"), 9), "----\nD S ");
    EXPECT_EQ(outcome.result.entries, 1u) << "a whole surrogate pair is fine";
    EXPECT_EQ(outcome.result.directories, 1u);
}

// The replacement character stands for anything that cannot be converted, so it must not stand for a listed name.
TEST(VerifyListing, ReportsNamesThatAreNotUtf16AsExtraWhateverIsListed) {
    const SealedTree tree{"caf\xEF\xBF\xBD.txt", "dir\xEF\xBF\xBD/f"};
    ASSERT_EQ(tree.Sign().status, 0);
    tree.Write("caf#.txt", "");
    tree.MakeFolder("dir#");
    const ImportHook hook("GetFileInformationByHandleEx", ListChanged);
    changeRecord = SpoilNames;
    const auto outcome = tree.Verify();
    EXPECT_EQ(outcome.status, ZOSIG_E_VERIFY_FAILED);
    EXPECT_EQ(outcome.result.ok, 2u);
    EXPECT_EQ(outcome.result.extra, 2u);
    EXPECT_EQ(outcome.messages[0], tree.Shown({kExtraFile, "caf\xEF\xBF\xBD.txt"}));
}

// ---- Which item is the manifest

enum class Ids { kReal, kNone, kZero };
Ids ids;

BOOL WINAPI GiveIds(HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, void* buffer, DWORD size) {
    if (kind == FileIdInfo && ids == Ids::kNone) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (!GetFileInformationByHandleEx(file, kind, buffer, size)) return FALSE;
    if (kind == FileIdInfo && ids == Ids::kZero) static_cast<FILE_ID_INFO*>(buffer)->FileId = {};
    return TRUE;
}

// The 64-bit number does not tell files apart where it is zero for all, or one that only begins a longer id.
BOOL WINAPI GiveOneNumberToAllFiles(HANDLE file, BY_HANDLE_FILE_INFORMATION* information) {
    if (!GetFileInformationByHandle(file, information)) return FALSE;
    information->nFileIndexHigh = information->nFileIndexLow = 0;
    return TRUE;
}

struct ManifestInTree : testing::TestWithParam<Ids> {
    SealedTree tree;
    const ImportHook idHook{"GetFileInformationByHandleEx", GiveIds};
    const ImportHook numberHook{"GetFileInformationByHandle", GiveOneNumberToAllFiles};

    void SetUp() override {
        ids = GetParam();
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
}

TEST_P(ManifestInTree, IsNotAnotherFileOfTheSameSizeAndTimes) {
    CopyManifest("d/copy");
    CopyManifest("seal.zosig");
    const auto outcome = tree.Verify();
    EXPECT_EQ(outcome.messages[0], tree.Shown({kExtraFile, "seal.zosig"}));
    EXPECT_EQ(outcome.result.extra, 2u);
    EXPECT_EQ(tree.Sign().result.entries, 2u);
}

void ShowLinks(FILE_FULL_DIR_INFO& record, std::wstring_view name) {
    if (name == L"link.zosig") record.FileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
}

// A hard link shown as a link has the identity of what it leads to.
TEST_P(ManifestInTree, IsALinkOnlyWhenTheLinksOwnPathIsGiven) {
    tree.LinkToManifest("d/link.zosig");
    const ImportHook hook("GetFileInformationByHandleEx", ListChanged);
    changeRecord = ShowLinks;
    EXPECT_EQ(tree.Verify().messages[0], tree.Shown({kExtraLink, "d/link.zosig"}));
    tree.manifest = tree.At("D\\Link.zosig");
    const auto outcome = tree.Verify();
    EXPECT_EQ(outcome.status, 0) << outcome.messages[0];
}

std::string VolumeName(const testing::TestParamInfo<Ids>& info) {
    return info.param == Ids::kReal ? "WithIds" : info.param == Ids::kNone ? "WithoutIds" : "WithZeroIds";
}
INSTANTIATE_TEST_SUITE_P(OnAVolume, ManifestInTree, testing::Values(Ids::kReal, Ids::kNone, Ids::kZero), VolumeName);

}  // namespace
}  // namespace zotest
