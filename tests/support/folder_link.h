#pragma once

// Makes a symbolic link to a folder. CreateSymbolicLinkW claims success under Wine and makes nothing, so there the link
// is made as Linux does it.

#include <windows.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace zotest {
namespace detail {

// The Unix name of a path whose folder exists. kernel32 has this function under Wine only.
inline char* UnixName(const std::filesystem::path& path) {
    using Function = char*(const wchar_t*);
    const FARPROC address = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name");
    return address == nullptr ? nullptr : reinterpret_cast<Function*>(reinterpret_cast<void*>(address))(path.c_str());
}

// Linux's symlink(target, link), number 88, for callers that pass arguments as Windows does.
inline long LinuxSymlink(const char* target, const char* link) {
    static constexpr unsigned char kCode[] = {
        0x57, 0x56,                    // push rdi; push rsi
        0x48, 0x89, 0xCF,              // mov rdi, rcx
        0x48, 0x89, 0xD6,              // mov rsi, rdx
        0xB8, 0x58, 0x00, 0x00, 0x00,  // mov eax, 88
        0x0F, 0x05,                    // syscall
        0x5E, 0x5F, 0xC3               // pop rsi; pop rdi; ret
    };
    void* code = VirtualAlloc(nullptr, sizeof(kCode), MEM_RESERVE | MEM_COMMIT, PAGE_EXECUTE_READWRITE);
    if (code == nullptr) return -1;
    std::memcpy(code, kCode, sizeof(kCode));
    const long result = reinterpret_cast<long (*)(const char*, const char*)>(code)(target, link);
    VirtualFree(code, 0, MEM_RELEASE);
    return result;
}

}  // namespace detail

// The folder must exist, and so must the one that the link is made in.
inline void LinkFolder(const std::filesystem::path& target, const std::filesystem::path& link) {
    if (char* unixTarget = detail::UnixName(target)) {
        char* unixLink = detail::UnixName(link);
        detail::LinuxSymlink(unixTarget, unixLink);
        HeapFree(GetProcessHeap(), 0, unixTarget);
        HeapFree(GetProcessHeap(), 0, unixLink);
    } else {
        CreateSymbolicLinkW(link.c_str(), target.c_str(), SYMBOLIC_LINK_FLAG_DIRECTORY);
    }
    const DWORD attributes = GetFileAttributesW(link.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0)
        throw std::runtime_error("cannot make the link " + link.string());
}

}  // namespace zotest
