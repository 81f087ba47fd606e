#include "manifest_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace zosigner {
namespace {

const std::string kPub(64, '7');
const std::string kDigest(64, 'a');
constexpr const char* kBadDirectory = "bad directory line in manifest";

TEST(ManifestText, WritesEveryLineOfABody) {
    Manifest manifest;
    manifest.root = "C:\\Suite";
    manifest.thumbprint.fill(0x0F);
    manifest.time = 18446744073709551615u;
    manifest.directories = {{".", true}, {"b/\xC3\xA4 .", false}};
    ManifestEntry file{"b/\xC3\xA4 ./x", 18446744073709551615u};
    file.digest.fill(0xA5);
    file.signature = {0x00, 0xFF, 0x1b};
    manifest.entries = {file, {.path = "a.lnk", .anchor = true}, {"empty"}};

    std::string expected = "ALG RSA-2048-PKCS1-SHA256\nROOT C:\\Suite\nPUB ";
    for (int i = 0; i < 32; ++i)
        expected += "0f";
    expected +=
        "\nTIME 18446744073709551615\nCOUNT 3\n----\nD S .\nD O b/\xC3\xA4 .\n"
        "F b/\xC3\xA4 ./x\n  SIZE 18446744073709551615\n  HASH ";
    for (int i = 0; i < 32; ++i)
        expected += "a5";
    expected += "\n  SIG  00ff1b\nK a.lnk\nF empty\n  SIZE 0\n  HASH " + std::string(64, '0') + "\n  SIG  \n";
    EXPECT_EQ(BuildBody(manifest), expected);
    EXPECT_EQ(SignatureLine({0xAB, 0x01}), "MSIG ab01\n");
}

TEST(ManifestText, SplitsAtTheSignatureLine) {
    const struct {
        std::string file;
        const char* fault;
        const char* magic = "";
        std::vector<std::uint8_t> signature{};
        const char* body = "";
    } cases[] = {
        {"", "manifest magic mismatch"},
        {"ZOSIG2\nMSIG 00\n", "manifest magic mismatch"},
        {"zosig1\nMSIG 00\n", "manifest magic mismatch"},
        {"ZOSIG1\r\r\nMSIG 00\n", "manifest magic mismatch"},
        {"\xEF\xBB\xBFZOSIG1\nMSIG 00\n", "manifest magic mismatch"},
        {"ZOSIG1", "manifest header missing MSIG line"},
        {"ZOSIG1\nMSIG\n", "manifest header missing MSIG line"},
        {"ZOSIG1\nmsig 00\n", "manifest header missing MSIG line"},
        {"ZOSIG1\nMSIG ", "bad MSIG hex in manifest"},
        {"ZOSIG1\nMSIG \r\n", "bad MSIG hex in manifest"},
        {"ZOSIG1\nMSIG 0\n", "bad MSIG hex in manifest"},
        {"ZOSIG1\nMSIG 0g\n", "bad MSIG hex in manifest"},
        {"ZOSIG1\nMSIG 00\r\r\n", "bad MSIG hex in manifest"},
        {"ZOSIG1\nMSIG 00fF", "", "ZOSIG1\n", {0x00, 0xFF}, ""},
        {"ZOSIG1\r\nMSIG Ab\r\nALG x\r\n", "", "ZOSIG1\r\n", {0xAB}, "ALG x\r\n"},
        {"ZOSIG1\nMSIG 01\n\n\n", "", "ZOSIG1\n", {0x01}, "\n\n"},
    };
    for (const auto& c : cases) {
        SignedText parts;
        EXPECT_EQ(SplitSignedText(c.file, parts), c.fault) << c.file;
        if (*c.fault != '\0') continue;
        EXPECT_EQ(parts.magicLine, c.magic) << c.file;
        EXPECT_EQ(parts.signature, c.signature) << c.file;
        EXPECT_EQ(parts.body, c.body) << c.file;
    }
}

TEST(ManifestText, RefusesAndIgnoresInTheHeaderWhatItShould) {
    const struct {
        std::string body;
        const char* fault;
        std::string root{};
        std::uint64_t time = 0;
        std::uint8_t pub = 0;
    } cases[] = {
        {"", "manifest header not terminated"},
        {"---- \n", "manifest header not terminated"},
        {"ALG RSA-2048-PKCS1-SHA256 \n----\n", "unsupported algorithm in manifest"},
        {"ALG \n", "unsupported algorithm in manifest"},  // told before the missing end
        {"PUB " + kPub + "77\n----\n", "bad PUB thumbprint in manifest"},
        {"PUB " + kPub.substr(2) + "\n----\n", "bad PUB thumbprint in manifest"},
        {"PUB " + kPub.substr(1) + "g\n----\n", "bad PUB thumbprint in manifest"},
        {"----", ""},
        {"----\r\nALG none\nROOT x\n", ""},  // below the line nothing is a header
        {"ROOT a b\r\nTIME 12x\nPUB " + kPub + "\nCOUNT many\nNEW line\n\n----\n", "", "a b", 12, 0x77},
        {"ROOT a\nROOT \nTIME 1\nTIME -1\n----\n", "", "", 0},
        {"ALG\nROOT\nPUB\nTIME\nroot x\n ROOT x\nTIME\t5\n----\n", ""},
        {"TIME 99999999999999999999\n----\n", "", "", 18446744073709551615u},
        {"TIME 18446744073709551616\n----\n", "", "", 18446744073709551615u},
    };
    for (const auto& c : cases) {
        ListedTree tree;
        EXPECT_EQ(ParseBody(c.body, tree), c.fault) << c.body;
        if (*c.fault != '\0') continue;
        EXPECT_EQ(tree.root, c.root) << c.body;
        EXPECT_EQ(tree.time, c.time) << c.body;
        EXPECT_EQ(tree.thumbprint[0], c.pub) << c.body;
        EXPECT_TRUE(tree.directories.empty() && tree.entries.empty()) << c.body;
    }
}

// What the body's lines became, one item a line.
std::string Show(const ListedTree& tree) {
    std::string text;
    for (const ListedDirectory& directory : tree.directories) {
        text += std::string(directory.sealed ? "S:" : "O:") + std::string(directory.path) + ";";
    }
    for (const ListedEntry& entry : tree.entries) {
        text += std::string(entry.anchor ? "K:" : "F:") + std::string(entry.path);
        if (entry.size != 0) text += "," + std::to_string(entry.size);
        if (!entry.digest.empty()) text += ",hash";
        if (!entry.signature.empty()) text += "," + std::string(entry.signature);
        text += ";";
    }
    return text;
}

TEST(ManifestText, ReadsTheBodyLineByLine) {
    const std::string hash = "  HASH " + kDigest + "\n";
    const struct {
        std::string lines;
        std::string shown;
        const char* fault = "";
    } cases[] = {
        {"D S .\nD O a b\r\nD S x", "S:.;O:a b;S:x;"},
        {"D\nF\nK\n\nX y\nd S .\n D S .\nDS .\nF\tx\n----\n", ""},
        {"D X .\n", "", kBadDirectory},
        {"D S\n", "", kBadDirectory},
        {"D S \n", "", kBadDirectory},
        {"D S\t.\n", "", kBadDirectory},
        {"D SS .\n", "", kBadDirectory},
        {"D S  .\n", "S: .;"},  // a name may begin with a blank
        {"K a.lnk\nK \nK  b\n", "K:a.lnk;K:;K: b;"},
        {"F a\n  SIZE 7\n" + hash + "  SIG  0aF0\nK b\n", "F:a,7,hash,0aF0;K:b;"},
        {"F a\r\n\t SIZE 7\r\n \t" + hash + "SIG  0a\r\nK b\r\n", "F:a,7,hash,0a;K:b;"},
        {"F a\n  SIG  0a\n  SIZE 1\n" + hash, "F:a,1,hash,0a;"},               // by name, in any order
        {"F a\n  SIZE 1\n  SIZE 2\n  SIZE 3\n  SIZE 4\nK b\n", "F:a,3;K:b;"},  // the last of the three counts
        {"F a\n  SIZE 12 3\n  SIG 0a\n  HASH" + kDigest + "\n", "F:a,12;"},    // near misses are no keys
        {"F a\n  size 1\n  SIZE\t1\n  SIZE  1\n", "F:a;"},
        {"F a\nF b\nD S c\nK d\nK e\n", "F:a;K:e;"},  // consumed by position
        {"F a\nxSIZE 1\n \n\t\nK e\n", "F:a;K:e;"},
        {"F a", "F:a;"},
        {"F a\n  SIG  \n  SIG  \n  SIG  ", "F:a;"},
        {"F \n  SIZE 1\n", "F:,1;"},
        {"F a\n  HASH " + kDigest.substr(1) + "\n", "", "bad HASH for a"},
        {"F a\n  HASH " + kDigest.substr(1) + "g\n", "", "bad HASH for a"},
        {"F a b\n  HASH " + kDigest + " \n", "", "bad HASH for a b"},
        {"F a\n  SIG   aa\n", "", "bad SIG for a"},
        {"F a\n  SIG  " + kDigest + "zz\n", "", "bad SIG for a"},
        {"F a\n  SIG  x\nD X\n", "", "bad SIG for a"},  // the first fault is told
    };
    for (const auto& c : cases) {
        ListedTree tree;
        const std::string body = "----\n" + c.lines;
        EXPECT_EQ(ParseBody(body, tree), c.fault) << c.lines;
        if (*c.fault != '\0') continue;
        EXPECT_EQ(Show(tree), c.shown) << c.lines;
    }
}

// Cut anywhere, a manifest is read or refused, and never read beyond its end: each cut stands alone at the end of a
// heap block, where the sanitizer sees a read too far.
TEST(ManifestText, SurvivesEveryTruncation) {
    Manifest manifest;
    manifest.directories = {{".", true}, {"d", false}};
    ManifestEntry file{"d/f", 1};
    file.signature = {1, 2, 3};
    manifest.entries = {file, {.path = "k.lnk", .anchor = true}};
    const std::string whole = std::string(kMagicLine) + SignatureLine({9}) + BuildBody(manifest);
    std::size_t readable = 0;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const auto copy = std::make_unique<char[]>(size);
        std::memcpy(copy.get(), whole.data(), size);
        SignedText parts;
        ListedTree tree;
        if (!SplitSignedText({copy.get(), size}, parts).empty()) continue;
        if (ParseBody(parts.body, tree).empty()) ++readable;
    }
    EXPECT_GT(readable, 0u);
    EXPECT_LT(readable, whole.size() / 2);
}

}  // namespace
}  // namespace zosigner
