#include "manifest_text.h"

#include <cstddef>
#include <cstring>
#include <limits>

#include "format.h"
#include "hex.h"

namespace zosigner {

namespace {

constexpr std::string_view kAlgorithm = "RSA-2048-PKCS1-SHA256";
constexpr std::string_view kHeaderEnd = "----";
constexpr std::size_t kTextPerFile = 640;  // signature and digest in hexadecimal, keys, line ends

// Lines end with a line feed, or a carriage return and a line feed. The last line may have no end.
class Lines {
  public:
    explicit Lines(std::string_view text) : rest_(text) {}

    [[nodiscard]] bool Next(std::string_view& line) {
        if (rest_.empty()) return false;
        const std::size_t end = rest_.find('\n');
        line = rest_.substr(0, end);
        rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
        if (line.ends_with('\r')) line.remove_suffix(1);
        return true;
    }

    [[nodiscard]] std::string_view Rest() const { return rest_; }

  private:
    std::string_view rest_;
};

// Gives the value of a line that begins with the key. The key's length is known at compile time, so the comparison
// takes an instruction or two.
template <std::size_t Size>
bool TakeValue(std::string_view line, const char (&key)[Size], std::string_view& value) {
    constexpr std::size_t kLength = Size - 1;  // without the terminator
    if (line.size() < kLength || std::memcmp(line.data(), key, kLength) != 0) return false;
    value = {line.data() + kLength, line.size() - kLength};
    return true;
}

std::string_view SkipBlanks(std::string_view line) {
    std::size_t at = 0;
    while (at < line.size() && (line[at] == ' ' || line[at] == '\t'))
        ++at;
    return line.substr(at);
}

// The digits up to the first other character. No digits give 0; a number that does not fit gives the largest one.
std::uint64_t Number(std::string_view text) {
    constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t number = 0;
    for (const char character : text) {
        if (character < '0' || character > '9') break;
        const auto digit = static_cast<std::uint64_t>(character - '0');
        if (number > (kLargest - digit) / 10) return kLargest;
        number = number * 10 + digit;
    }
    return number;
}

std::string ParseHeader(Lines& lines, ListedTree& tree) {
    std::string_view line;
    while (lines.Next(line)) {
        if (line == kHeaderEnd) return {};
        std::string_view value;
        if (TakeValue(line, "ALG ", value)) {
            if (value != kAlgorithm) return "unsupported algorithm in manifest";
        } else if (TakeValue(line, "ROOT ", value)) {
            tree.root = value;
        } else if (TakeValue(line, "PUB ", value)) {
            if (!zo::DecodeHexExactly(value, tree.thumbprint)) return "bad PUB thumbprint in manifest";
        } else if (TakeValue(line, "TIME ", value)) {
            tree.time = Number(value);
        }
        // Other lines, such as COUNT, are for people or for later versions.
    }
    return "manifest header not terminated";
}

// "D S path" or "D O path". Any other D line is refused: the reader must not silently drop a seal that it does not
// understand.
bool ParseDirectory(std::string_view line, ListedDirectory& directory) {
    constexpr std::size_t kFlag = 2;
    constexpr std::size_t kPath = 4;
    if (line.size() <= kPath || line[kFlag + 1] != ' ') return false;
    if (line[kFlag] != 'S' && line[kFlag] != 'O') return false;
    directory = {line.substr(kPath), line[kFlag] == 'S'};
    return true;
}

// The three lines after an F line belong to it, whatever they hold. Gives the key whose value is malformed, or null.
const char* ParseAttributes(Lines& lines, ListedEntry& entry) {
    constexpr int kAttributeLines = 3;
    constexpr std::size_t kDigestDigits = 64;
    std::string_view line;
    for (int i = 0; i < kAttributeLines && lines.Next(line); ++i) {
        line = SkipBlanks(line);
        std::string_view value;
        if (TakeValue(line, "SIG  ", value)) {
            if (!zo::IsHex(value)) return "SIG";
            entry.signature = value;
        } else if (TakeValue(line, "HASH ", value)) {
            if (value.size() != kDigestDigits || !zo::IsHex(value)) return "HASH";
            entry.digest = value;
        } else if (TakeValue(line, "SIZE ", value)) {
            entry.size = Number(value);
        }
    }
    return nullptr;
}

}  // namespace

void EntryText::AddFile(std::string_view path, std::uint64_t size, const std::array<std::uint8_t, 32>& digest,
                        const std::vector<std::uint8_t>& signature) {
    ++files;
    text += "F ";
    text += path;
    text += "\n  SIZE ";
    text += std::to_string(size);
    text += "\n  HASH ";
    zo::AppendHex(text, digest);
    text += "\n  SIG  ";
    zo::AppendHex(text, signature);
    text += '\n';
}

void EntryText::AddAnchor(std::string_view path) {
    ++anchors;
    text += "K ";
    text += path;
    text += '\n';
}

std::size_t EntrySize(std::string_view path, bool isAnchor) {
    return path.size() + (isAnchor ? 3 : kTextPerFile);
}

std::string BuildHead(const Manifest& manifest) {
    std::string head = zo::Format("ALG {}\nROOT {}\nPUB {}\nTIME {}\nCOUNT {}\n{}\n", kAlgorithm, manifest.root,
                                  zo::ToHex(manifest.thumbprint), manifest.time,
                                  manifest.entries.files + manifest.entries.anchors, kHeaderEnd);
    for (const ManifestDirectory& directory : manifest.directories) {
        head += directory.sealed ? "D S " : "D O ";
        head += directory.path;
        head += '\n';
    }
    return head;
}

std::string SignatureLine(const std::vector<std::uint8_t>& signature) {
    return "MSIG " + zo::ToHex(signature) + '\n';
}

std::string SplitSignedText(std::string_view file, SignedText& parts) {
    Lines lines(file);
    std::string_view line;
    if (!lines.Next(line) || line != kMagicLine.substr(0, kMagicLine.size() - 1)) return "manifest magic mismatch";
    parts.magicLine = file.substr(0, file.size() - lines.Rest().size());

    std::string_view signature;
    if (!lines.Next(line) || !TakeValue(line, "MSIG ", signature)) return "manifest header missing MSIG line";
    if (!zo::DecodeHex(signature, parts.signature) || parts.signature.empty()) return "bad MSIG hex in manifest";
    parts.body = lines.Rest();
    return {};
}

std::string ParseBody(std::string_view body, ListedTree& tree) {
    Lines lines(body);
    if (std::string fault = ParseHeader(lines, tree); !fault.empty()) return fault;

    tree.entries.reserve(lines.Rest().size() / kTextPerFile);
    std::string_view line;
    while (lines.Next(line)) {
        std::string_view path;
        if (TakeValue(line, "F ", path)) {
            ListedEntry& entry = tree.entries.emplace_back();
            entry.path = path;
            if (const char* key = ParseAttributes(lines, entry)) return zo::Format("bad {} for {}", key, path);
        } else if (TakeValue(line, "K ", path)) {
            ListedEntry& entry = tree.entries.emplace_back();
            entry.path = path;
            entry.anchor = true;
        } else if (TakeValue(line, "D ", path)) {
            if (!ParseDirectory(line, tree.directories.emplace_back())) return "bad directory line in manifest";
        }
    }
    return {};
}

}  // namespace zosigner
