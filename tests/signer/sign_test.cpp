#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>

#include "handle_count.h"
#include "heap_count.h"
#include "import_hook.h"
#include "owned_handles.h"
#include "sealed_tree.h"
#include "text.h"

namespace zotest {
namespace {

constexpr std::int32_t kFail = static_cast<std::int32_t>(0x80004005);

std::uint64_t Now() {
    ULARGE_INTEGER now{};
    FILETIME time{};
    GetSystemTimeAsFileTime(&time);
    now.LowPart = time.dwLowDateTime;
    now.HighPart = time.dwHighDateTime;
    return now.QuadPart;
}

// The manifest of these directories and entries (lines from "D" on), with the time that the tree's own manifest has.
std::string Expected(const SealedTree& tree, std::size_t count, const std::string& lines) {
    const std::string manifest = tree.ManifestBytes();
    const std::size_t time = manifest.find("\nTIME ") + 1;
    const std::string body = "ZOSIG1\nALG RSA-2048-PKCS1-SHA256\nROOT " + zo::Utf8FromWide(tree.Root().wstring()) +
                             "\nPUB " + Sha256Hex(Text(DevelopmentPublicKey())) + "\n" +
                             manifest.substr(time, manifest.find('\n', time) - time) + "\nCOUNT " +
                             std::to_string(count) + "\n----\n" + lines;
    return "ZOSIG1\nMSIG " + SignatureHex(body) + "\n" + body.substr(7);
}

TEST(Sign, WritesTheTreeInListingOrderEachFolderBeforeItsContents) {
    const SealedTree tree;
    const std::uint64_t before = Now();
    ASSERT_EQ(tree.Sign().status, 0);
    const std::uint64_t time = std::stoull(tree.ManifestBytes().substr(tree.ManifestBytes().find("\nTIME ") + 6));
    EXPECT_TRUE(time >= before && time <= Now());
    EXPECT_EQ(tree.ManifestBytes(), Expected(tree, 0, "D S .\n"));
    EXPECT_EQ(tree.Verify().messages, Lines{"0 Verify summary: ok=0, bad=0, missing=0, extra=0, dirs=1"});

    const std::string large(200000, 'x');
    const std::string names = "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80";
    tree.Change("+b.txt=bee;+a/z.bin=" + large + ";+a/inner/deep.txt=;+a/m.LNK=shortcut;+c.lnk2=no shortcut;+lnk=nor" +
                ";+.lnk=nor this;+x.lnk=one;/empty;+" + names + "/\xE6\xBC\xA2.txt=beyond ASCII");
    const auto outcome = tree.Sign();
    ASSERT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages,
              (Lines{"0 Walking '" + zo::Utf8FromWide(tree.Root().wstring()) + "' ...",
                     "0 Found 9 files, 5 directories (5 sealed). Signing...",
                     "0 Signed 7 files, anchored 2 shortcut(s) -> " + zo::Utf8FromWide(tree.Manifest().wstring())}));
    EXPECT_EQ(outcome.result.entries, 9u);
    EXPECT_EQ(outcome.result.signedOrAnchored, 9u);
    EXPECT_EQ(outcome.result.directories, 5u);
    EXPECT_EQ(outcome.result.sealedDirectories, 5u);
    EXPECT_EQ(tree.ManifestBytes(),
              Expected(tree, 9,
                       "D S .\nD S a\nD S a/inner\nD S empty\nD S " + names + "\n" + FileLines(".lnk", "nor this") +
                           FileLines("a/inner/deep.txt", "") + "K a/m.LNK\n" + FileLines("a/z.bin", large) +
                           FileLines("b.txt", "bee") + FileLines("c.lnk2", "no shortcut") + FileLines("lnk", "nor") +
                           "K x.lnk\n" + FileLines(names + "/\xE6\xBC\xA2.txt", "beyond ASCII")));
    EXPECT_EQ(tree.Verify().status, 0);
}

TEST(Sign, RootMayBeRelativeHaveASlashAtItsEndOrBeOfAnyLength) {
    const SealedTree tree;
    tree.Change("+d/f.txt=x");
    const std::wstring root = tree.Root().wstring();
    std::wstring slashes = root;
    std::ranges::replace(slashes, L'\\', L'/');
    for (const std::wstring& spelling : {root + L"\\", slashes, root + L"\\d\\..", L"\\\\?\\" + root}) {
        const auto use = [&](auto& options) { options.root = spelling.c_str(); };
        ASSERT_EQ(tree.Sign(use).status, 0);
        EXPECT_NE(tree.ManifestBytes().find("\nD S .\nD S d\nF d/f.txt\n"), std::string::npos);
        EXPECT_EQ(tree.Verify(use).status, 0);
    }
}

TEST(Sign, LongPathsAndNamesWithTrailingDotsAndBlanks) {
    const SealedTree tree;
    std::string relative;
    const std::wstring longRoot = L"\\\\?\\" + tree.Root().wstring();
    for (int i = 0; i < 6; ++i) {
        relative += (i == 0 ? "" : "/") + std::string(60, 'd');
        std::wstring folder = longRoot + L"\\" + zo::WideFromUtf8(relative);
        std::ranges::replace(folder, L'/', L'\\');
        ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
        for (const wchar_t* name : {L"\\far.txt", L"\\dot.", L"\\blank ", L"\\dots and blanks. . "})
            WriteFileBytes(folder + name, "far away");
    }
    EXPECT_EQ(tree.Sign().result.signedOrAnchored, 24u);
    for (const char* name : {"/far.txt", "/dot.", "/blank ", "/dots and blanks. . "})
        EXPECT_NE(tree.ManifestBytes().find("\nF " + relative + name + "\n"), std::string::npos) << name;
    EXPECT_EQ(tree.Verify().status, 0);
    RemoveTree(longRoot);
}

TEST(Sign, LeavesOutTheManifestItselfByIdentity) {
    const SealedTree tree;
    tree.Change("+d/f.txt=x");
    std::wstring spelling;
    const auto use = [&spelling](auto& options) { options.manifest = spelling.c_str(); };
    for (const char* name : {"d/SEAL.zosig", "d/./seal.ZOSIG"}) {  // the second time it is there already
        spelling = tree.At(name).wstring();
        EXPECT_EQ(tree.Sign(use).result.entries, 1u) << name;
        EXPECT_EQ(tree.Verify(use).status, 0) << name;
    }
    // A copy of the manifest is a file like any other.
    tree.Change("+d/copy.zosig=" + ReadFileBytes(spelling));
    EXPECT_EQ(tree.Verify(use).messages[0], "2 [XTRA] unexpected file in sealed dir: " + tree.Shown("d/copy.zosig"));
}

// The seal callback is called between walk and hashing.
TEST(Sign, WhatChangesAfterTheWalkIsSignedAsItIsThenOrLeftOut) {
    const SealedTree tree;
    tree.Change("+changed=old;+folder=x;+gone=x;+held=x");
    zo::OwnedFile file(CreateFileW(tree.At("changed").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(SetFilePointerEx(file.Get(), {.QuadPart = 5'000'000'000}, nullptr, FILE_BEGIN) &&
                SetEndOfFile(file.Get()));
    file.Reset(
        CreateFileW(tree.At("held").c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
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
    const SealedTree tree;
    tree.Change("+a=x;+d/f=x");
    ASSERT_EQ(tree.Sign().status, 0);
    const ImportHook list("GetFileInformationByHandleEx", ListSome);
    std::string reason;
    const struct {
        int working;  // of the reads: root, end of root, d, end of d
        std::uint32_t entries;
        std::ptrdiff_t told;
    } rows[] = {{0, 0, 0}, {1, 1, 2}, {2, 1, 1}, {3, 2, 1}, {4, 2, 0}};
    for (const auto& row : rows) {
        listings = row.working;
        const auto outcome = tree.Sign();
        EXPECT_EQ(outcome.status, row.working == 0 ? kFail : 0);
        EXPECT_EQ(outcome.result.entries, row.entries);
        const std::string opening = "2 open root '" + zo::Utf8FromWide(tree.Root().wstring()) + "': ";
        if (row.working == 0) {
            ASSERT_TRUE(outcome.messages.back().starts_with(opening));
            reason = outcome.messages.back().substr(opening.size());
        }
        EXPECT_GT(reason.size(), 3u);
        EXPECT_EQ(std::ranges::count(outcome.messages, "1 iter: " + reason), row.told) << row.working;
        EXPECT_EQ(outcome.messages.size(), row.working == 0 ? 2u : 3u + static_cast<std::size_t>(row.told));
    }
    for (const int working : {0, 1, 2, 3, 4}) {
        listings = working;
        if (working == 4) {
            EXPECT_EQ(tree.Verify().status, 0);
        } else {
            EXPECT_THROW(static_cast<void>(tree.Verify()), std::filesystem::filesystem_error) << working;
        }
    }
    const ImportHook write("WriteFile", WriteNothing);
    listings = 99;
    const auto outcome = tree.Sign();
    EXPECT_EQ(outcome.status, kFail);
    EXPECT_EQ(outcome.messages.back(), "2 Write manifest -> Win32 112");
}

TEST(Sign, SealModesAndLatches) {
    struct Answer {
        std::int32_t seal;
        std::int32_t rest;
        std::int32_t status = 0;
    };
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
        {ZOSIG_SEAL_ASK, {{1, 0}, {1, 0}, {0, 1}}, "SSOO"},
        {ZOSIG_SEAL_ASK, {{1, 0}, {1, 1, -5}}, "", -5},
        {ZOSIG_SEAL_ASK, {{0, 0, 1}, {1, 1, 7}}, "OSSS"},  // a positive result is a success
    };
    struct Context {
        const std::vector<Answer>& answers;
        std::vector<std::wstring> asked{};
    };
    const ZoSignerSealCallback answer = [](void* context, const wchar_t* path, std::int32_t* seal, std::int32_t* rest) {
        auto& state = *static_cast<Context*>(context);
        EXPECT_EQ(*seal, 1);
        EXPECT_EQ(*rest, 0);
        if (state.asked.size() >= state.answers.size()) return std::int32_t{-99};
        const Answer& given = state.answers[state.asked.size()];
        state.asked.emplace_back(path);
        *seal = given.seal;
        *rest = given.rest;
        return given.status;
    };
    const SealedTree tree;
    tree.Change("+a/\xC3\xA4/x.txt=x;+b/y.txt=y");
    const std::vector<std::wstring> order{L".", L"a", L"a/\u00e4", L"b"};
    for (const auto& row : rows) {
        Context context{row.answers};
        const auto outcome = tree.Sign([&](ZoSignerSignOptions& options) {
            options.sealMode = row.mode;
            options.sealCallback = answer;
            options.sealContext = &context;
        });
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(context.asked, std::vector(order.begin(), order.begin() + std::ssize(row.answers)));
        if (row.status < 0) continue;
        std::string flags;
        const std::string manifest = tree.ManifestBytes();
        for (std::size_t at = manifest.find("\nD "); at != std::string::npos; at = manifest.find("\nD ", at + 1))
            flags += manifest[at + 3];
        EXPECT_EQ(flags, row.flags);
        EXPECT_EQ(outcome.result.sealedDirectories, std::ranges::count(row.flags, 'S'));
    }
    EXPECT_EQ(tree.Sign([](auto& options) { options.sealMode = ZOSIG_SEAL_ASK; }).status, kInvalidArgument);
}

TEST(Sign, BothOperationsCheckTheirArgumentsFirst) {
    const SealedTree tree;
    ASSERT_EQ(tree.Sign().status, 0);
    const std::wstring root = tree.Root().wstring();
    const std::wstring manifest = tree.Manifest().wstring();
    const std::wstring keys = tree.Keystore().wstring();
    const std::uint8_t* blob = DevelopmentKey().data();
    const struct {
        const wchar_t* root;
        const wchar_t* manifest;
        const wchar_t* keystore;
        const std::uint8_t* blob;
        std::uint32_t blobSize;
        std::int32_t expected = kInvalidArgument;
    } rows[] = {
        {nullptr, manifest.c_str(), keys.c_str(), nullptr, 0},
        {root.c_str(), nullptr, keys.c_str(), nullptr, 0},
        {root.c_str(), manifest.c_str(), nullptr, nullptr, 0},
        {root.c_str(), manifest.c_str(), L"", nullptr, 0},
        {root.c_str(), manifest.c_str(), nullptr, blob, 0},  // no length, no blob
        {root.c_str(), manifest.c_str(), nullptr, nullptr, 1179},
        {root.c_str(), manifest.c_str(), nullptr, blob, 1179, 0},
        {L"", manifest.c_str(), keys.c_str(), nullptr, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        const auto use = [&row](auto& options) {
            options.root = row.root;
            options.manifest = row.manifest;
            options.keystore = row.keystore;
            options.keyBlob = row.blob;
            options.keyBlobSize = row.blobSize;
        };
        const auto check = [&row](const auto& outcome) {
            EXPECT_EQ(outcome.status, row.expected);
            if (row.expected == 0) return;
            const bool isUnresolved = row.root != nullptr && *row.root == L'\0';
            ASSERT_EQ(outcome.messages.size(), isUnresolved ? 1u : 0u);
            EXPECT_TRUE(!isUnresolved || outcome.messages[0].starts_with("2 resolve root: "));
        };
        check(tree.Verify(use));
        check(tree.Sign(use));
    }
    EXPECT_EQ(ZoSigner_SignDirectory(nullptr, nullptr), kInvalidArgument);
    EXPECT_EQ(ZoSigner_VerifyDirectory(nullptr, nullptr), kInvalidArgument);
    EXPECT_EQ(tree.Sign([](auto& options) { options.logCallback = nullptr; }).status, 0);
}

TEST(Sign, FailsWithItsMessageWhereRootOrManifestIsNotToBeHad) {
    const SealedTree tree;
    tree.Change("+file=x");
    for (const std::wstring& root : {tree.Beside("absent").wstring(), tree.At("file").wstring()}) {
        const auto outcome = tree.Sign([&](auto& options) { options.root = root.c_str(); });
        EXPECT_EQ(outcome.status, kFail);
        ASSERT_EQ(outcome.messages.size(), 2u);
        EXPECT_EQ(outcome.messages[1].find("2 open root '" + zo::Utf8FromWide(root) + "': "), 0u);
    }
    std::wstring manifest = tree.Root().wstring();
    const auto use = [&manifest](auto& options) { options.manifest = manifest.c_str(); };
    const auto outcome = tree.Sign(use);
    EXPECT_EQ(outcome.status, kFail);
    EXPECT_EQ(outcome.messages.back(), "2 Create manifest -> Win32 5");
    // Missing folders of the manifest are made; where they cannot be made the standard error passes through.
    manifest = (tree.Beside("new") / "er" / "seal").wstring();
    EXPECT_EQ(tree.Sign(use).status, 0);
    EXPECT_TRUE(std::filesystem::exists(manifest));
    manifest = tree.At("file/seal").wstring();
    EXPECT_THROW(tree.Sign(use), std::filesystem::filesystem_error);
}

TEST(Sign, LeavesNoHandleOrMemoryBehind) {
    const SealedTree tree;
    for (int i = 0; i < 20; ++i)
        tree.Change("+d" + std::to_string(i % 4) + "/" + std::to_string(i) + "=x");
    const auto work = [&] {
        ASSERT_EQ(tree.Sign().status, 0);
        ASSERT_EQ(tree.Verify().status, 0);
        ASSERT_EQ(tree.Sign([](auto& options) { options.root = L"?:\\none"; }).status, kFail);
        ASSERT_EQ(tree.Verify([](auto& options) { options.keystore = L"none"; }).status, ZOSIG_E_NO_KEY);
    };
    for (int i = 0; i < 3; ++i)
        work();
    const std::uint32_t handles = OpenHandleCount();
    const std::size_t blocks = BusyHeapBlocks();
    for (int i = 0; i < 10; ++i)
        work();
    EXPECT_EQ(OpenHandleCount(), handles);
    EXPECT_LT(BusyHeapBlocks(), blocks + 10);
}

}  // namespace
}  // namespace zotest
