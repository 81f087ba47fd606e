#pragma once

// The platform calls that signing and verifying cannot do without, and nothing else: no walk order, no manifest text,
// no messages. What the library's time is compared with.

#include <cstdint>
#include <string>
#include <vector>

#include "bench_tree.h"

namespace zobench {

struct BareSignatures {
    std::vector<std::vector<std::uint8_t>> ofFiles;
    std::string manifest;  // as many bytes as the library's has
    std::vector<std::uint8_t> ofManifest;
};

// Seconds of the platform's cryptography alone are added to cryptoSeconds.
void BareSign(const BenchTree& tree, std::size_t manifestSize, BareSignatures& signatures, double& cryptoSeconds);
void BareVerify(const BenchTree& tree, const BareSignatures& signatures, double& cryptoSeconds);

[[nodiscard]] double Seconds();

}  // namespace zobench
