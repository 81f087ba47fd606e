#pragma once

// The tree that is measured: files of one size, at most 500 a folder, with its keystore and manifest beside it.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace zobench {

class BenchTree {
  public:
    BenchTree(std::uint32_t files, std::uint64_t fileBytes);
    ~BenchTree();
    BenchTree(const BenchTree&) = delete;
    BenchTree& operator=(const BenchTree&) = delete;

    std::wstring root;
    std::wstring manifest;
    std::wstring keystore;
    std::vector<std::wstring> directories;  // in long form
    std::vector<std::wstring> files;

  private:
    std::filesystem::path folder_;
};

}  // namespace zobench
