// What signing writes, reports and counts.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <fstream>
#include <regex>

#include "handle_count.h"
#include "heap_count.h"
#include "owned_handles.h"
#include "sealed_tree.h"
#include "text.h"

namespace zotest {
namespace {

using Lines = std::vector<std::string>;

constexpr std::int32_t kInvalidArgument = static_cast<std::int32_t>(0x80070057);
constexpr std::int32_t kFail = static_cast<std::int32_t>(0x80004005);

std::string Thumbprint() {
    const Bytes blob = PublicHalf(DevelopmentKey());
    return Sha256Hex(std::string(blob.begin(), blob.end()));
}

// The body that the manifest of these directories and entries has; the time is taken from the manifest itself.
std::string ExpectedBody(const SealedTree& tree, const Lines& directories, const std::vector<Lines>& entries) {
    std::smatch time;
    const std::string manifest = tree.ManifestBytes();
    std::regex_search(manifest, time, std::regex("\nTIME ([0-9]+)\n"));
    std::string body = "ALG RSA-2048-PKCS1-SHA256\nROOT " + zo::Utf8FromWide(tree.Root().wstring()) + "\nPUB " +
                       Thumbprint() + "\nTIME " + time[1].str() + "\nCOUNT " + std::to_string(entries.size()) +
                       "\n----\n";
    for (const std::string& directory : directories)
        body += "D " + directory + "\n";
    for (const Lines& entry : entries) {
        if (entry.size() == 1) {
            body += "K " + entry[0] + "\n";
            continue;
        }
        body += "F " + entry[0] + "\n  SIZE " + std::to_string(entry[1].size()) + "\n  HASH " + Sha256Hex(entry[1]) +
                "\n  SIG  " + SignatureHex(entry[1]) + "\n";
    }
    return body;
}

std::string Signed(const std::string& body) {
    return "ZOSIG1\nMSIG " + SignatureHex("ZOSIG1\n" + body) + "\n" + body;
}

TEST(Sign, WritesTheTreeInListingOrderEachFolderBeforeItsContents) {
    SealedTree tree;
    const std::string large(200000, 'x');
    tree.Write("b.txt", "bee");
    tree.Write("a/z.bin", large);
    tree.Write("a/inner/deep.txt", "");
    tree.Write("a/m.LNK", "shortcut");
    tree.Write("c.lnk2", "no shortcut");
    tree.Write("lnk", "no shortcut either");
    tree.Write(".lnk", "nor this");
    tree.Write("x.lnk", "one");
    tree.Write("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80/\xE6\xBC\xA2.txt", "beyond ASCII");
    tree.MakeFolder("empty");
    const SignOutcome outcome = tree.Sign();

    ASSERT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages,
              (Lines{"0 Walking '" + zo::Utf8FromWide(tree.Root().wstring()) + "' ...",
                     "0 Found 9 files, 5 directories (5 sealed). Signing...",
                     "0 Signed 7 files, anchored 2 shortcut(s) -> " + zo::Utf8FromWide(tree.Manifest().wstring())}));
    EXPECT_EQ(outcome.result.entries, 9u);
    EXPECT_EQ(outcome.result.signedOrAnchored, 9u);
    EXPECT_EQ(outcome.result.directories, 5u);
    EXPECT_EQ(outcome.result.sealedDirectories, 5u);
    const std::string body =
        ExpectedBody(tree, {"S .", "S a", "S a/inner", "S empty", "S \xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
                     {{".lnk", "nor this"},
                      {"a/inner/deep.txt", ""},
                      {"a/m.LNK"},
                      {"a/z.bin", large},
                      {"b.txt", "bee"},
                      {"c.lnk2", "no shortcut"},
                      {"lnk", "no shortcut either"},
                      {"x.lnk"},
                      {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80/\xE6\xBC\xA2.txt", "beyond ASCII"}});
    EXPECT_EQ(tree.ManifestBytes(), Signed(body));
    EXPECT_EQ(tree.Verify().status, 0);
}

TEST(Sign, TwiceDiffersInTimeAndSignatureOnly) {
    SealedTree tree;
    tree.Write("a/b.txt", "same");
    ASSERT_EQ(tree.Sign().status, 0);
    const std::string first = tree.ManifestBytes();
    Sleep(2);
    ASSERT_EQ(tree.Sign().status, 0);
    const std::string second = tree.ManifestBytes();
    const std::regex changing("(MSIG|TIME) [0-9a-f]+");
    EXPECT_NE(first, second);
    EXPECT_EQ(std::regex_replace(first, changing, "$1"), std::regex_replace(second, changing, "$1"));
}

TEST(Sign, AnEmptyTreeHasItsRootOnly) {
    SealedTree tree;
    ASSERT_EQ(tree.Sign().status, 0);
    EXPECT_EQ(tree.ManifestBytes(), Signed(ExpectedBody(tree, {"S ."}, {})));
    const VerifyOutcome verified = tree.Verify();
    EXPECT_EQ(verified.status, 0);
    EXPECT_EQ(verified.messages, (Lines{"0 Verify summary: ok=0, bad=0, missing=0, extra=0, dirs=1"}));
}

TEST(Sign, RootMayBeRelativeHaveASlashAtItsEndOrBeOfAnyLength) {
    SealedTree tree;
    tree.Write("d/f.txt", "x");
    const std::wstring root = tree.Root().wstring();
    std::wstring slashes = root;
    std::ranges::replace(slashes, L'\\', L'/');
    for (const std::wstring& spelling : {root + L"\\", slashes, root + L"\\d\\..", L"\\\\?\\" + root}) {
        ASSERT_EQ(tree.Sign([&](ZoSignerSignOptions& options) { options.root = spelling.c_str(); }).status, 0);
        EXPECT_NE(tree.ManifestBytes().find("\nD S .\nD S d\nF d/f.txt\n"), std::string::npos);
        EXPECT_EQ(tree.Verify([&](ZoSignerVerifyOptions& options) { options.root = spelling.c_str(); }).status, 0);
    }
    const SignOutcome outcome = tree.Sign([](ZoSignerSignOptions& options) { options.root = L""; });
    EXPECT_EQ(outcome.status, kInvalidArgument);
    ASSERT_EQ(outcome.messages.size(), 1u);
    EXPECT_EQ(outcome.messages[0].rfind("2 resolve root: ", 0), 0u);
}

TEST(Sign, LongPathsAndNamesWithTrailingDotsAndBlanks) {
    SealedTree tree;
    std::wstring folder = L"\\\\?\\" + tree.Root().wstring();
    std::string relative;
    for (int i = 0; i < 6; ++i) {
        folder += L"\\" + std::wstring(60, L'd');
        relative += std::string(60, 'd') + "/";
        ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
    }
    for (const wchar_t* name : {L"far.txt", L"dot.", L"blank ", L"dots and blanks. . "}) {
        std::ofstream(std::filesystem::path(folder + L"\\" + name)) << "far away";
    }
    const SignOutcome outcome = tree.Sign();
    ASSERT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.result.signedOrAnchored, 4u);
    for (const char* name : {"far.txt", "dot.", "blank ", "dots and blanks. . "}) {
        EXPECT_NE(tree.ManifestBytes().find("\nF " + relative + name + "\n"), std::string::npos) << name;
    }
    EXPECT_EQ(tree.Verify().status, 0);

    ASSERT_TRUE(DeleteFileW((folder + L"\\dot.").c_str()));
    const VerifyOutcome verified = tree.Verify();
    EXPECT_EQ(verified.messages[0], "1 [MISS] " + tree.Shown(relative + "dot."));
    RemoveTree(L"\\\\?\\" + tree.Root().wstring());
}

TEST(Sign, LeavesOutTheManifestItselfByIdentity) {
    SealedTree tree;
    tree.Write("d/f.txt", "x");
    const std::wstring inside = (tree.Root() / "d" / "SEAL.zosig").wstring();
    for (int round = 0; round < 2; ++round) {  // the second time it is there already, under another spelling
        const std::wstring spelled = round == 0 ? inside : (tree.Root() / "d" / "." / "seal.ZOSIG").wstring();
        const SignOutcome outcome =
            tree.Sign([&](ZoSignerSignOptions& options) { options.manifest = spelled.c_str(); });
        ASSERT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.result.entries, 1u) << round;
        const auto inTree = [&](ZoSignerVerifyOptions& options) { options.manifest = spelled.c_str(); };
        EXPECT_EQ(tree.Verify(inTree).status, 0) << round;
    }
    // A copy of the manifest is a file like any other.
    tree.Write("d/copy.zosig", ReadFileBytes(inside));
    const auto inTree = [&](ZoSignerVerifyOptions& options) { options.manifest = inside.c_str(); };
    EXPECT_EQ(tree.Verify(inTree).messages[0], "2 [XTRA] unexpected file in sealed dir: " + tree.Shown("d/copy.zosig"));
}

TEST(Sign, FilesThatCannotBeReadAreReportedAndLeftOut) {
    SealedTree tree;
    tree.Write("a.txt", "open");
    tree.Write("b.txt", "held");
    const zo::OwnedFile held(CreateFileW((tree.Root() / "b.txt").c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                         OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(held);
    const SignOutcome outcome = tree.Sign();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.result.entries, 1u);
    EXPECT_EQ(outcome.messages[1], "0 Found 2 files, 1 directories (1 sealed). Signing...");
    EXPECT_EQ(outcome.messages[2], "1 hash '" + tree.Shown("b.txt") + "' -> 0x80070020 (skipped)");
    EXPECT_NE(tree.ManifestBytes().find("\nCOUNT 1\n"), std::string::npos);
    const VerifyOutcome verified = tree.Verify();
    EXPECT_EQ(verified.messages[0], "2 [XTRA] unexpected file in sealed dir: " + tree.Shown("b.txt"));
    EXPECT_EQ(verified.result.extra, 1u);
}

TEST(Sign, SealModesAndLatches) {
    struct Answer {
        std::int32_t seal;
        std::int32_t rest;
        std::int32_t status = 0;
    };
    struct Case {
        std::uint32_t mode;
        std::vector<Answer> answers;  // one for each call, by walk order
        std::string flags;
        std::int32_t status = 0;
    };
    const Case cases[] = {
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
        const Case* current;
        std::vector<std::wstring> asked;
    };
    const ZoSignerSealCallback answer = [](void* context, const wchar_t* path, std::int32_t* seal, std::int32_t* rest) {
        auto& state = *static_cast<Context*>(context);
        EXPECT_EQ(*seal, 1);
        EXPECT_EQ(*rest, 0);
        if (state.asked.size() >= state.current->answers.size()) return std::int32_t{-99};
        const Answer& given = state.current->answers[state.asked.size()];
        state.asked.emplace_back(path);
        *seal = given.seal;
        *rest = given.rest;
        return given.status;
    };
    SealedTree tree;
    tree.Write("a/\xC3\xA4/x.txt", "x");
    tree.Write("b/y.txt", "y");
    const std::vector<std::wstring> order{L".", L"a", L"a/\u00e4", L"b"};
    for (const Case& c : cases) {
        Context context{&c, {}};
        const SignOutcome outcome = tree.Sign([&](ZoSignerSignOptions& options) {
            options.sealMode = c.mode;
            options.sealCallback = answer;
            options.sealContext = &context;
        });
        EXPECT_EQ(outcome.status, c.status);
        EXPECT_EQ(context.asked,
                  std::vector<std::wstring>(order.begin(), order.begin() + static_cast<int>(c.answers.size())));
        if (c.status < 0) continue;
        std::string flags;
        const std::string manifest = tree.ManifestBytes();
        for (std::size_t at = manifest.find("\nD "); at != std::string::npos; at = manifest.find("\nD ", at + 1)) {
            flags += manifest[at + 3];
        }
        EXPECT_EQ(flags, c.flags);
        EXPECT_EQ(outcome.result.sealedDirectories, std::ranges::count(c.flags, 'S'));
    }
    const SignOutcome outcome = tree.Sign([](ZoSignerSignOptions& options) { options.sealMode = ZOSIG_SEAL_ASK; });
    EXPECT_EQ(outcome.status, kInvalidArgument);
    EXPECT_EQ(outcome.messages.size(), 1u);
}

TEST(Sign, ChecksItsArgumentsFirst) {
    SealedTree tree;
    struct Case {
        SealedTree::SignChange change;
        std::int32_t status;
    };
    const std::uint8_t byte = 0;
    const Case cases[] = {
        {[](auto& o) { o.root = nullptr; }, kInvalidArgument},
        {[](auto& o) { o.manifest = nullptr; }, kInvalidArgument},
        {[](auto& o) { o.keystore = nullptr; }, kInvalidArgument},
        {[](auto& o) { o.keystore = L""; }, kInvalidArgument},
        {[&](auto& o) { o.keystore = nullptr, o.keyBlob = &byte; }, kInvalidArgument},  // no length, no blob
        {[](auto& o) { o.keystore = nullptr, o.keyBlobSize = 5; }, kInvalidArgument},
        {[](auto& o) { o.keystore = nullptr, o.keyBlob = DevelopmentKey().data(), o.keyBlobSize = 1179; }, 0},
        {[](auto& o) { o.logCallback = nullptr; }, 0},
    };
    for (const Case& c : cases) {
        const SignOutcome outcome = tree.Sign(c.change);
        EXPECT_EQ(outcome.status, c.status) << &c - cases;
        EXPECT_TRUE(c.status == 0 || outcome.messages.empty()) << &c - cases;
    }
    EXPECT_EQ(ZoSigner_SignDirectory(nullptr, nullptr), kInvalidArgument);
}

TEST(Sign, FailsWithItsMessageWhereRootOrManifestIsNotToBeHad) {
    SealedTree tree;
    const std::wstring absent = tree.Beside("absent").wstring();
    SignOutcome outcome = tree.Sign([&](ZoSignerSignOptions& options) { options.root = absent.c_str(); });
    EXPECT_EQ(outcome.status, kFail);
    ASSERT_EQ(outcome.messages.size(), 2u);
    EXPECT_EQ(outcome.messages[1].rfind("2 open root '" + zo::Utf8FromWide(absent) + "': ", 0), 0u);

    // A file is no root.
    tree.Write("file", "x");
    const std::wstring file = (tree.Root() / "file").wstring();
    outcome = tree.Sign([&](ZoSignerSignOptions& options) { options.root = file.c_str(); });
    EXPECT_EQ(outcome.status, kFail);

    // A folder is no manifest.
    const std::wstring folder = tree.Root().wstring();
    outcome = tree.Sign([&](ZoSignerSignOptions& options) { options.manifest = folder.c_str(); });
    EXPECT_EQ(outcome.status, kFail);
    EXPECT_EQ(outcome.messages.back(), "2 Create manifest -> Win32 5");

    // Missing folders of the manifest are made.
    const std::wstring deep = (tree.Beside("new") / "er" / "seal").wstring();
    EXPECT_EQ(tree.Sign([&](ZoSignerSignOptions& options) { options.manifest = deep.c_str(); }).status, 0);
    EXPECT_TRUE(std::filesystem::exists(deep));
    // Where they cannot be made the standard error passes through.
    const std::wstring below = (tree.Root() / "file" / "seal").wstring();
    EXPECT_THROW(tree.Sign([&](ZoSignerSignOptions& options) { options.manifest = below.c_str(); }),
                 std::filesystem::filesystem_error);
}

TEST(Sign, LeavesNoHandleOrMemoryBehind) {
    SealedTree tree;
    for (int i = 0; i < 20; ++i)
        tree.Write("d" + std::to_string(i % 4) + "/" + std::to_string(i), "x");
    const auto work = [&] {
        ASSERT_EQ(tree.Sign().status, 0);
        ASSERT_EQ(tree.Verify().status, 0);
        ASSERT_EQ(tree.Sign([](ZoSignerSignOptions& options) { options.root = L"?:\\none"; }).status, kFail);
        ASSERT_EQ(tree.Verify([](ZoSignerVerifyOptions& options) { options.keystore = L"none"; }).status,
                  ZOSIG_E_NO_KEY);
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
