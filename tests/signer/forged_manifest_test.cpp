// Manifests that were damaged without the key, or forged with it.

#include <gtest/gtest.h>

#include <cctype>

#include "sealed_tree.h"

namespace zotest {
namespace {

const std::string kAlgorithm = "ALG RSA-2048-PKCS1-SHA256\n";
constexpr std::size_t kBody = 12 + 512 + 1;  // behind the lines of the magic and of the signature

std::string InUpperCase(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

std::string Head() {
    return kAlgorithm + "PUB " + Sha256Hex(PublicHalf(PrivateKey())) + "\n----\n";
}

std::string Hash(const std::string& bytes) {
    return "  HASH " + Sha256Hex(bytes) + "\n";
}

std::string Signature(const std::string& bytes) {
    return "  SIG  " + SignatureHex(bytes) + "\n";
}

// The text's own tests look at every fault of it; here is that faults arrive with their status.
TEST(ForgedManifest, IsRefusedOrJudgedByHashAndSignatureOfEachEntry) {
    const SealedTree tree({"a", "0"});
    const std::string print = Sha256Hex(PublicHalf(PrivateKey()));
    const std::string invalid = "2 [BAD ] signature invalid: " + tree.Shown("a");
    const Lines otherKey{"2 public-key thumbprint mismatch", "2   manifest : " + std::string(64, '0'),
                         "2   keystore : " + print};
    const Lines noShortcuts{tree.Shown({kMissingShortcut, ""}), tree.Shown({kMissingShortcut, "b/c.lnk"})};
    constexpr std::int32_t kFailed = ZOSIG_E_VERIFY_FAILED;
    // The messages are those before the summary.
    const Rows<std::int32_t, std::string, Lines> rows = {
        {"no header", ZOSIG_E_BAD_MANIFEST, "", {"2 manifest header not terminated"}},
        {"bad signature", ZOSIG_E_BAD_MANIFEST, Head() + "F \xC3\xA4\n  SIG  0\n", {"2 bad SIG for \xC3\xA4"}},
        {"no thumbprint", ZOSIG_E_THUMBPRINT_MISMATCH, kAlgorithm + "----\n", otherKey},
        {"no entries", 0, Head(), {}},
        {"a folder that is not there", 0, Head() + "D S nowhere", {}},
        {"upper-case digits", 0, Head() + InUpperCase(FileLines("0", "0")), {}},
        {"another size, which is for people", 0, Head() + "F a\n  SIZE 99\n" + Hash("a") + Signature("a"), {}},
        {"no hash", kFailed, Head() + "F a\n  SIZE 1\n" + Signature("a"), {tree.Shown({kChanged, "a"})}},
        {"no signature", kFailed, Head() + "F a\n" + Hash("a"), {invalid + " (0xC000000D)"}},
        {"another's signature", kFailed, Head() + "F a\n" + Hash("a") + Signature("b"), {invalid + " (0xC000A000)"}},
        {"file without a path", kFailed, Head() + FileLines("", "a"), {tree.Shown({kMissing, ""})}},
        {"shortcuts that are missing, a file as one", kFailed, Head() + "K \nK b/c.lnk\nK a\n", noShortcuts},
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
    std::vector<std::string> damaged{"ZOSIG1\r" + whole.substr(6)};  // would end the line as well
    for (std::size_t at = 0; at < whole.size(); ++at) {
        damaged.push_back(whole);
        damaged.back()[at] ^= 0x01;
    }
    for (const std::string& bytes : damaged) {
        WriteFileBytes(tree.manifest, bytes);
        const auto outcome = tree.Verify();
        const bool isTampered = outcome.messages == Lines{kTampered};
        EXPECT_EQ(outcome.status, isTampered ? ZOSIG_E_TAMPERED : ZOSIG_E_BAD_MANIFEST) << bytes;
        EXPECT_EQ(outcome.messages.size(), 1u) << bytes;
        if (bytes.starts_with(whole.substr(0, kBody))) {
            EXPECT_TRUE(isTampered) << "read before its signature was checked: " << bytes;
        }
    }
}

}  // namespace
}  // namespace zotest
