// What verification notices, and what it does not.

#include <utility>

#include "sealed_tree.h"

namespace zotest {
namespace {

// Each change is made to a sealed tree of its own, where verification then reports these findings.
void CheckEach(Rows<void (*)(const SealedTree&), std::vector<Finding>> changes) {
    for (const auto& [name, change, findings] : changes) {
        SCOPED_TRACE(name);
        const StandardTree tree;
        change(tree);
        tree.ExpectFindings(findings);
    }
}

TEST(Verify, ReportsEveryKindOfChange) {
    using Tree = SealedTree;
    CheckEach({
        {"nothing", [](const Tree&) {}, {}},
        {"other contents",
         [](const Tree& t) { t.Write("a.txt", "a.tx"), t.Write("d/b.txt", "d/B.txt"), t.Write("open/o.txt", ""); },
         {{kChanged, "a.txt"}, {kChanged, "d/b.txt"}, {kChanged, "open/o.txt"}}},
        {"folder removed",
         [](const Tree& tree) { tree.Remove("d"); },
         {{kMissing, "d/b.txt"}, {kMissing, "d/e/c.txt"}}},
        {"files renamed, one in the open folder",
         [](const Tree& tree) { tree.Rename("d/b.txt", "d/z.txt"), tree.Rename("open/o.txt", "open/p.txt"); },
         {{kMissing, "d/b.txt"}, {kMissing, "open/o.txt"}, {kExtraFile, "d/z.txt"}}},
        {"root removed",
         [](const Tree& tree) { RemoveTree(tree.root.wstring()); },
         {{kMissing, "a.txt"},
          {kMissing, "d/b.txt"},
          {kMissing, "d/e/c.txt"},
          {kMissingShortcut, "link.lnk"},
          {kMissing, "open/o.txt"}}},
        {"letter case of names",
         [](const Tree& tree) { tree.RenameTwice("a.txt", "A.TXT"), tree.RenameTwice("d", "D"); },
         {{kExtraFile, "A.TXT"}, {kExtraFolder, "D"}}},
        {"new folder, reported once whatever it holds",
         [](const Tree& tree) { tree.Write("empty/new/x/y", ""); },
         {{kExtraFolder, "empty/new"}}},
        {"file and shortcut replaced by folders",
         [](const Tree& tree) { tree.ReplaceByFolder("a.txt"), tree.ReplaceByFolder("link.lnk"); },
         {{kMissing, "a.txt"}, {kMissingShortcut, "link.lnk"}}},
    });
}

// docs/sealing.md lists these. A row that fails has become a promise, and belongs there.
TEST(Verify, AcceptsWhatASealDoesNotPromise) {
    using Tree = SealedTree;
    CheckEach({
        {"shortcut edited", [](const Tree& tree) { tree.Write("link.lnk", "elsewhere"); }, {}},
        {"open folder gets more",
         [](const Tree& tree) { tree.Write("open/new.exe", ""), tree.Write("open/n/e/w", ""); },
         {}},
        {"letter case in the open folder", [](const Tree& tree) { tree.RenameTwice("open/o.txt", "open/O.TXT"); }, {}},
        {"empty folder removed", [](const Tree& tree) { tree.Remove("empty"); }, {}},
        {"empty folder replaced by a file",
         [](const Tree& tree) { tree.Remove("empty"), tree.Write("empty", ""); },
         {}},
        {"file replaced by an equal one",
         [](const Tree& tree) { tree.Remove("a.txt"), tree.Write("a.txt", "a.txt"); },
         {}},
        {"hard link to the manifest", [](const Tree& tree) { tree.LinkToManifest("d/e/hard"); }, {}},
    });
}

TEST(Verify, AcceptsATreeThatWasMoved) {
    StandardTree tree;
    const std::filesystem::path sealedAt = std::exchange(tree.root, tree.folder / L"moved \u00e4");
    std::filesystem::rename(sealedAt, tree.root);
    tree.ExpectFindings({});
}

TEST(Verify, ReportsAFolderMadeForTheManifestInASealedFolder) {
    StandardTree tree;
    tree.manifest = tree.At("d/new/seal");
    ASSERT_EQ(tree.SignAllButOpen().status, 0);
    tree.ExpectFindings({{kExtraFolder, "d/new"}});
}

TEST(Verify, FailsWithTheErrorOfAManifestThatCannotBeRead) {
    StandardTree tree;
    {
        const ImportHook read("ReadFile", ReadFile, [](HANDLE file, void* bytes, DWORD size, DWORD* got, auto* at) {
            const BOOL done = ReadFile(file, bytes, size, got, at);
            if (*got > 283) --*got;  // the public key is read whole
            return done;
        });
        tree.Verify().Expect(static_cast<std::int32_t>(0x80070026), {"2 Read manifest -> Win32 38"});
    }
    {
        const zo::OwnedFile writer(
            CreateFileW(tree.manifest.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        tree.Verify().Expect(static_cast<std::int32_t>(0x80070020), {"2 Open manifest -> Win32 32"});
    }
    MakeLarge(tree.manifest, std::int64_t{1} << 32);
    tree.Verify().Expect(static_cast<std::int32_t>(0x800700DF), {"2 Read manifest -> Win32 223"});
    tree.manifest = tree.folder / "absent";
    tree.Verify().Expect(static_cast<std::int32_t>(0x80070002), {"2 Open manifest -> Win32 2"});
}

TEST(VerifyWithEmbeddedKey, UsesTheKeyOfTheBuildAndIgnoresTheCallers) {
    const StandardTree tree;
    const std::uint8_t junk[1] = {};
    const auto withJunk = [&junk](auto& options) {
        options.keystore = nullptr;
        options.keyBlob = junk;
        options.keyBlobSize = 1;
    };
    EXPECT_EQ(tree.Verify(withJunk, ZoSigner_VerifyDirectoryWithEmbeddedKey).status, 0);
    ASSERT_EQ(ZoSigner_GenerateKeyPair(tree.keystore.c_str()), 0);
    ASSERT_EQ(tree.Sign().status, 0);
    EXPECT_EQ(tree.Verify(withJunk, ZoSigner_VerifyDirectoryWithEmbeddedKey).status, ZOSIG_E_TAMPERED);
}

}  // namespace
}  // namespace zotest
