// Encodes standard input in base64 with the product's routine, for comparison with Python's: one line for each prefix
// length that is given as an argument, "all" for the whole.

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>

#include "base64.h"

int main(int argc, char** argv) {
    std::string input;
    char piece[65536];
    while (const std::size_t read = std::fread(piece, 1, sizeof(piece), stdin))
        input.append(piece, read);

    std::string text = "left from before, and to be replaced";
    for (int i = 1; i < argc; ++i) {
        const std::size_t length =
            std::string_view(argv[i]) == "all" ? input.size() : std::strtoul(argv[i], nullptr, 10);
        // A copy of its own, so that a read beyond the end is one beyond the block.
        const std::string prefix = input.substr(0, length);
        zocrash::EncodeBase64(prefix, text);
        std::puts(text.c_str());
    }
}
