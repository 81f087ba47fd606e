// What verification notices and what it does not.

#include <gtest/gtest.h>
#include <windows.h>

#include "owned_handles.h"
#include "sealed_tree.h"

namespace zotest {
namespace {

const std::string kClean = "0 Verify summary: ok=5, bad=0, missing=0, extra=0, dirs=5";

// The tree that the changes below are made to: every directory sealed but "open".
void Fill(const SealedTree& tree) {
    tree.Change(
        "+a.txt=content a;+link.lnk=shortcut;+d/b.txt=content b;+d/e/c.txt=content c;+open/o.txt=content o;/empty");
}

void SealAllButOpen(ZoSignerSignOptions& options) {
    options.sealMode = ZOSIG_SEAL_ASK;
    options.sealCallback = [](void*, const wchar_t* path, std::int32_t* seal, std::int32_t*) {
        *seal = std::wstring(path) != L"open";
        return 0;
    };
}

// "B d/b.txt" and the like in full.
std::string Message(const SealedTree& tree, const std::string& finding) {
    const struct {
        char kind;
        const char* text;
    } kinds[] = {{'B', "2 [BAD ] hash mismatch: "},
                 {'M', "1 [MISS] "},
                 {'A', "1 [MISS] shortcut anchor: "},
                 {'F', "2 [XTRA] unexpected file in sealed dir: "},
                 {'D', "2 [XTRA] unexpected dir  in sealed dir: "}};
    for (const auto& row : kinds) {
        if (row.kind == finding[0]) return row.text + tree.Shown(finding.substr(2));
    }
    return finding;
}

// Each kind of change and all that is told about it.
TEST(Verify, NoticesEveryKindOfChange) {
    const struct {
        const char* change;
        std::vector<std::uint32_t> counts;  // ok, bad, missing, extra
        Lines findings;
    } rows[] = {
        {"+d/b.txt=content B", {4, 1, 0, 0}, {"B d/b.txt"}},
        {"+a.txt=content", {4, 1, 0, 0}, {"B a.txt"}},
        {"+open/o.txt=", {4, 1, 0, 0}, {"B open/o.txt"}},
        {"+a.txt=content b;+d/b.txt=content a", {3, 2, 0, 0}, {"B a.txt", "B d/b.txt"}},
        {"-d/e/c.txt", {4, 0, 1, 0}, {"M d/e/c.txt"}},
        {"-d", {3, 0, 2, 0}, {"M d/b.txt", "M d/e/c.txt"}},
        {"-d;+d=x", {3, 0, 2, 0}, {"M d/b.txt", "M d/e/c.txt"}},
        {">d=z", {3, 0, 2, 1}, {"M d/b.txt", "M d/e/c.txt", "D z"}},
        {">d/b.txt=d/z.txt", {4, 0, 1, 1}, {"M d/b.txt", "F d/z.txt"}},
        {">open/o.txt=open/p.txt", {4, 0, 1, 0}, {"M open/o.txt"}},
        {">a.txt=tmp;>tmp=A.TXT", {5, 0, 0, 1}, {"F A.TXT"}},
        {">d=tmp;>tmp=D", {5, 0, 0, 1}, {"D D"}},
        {"+d/e/new=x", {5, 0, 0, 1}, {"F d/e/new"}},
        {"+empty/new/x/y=x", {5, 0, 0, 1}, {"D empty/new"}},  // told once, whatever it holds
        {"+b.lnk=x", {5, 0, 0, 1}, {"F b.lnk"}},
        {"-a.txt;/a.txt", {4, 0, 1, 0}, {"M a.txt"}},
        {"-link.lnk;/link.lnk", {4, 0, 1, 0}, {"A link.lnk"}},
        {"-link.lnk", {4, 0, 1, 0}, {"A link.lnk"}},
        {"+a.txt=!;-link.lnk;+0=;/d/1", {3, 1, 1, 2}, {"B a.txt", "A link.lnk", "F 0", "D d/1"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.change);
        const SealedTree tree;
        Fill(tree);
        ASSERT_EQ(tree.Sign(SealAllButOpen).status, 0);
        tree.Change(row.change);
        const auto outcome = tree.Verify();
        EXPECT_EQ(outcome.status, ZOSIG_E_VERIFY_FAILED);
        Lines expected;
        for (const std::string& finding : row.findings)
            expected.push_back(Message(tree, finding));
        const auto count = [&row](std::size_t at) { return std::to_string(row.counts[at]); };
        expected.push_back("0 Verify summary: ok=" + count(0) + ", bad=" + count(1) + ", missing=" + count(2) +
                           ", extra=" + count(3) + ", dirs=5");
        EXPECT_EQ(outcome.messages, expected);
        const ZoSignerVerifyResult& result = outcome.result;
        EXPECT_EQ((std::vector{result.ok, result.bad, result.missing, result.extra}), row.counts);
        EXPECT_EQ(result.directories, 5u);
    }
}

// Promised to nobody: docs/sealing.md lists them. What fails here has become a promise, and goes there.
TEST(Verify, DoesNotNoticeTheseChanges) {
    for (const char* change : {
             "", "+link.lnk=elsewhere", "+link.lnk=", "+open/new.exe=x", "+open/n/e/w=x",
             ">open/o.txt=tmp;>tmp=open/O.TXT", "-empty", "-empty;+empty=x", "!a.txt",
             "-a.txt;+a.txt=content a",  // another file, with other times
             "&d/e/hard",                // by identity it is the manifest
         }) {
        const SealedTree tree;
        Fill(tree);
        ASSERT_EQ(tree.Sign(SealAllButOpen).status, 0);
        tree.Change(change);
        const auto outcome = tree.Verify();
        EXPECT_EQ(outcome.status, 0) << change;
        EXPECT_EQ(outcome.messages, Lines{kClean}) << change;
    }
    const SealedTree tree;
    Fill(tree);
    {
        // What cannot be read when signing is not listed; nothing tells of it in an open directory.
        const zo::OwnedFile held(
            CreateFileW(tree.At("open/o.txt").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        EXPECT_EQ(tree.Sign(SealAllButOpen).result.entries, 4u);
    }
    EXPECT_EQ(tree.Verify().status, 0);
    // A folder made for the manifest shows only when the one that it is in is sealed.
    const std::wstring inside = tree.At("open/new/seal").wstring();
    const auto useInside = [&inside](auto& options) { options.manifest = inside.c_str(); };
    ASSERT_EQ(tree.Sign([&](auto& options) { SealAllButOpen(options), useInside(options); }).status, 0);
    EXPECT_EQ(tree.Verify(useInside).status, 0);
    tree.Change("-open/new");
    ASSERT_EQ(tree.Sign(useInside).status, 0);
    EXPECT_EQ(tree.Verify(useInside).messages[0], Message(tree, "D open/new"));
    // An older seal of the same key, put back with its files, is as good as the newest.
    tree.Change("-open/new");
    ASSERT_EQ(tree.Sign().status, 0);
    const std::string older = tree.ManifestBytes();
    tree.Change("+a.txt=mended");
    ASSERT_EQ(tree.Sign().status, 0);
    tree.Change("+a.txt=content a");
    EXPECT_EQ(tree.Verify().status, ZOSIG_E_VERIFY_FAILED);
    WriteFileBytes(tree.Manifest(), older);
    EXPECT_EQ(tree.Verify().status, 0);
}

TEST(Verify, AMovedTreeIsAsGoodAndAnUnreadableFileIsMissing) {
    const SealedTree tree;
    Fill(tree);
    ASSERT_EQ(tree.Sign().status, 0);
    const std::wstring moved = tree.Beside("moved \xC3\xA4").wstring();
    ASSERT_TRUE(MoveFileW(tree.Root().c_str(), moved.c_str()));
    EXPECT_EQ(tree.Verify([&](auto& options) { options.root = moved.c_str(); }).status, 0);
    const auto gone = tree.Verify();
    EXPECT_EQ(gone.messages.back(), "0 Verify summary: ok=0, bad=0, missing=5, extra=0, dirs=5");
    ASSERT_TRUE(MoveFileW(moved.c_str(), tree.Root().c_str()));

    const zo::OwnedFile held(
        CreateFileW(tree.At("a.txt").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_EQ(tree.Verify().messages[0], Message(tree, "M a.txt"));
}

TEST(Verify, ManifestsThatCannotBeReadAreWin32Errors) {
    const SealedTree tree;
    const std::wstring absent = tree.Beside("absent").wstring();
    auto outcome = tree.Verify([&](auto& options) { options.manifest = absent.c_str(); });
    EXPECT_EQ(outcome.status, static_cast<std::int32_t>(0x80070002));
    EXPECT_EQ(outcome.messages, Lines{"2 Open manifest -> Win32 2"});
    outcome = tree.Verify([](auto& options) { options.manifest = L""; });
    EXPECT_EQ(outcome.status, static_cast<std::int32_t>(0x80070003));
    WriteFileBytes(tree.Manifest(), "");
    EXPECT_EQ(tree.Verify().messages, Lines{"2 manifest magic mismatch"});

    zo::OwnedFile large(CreateFileW(tree.Manifest().c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    ASSERT_TRUE(SetFilePointerEx(large.Get(), {.QuadPart = 1LL << 32}, nullptr, FILE_BEGIN) &&
                SetEndOfFile(large.Get()));
    large.Reset();
    outcome = tree.Verify();
    EXPECT_EQ(outcome.status, static_cast<std::int32_t>(0x800700DF));
    EXPECT_EQ(outcome.messages, Lines{"2 Read manifest -> Win32 223"});
}

TEST(Verify, EmbeddedKeyIsThatOfTheBuildAndIgnoresTheCallersKeys) {
    const SealedTree tree;
    Fill(tree);
    ASSERT_EQ(tree.Sign().status, 0);
    const std::wstring root = tree.Root().wstring();
    const std::wstring manifest = tree.Manifest().wstring();
    Lines messages;
    const Bytes junk(283, 1);
    ZoSignerVerifyOptions options{root.c_str(), manifest.c_str(), L"nowhere", junk.data(),
                                  283,          CollectMessage,   &messages};
    ZoSignerVerifyResult result{};
    EXPECT_EQ(ZoSigner_VerifyDirectoryWithEmbeddedKey(&options, &result), 0);
    EXPECT_EQ(result.ok, 5u);
    EXPECT_EQ(messages, Lines{kClean});
    options.keystore = nullptr;
    EXPECT_EQ(ZoSigner_VerifyDirectoryWithEmbeddedKey(&options, nullptr), 0);
    ASSERT_EQ(ZoSigner_GenerateKeyPair(tree.Keystore().c_str()), 0);
    ASSERT_EQ(tree.Sign().status, 0);
    EXPECT_EQ(ZoSigner_VerifyDirectoryWithEmbeddedKey(&options, &result), ZOSIG_E_TAMPERED);
    for (const auto member : {&ZoSignerVerifyOptions::root, &ZoSignerVerifyOptions::manifest}) {
        ZoSignerVerifyOptions incomplete = options;
        incomplete.*member = nullptr;
        EXPECT_EQ(ZoSigner_VerifyDirectoryWithEmbeddedKey(&incomplete, &result), kInvalidArgument);
    }
    EXPECT_EQ(ZoSigner_VerifyDirectoryWithEmbeddedKey(nullptr, nullptr), kInvalidArgument);
}

}  // namespace
}  // namespace zotest
