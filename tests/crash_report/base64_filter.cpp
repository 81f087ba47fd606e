// Encodes standard input in base64, for comparison with Python's: two lines for each prefix length that is given as an
// argument, one by the way that the processor takes and one by the way that all can take.

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>

#include "base64.h"

int main(int argc, char** argv) {
    std::string input;
    char piece[65536];
    while (const std::size_t read = std::fread(piece, 1, sizeof(piece), stdin))
        input.append(piece, read);

    std::string text = "left from before, and to be replaced";
    for (int i = 1; i < argc; ++i) {
        // A copy of its own, so that a read beyond the end is one beyond the block.
        const std::string prefix = input.substr(0, std::strtoul(argv[i], nullptr, 10));
        zocrash::EncodeBase64(prefix, text);
        std::puts(text.c_str());
        zocrash::EncodeBase64Portable({reinterpret_cast<const std::uint8_t*>(prefix.data()), prefix.size()},
                                      text.data());
        std::puts(text.c_str());
    }
}
