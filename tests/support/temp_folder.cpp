#include "temp_folder.h"

#include <atomic>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "files.h"
#include "format.h"
#include "owned_handles.h"

namespace zotest {
namespace {

// Paths over 260 characters need the prefix.
std::wstring Extended(const std::wstring& path) {
    return path.starts_with(L"\\\\?\\") ? path : L"\\\\?\\" + path;
}

void RemoveBelow(const std::wstring& folder) {
    WIN32_FIND_DATAW found{};
    std::vector<std::wstring> names;
    {
        const zo::OwnedFind find(FindFirstFileW((folder + L"\\*").c_str(), &found));
        if (!find) return;
        do {
            const std::wstring name = found.cFileName;
            if (name != L"." && name != L"..") names.push_back(name);
        } while (FindNextFileW(find.Get(), &found));
    }
    for (const std::wstring& name : names)
        RemoveTree(folder + L"\\" + name);
}

}  // namespace

void RemoveTree(const std::wstring& path) {
    const std::wstring full = Extended(path);
    const DWORD attributes = GetFileAttributesW(full.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return;
    const bool isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const bool isLink = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (attributes & FILE_ATTRIBUTE_READONLY) SetFileAttributesW(full.c_str(), FILE_ATTRIBUTE_NORMAL);
    if (isFolder && !isLink) RemoveBelow(full);
    // A Unix link to a folder shows as a folder but is removed as a file.
    if (!isFolder || !RemoveDirectoryW(full.c_str())) DeleteFileW(full.c_str());
}

TempFolder::TempFolder() {
    static std::atomic<unsigned> number{0};
    wchar_t base[MAX_PATH + 1];
    if (GetTempPathW(MAX_PATH + 1, base) == 0) throw std::runtime_error("no temporary folder");
    path_ =
        std::filesystem::path(base) / zo::Format("zotest_{}_{}_{}", GetCurrentProcessId(), GetTickCount64(), ++number);
    zo::CreateDirectories(path_);
}

TempFolder::~TempFolder() {
    RemoveTree(path_.wstring());
}

ScopedEnvironment::ScopedEnvironment(const std::wstring& name, const std::wstring& value) : name_(name) {
    const DWORD units = GetEnvironmentVariableW(name_.c_str(), nullptr, 0);
    if (units != 0) {
        wasSet_ = true;
        old_.resize(units);
        old_.resize(GetEnvironmentVariableW(name_.c_str(), old_.data(), units));
    }
    SetEnvironmentVariableW(name_.c_str(), value.c_str());
}

ScopedEnvironment::~ScopedEnvironment() {
    SetEnvironmentVariableW(name_.c_str(), wasSet_ ? old_.c_str() : nullptr);
}

void WriteFileBytes(const std::filesystem::path& path, const std::string& bytes) {
    zo::CreateDirectories(path.parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file) throw std::runtime_error("cannot write " + path.string());
}

std::string ReadFileBytes(const std::filesystem::path& path) {
    std::string bytes;
    if (!zo::ReadWholeFile(path.c_str(), bytes)) return {};
    return bytes;
}

}  // namespace zotest
