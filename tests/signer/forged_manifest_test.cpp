// Manifests that were damaged without the key, or forged with it.

#include <gtest/gtest.h>

#include <cctype>

#include "sealed_tree.h"

namespace zotest {
namespace {

const std::string kTampered = "2 manifest body has been tampered with (MSIG verify -> 0xC000A000)";
const std::string kAlgorithm = "ALG RSA-2048-PKCS1-SHA256\n";
constexpr std::size_t kDigits = 12;  // where the value of the MSIG line begins
constexpr std::size_t kBody = kDigits + 512 + 1;

void ToUpper(std::string& text, std::size_t begin, std::size_t end) {
    std::transform(text.begin() + static_cast<std::ptrdiff_t>(begin), text.begin() + static_cast<std::ptrdiff_t>(end),
                   text.begin() + static_cast<std::ptrdiff_t>(begin), [](unsigned char c) { return std::toupper(c); });
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

// The text's own tests look at every fault; here is that faults arrive with their status.
TEST(ForgedManifest, IsRefusedWithItsFault) {
    const SealedTree tree;
    const std::string print = Sha256Hex(PublicHalf(PrivateKey()));
    const struct {
        const char* name;
        std::string body;
        std::int32_t status;
        Lines messages;
    } rows[] = {
        {"no header", "", ZOSIG_E_BAD_MANIFEST, {"2 manifest header not terminated"}},
        {"bad signature of a name beyond ASCII",
         Head() + "F \xC3\xA4\n  SIG  0\n",
         ZOSIG_E_BAD_MANIFEST,
         {"2 bad SIG for \xC3\xA4"}},
        {"no thumbprint",
         kAlgorithm + "----\n",
         ZOSIG_E_THUMBPRINT_MISMATCH,
         {"2 public-key thumbprint mismatch", "2   manifest : " + std::string(64, '0'), "2   keystore : " + print}},
    };
    for (const auto& row : rows) {
        tree.Forge(row.body);
        const auto outcome = tree.Verify();
        EXPECT_EQ(outcome.status, row.status) << row.name;
        EXPECT_EQ(outcome.messages, row.messages) << row.name;
        const bool read = row.status == ZOSIG_E_THUMBPRINT_MISMATCH;
        EXPECT_EQ(zo::ToHex(outcome.result.thumbprint), read ? print : std::string(64, '0')) << row.name;
    }
}

TEST(ForgedManifest, IsJudgedByHashAndSignatureOfEachEntry) {
    const SealedTree tree({"a"});
    std::string upper = FileLines("a", "a");
    ToUpper(upper, upper.find("HASH ") + 5, upper.find("\n  SIG"));
    ToUpper(upper, upper.find("SIG  ") + 5, upper.size());
    const std::string invalid = "2 [BAD ] signature invalid: " + tree.Shown("a");
    const struct {
        const char* name;
        std::string entries;
        Lines messages;
    } rows[] = {
        {"none", "", {}},
        {"a folder that is not there", "D S nowhere", {}},
        {"upper-case digits", upper, {}},
        {"another size, which is for people", "F a\n  SIZE 99\n" + Hash("a") + Signature("a"), {}},
        {"no hash", "F a\n  SIZE 1\n" + Signature("a"), {tree.Shown(Changed("a"))}},
        {"no signature", "F a\n" + Hash("a"), {invalid + " (0xC000000D)"}},
        {"short signature", "F a\n" + Hash("a") + "  SIG  00\n", {invalid + " (0xC000A000)"}},
        {"signature of another file", "F a\n" + Hash("a") + Signature("b"), {invalid + " (0xC000A000)"}},
        {"file without a path", FileLines("", "a"), {tree.Shown(Missing(""))}},
        {"shortcuts that are not there, and a file named as one",
         "K \nK b/c.lnk\nK a\n",
         {tree.Shown(MissingShortcut("")), tree.Shown(MissingShortcut("b/c.lnk"))}},
    };
    for (const auto& row : rows) {
        tree.Forge(Head() + row.entries);
        auto outcome = tree.Verify();
        EXPECT_EQ(outcome.status, row.messages.empty() ? 0 : ZOSIG_E_VERIFY_FAILED) << row.name;
        ASSERT_FALSE(outcome.messages.empty()) << row.name;
        outcome.messages.pop_back();  // the summary
        EXPECT_EQ(outcome.messages, row.messages) << row.name;
    }
}

struct DamagedManifest : testing::Test {
    const SealedTree tree{"f", "k.lnk"};
    const std::int32_t sealed = tree.Sign().status;
    const std::string whole = tree.ManifestBytes();

    Outcome<ZoSignerVerifyResult> Verify(const std::string& bytes) const {
        WriteFileBytes(tree.manifest, bytes);
        return tree.Verify();
    }
};

TEST_F(DamagedManifest, IsRefusedWhicheverBitIsFlipped) {
    for (std::size_t at = 0; at < whole.size(); ++at) {
        std::string flipped = whole;
        flipped[at] = static_cast<char>(flipped[at] ^ 0x01);
        const bool isDigit = std::isxdigit(static_cast<unsigned char>(flipped[at])) != 0;
        const std::string fault = at < 7                   ? "2 manifest magic mismatch"
                                  : at < kDigits           ? "2 manifest header missing MSIG line"
                                  : at < kBody && !isDigit ? "2 bad MSIG hex in manifest"
                                                           : kTampered;
        const auto outcome = Verify(flipped);
        EXPECT_EQ(outcome.status, fault == kTampered ? ZOSIG_E_TAMPERED : ZOSIG_E_BAD_MANIFEST) << at;
        EXPECT_EQ(outcome.messages, Lines{fault}) << at;
    }
}

TEST_F(DamagedManifest, IsRefusedWhereverItIsCut) {
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const auto outcome = Verify(whole.substr(0, size));
        const bool tampered = size >= kBody || outcome.messages == Lines{kTampered};
        EXPECT_EQ(outcome.status, tampered ? ZOSIG_E_TAMPERED : ZOSIG_E_BAD_MANIFEST) << size;
        EXPECT_EQ(outcome.messages.size(), 1u) << size;
    }
}

// The MSIG line is the only one that is not signed.
TEST_F(DamagedManifest, IsAcceptedWithMsigDigitsInUpperCaseAndACarriageReturnAfterThem) {
    std::string upper = whole;
    ToUpper(upper, kDigits, kBody);
    EXPECT_EQ(Verify(upper).status, 0);
    EXPECT_EQ(Verify(whole.substr(0, kBody - 1) + "\r" + whole.substr(kBody - 1)).status, 0);
    EXPECT_EQ(Verify("ZOSIG1\r" + whole.substr(6)).messages, Lines{kTampered});
}

}  // namespace
}  // namespace zotest
