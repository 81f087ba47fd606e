#include "manifest_text.h"

#include <gtest/gtest.h>

#include "format.h"
#include "hex.h"

namespace zosigner {
namespace {

const std::string kPub(64, '7');
const std::string kDigest(64, 'a');
const std::string kBadDirectory = "bad directory line in manifest";

TEST(ManifestText, SplitsAtTheSignatureLine) {
    // The file, and a fault or its three parts.
    const std::pair<std::string, std::string> cases[] = {
        {"", "manifest magic mismatch"},
        {"ZOSIG1\r\r\nMSIG 00\n", "manifest magic mismatch"},
        {"\xEF\xBB\xBFZOSIG1\nMSIG 00\n", "manifest magic mismatch"},
        {"ZOSIG1\nMSIG\n", "manifest header missing MSIG line"},
        {"ZOSIG1\nMSIG ", "bad MSIG hex in manifest"},
        {"ZOSIG1\nMSIG 0\n", "bad MSIG hex in manifest"},
        {"ZOSIG1\nMSIG 00\r\r\n", "bad MSIG hex in manifest"},
        {"ZOSIG1\nMSIG 00fF", "ZOSIG1\n|00ff|"},
        {"ZOSIG1\r\nMSIG Ab\r\nALG x\r\n", "ZOSIG1\r\n|ab|ALG x\r\n"},
        {"ZOSIG1\nMSIG 00\n\n\n", "ZOSIG1\n|00|\n\n"},
    };
    for (const auto& [file, result] : cases) {
        SignedText parts;
        std::string read = SplitSignedText(file, parts);
        if (read.empty()) read = zo::Format("{}|{}|{}", parts.magicLine, zo::ToHex(parts.signature), parts.body);
        EXPECT_EQ(read, result) << file;
    }
}

// What the body became, one item a line.
std::string Read(const std::string& body) {
    ListedTree tree;
    std::string text = ParseBody(body, tree);
    if (!text.empty()) return text;
    if (!tree.root.empty() || tree.time != 0 || tree.thumbprint[0] != 0) {
        text = zo::Format("{},{},{:x};", tree.root, tree.time, tree.thumbprint[31]);
    }
    for (const ListedDirectory& directory : tree.directories)
        text += zo::Format("{}:{};", directory.sealed ? "S" : "O", directory.path);
    for (const ListedEntry& entry : tree.entries) {
        text += zo::Format("{}:{}", entry.anchor ? "K" : "F", entry.path);
        if (entry.size != 0) text += zo::Format(",{}", entry.size);
        if (!entry.digest.empty()) text += ",hash";
        if (!entry.signature.empty()) text += zo::Format(",{}", entry.signature);
        text += ";";
    }
    return text;
}

TEST(ManifestText, ReadsLineByLine) {
    const std::string end = "----\n";
    const std::string hash = "  HASH " + kDigest + "\n";
    const std::pair<std::string, std::string> cases[] = {
        {"", "manifest header not terminated"},
        {"---- \n", "manifest header not terminated"},
        {"ALG RSA-2048-PKCS1-SHA256 \n----\n", "unsupported algorithm in manifest"},
        {"PUB " + kPub + "77\n----\n", "bad PUB thumbprint in manifest"},
        {"PUB " + kPub.substr(1) + "g\n----\n", "bad PUB thumbprint in manifest"},
        {"----", ""},
        {"----\r\nALG none\nROOT x\n", ""},  // below the line nothing is a header
        {"ROOT a b\r\nTIME 12x\nPUB " + kPub + "\nCOUNT many\nNEW line\n\n----\n", "a b,12,77;"},
        {"ROOT a\nROOT \nTIME 1\nTIME -1\n----\n", ""},
        {"ALG\nROOT\nPUB\nTIME\nroot x\n ROOT x\nTIME\t5\n----\n", ""},
        {"TIME 18446744073709551616\n----\n", ",18446744073709551615,0;"},
        {end + "D S .\nD O a b\r\nD S x", "S:.;O:a b;S:x;"},
        {end + "D\nF\nK\n\nX y\nd S .\n D S .\nDS .\nF\tx\n----\n", ""},
        {end + "D X .\n", kBadDirectory},
        {end + "D S \n", kBadDirectory},
        {end + "D SS .\n", kBadDirectory},
        {end + "D S  .\n", "S: .;"},  // a name may begin with a blank
        {end + "K a.lnk\nK \nK  b\n", "K:a.lnk;K:;K: b;"},
        {end + "F a\n  SIZE 7\n" + hash + "  SIG  0aF0\nK b\n", "F:a,7,hash,0aF0;K:b;"},
        {end + "F a\r\n\t SIZE 7\r\n \t" + hash + "SIG  0a\r\nK b\r\n", "F:a,7,hash,0a;K:b;"},
        {end + "F a\n  SIG  0a\n  SIZE 1\n" + hash, "F:a,1,hash,0a;"},               // by name, in any order
        {end + "F a\n  SIZE 1\n  SIZE 2\n  SIZE 3\n  SIZE 4\nK b\n", "F:a,3;K:b;"},  // the last of the three counts
        {end + "F a\n  SIZE 12 3\n  SIG 0a\n  HASH" + kDigest + "\n", "F:a,12;"},    // near misses are no keys
        {end + "F a\nF b\nD S c\nK d\nK e\n", "F:a;K:e;"},                           // consumed by position
        {end + "F a\nxSIZE 1\n \n\t\nK e\n", "F:a;K:e;"},
        {end + "F \n  SIZE 1\n", "F:,1;"},
        {end + "F a\n  HASH " + kDigest.substr(1) + "\n", "bad HASH for a"},
        {end + "F a\n  HASH " + kDigest.substr(1) + "g\n", "bad HASH for a"},
        {end + "F a b\n  SIG  " + kDigest + "zz\nD X\n", "bad SIG for a b"},  // the first fault is reported
    };
    for (const auto& [body, result] : cases)
        EXPECT_EQ(Read(body), result) << body;
}

// What is written at length is looked at where the library signs; here under the sanitizers, with the largest numbers.
TEST(ManifestText, ReadsWhatItWrote) {
    Manifest manifest{"C:\\Suite", {}, 18446744073709551614u, {{".", true}, {"\xC3\xA4 .", false}}, {}};
    manifest.entries.AddFile("b", 18446744073709551615u, {}, {0x00, 0xFF, 0x1b});
    manifest.entries.AddAnchor("a.lnk");
    EXPECT_EQ(Read(BuildHead(manifest) + manifest.entries.text),
              "C:\\Suite,18446744073709551614,0;S:.;O:\xC3\xA4 .;"
              "F:b,18446744073709551615,hash,00ff1b;K:a.lnk;");
}

}  // namespace
}  // namespace zosigner
