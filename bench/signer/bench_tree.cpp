#include "bench_tree.h"

#include <windows.h>

#include <stdexcept>

#include "owned_handles.h"

namespace zobench {

namespace {

constexpr std::uint32_t kFilesPerFolder = 500;

void WriteFileOf(const std::wstring& path, std::uint32_t number, std::uint64_t bytes) {
    const zo::OwnedFile file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    if (!file) throw std::runtime_error("cannot make a file of the tree");
    std::vector<std::uint32_t> piece(262144, number);
    while (bytes > 0) {
        const auto size = static_cast<DWORD>(std::min<std::uint64_t>(bytes, piece.size() * sizeof(piece[0])));
        DWORD written = 0;
        if (!WriteFile(file.Get(), piece.data(), size, &written, nullptr)) throw std::runtime_error("cannot write");
        bytes -= size;
    }
}

}  // namespace

BenchTree::BenchTree(std::uint32_t count, std::uint64_t fileBytes)
    : folder_(std::filesystem::temp_directory_path() /
              (L"zobench_" + std::to_wstring(GetCurrentProcessId()) + L"_" + std::to_wstring(GetTickCount64()))) {
    const std::filesystem::path tree = folder_ / L"tree";
    std::filesystem::create_directories(tree);
    root = tree.wstring();
    manifest = (folder_ / L"seal.zosig").wstring();
    keystore = (folder_ / L"keys").wstring();
    directories.push_back(L"\\\\?\\" + root);
    for (std::uint32_t i = 0; i < count; ++i) {
        if (i % kFilesPerFolder == 0) {
            directories.push_back(L"\\\\?\\" + root + L"\\folder" + std::to_wstring(i / kFilesPerFolder));
            CreateDirectoryW(directories.back().c_str(), nullptr);
        }
        files.push_back(directories.back() + L"\\file" + std::to_wstring(i) + L".bin");
        WriteFileOf(files.back(), i, fileBytes);
    }
}

BenchTree::~BenchTree() {
    std::error_code ignored;  // a temporary folder; nothing is lost but space
    std::filesystem::remove_all(folder_, ignored);
}

}  // namespace zobench
