#pragma once

// The text of a manifest: building the parts below its signature, and parsing. Pure: bytes in, values out. Hashing,
// signing and files are in manifest_file.h.
//
// A parsed manifest consists of views into the buffer that it was read into. Digests and signatures are checked, but
// stay hexadecimal text until their file is verified. Signing writes the text of each file at once. So signing and
// verifying need little more memory than the manifest.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zosigner {

using Thumbprint = std::array<std::uint8_t, 32>;

inline constexpr std::string_view kMagicLine = "ZOSIG1\n";

// The tree's root among the directories.
inline constexpr std::string_view kRootDirectory = ".";

// ---- Writing

struct ManifestDirectory {
    std::string path;  // UTF-8, relative to the root, separated by "/"
    bool sealed = true;
};

// The entries, as text from the beginning.
struct EntryText {
    std::string text;
    std::uint32_t files = 0;
    std::uint32_t anchors = 0;  // shortcuts: they must be there, with any contents

    void AddFile(std::string_view path, std::uint64_t size, const std::array<std::uint8_t, 32>& digest,
                 const std::vector<std::uint8_t>& signature);
    void AddAnchor(std::string_view path);
};

// Bytes of text that an entry takes at most.
[[nodiscard]] std::size_t EntrySize(std::string_view path, bool isAnchor);

struct Manifest {
    std::string root;  // UTF-8; for people, never used for checking
    Thumbprint thumbprint{};
    std::uint64_t time = 0;  // FILETIME
    std::vector<ManifestDirectory> directories;
    EntryText entries;
};

// Everything between the signature line and the entries.
[[nodiscard]] std::string BuildHead(const Manifest& manifest);

// The signature line with its line feed.
[[nodiscard]] std::string SignatureLine(const std::vector<std::uint8_t>& signature);

// ---- Reading

// A manifest split at its signature line. The signature covers the magic line and the body, joined.
struct SignedText {
    std::string_view magicLine;  // with its line end
    std::vector<std::uint8_t> signature;
    std::string_view body;
};

struct ListedDirectory {
    std::string_view path;
    bool sealed = false;
};

struct ListedEntry {
    std::string_view path;
    std::string_view digest{};     // 64 hexadecimal digits, or empty where the manifest gives none
    std::string_view signature{};  // an even number of hexadecimal digits, or empty
    std::uint64_t size = 0;
    bool anchor = false;
};

struct ListedTree {
    std::string_view root;
    Thumbprint thumbprint{};  // zero where the manifest names none
    std::uint64_t time = 0;
    std::vector<ListedDirectory> directories;
    std::vector<ListedEntry> entries;
};

// Both give the message of the first fault found, or an empty text if there is none. The results are views into the
// text that was passed in. ParseBody is for a body whose signature has been verified.
[[nodiscard]] std::string SplitSignedText(std::string_view file, SignedText& parts);
[[nodiscard]] std::string ParseBody(std::string_view body, ListedTree& tree);

}  // namespace zosigner
