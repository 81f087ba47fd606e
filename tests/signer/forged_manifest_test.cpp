// How verification refuses manifests, forged with the right key or damaged without it.

#include <gtest/gtest.h>

#include <cctype>

#include "sealed_tree.h"

namespace zotest {
namespace {

const std::string kAlgorithmLine = "ALG RSA-2048-PKCS1-SHA256\n";

std::string Head() {
    return kAlgorithmLine + "PUB " + Sha256Hex(Text(DevelopmentPublicKey())) + "\n----\n";
}

// What the text's own tests leave open: that its faults arrive here, and what comes after it.
TEST(Verify, RefusesMalformedManifestsWithTheirMessage) {
    const SealedTree tree;
    tree.Change("+a=x");
    const struct {
        std::string body;
        Lines messages;
        std::int32_t status = ZOSIG_E_BAD_MANIFEST;
    } rows[] = {
        {"", {"2 manifest header not terminated"}},
        {Head() + "F \xC3\xA4\n  SIG  0\n", {"2 bad SIG for \xC3\xA4"}},
        {kAlgorithmLine + "----\n",
         {"2 public-key thumbprint mismatch", "2   manifest : " + std::string(64, '0'),
          "2   keystore : " + Sha256Hex(Text(DevelopmentPublicKey()))},
         ZOSIG_E_THUMBPRINT_MISMATCH},
        {Head(), {"0 Verify summary: ok=0, bad=0, missing=0, extra=0, dirs=0"}, 0},
        {Head() + FileLines("a", "x") + "D S .\nD O nowhere",
         {"0 Verify summary: ok=1, bad=0, missing=0, extra=0, dirs=2"},
         0},
    };
    for (const auto& row : rows) {
        tree.Forge(row.body);
        const auto outcome = tree.Verify();
        EXPECT_EQ(outcome.status, row.status) << row.body;
        EXPECT_EQ(outcome.messages, row.messages) << row.body;
        // The key's thumbprint is told as soon as the manifest could be read.
        EXPECT_EQ(outcome.result.thumbprint[0] != 0, row.status != ZOSIG_E_BAD_MANIFEST) << row.body;
    }
}

TEST(Verify, ForgedEntriesAreJudgedByWhatTheyLack) {
    const SealedTree tree;
    tree.Change("+a=x");
    const std::string hash = "  HASH " + Sha256Hex("x") + "\n";
    std::string upper = FileLines("a", "x");
    for (std::size_t at = upper.find("HASH ") + 5; at < upper.size(); ++at) {
        if (upper[at] >= 'a' && upper[at] <= 'f') upper[at] = static_cast<char>(upper[at] - 32);
    }
    const std::string invalid = "2 [BAD ] signature invalid: " + tree.Shown("a");
    const struct {
        std::string body;
        Lines messages;
    } rows[] = {
        {upper, {}},
        {"F a\n  SIZE 99\n" + hash + "  SIG  " + SignatureHex("x") + "\n", {}},  // the size is for people
        {"F a\n  SIZE 1\n  SIG  " + SignatureHex("x") + "\n", {"2 [BAD ] hash mismatch: " + tree.Shown("a")}},
        {"F a\n" + hash, {invalid + " (0xC000000D)"}},
        {"F a\n" + hash + "  SIG  00\n", {invalid + " (0xC000A000)"}},
        {"F a\n" + hash + "  SIG  " + SignatureHex("y") + "\n", {invalid + " (0xC000A000)"}},
        {FileLines("", "x"), {"1 [MISS] " + tree.Shown("")}},
        {"K \nK b/c.lnk\nK a\n",
         {"1 [MISS] shortcut anchor: " + tree.Shown(""), "1 [MISS] shortcut anchor: " + tree.Shown("b/c.lnk")}},
    };
    for (const auto& row : rows) {
        tree.Forge(Head() + row.body);
        auto outcome = tree.Verify();
        EXPECT_EQ(outcome.status, row.messages.empty() ? 0 : ZOSIG_E_VERIFY_FAILED) << row.body;
        outcome.messages.pop_back();
        EXPECT_EQ(outcome.messages, row.messages) << row.body;
    }
}

TEST(Verify, EveryByteOfAManifestFlippedOrCutIsRefusedButTheCaseOfMsigDigits) {
    const SealedTree tree;
    tree.Change("+f=x;+k.lnk=x");
    ASSERT_EQ(tree.Sign().status, 0);
    const std::string whole = tree.ManifestBytes();
    constexpr std::size_t kDigits = 12;  // the value of the MSIG line
    constexpr std::size_t kBody = kDigits + 512 + 1;
    const std::string tampered = "2 manifest body has been tampered with (MSIG verify -> 0xC000A000)";
    const auto verify = [&](const std::string& bytes) {
        WriteFileBytes(tree.Manifest(), bytes);
        return tree.Verify();
    };
    for (std::size_t at = 0; at < whole.size(); ++at) {
        std::string flipped = whole;
        flipped[at] = static_cast<char>(flipped[at] ^ 0x01);
        const bool stillHex = std::isxdigit(static_cast<unsigned char>(flipped[at])) != 0;
        const std::string expected = at < 7                    ? "2 manifest magic mismatch"
                                     : at < kDigits            ? "2 manifest header missing MSIG line"
                                     : at < kBody && !stillHex ? "2 bad MSIG hex in manifest"
                                                               : tampered;
        auto outcome = verify(flipped);
        EXPECT_EQ(outcome.status, expected == tampered ? ZOSIG_E_TAMPERED : ZOSIG_E_BAD_MANIFEST) << at;
        EXPECT_EQ(outcome.messages, Lines{expected}) << at;
        outcome = verify(whole.substr(0, at));
        EXPECT_TRUE(outcome.status == ZOSIG_E_TAMPERED || outcome.status == ZOSIG_E_BAD_MANIFEST) << at;
        EXPECT_EQ(outcome.messages.size(), 1u) << at;
    }
    // Not noticed: letter case of the MSIG digits, a carriage return at the end of that line.
    std::string upper = whole;
    for (std::size_t at = kDigits; at < kBody; ++at)
        upper[at] = static_cast<char>(std::toupper(upper[at]));
    EXPECT_EQ(verify(upper).status, 0);
    EXPECT_EQ(verify(whole.substr(0, kBody - 1) + "\r" + whole.substr(kBody - 1)).status, 0);
    // Carriage returns everywhere are part of what is signed.
    std::string returns;
    for (const char character : whole)
        returns += character == '\n' ? "\r\n" : std::string(1, character);
    EXPECT_EQ(verify(returns).messages, Lines{tampered});
}

}  // namespace
}  // namespace zotest
