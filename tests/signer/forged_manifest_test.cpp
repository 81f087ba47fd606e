// How verification refuses manifests, forged with the right key or damaged without it.

#include <gtest/gtest.h>

#include <cctype>

#include "sealed_tree.h"

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

}  // namespace
}  // namespace zotest
