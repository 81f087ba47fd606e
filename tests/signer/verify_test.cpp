// What verification notices, what it does not, and how it refuses a manifest.

#include <gtest/gtest.h>
#include <windows.h>

#include <map>

#include "loaded_library.h"
#include "owned_handles.h"
#include "sealed_tree.h"
#include "text.h"

namespace zotest {
namespace {

using Lines = std::vector<std::string>;

const std::string kAlgorithmLine = "ALG RSA-2048-PKCS1-SHA256\n";

std::string PubLine() {
    const Bytes blob = PublicHalf(DevelopmentKey());
    return "PUB " + Sha256Hex(std::string(blob.begin(), blob.end())) + "\n";
}

std::string FileLines(const std::string& path, const std::string& bytes) {
    return "F " + path + "\n  SIZE " + std::to_string(bytes.size()) + "\n  HASH " + Sha256Hex(bytes) + "\n  SIG  " +
           SignatureHex(bytes) + "\n";
}

TEST(Verify, RefusesMalformedManifestsWithTheirMessage) {
    SealedTree tree;
    tree.Write("a", "x");
    const std::string head = kAlgorithmLine + PubLine() + "----\n";
    struct Case {
        std::string body;
        Lines messages;
        std::int32_t status = ZOSIG_E_BAD_MANIFEST;
    };
    const Case cases[] = {
        {kAlgorithmLine, {"2 manifest header not terminated"}},
        {"", {"2 manifest header not terminated"}},
        {"ALG MD5\n" + PubLine() + "----\n", {"2 unsupported algorithm in manifest"}},
        {"PUB 00\n----\n", {"2 bad PUB thumbprint in manifest"}},
        {head + "F a\n  HASH 00\n", {"2 bad HASH for a"}},
        {head + "F \xC3\xA4\n  SIG  0\n", {"2 bad SIG for \xC3\xA4"}},
        {head + "D X .\n", {"2 bad directory line in manifest"}},
        {kAlgorithmLine + "----\n",
         {"2 public-key thumbprint mismatch", "2   manifest : " + std::string(64, '0'),
          "2   keystore : " + PubLine().substr(4, 64)},
         ZOSIG_E_THUMBPRINT_MISMATCH},
        {head, {"0 Verify summary: ok=0, bad=0, missing=0, extra=0, dirs=0"}, 0},
        {PubLine() + "----\n", {"0 Verify summary: ok=0, bad=0, missing=0, extra=0, dirs=0"}, 0},
        {head + FileLines("a", "x") + "D S .\nD O nowhere",
         {"0 Verify summary: ok=1, bad=0, missing=0, extra=0, dirs=2"},
         0},
    };
    for (const Case& c : cases) {
        tree.Forge(c.body);
        const VerifyOutcome outcome = tree.Verify();
        EXPECT_EQ(outcome.status, c.status) << c.body;
        EXPECT_EQ(outcome.messages, c.messages) << c.body;
        // The key's thumbprint is told as soon as the manifest could be read.
        EXPECT_EQ(outcome.result.thumbprint[0] != 0, c.status != ZOSIG_E_BAD_MANIFEST) << c.body;
    }
}

TEST(Verify, ForgedEntriesAreJudgedByWhatTheyLack) {
    SealedTree tree;
    tree.Write("a", "x");
    const std::string head = kAlgorithmLine + PubLine() + "----\n";
    const std::string hash = "  HASH " + Sha256Hex("x") + "\n";
    std::string upper = FileLines("a", "x");
    for (char& digit : upper)
        digit = digit >= 'a' && digit <= 'f' && &digit > &upper[10] ? static_cast<char>(digit - 32) : digit;
    struct Case {
        std::string body;
        Lines messages;
    };
    const std::string shown = tree.Shown("a");
    const std::string invalid = "2 [BAD ] signature invalid: " + shown;
    const Case cases[] = {
        {upper, {}},
        {"F a\n  SIZE 99\n" + hash + "  SIG  " + SignatureHex("x") + "\n", {}},  // the size is for people
        {"F a\n  SIZE 1\n  SIG  " + SignatureHex("x") + "\n", {"2 [BAD ] hash mismatch: " + shown}},
        {"F a\n" + hash, {invalid + " (0xC000000D)"}},
        {"F a\n" + hash + "  SIG  00\n", {invalid + " (0xC000A000)"}},
        {"F a\n" + hash + "  SIG  " + SignatureHex("y") + "\n", {invalid + " (0xC000A000)"}},
        {FileLines("b", "x"), {"1 [MISS] " + tree.Shown("b")}},
        {FileLines("", "x"), {"1 [MISS] " + tree.Shown("")}},
        {"K \nK b/c.lnk\nK a\n",
         {"1 [MISS] shortcut anchor: " + tree.Shown(""), "1 [MISS] shortcut anchor: " + tree.Shown("b/c.lnk")}},
    };
    for (const Case& c : cases) {
        tree.Forge(head + c.body);
        VerifyOutcome outcome = tree.Verify();
        EXPECT_EQ(outcome.status, c.messages.empty() ? 0 : ZOSIG_E_VERIFY_FAILED) << c.body;
        outcome.messages.pop_back();
        EXPECT_EQ(outcome.messages, c.messages) << c.body;
    }
}

TEST(Verify, EveryByteOfAManifestFlippedOrCutIsRefusedButTheCaseOfMsigDigits) {
    SealedTree tree;
    tree.Write("f", "x");
    tree.Write("k.lnk", "x");
    ASSERT_EQ(tree.Sign().status, 0);
    const std::string whole = tree.ManifestBytes();
    constexpr std::size_t kKey = 7;      // "MSIG "
    constexpr std::size_t kDigits = 12;  // its value
    constexpr std::size_t kBody = kDigits + 512 + 1;
    const std::string tampered = "2 manifest body has been tampered with (MSIG verify -> 0xC000A000)";
    const auto expect = [&](const std::string& bytes, std::size_t at, const std::string& message) {
        WriteFileBytes(tree.Manifest(), bytes);
        const VerifyOutcome outcome = tree.Verify();
        EXPECT_EQ(outcome.status, message == tampered ? ZOSIG_E_TAMPERED : ZOSIG_E_BAD_MANIFEST) << at;
        EXPECT_EQ(outcome.messages, Lines{message}) << at;
    };
    for (std::size_t at = 0; at < whole.size(); ++at) {
        std::string bytes = whole;
        bytes[at] = static_cast<char>(bytes[at] ^ 0x01);
        if (at < kKey) {
            expect(bytes, at, "2 manifest magic mismatch");
        } else if (at < kDigits) {
            expect(bytes, at, "2 manifest header missing MSIG line");
        } else if (at < kBody) {
            const bool stillHex = std::isxdigit(static_cast<unsigned char>(bytes[at])) != 0;
            expect(bytes, at, stillHex ? tampered : "2 bad MSIG hex in manifest");
        } else {
            expect(bytes, at, tampered);
        }
        const std::string cut = whole.substr(0, at);
        if (at < kKey - 1) {
            expect(cut, at, "2 manifest magic mismatch");
        } else if (at < kDigits) {
            expect(cut, at, "2 manifest header missing MSIG line");
        } else if (at < kBody - 1) {
            const bool whole_bytes = at > kDigits && (at - kDigits) % 2 == 0;
            expect(cut, at, whole_bytes ? tampered : "2 bad MSIG hex in manifest");
        } else {
            expect(cut, at, tampered);
        }
    }
    // Not noticed: letter case of the MSIG digits, a carriage return at the end of that line.
    std::string upper = whole;
    for (std::size_t at = kDigits; at < kBody; ++at)
        upper[at] = static_cast<char>(std::toupper(upper[at]));
    WriteFileBytes(tree.Manifest(), upper);
    EXPECT_EQ(tree.Verify().status, 0);
    WriteFileBytes(tree.Manifest(), whole.substr(0, kBody - 1) + "\r" + whole.substr(kBody - 1));
    EXPECT_EQ(tree.Verify().status, 0);
    // Carriage returns everywhere are part of what is signed.
    std::string returns;
    for (const char character : whole)
        returns += character == '\n' ? "\r\n" : std::string(1, character);
    expect(returns, 0, tampered);
}

// The tree that the changes below are made to: every directory sealed but "open".
SealedTree::SignChange SealAllButOpen() {
    return [](ZoSignerSignOptions& options) {
        options.sealMode = ZOSIG_SEAL_ASK;
        options.sealCallback = [](void*, const wchar_t* path, std::int32_t* seal, std::int32_t*) {
            *seal = std::wstring(path) != L"open";
            return 0;
        };
    };
}

void FillTree(const SealedTree& tree) {
    tree.Write("a.txt", "content a");
    tree.Write("link.lnk", "shortcut");
    tree.Write("d/b.txt", "content b");
    tree.Write("d/e/c.txt", "content c");
    tree.Write("open/o.txt", "content o");
    tree.MakeFolder("empty");
    ASSERT_EQ(tree.Sign(SealAllButOpen()).status, 0);
}

void Rename(const SealedTree& tree, const char* from, const char* to) {
    ASSERT_TRUE(MoveFileW((tree.Root() / from).c_str(), (tree.Root() / to).c_str())) << from;
}

// Each kind of change and all that is told about it. The good rest of the tree is counted in ok.
TEST(Verify, NoticesEveryKindOfChange) {
    struct Case {
        const char* what;
        void (*change)(const SealedTree&);
        Lines messages;  // "<" stands for the root's path and a backslash
        std::uint32_t ok;
        std::uint32_t bad;
        std::uint32_t missing;
        std::uint32_t extra;
    };
    const Case cases[] = {
        {"altered",
         [](const SealedTree& t) { t.Write("d/b.txt", "content B"); },
         {"2 [BAD ] hash mismatch: <d\\b.txt"},
         4,
         1,
         0,
         0},
        {"truncated",
         [](const SealedTree& t) { t.Write("a.txt", "content"); },
         {"2 [BAD ] hash mismatch: <a.txt"},
         4,
         1,
         0,
         0},
        {"emptied",
         [](const SealedTree& t) { t.Write("open/o.txt", ""); },
         {"2 [BAD ] hash mismatch: <open\\o.txt"},
         4,
         1,
         0,
         0},
        {"swapped",
         [](const SealedTree& t) { t.Write("a.txt", "content b"), t.Write("d/b.txt", "content a"); },
         {"2 [BAD ] hash mismatch: <a.txt", "2 [BAD ] hash mismatch: <d\\b.txt"},
         3,
         2,
         0,
         0},
        {"removed", [](const SealedTree& t) { t.Remove("d/e/c.txt"); }, {"1 [MISS] <d\\e\\c.txt"}, 4, 0, 1, 0},
        {"removed folder",
         [](const SealedTree& t) { t.Remove("d"); },
         {"1 [MISS] <d\\b.txt", "1 [MISS] <d\\e\\c.txt"},
         3,
         0,
         2,
         0},
        {"renamed",
         [](const SealedTree& t) { Rename(t, "d/b.txt", "d/z.txt"); },
         {"1 [MISS] <d\\b.txt", "2 [XTRA] unexpected file in sealed dir: <d\\z.txt"},
         4,
         0,
         1,
         1},
        {"renamed in an open folder",
         [](const SealedTree& t) { Rename(t, "open/o.txt", "open/p.txt"); },
         {"1 [MISS] <open\\o.txt"},
         4,
         0,
         1,
         0},
        {"letter case of a name",
         [](const SealedTree& t) { Rename(t, "a.txt", "tmp"), Rename(t, "tmp", "A.TXT"); },
         {"2 [XTRA] unexpected file in sealed dir: <A.TXT"},
         5,
         0,
         0,
         1},
        {"letter case of a folder's name",
         [](const SealedTree& t) { Rename(t, "d", "tmp"), Rename(t, "tmp", "D"); },
         {"2 [XTRA] unexpected dir  in sealed dir: <D"},
         5,
         0,
         0,
         1},
        {"added file",
         [](const SealedTree& t) { t.Write("d/e/new", "x"); },
         {"2 [XTRA] unexpected file in sealed dir: <d\\e\\new"},
         5,
         0,
         0,
         1},
        {"added folder, told once whatever it holds",
         [](const SealedTree& t) { t.Write("empty/new/x/y", "x"); },
         {"2 [XTRA] unexpected dir  in sealed dir: <empty\\new"},
         5,
         0,
         0,
         1},
        {"added shortcut",
         [](const SealedTree& t) { t.Write("b.lnk", "x"); },
         {"2 [XTRA] unexpected file in sealed dir: <b.lnk"},
         5,
         0,
         0,
         1},
        {"replaced by a folder",
         [](const SealedTree& t) { t.Remove("a.txt"), t.MakeFolder("a.txt"); },
         {"1 [MISS] <a.txt"},
         4,
         0,
         1,
         0},
        {"shortcut replaced by a folder",
         [](const SealedTree& t) { t.Remove("link.lnk"), t.MakeFolder("link.lnk"); },
         {"1 [MISS] shortcut anchor: <link.lnk"},
         4,
         0,
         1,
         0},
        {"shortcut removed",
         [](const SealedTree& t) { t.Remove("link.lnk"); },
         {"1 [MISS] shortcut anchor: <link.lnk"},
         4,
         0,
         1,
         0},
        {"everything at once",
         [](const SealedTree& t) {
             t.Write("a.txt", "!"), t.Remove("link.lnk"), t.Write("0", ""), t.MakeFolder("d/1");
         },
         {"2 [BAD ] hash mismatch: <a.txt", "1 [MISS] shortcut anchor: <link.lnk",
          "2 [XTRA] unexpected file in sealed dir: <0", "2 [XTRA] unexpected dir  in sealed dir: <d\\1"},
         3,
         1,
         1,
         2},
    };
    for (const Case& c : cases) {
        SealedTree tree;
        FillTree(tree);
        c.change(tree);
        VerifyOutcome outcome = tree.Verify();
        Lines expected;
        for (std::string message : c.messages) {
            expected.push_back(message.replace(message.find('<'), 1, tree.Shown("")));
        }
        expected.push_back("0 Verify summary: ok=" + std::to_string(c.ok) + ", bad=" + std::to_string(c.bad) +
                           ", missing=" + std::to_string(c.missing) + ", extra=" + std::to_string(c.extra) +
                           ", dirs=5");
        EXPECT_EQ(outcome.messages, expected) << c.what;
        EXPECT_EQ(outcome.status, ZOSIG_E_VERIFY_FAILED) << c.what;
        const ZoSignerVerifyResult& r = outcome.result;
        EXPECT_EQ(
            (Lines{std::to_string(r.ok), std::to_string(r.bad), std::to_string(r.missing), std::to_string(r.extra)}),
            (Lines{std::to_string(c.ok), std::to_string(c.bad), std::to_string(c.missing), std::to_string(c.extra)}))
            << c.what;
        EXPECT_EQ(r.directories, 5u);
    }
}

// Promised to nobody: docs/sealing.md lists them. What fails here has become a promise, and goes there.
TEST(Verify, DoesNotNoticeTheseChanges) {
    struct Case {
        const char* what;
        void (*change)(const SealedTree&);
    };
    const Case cases[] = {
        {"nothing", [](const SealedTree&) {}},
        {"shortcut edited", [](const SealedTree& t) { t.Write("link.lnk", "elsewhere"); }},
        {"shortcut emptied", [](const SealedTree& t) { t.Write("link.lnk", ""); }},
        {"file added to an open folder", [](const SealedTree& t) { t.Write("open/new.exe", "x"); }},
        {"tree added to an open folder", [](const SealedTree& t) { t.Write("open/n/e/w", "x"); }},
        {"empty folder vanished", [](const SealedTree& t) { t.Remove("empty"); }},
        {"empty folder became a file", [](const SealedTree& t) { t.Remove("empty"), t.Write("empty", "x"); }},
        {"attributes",
         [](const SealedTree& t) { SetFileAttributesW((t.Root() / "a.txt").c_str(), FILE_ATTRIBUTE_READONLY); }},
        {"times and owner: the file was written again", [](const SealedTree& t) { t.Write("a.txt", "content a"); }},
    };
    for (const Case& c : cases) {
        SealedTree tree;
        FillTree(tree);
        c.change(tree);
        const VerifyOutcome outcome = tree.Verify();
        EXPECT_EQ(outcome.status, 0) << c.what;
        EXPECT_EQ(outcome.messages, (Lines{"0 Verify summary: ok=5, bad=0, missing=0, extra=0, dirs=5"})) << c.what;
    }
    // An older seal of the same key, put back with its files, is as good as the newest.
    SealedTree tree;
    FillTree(tree);
    const std::string older = tree.ManifestBytes();
    tree.Write("a.txt", "mended");
    ASSERT_EQ(tree.Sign().status, 0);
    tree.Write("a.txt", "content a");
    EXPECT_EQ(tree.Verify().status, ZOSIG_E_VERIFY_FAILED);
    WriteFileBytes(tree.Manifest(), older);
    EXPECT_EQ(tree.Verify().status, 0);
}

TEST(Verify, AMovedTreeIsAsGoodAndAnUnreadableFileIsMissing) {
    SealedTree tree;
    FillTree(tree);
    const std::wstring moved = tree.Beside("moved \xC3\xA4").wstring();
    ASSERT_TRUE(MoveFileW(tree.Root().c_str(), moved.c_str()));
    EXPECT_EQ(tree.Verify([&](ZoSignerVerifyOptions& options) { options.root = moved.c_str(); }).status, 0);
    const VerifyOutcome gone = tree.Verify();
    EXPECT_EQ(gone.result.missing, 5u);
    EXPECT_EQ(gone.result.extra, 0u);
    ASSERT_TRUE(MoveFileW(moved.c_str(), tree.Root().c_str()));

    const zo::OwnedFile held(
        CreateFileW((tree.Root() / "a.txt").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(held);
    EXPECT_EQ(tree.Verify().messages[0], "1 [MISS] " + tree.Shown("a.txt"));
}

TEST(Verify, AnotherKeyIsTamperingAndManifestsThatCannotBeReadAreWin32Errors) {
    SealedTree tree;
    FillTree(tree);
    const std::wstring other = tree.Beside("other").wstring();
    ASSERT_EQ(ZoSigner_GenerateKeyPair(other.c_str()), 0);
    VerifyOutcome outcome = tree.Verify([&](ZoSignerVerifyOptions& options) { options.keystore = other.c_str(); });
    EXPECT_EQ(outcome.status, ZOSIG_E_TAMPERED);
    EXPECT_EQ(outcome.messages.size(), 1u);

    const std::wstring absent = tree.Beside("absent").wstring();
    outcome = tree.Verify([&](ZoSignerVerifyOptions& options) { options.manifest = absent.c_str(); });
    EXPECT_EQ(outcome.status, static_cast<std::int32_t>(0x80070002));
    EXPECT_EQ(outcome.messages, Lines{"2 Open manifest -> Win32 2"});
    EXPECT_EQ(tree.Verify([](ZoSignerVerifyOptions& options) { options.manifest = L""; }).status,
              static_cast<std::int32_t>(0x80070003));
    WriteFileBytes(tree.Manifest(), "");
    EXPECT_EQ(tree.Verify().messages, Lines{"2 manifest magic mismatch"});
}

TEST(Verify, ChecksItsArgumentsFirst) {
    constexpr std::int32_t kInvalidArgument = static_cast<std::int32_t>(0x80070057);
    SealedTree tree;
    FillTree(tree);
    const std::uint8_t byte = 0;
    const SealedTree::VerifyChange invalid[] = {
        [](auto& o) { o.root = nullptr; },
        [](auto& o) { o.manifest = nullptr; },
        [](auto& o) { o.keystore = nullptr; },
        [](auto& o) { o.keystore = L""; },
        [&](auto& o) { o.keystore = nullptr, o.keyBlob = &byte; },
        [](auto& o) { o.keystore = nullptr, o.keyBlobSize = 5; },
    };
    for (const auto& change : invalid) {
        const VerifyOutcome outcome = tree.Verify(change);
        EXPECT_EQ(outcome.status, kInvalidArgument);
        EXPECT_TRUE(outcome.messages.empty());
    }
    EXPECT_EQ(ZoSigner_VerifyDirectory(nullptr, nullptr), kInvalidArgument);
    EXPECT_EQ(ZoSigner_VerifyDirectoryWithEmbeddedKey(nullptr, nullptr), kInvalidArgument);
    const VerifyOutcome noRoot = tree.Verify([](auto& o) { o.root = L""; });
    EXPECT_EQ(noRoot.status, kInvalidArgument);
    EXPECT_EQ(noRoot.messages[0].rfind("2 resolve root: ", 0), 0u);
}

TEST(Verify, EmbeddedKeyIsThatOfTheBuildAndIgnoresTheCallersKeys) {
    SealedTree tree;
    FillTree(tree);
    const std::wstring root = tree.Root().wstring();
    const std::wstring manifest = tree.Manifest().wstring();
    Lines messages;
    Bytes junk(283, 1);
    ZoSignerVerifyOptions options{root.c_str(), manifest.c_str(), L"nowhere", junk.data(),
                                  283,          CollectMessage,   &messages};
    ZoSignerVerifyResult result{};
    EXPECT_EQ(ZoSigner_VerifyDirectoryWithEmbeddedKey(&options, &result), 0);
    EXPECT_EQ(result.ok, 5u);
    EXPECT_EQ(messages, (Lines{"0 Verify summary: ok=5, bad=0, missing=0, extra=0, dirs=5"}));
    options.keystore = nullptr;
    EXPECT_EQ(ZoSigner_VerifyDirectoryWithEmbeddedKey(&options, nullptr), 0);
    ASSERT_EQ(ZoSigner_GenerateKeyPair(tree.Keystore().c_str()), 0);
    ASSERT_EQ(tree.Sign().status, 0);
    EXPECT_EQ(ZoSigner_VerifyDirectoryWithEmbeddedKey(&options, &result), ZOSIG_E_TAMPERED);
    for (const auto member : {&ZoSignerVerifyOptions::root, &ZoSignerVerifyOptions::manifest}) {
        ZoSignerVerifyOptions incomplete = options;
        incomplete.*member = nullptr;
        EXPECT_EQ(ZoSigner_VerifyDirectoryWithEmbeddedKey(&incomplete, &result), static_cast<std::int32_t>(0x80070057));
    }
}

}  // namespace
}  // namespace zotest
