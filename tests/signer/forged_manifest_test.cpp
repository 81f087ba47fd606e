// Manifests that were damaged without the key, or forged with it.

#include "sealed_tree.h"

namespace zotest {
namespace {

constexpr std::size_t kBody = 12 + 512 + 1;  // behind the lines of the magic and of the signature

// The text's own tests look at every fault of it; here is that faults arrive with their status.
TEST(ForgedManifest, IsRefusedOrJudgedByHashAndSignatureOfEachEntry) {
    const SealedTree tree{"a"};
    const std::string print = Sha256Hex(PublicHalf(PrivateKey()));
    const std::string algorithm = "ALG RSA-2048-PKCS1-SHA256\n";
    const std::string head = algorithm + "PUB " + print + "\n----\n";
    const std::string hash = "  HASH " + Sha256Hex("a") + "\n";
    const std::string signature = "  SIG  " + SignatureHex("a") + "\n";
    const std::string invalid = "2 [BAD ] signature invalid: " + tree.Shown("a");
    const Lines otherKey{"2 public-key thumbprint mismatch", "2   manifest : " + std::string(64, '0'),
                         "2   keystore : " + print};
    const Lines noShortcuts{tree.Shown({kMissingShortcut, ""}), tree.Shown({kMissingShortcut, "b/c.lnk"})};
    constexpr std::int32_t kFailed = ZOSIG_E_VERIFY_FAILED;
    // The messages are those before the summary.
    const Rows<std::int32_t, std::string, Lines> rows = {
        {"no header", ZOSIG_E_BAD_MANIFEST, "", {"2 manifest header not terminated"}},
        {"bad signature", ZOSIG_E_BAD_MANIFEST, head + "F \xC3\xA4\n  SIG  0\n", {"2 bad SIG for \xC3\xA4"}},
        {"no thumbprint", ZOSIG_E_THUMBPRINT_MISMATCH, algorithm + "----\n", otherKey},
        {"no entries", 0, head, {}},
        {"a folder that is not there", 0, head + "D S nowhere", {}},
        {"another size, which is for people", 0, head + "F a\n  SIZE 99\n" + hash + signature, {}},
        {"no hash", kFailed, head + "F a\n  SIZE 1\n" + signature, {tree.Shown({kChanged, "a"})}},
        {"no signature", kFailed, head + "F a\n" + hash, {invalid + " (0xC000000D)"}},
        {"another's signature",
         kFailed,
         head + "F a\n" + hash + "  SIG  " + SignatureHex("b"),
         {invalid + " (0xC000A000)"}},
        {"file without a path", kFailed, head + FileLines("", "a"), {tree.Shown({kMissing, ""})}},
        {"shortcuts that are missing, a file as one", kFailed, head + "K \nK b/c.lnk\nK a\n", noShortcuts},
    };
    for (const auto& [name, status, body, messages] : rows) {
        tree.Forge(body);
        auto outcome = tree.Verify();
        EXPECT_EQ(outcome.status, status) << name;
        std::erase_if(outcome.messages, [](const std::string& line) { return line.starts_with("0 Verify summary"); });
        EXPECT_EQ(outcome.messages, messages) << name;
        const bool isRead = status != ZOSIG_E_BAD_MANIFEST;
        EXPECT_EQ(zo::ToHex(outcome.result.thumbprint), isRead ? print : std::string(64, '0')) << name;
    }
}

TEST(DamagedManifest, IsRefusedWhicheverBitIsFlipped) {
    const SealedTree tree{"f", "k.lnk"};
    ASSERT_EQ(tree.Sign().status, 0);
    const std::string whole = tree.ManifestBytes();
    for (std::size_t at = 0; at < whole.size(); ++at) {
        std::string damaged = whole;
        damaged[at] ^= 0x01;
        WriteFileBytes(tree.manifest, damaged);
        const auto outcome = tree.Verify();
        const bool isTampered = outcome.messages == Lines{kTampered};
        EXPECT_EQ(outcome.status, isTampered ? ZOSIG_E_TAMPERED : ZOSIG_E_BAD_MANIFEST) << at;
        EXPECT_EQ(outcome.messages.size(), 1u) << at;
        EXPECT_TRUE(isTampered || at < kBody) << "read before its signature was checked: " << at;
    }
    WriteFileBytes(tree.manifest, "ZOSIG1\r" + whole.substr(6));  // ends the line as well
    tree.Verify().Expect(ZOSIG_E_TAMPERED, {kTampered});
}

}  // namespace
}  // namespace zotest
