// What verification notices, and what it does not.

#include <gtest/gtest.h>

#include <utility>

#include "sealed_tree.h"

namespace zotest {
namespace {

struct Change {
    const char* name;
    void (*make)(const SealedTree& tree);
    std::vector<Finding> findings{};
};

void CheckEach(std::initializer_list<Change> changes) {
    for (const Change& change : changes) {
        SCOPED_TRACE(change.name);
        const StandardTree tree;
        change.make(tree);
        tree.ExpectFindings(change.findings);
    }
}

TEST(Verify, ReportsEveryKindOfChange) {
    using Tree = SealedTree;
    CheckEach({
        {"nothing", [](const Tree&) {}},
        {"other contents",
         [](const Tree& tree) {
             tree.Write("a.txt", "a.tx"), tree.Write("d/b.txt", "d/B.txt"), tree.Write("open/o.txt", "");
         },
         {Changed("a.txt"), Changed("d/b.txt"), Changed("open/o.txt")}},
        {"contents swapped",
         [](const Tree& tree) { tree.Write("a.txt", "d/b.txt"), tree.Write("d/b.txt", "a.txt"); },
         {Changed("a.txt"), Changed("d/b.txt")}},
        {"folder removed", [](const Tree& tree) { tree.Remove("d"); }, {Missing("d/b.txt"), Missing("d/e/c.txt")}},
        {"folder replaced by a file",
         [](const Tree& tree) { tree.Remove("d"), tree.Write("d", ""); },
         {Missing("d/b.txt"), Missing("d/e/c.txt")}},
        {"folder renamed",
         [](const Tree& tree) { tree.Rename("d", "z"); },
         {Missing("d/b.txt"), Missing("d/e/c.txt"), ExtraFolder("z")}},
        {"files renamed, one in the open folder",
         [](const Tree& tree) { tree.Rename("d/b.txt", "d/z.txt"), tree.Rename("open/o.txt", "open/p.txt"); },
         {Missing("d/b.txt"), Missing("open/o.txt"), ExtraFile("d/z.txt")}},
        {"letter case of names",
         [](const Tree& tree) { tree.RenameTwice("a.txt", "A.TXT"), tree.RenameTwice("d", "D"); },
         {ExtraFile("A.TXT"), ExtraFolder("D")}},
        {"new folder, reported once whatever it holds",
         [](const Tree& tree) { tree.Write("empty/new/x/y", ""); },
         {ExtraFolder("empty/new")}},
        {"file and shortcut replaced by folders",
         [](const Tree& tree) {
             tree.Remove("a.txt"), tree.MakeFolder("a.txt");
             tree.Remove("link.lnk"), tree.MakeFolder("link.lnk");
         },
         {Missing("a.txt"), MissingShortcut("link.lnk")}},
        {"one of each",
         [](const Tree& tree) {
             tree.Write("a.txt", "!"), tree.Remove("link.lnk"), tree.Write("0", ""), tree.MakeFolder("d/1");
         },
         {Changed("a.txt"), MissingShortcut("link.lnk"), ExtraFile("0"), ExtraFolder("d/1")}},
    });
}

// docs/sealing.md lists these. A row that fails has become a promise, and belongs there.
TEST(Verify, AcceptsWhatASealDoesNotPromise) {
    using Tree = SealedTree;
    CheckEach({
        {"shortcut edited", [](const Tree& tree) { tree.Write("link.lnk", "elsewhere"); }},
        {"shortcut emptied", [](const Tree& tree) { tree.Write("link.lnk", ""); }},
        {"open folder gets more",
         [](const Tree& tree) { tree.Write("open/new.exe", ""), tree.Write("open/n/e/w", ""); }},
        {"letter case in the open folder", [](const Tree& tree) { tree.RenameTwice("open/o.txt", "open/O.TXT"); }},
        {"empty folder removed", [](const Tree& tree) { tree.Remove("empty"); }},
        {"empty folder replaced by a file", [](const Tree& tree) { tree.Remove("empty"), tree.Write("empty", ""); }},
        {"file replaced by an equal one", [](const Tree& tree) { tree.Remove("a.txt"), tree.Write("a.txt", "a.txt"); }},
        {"hard link to the manifest", [](const Tree& tree) { tree.LinkToManifest("d/e/hard"); }},
    });
}

TEST(Verify, AcceptsAnOlderSealPutBackWithItsFiles) {
    const StandardTree tree;
    const std::string older = tree.ManifestBytes();
    tree.Write("a.txt", "fixed");
    ASSERT_EQ(tree.SignAllButOpen().status, 0);
    tree.Write("a.txt", "a.txt");
    tree.ExpectFindings({Changed("a.txt")});
    WriteFileBytes(tree.manifest, older);
    tree.ExpectFindings({});
}

TEST(Verify, AcceptsATreeThatWasMoved) {
    StandardTree tree;
    const std::filesystem::path sealedAt = std::exchange(tree.root, tree.folder / L"moved \u00e4");
    std::filesystem::rename(sealedAt, tree.root);
    tree.ExpectFindings({});
}

TEST(Verify, ReportsEveryFileMissingWhenTheRootIsGone) {
    const StandardTree tree;
    RemoveTree(tree.root.wstring());
    tree.ExpectFindings({Missing("a.txt"), Missing("d/b.txt"), Missing("d/e/c.txt"), MissingShortcut("link.lnk"),
                         Missing("open/o.txt")});
}

TEST(Verify, CountsAFileThatCannotBeReadAsMissing) {
    const StandardTree tree;
    const zo::OwnedFile held = Hold(tree.At("a.txt"));
    tree.ExpectFindings({Missing("a.txt")});
}

TEST(Verify, ShowsAFolderMadeForTheManifestOnlyInASealedFolder) {
    StandardTree tree;
    tree.manifest = tree.At("open/new/seal");
    ASSERT_EQ(tree.SignAllButOpen().status, 0);
    tree.ExpectFindings({});
    tree.manifest = tree.At("d/new/seal");
    tree.Remove("open/new");
    ASSERT_EQ(tree.SignAllButOpen().status, 0);
    tree.ExpectFindings({ExtraFolder("d/new")});
}

TEST(Verify, FailsWithTheErrorOfAManifestThatCannotBeRead) {
    StandardTree tree;
    const auto check = [&tree](std::uint32_t status, const Lines& messages) {
        const auto outcome = tree.Verify();
        EXPECT_EQ(outcome.status, static_cast<std::int32_t>(status));
        EXPECT_EQ(outcome.messages, messages);
    };
    MakeLarge(tree.manifest, std::int64_t{1} << 32);
    check(0x800700DF, {"2 Read manifest -> Win32 223"});
    tree.manifest = tree.folder / "absent";
    check(0x80070002, {"2 Open manifest -> Win32 2"});
    tree.manifest = "";
    check(0x80070003, {"2 Open manifest -> Win32 3"});
}

TEST(VerifyWithEmbeddedKey, UsesTheKeyOfTheBuildAndIgnoresTheCallers) {
    const StandardTree tree;
    const std::uint8_t junk[283] = {};
    const auto verify = [&tree, &junk] {
        return tree.Verify([&junk](auto& options) { options.keyBlob = junk, options.keyBlobSize = sizeof(junk); },
                           ZoSigner_VerifyDirectoryWithEmbeddedKey);
    };
    EXPECT_EQ(verify().status, 0);
    ASSERT_EQ(ZoSigner_GenerateKeyPair(tree.keystore.c_str()), 0);
    ASSERT_EQ(tree.Sign().status, 0);
    EXPECT_EQ(verify().status, ZOSIG_E_TAMPERED);
}

TEST(VerifyWithEmbeddedKey, RequiresRootAndManifestButNoKeystore) {
    const StandardTree tree;
    const auto status = [&tree](const auto& change) {
        return tree.Verify(change, ZoSigner_VerifyDirectoryWithEmbeddedKey).status;
    };
    EXPECT_EQ(status([](auto& options) { options.keystore = nullptr; }), 0);
    EXPECT_EQ(status([](auto& options) { options.root = nullptr; }), kInvalidArgument);
    EXPECT_EQ(status([](auto& options) { options.manifest = nullptr; }), kInvalidArgument);
    EXPECT_EQ(ZoSigner_VerifyDirectoryWithEmbeddedKey(nullptr, nullptr), kInvalidArgument);
}

}  // namespace
}  // namespace zotest
