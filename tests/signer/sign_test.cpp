#include <gtest/gtest.h>

#include <array>
#include <bit>

#include "handle_count.h"
#include "heap_count.h"
#include "import_hook.h"
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

TEST(Sign, WritesTheTreeInListingOrderEachFolderBeforeItsContents) {
    const SealedTree tree;
    ASSERT_EQ(tree.Sign().status, 0);
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    EXPECT_LT(std::bit_cast<std::uint64_t>(now) - TimeOf(tree), 600'000'000u) << "less than a minute ago";
    EXPECT_EQ(tree.ManifestBytes(), Expected(tree, 0, "D S .\n"));
    EXPECT_EQ(tree.Verify().messages, Lines{"0 Verify summary: ok=0, bad=0, missing=0, extra=0, dirs=1"});

    const std::string large(200000, 'x');
    const std::string names = "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80";
    tree.Change("+b.txt=bee;+a/z.bin=" + large + ";+a/inner/deep.txt=;+a/m.LNK=shortcut;+c.lnk2=no shortcut;+lnk=nor" +
                ";+.lnk=nor this;+x.lnk=one;/empty;+" + names + "/\xE6\xBC\xA2.txt=beyond ASCII");
    const auto outcome = tree.Sign();
    ASSERT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages,
              (Lines{"0 Walking '" + zo::Utf8FromWide(tree.root.wstring()) + "' ...",
                     "0 Found 9 files, 5 directories (5 sealed). Signing...",
                     "0 Signed 7 files, anchored 2 shortcut(s) -> " + zo::Utf8FromWide(tree.manifest.wstring())}));
    const auto& [entries, done, directories, sealed, thumbprint] = outcome.result;
    EXPECT_EQ((std::vector{entries, done, directories, sealed}), (std::vector{9u, 9u, 5u, 5u}));
    EXPECT_EQ(tree.ManifestBytes(),
              Expected(tree, 9,
                       "D S .\nD S a\nD S a/inner\nD S empty\nD S " + names + "\n" + FileLines(".lnk", "nor this") +
                           FileLines("a/inner/deep.txt", "") + "K a/m.LNK\n" + FileLines("a/z.bin", large) +
                           FileLines("b.txt", "bee") + FileLines("c.lnk2", "no shortcut") + FileLines("lnk", "nor") +
                           "K x.lnk\n" + FileLines(names + "/\xE6\xBC\xA2.txt", "beyond ASCII")));
    EXPECT_EQ(tree.Verify().status, 0);
}

TEST(Sign, RootAndManifestMayBeSpeltInManyWaysAndTheManifestIsLeftOutByIdentity) {
    SealedTree tree("+d/f.txt=x");
    const std::wstring root = tree.root.wstring();
    const std::wstring slashes = tree.root.generic_wstring();
    for (const std::wstring& spelling : {slashes, root + L"\\", root + L"\\d\\..", L"\\\\?\\" + root}) {
        tree.root = spelling;
        ASSERT_EQ(tree.Sign().status, 0);
        EXPECT_NE(tree.ManifestBytes().find("\nD S .\nD S d\nF d/f.txt\n"), std::string::npos) << tree.root;
        EXPECT_EQ(tree.Verify().status, 0) << tree.root;
    }
    tree.root = root;
    for (const char* name : {"d/SEAL.zosig", "d/./seal.ZOSIG"}) {  // the second time it is there already
        tree.manifest = tree.At(name);
        EXPECT_EQ(tree.Sign().result.entries, 1u) << name;
        EXPECT_EQ(tree.Verify().status, 0) << name;
    }
    // A copy of the manifest is a file like any other.
    tree.Change("+d/copy.zosig=" + tree.ManifestBytes());
    EXPECT_EQ(tree.Verify().messages[0], "2 [XTRA] unexpected file in sealed dir: " + tree.Shown("d/copy.zosig"));
}

// The seal callback is called between walk and hashing.
TEST(Sign, WhatChangesAfterTheWalkIsSignedAsItIsThenOrLeftOut) {
    const SealedTree tree("+folder=x;+gone=x;+held=x");
    MakeLarge(tree.At("changed"), 5'000'000'000);
    const zo::OwnedFile held = Hold(tree.At("held"));
    const auto outcome = tree.Sign([&tree](ZoSignerSignOptions& options) {
        options.sealMode = ZOSIG_SEAL_ASK;
        options.sealContext = const_cast<SealedTree*>(&tree);
        options.sealCallback = [](void* context, const wchar_t*, std::int32_t*, std::int32_t*) {
            static_cast<SealedTree*>(context)->Change("+changed=new!;-folder;/folder;-gone");
            return 0;
        };
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.result.entries, 1u);
    ASSERT_EQ(outcome.messages.size(), 6u);
    EXPECT_EQ(outcome.messages[1], "0 Found 4 files, 1 directories (1 sealed). Signing...");
    EXPECT_EQ(outcome.messages[2], "1 hash '" + tree.Shown("folder") + "' -> 0x80070005 (skipped)");
    EXPECT_EQ(outcome.messages[3], "1 hash '" + tree.Shown("gone") + "' -> 0x80070002 (skipped)");
    EXPECT_EQ(outcome.messages[4], "1 hash '" + tree.Shown("held") + "' -> 0x80070020 (skipped)");
    // The size is the listing's, digest and signature are those of the bytes that were read.
    std::string lines = FileLines("changed", "new!");
    lines.replace(lines.find("SIZE 4"), 6, "SIZE 5000000000");
    EXPECT_EQ(tree.ManifestBytes(), Expected(tree, 1, "D S .\n" + lines));
    EXPECT_EQ(tree.Verify().result.extra, 2u) << "what was left out, in a sealed directory";
}

int listings;  // reads of a listing that still work

BOOL WINAPI ListSome(HANDLE directory, FILE_INFO_BY_HANDLE_CLASS kind, void* buffer, DWORD size) {
    if (listings-- > 0) return GetFileInformationByHandleEx(directory, kind, buffer, size);
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

BOOL WINAPI WriteNothing(HANDLE, const void*, DWORD, DWORD*, OVERLAPPED*) {
    SetLastError(ERROR_DISK_FULL);
    return FALSE;
}

TEST(Sign, TellsOfListingsThatBreakOffWhichEndAVerificationAndOfAFullDisk) {
    const SealedTree tree("+a=x;+d/f=x");
    const ImportHook list("GetFileInformationByHandleEx", ListSome);
    listings = 0;
    auto outcome = tree.Sign();
    EXPECT_EQ(outcome.status, kFail);
    const std::string opening = "2 open root '" + zo::Utf8FromWide(tree.root.wstring()) + "': ";
    ASSERT_TRUE(outcome.messages.size() == 2 && outcome.messages[1].starts_with(opening));
    const std::string told = "1 iter: " + outcome.messages[1].substr(opening.size());
    const struct {
        int working;  // of the reads: root, end of root, d, end of d
        std::uint32_t entries;
        std::size_t told;
    } rows[] = {{1, 1, 2}, {2, 1, 1}, {3, 2, 1}, {4, 2, 0}};
    for (const auto& row : rows) {
        listings = row.working;
        outcome = tree.Sign();
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.result.entries, row.entries);
        EXPECT_EQ(std::ranges::count(outcome.messages, told), row.told) << row.working;
        EXPECT_EQ(outcome.messages.size(), 3 + row.told);
        listings = row.working - 1;
        EXPECT_THROW(static_cast<void>(tree.Verify()), std::filesystem::filesystem_error) << row.working;
    }
    listings = 99;
    EXPECT_EQ(tree.Verify().status, 0);
    const ImportHook write("WriteFile", WriteNothing);
    outcome = tree.Sign();
    EXPECT_EQ(outcome.status, kFail);
    EXPECT_EQ(outcome.messages.back(), "2 Write manifest -> Win32 112");
}

TEST(Sign, SealModesAndLatches) {
    using Answer = std::array<std::int32_t, 3>;  // seal, apply to the rest, the callback's result
    const struct {
        std::uint32_t mode;
        std::vector<Answer> answers;  // one for each call, by walk order
        std::string flags;
        std::int32_t status = 0;
    } rows[] = {
        {ZOSIG_SEAL_ALL, {}, "SSSS"},
        {ZOSIG_SEAL_NONE, {}, "OOOO"},
        {ZOSIG_SEAL_ASK, {{1, 0}, {0, 0}, {5, 0}, {0, 0}}, "SOSO"},
        {ZOSIG_SEAL_ASK, {{0, 1}}, "OOOO"},
        {77, {{0, 0}, {-1, 2}}, "OSSS"},  // beyond the subtree that the answer was for
        {ZOSIG_SEAL_ASK, {{1, 0}, {1, 1, -5}}, "", -5},
        {ZOSIG_SEAL_ASK, {{0, 0, 1}, {1, 1, 7}}, "OSSS"},  // a positive result is a success
    };
    struct Context {
        const std::vector<Answer>& answers;
        std::vector<std::wstring> asked{};
    };
    const SealedTree tree("+a/\xC3\xA4/x.txt=x;+b/y.txt=y");
    const std::vector<std::wstring> order{L".", L"a", L"a/\u00e4", L"b"};
    for (const auto& row : rows) {
        Context context{row.answers};
        const auto outcome = tree.Sign([&](ZoSignerSignOptions& options) {
            options.sealMode = row.mode;
            options.sealContext = &context;
            options.sealCallback = [](void* given, const wchar_t* path, std::int32_t* seal, std::int32_t* rest) {
                auto& [answers, asked] = *static_cast<Context*>(given);
                EXPECT_TRUE(*seal == 1 && *rest == 0);
                asked.emplace_back(path);
                if (asked.size() > answers.size()) return std::int32_t{-99};
                const Answer& answer = answers[asked.size() - 1];
                *seal = answer[0];
                *rest = answer[1];
                return answer[2];
            };
        });
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(context.asked, std::vector(order.begin(), order.begin() + std::ssize(row.answers)));
        if (row.status < 0) continue;
        const std::string& f = row.flags;
        const std::string lines = zo::Format("----\nD {} .\nD {} a\nD {} a/\xC3\xA4\nD {} b\n", f[0], f[1], f[2], f[3]);
        EXPECT_NE(tree.ManifestBytes().find(lines), std::string::npos) << row.flags;
        EXPECT_EQ(outcome.result.sealedDirectories, std::ranges::count(row.flags, 'S'));
    }
    EXPECT_EQ(tree.Sign([](auto& options) { options.sealMode = ZOSIG_SEAL_ASK; }).status, kInvalidArgument);
}

TEST(Sign, BothOperationsCheckTheirArgumentsFirst) {
    const SealedTree tree;
    const std::uint8_t blob[1179] = {};
    const auto check = [&tree](const auto& change) {
        const auto verification = tree.Verify(change);
        const auto signing = tree.Sign(change);
        EXPECT_TRUE(verification.status == kInvalidArgument && signing.status == kInvalidArgument);
        EXPECT_EQ(verification.messages, signing.messages);
        return signing.messages;
    };
    ASSERT_EQ(tree.Sign([](auto& options) { options.logCallback = nullptr; }).status, 0);
    EXPECT_EQ(check([](auto& options) { options.root = nullptr; }), Lines{});
    EXPECT_EQ(check([](auto& options) { options.manifest = nullptr; }), Lines{});
    EXPECT_EQ(check([](auto& options) { options.keystore = nullptr; }), Lines{});
    EXPECT_EQ(check([](auto& options) { options.keystore = L""; }), Lines{});
    EXPECT_EQ(check([&blob](auto& options) { options.keystore = nullptr, options.keyBlob = blob; }), Lines{});
    EXPECT_EQ(check([](auto& options) { options.keystore = nullptr, options.keyBlobSize = 1179; }), Lines{});
    const Lines unresolved = check([](auto& options) { options.root = L""; });
    EXPECT_TRUE(unresolved.size() == 1 && unresolved[0].starts_with("2 resolve root: "));
    EXPECT_EQ(ZoSigner_SignDirectory(nullptr, nullptr), kInvalidArgument);
    EXPECT_EQ(ZoSigner_VerifyDirectory(nullptr, nullptr), kInvalidArgument);
}

TEST(Sign, FailsWithItsMessageWhereRootOrManifestIsNotToBeHad) {
    SealedTree tree("+file=x");
    for (const char* name : {"absent", "file"}) {
        tree.root = tree.At(name);
        const auto outcome = tree.Sign();
        EXPECT_EQ(outcome.status, kFail);
        ASSERT_EQ(outcome.messages.size(), 2u);
        EXPECT_TRUE(outcome.messages[1].starts_with("2 open root '" + tree.Shown(name) + "': "));
    }
    tree.manifest = tree.root = tree.folder / "tree";
    const auto outcome = tree.Sign();
    EXPECT_EQ(outcome.status, kFail);
    EXPECT_EQ(outcome.messages.back(), "2 Create manifest -> Win32 5");
    // Missing folders of the manifest are made; where they cannot be made the standard error passes through.
    tree.manifest = tree.folder / "new" / "er" / "seal";
    EXPECT_EQ(tree.Sign().status, 0);
    EXPECT_TRUE(std::filesystem::exists(tree.manifest));
    tree.manifest = tree.At("file/seal");
    EXPECT_THROW(tree.Sign(), std::filesystem::filesystem_error);
}

TEST(Sign, LeavesNoHandleOrMemoryBehind) {
    const SealedTree tree("+1=x;+a/2=x;+a/3=x;+b/4=x;+b/c/5=x;+k.lnk=x");
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
