// The manifest reader on any bytes: it never fails but by its messages, gives only views into what it was given, and
// what it accepts holds what its users rely on.

#include <string_view>

#include "hex.h"
#include "manifest_text.h"
#include "require.h"

namespace {

void Check(std::string_view file, std::string_view body) {
    const auto isInside = [file](std::string_view part) {
        return part.empty() || (part.data() >= file.data() && part.data() + part.size() <= file.data() + file.size());
    };
    zosigner::ListedTree tree;
    if (!zosigner::ParseBody(body, tree).empty()) return;
    for (const zosigner::ListedDirectory& directory : tree.directories) {
        Require(!directory.path.empty() && isInside(directory.path));
    }
    for (const zosigner::ListedEntry& entry : tree.entries) {
        Require(isInside(entry.path) && isInside(entry.digest) && isInside(entry.signature));
        Require(entry.path.find('\n') == std::string_view::npos);
        Require(entry.digest.empty() || (entry.digest.size() == 64 && zo::IsHex(entry.digest)));
        Require(zo::IsHex(entry.signature));
        Require(!entry.anchor || (entry.digest.empty() && entry.signature.empty()));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view file(reinterpret_cast<const char*>(data), size);
    zosigner::SignedText parts;
    if (zosigner::SplitSignedText(file, parts).empty()) {
        Require(!parts.signature.empty());
        Require(parts.magicLine.size() + parts.body.size() <= size);
        Check(file, parts.body);
    }
    Check(file, file);  // the body by itself, without a signature line to find first
    return 0;
}
