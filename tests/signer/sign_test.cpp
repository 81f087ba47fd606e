// What a manifest lists and how signing reports what it cannot.

#include <array>
#include <bit>
#include <utility>

#include "error_text.h"
#include "process_counts.h"
#include "sealed_tree.h"

namespace zotest {
namespace {

constexpr std::int32_t kFail = static_cast<std::int32_t>(0x80004005);

std::uint64_t TimeOf(const SealedTree& tree) {
    const std::string manifest = tree.ManifestBytes();
    return std::stoull(manifest.substr(manifest.find("\nTIME ") + 6));
}

// The manifest of these directories and entries (lines from "D" on), with the time that the tree's own manifest has.
std::string Expected(const SealedTree& tree, std::size_t count, const std::string& lines) {
    const std::string body = zo::Format("ALG RSA-2048-PKCS1-SHA256\nROOT {}\nPUB {}\nTIME {}\nCOUNT {}\n----\n{}",
                                        zo::Utf8FromWide(tree.root.wstring()), Sha256Hex(PublicHalf(PrivateKey())),
                                        TimeOf(tree), count, lines);
    return "ZOSIG1\nMSIG " + SignatureHex("ZOSIG1\n" + body) + "\n" + body;
}

TEST(Sign, WritesTheTimeOfSigning) {
    const SealedTree tree;
    ASSERT_EQ(tree.Sign().status, 0);
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    EXPECT_LT(std::bit_cast<std::uint64_t>(now) - TimeOf(tree), 600'000'000u) << "less than a minute ago";
}

TEST(Sign, WritesEachFolderBeforeItsContentsInListingOrder) {
    const std::string names = "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80";
    const std::string large(200000, 'x');
    const SealedTree tree{"b.txt", "a/m.LNK", "c.lnk2", "lnk", ".lnk", "x.lnk"};
    tree.Write("a/z.bin", large);
    tree.Write("a/inner/deep.txt", "");
    tree.Write(names + "/\xE6\xBC\xA2.txt", "beyond ASCII");
    tree.MakeFolder("empty");
    const auto outcome = tree.Sign();
    ASSERT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages,
              (Lines{"0 Walking '" + zo::Utf8FromWide(tree.root.wstring()) + "' ...",
                     "0 Found 9 files, 5 directories (5 sealed). Signing...",
                     "0 Signed 7 files, anchored 2 shortcut(s) -> " + zo::Utf8FromWide(tree.manifest.wstring())}));
    const ZoSignerSignResult& r = outcome.result;
    EXPECT_EQ((std::array{r.entries, r.signedOrAnchored, r.directories, r.sealedDirectories}),
              (std::array{9u, 9u, 5u, 5u}));
    EXPECT_EQ(zo::ToHex(r.thumbprint), Sha256Hex(PublicHalf(PrivateKey())));
    EXPECT_EQ(tree.ManifestBytes(),
              Expected(tree, 9,
                       "D S .\nD S a\nD S a/inner\nD S empty\nD S " + names + "\n" + FileLines(".lnk", ".lnk") +
                           FileLines("a/inner/deep.txt", "") + "K a/m.LNK\n" + FileLines("a/z.bin", large) +
                           FileLines("b.txt", "b.txt") + FileLines("c.lnk2", "c.lnk2") + FileLines("lnk", "lnk") +
                           "K x.lnk\n" + FileLines(names + "/\xE6\xBC\xA2.txt", "beyond ASCII")));
}

TEST(Sign, TakesItsRootInAnySpelling) {
    SealedTree tree{"d/f"};
    const std::wstring root = tree.root.wstring();
    for (const std::wstring& spelling :
         {tree.root.generic_wstring(), root + L"\\", root + L"\\d\\..", L"\\\\?\\" + root}) {
        tree.root = spelling;
        ASSERT_EQ(tree.Sign().status, 0);
        EXPECT_NE(tree.ManifestBytes().find("\nD S .\nD S d\nF d/f\n"), std::string::npos) << tree.root;
        EXPECT_EQ(tree.Verify().status, 0) << tree.root;
    }
}

// Signs, and changes the tree between walk and hashing, when the seal callback is called.
Outcome<ZoSignerSignResult> SignChanging(const SealedTree& tree, const std::function<void()>& change) {
    return tree.SignAsking([&change](const std::wstring&, std::int32_t&, std::int32_t&) {
        change();
        return 0;
    });
}

TEST(Sign, ListsTheSizeOfTheWalkAndTheContentsThatItRead) {
    const SealedTree tree;
    MakeLarge(tree.At("f"), 5'000'000'000);
    ASSERT_EQ(SignChanging(tree, [&tree] { tree.Write("f", "new!"); }).status, 0);
    std::string lines = FileLines("f", "new!");
    lines.replace(lines.find("SIZE 4"), 6, "SIZE 5000000000");
    EXPECT_EQ(tree.ManifestBytes(), Expected(tree, 1, "D S .\n" + lines));
}

TEST(Sign, ReportsAndLeavesOutFilesThatCannotBeRead) {
    const SealedTree tree{"folder", "gone", "half", "held", "read"};
    const zo::OwnedFile held = Hold(tree.At("held"), 0);
    bool isNextBad = false;  // the read after the contents of "half"; keys and manifests are read in one piece
    const ImportHook read("ReadFile", ReadFile, [&](HANDLE file, void* bytes, DWORD size, DWORD* got, OVERLAPPED* at) {
        SetLastError(ERROR_CRC);
        if (std::exchange(isNextBad, false)) return FALSE;
        const BOOL done = ReadFile(file, bytes, size, got, at);
        isNextBad = size == 65536 && std::string_view(static_cast<char*>(bytes), *got) == "half";
        return done;
    });
    const auto outcome = SignChanging(tree, [&tree] {
        tree.ReplaceByFolder("folder");
        tree.Remove("gone");
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(Lines(outcome.messages.begin() + 1, outcome.messages.end() - 1),
              (Lines{"0 Found 5 files, 1 directories (1 sealed). Signing...",
                     "1 hash '" + tree.Shown("folder") + "' -> 0x80070005 (skipped)",
                     "1 hash '" + tree.Shown("gone") + "' -> 0x80070002 (skipped)",
                     "1 hash '" + tree.Shown("half") + "' -> 0x80070017 (skipped)",
                     "1 hash '" + tree.Shown("held") + "' -> 0x80070020 (skipped)"}));
    EXPECT_EQ(tree.ManifestBytes(), Expected(tree, 1, "D S .\n" + FileLines("read", "read")));
    EXPECT_EQ(tree.Verify().result.extra, 3u) << "what was left out of a sealed folder";
}

struct SealAnswer {
    std::int32_t seal;
    std::int32_t applyToRest;
    std::int32_t result = 0;  // of the callback
};

TEST(Sign, SealsFoldersByModeOrByTheCallbacksAnswers) {
    // With as many answers as there are folders to ask for, and "S" or "O" for each folder, nothing when signing fails.
    const Rows<std::uint32_t, std::vector<SealAnswer>, std::string, std::int32_t> rows = {
        {"all", ZOSIG_SEAL_ALL, {}, "SSSS", 0},
        {"none", ZOSIG_SEAL_NONE, {}, "OOOO", 0},
        {"each its own answer", ZOSIG_SEAL_ASK, {{1, 0}, {0, 0}, {5, 0}, {0, 0}}, "SOSO", 0},
        {"the first answer for all", ZOSIG_SEAL_ASK, {{0, 1}}, "OOOO", 0},
        {"an answer for more than the subtree; unknown mode", 77, {{0, 0}, {-1, 2}}, "OSSS", 0},
        {"a negative result", ZOSIG_SEAL_ASK, {{1, 0}, {1, 1, -5}}, "", -5},
        {"positive results", ZOSIG_SEAL_ASK, {{0, 0, 1}, {1, 1, 7}}, "OSSS", 0},
    };
    const SealedTree tree{"a/\xC3\xA4/x", "b/y"};
    const std::vector<std::wstring> folders{L".", L"a", L"a/\u00e4", L"b"};
    for (const auto& [name, mode, answers, s, status] : rows) {
        SCOPED_TRACE(name);
        std::vector<std::wstring> asked;
        const auto answer = [&, &given = answers](const std::wstring& path, std::int32_t& seal, std::int32_t& rest) {
            asked.push_back(path);
            EXPECT_TRUE(seal == 1 && rest == 0);
            const SealAnswer& own = given.at(asked.size() - 1);
            seal = own.seal;
            rest = own.applyToRest;
            return own.result;
        };
        const auto outcome = tree.SignAsking(answer, mode);
        EXPECT_EQ(asked, std::vector(folders.begin(), folders.begin() + std::ssize(answers)));
        EXPECT_EQ(outcome.status, status);
        if (s.empty()) continue;
        const std::string lines = zo::Format("----\nD {} .\nD {} a\nD {} a/\xC3\xA4\nD {} b\n", s[0], s[1], s[2], s[3]);
        EXPECT_NE(tree.ManifestBytes().find(lines), std::string::npos);
        EXPECT_EQ(outcome.result.sealedDirectories, std::ranges::count(s, 'S'));
    }
    EXPECT_EQ(tree.Sign([](auto& options) { options.sealMode = ZOSIG_SEAL_ASK; }).status, kInvalidArgument);
}

TEST(SignAndVerify, CheckTheirArgumentsFirst) {
    const SealedTree tree;
    const std::uint8_t blob[1179] = {};
    const auto check = [&tree](const char* name, const auto& change) {
        const auto signing = tree.Sign(change);
        const auto verification = tree.Verify(change);
        EXPECT_TRUE(signing.status == kInvalidArgument && verification.status == kInvalidArgument) << name;
        EXPECT_TRUE(signing.messages.empty() && verification.messages.empty()) << name;
    };
    check("no root", [](auto& options) { options.root = nullptr; });
    check("no manifest", [](auto& options) { options.manifest = nullptr; });
    check("no keystore", [](auto& options) { options.keystore = nullptr; });
    check("empty keystore", [](auto& options) { options.keystore = L""; });
    check("blob of no size", [&blob](auto& options) { options.keystore = nullptr, options.keyBlob = blob; });
    check("size without a blob", [](auto& options) { options.keystore = nullptr, options.keyBlobSize = 1179; });
    EXPECT_EQ(ZoSigner_SignDirectory(nullptr, nullptr), kInvalidArgument);
    EXPECT_EQ(ZoSigner_VerifyDirectory(nullptr, nullptr), kInvalidArgument);
    EXPECT_EQ(ZoSigner_VerifyDirectoryWithEmbeddedKey(nullptr, nullptr), kInvalidArgument);
}

TEST(SignAndVerify, ReportARootThatCannotBeResolved) {
    const SealedTree tree;
    ASSERT_EQ(tree.Sign([](auto& options) { options.logCallback = nullptr; }).status, 0);
    const auto noRoot = [](auto& options) { options.root = L""; };
    const std::string message = "2 resolve root: " + zo::ErrorText(ERROR_INVALID_NAME);
    tree.Sign(noRoot).ExpectAtEnd(kInvalidArgument, message);
    tree.Verify(noRoot).ExpectAtEnd(kInvalidArgument, message);
}

TEST(Sign, FailsWithAMessageWhenTheRootIsNoFolder) {
    SealedTree tree{"file"};
    tree.root = tree.At("file");
    tree.Sign().ExpectAtEnd(kFail, "2 open root '" + tree.Shown("file") + "': ");
}

TEST(Sign, RaisesAnErrorWhenTheManifestsFolderCannotBeMade) {
    SealedTree tree{"file"};
    tree.manifest = tree.At("file/seal");
    EXPECT_THROW(tree.Sign(), std::filesystem::filesystem_error);
}

TEST(Sign, FailsWithAMessageWhenTheManifestCannotBeWritten) {
    SealedTree tree{"f"};
    {
        const ImportHook sign("BCryptSignHash", BCryptSignHash,
                              [](auto...) { return static_cast<NTSTATUS>(0xC0000001); });
        const auto outcome = tree.Sign();
        EXPECT_EQ(outcome.messages[2], "1 sign '" + tree.Shown("f") + "' -> 0xC0000001 (skipped)");
        outcome.ExpectAtEnd(kFail, "2 sign manifest -> 0xC0000001");
    }
    {
        ASSERT_EQ(tree.Sign().status, 0);
        const zo::OwnedFile reader = Hold(tree.manifest, FILE_SHARE_READ | FILE_SHARE_WRITE);
        tree.Sign().ExpectAtEnd(kFail, "2 Create manifest -> Win32 32");
        const ImportHook hash("BCryptFinishHash", BCryptFinishHash,
                              [](auto...) { return static_cast<NTSTATUS>(0xC0000001); });
        tree.Sign().ExpectAtEnd(kFail, "2 hash manifest -> 0xC0000001");
        tree.Verify().Expect(static_cast<std::int32_t>(0xD0000001), {"2 hash manifest for verify -> 0xC0000001"});
    }
    {
        const ImportHook write("WriteFile", FailWith<ERROR_DISK_FULL>);
        tree.Sign().ExpectAtEnd(kFail, "2 Write manifest -> Win32 112");
    }
    tree.manifest = tree.root;
    tree.Sign().ExpectAtEnd(kFail, "2 Create manifest -> Win32 5");
}

TEST(SignAndVerify, LeaveNoHandleOrMemoryBehind) {
    const SealedTree tree{"1", "a/2", "a/3", "b/4", "b/c/5", "k.lnk"};
    std::uint32_t handles = 0;
    std::size_t blocks = 0;
    for (int i = 0; i < 13; ++i) {
        if (i == 3) handles = OpenHandleCount(), blocks = BusyHeapBlocks();
        ASSERT_EQ(tree.Sign().status, 0);
        ASSERT_EQ(tree.Verify().status, 0);
        ASSERT_EQ(tree.Sign([](auto& options) { options.root = L"?:\\none"; }).status, kFail);
        ASSERT_EQ(tree.Verify([](auto& options) { options.keystore = L"none"; }).status, ZOSIG_E_NO_KEY);
    }
    EXPECT_EQ(OpenHandleCount(), handles);
    EXPECT_LT(BusyHeapBlocks(), blocks + 10);
}

}  // namespace
}  // namespace zotest
