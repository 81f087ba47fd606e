#include "name_conversion.h"

// clang-format off
#include <windows.h>
#include <sddl.h>
// clang-format on

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <string>

#include "channel.h"
#include "diagnostic_log.h"
#include "owned_handles.h"
#include "zoprotector_status.h"

namespace zop {

namespace {

// Concatenates the parts and a terminator.
template <std::size_t units>
std::int32_t Join(wchar_t (&out)[units], std::initializer_list<std::wstring_view> parts) {
    std::size_t used = 0;
    for (const std::wstring_view part : parts) {
        if (part.size() >= units - used) return ZOP_E_INVALID_ARG;
        used += part.copy(out + used, part.size());
    }
    out[used] = L'\0';
    return ZOP_OK;
}

// ASCII letters only, whatever locale the host program has set.
constexpr wchar_t Fold(wchar_t unit) noexcept {
    return unit >= L'A' && unit <= L'Z' ? static_cast<wchar_t>(unit - L'A' + L'a') : unit;
}

bool StartsWith(std::wstring_view name, std::wstring_view prefix) {
    return name.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), name.begin(),
                                                      [](wchar_t a, wchar_t b) { return Fold(a) == Fold(b); });
}

// Of the process token; impersonation does not matter.
std::int32_t ReadUserSid(std::wstring& sid) {
    zo::OwnedKernelObject token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Out())) return ZOP_E_FAILED;
    DWORD size = 0;
    GetTokenInformation(token.Get(), TokenUser, nullptr, 0, &size);  // fails, and reports the size
    const zo::HeapBlock user(size);
    if (!user || !GetTokenInformation(token.Get(), TokenUser, user.Get(), size, &size)) return ZOP_E_FAILED;
    LPWSTR text = nullptr;
    if (!ConvertSidToStringSidW(user.As<TOKEN_USER>()->User.Sid, &text)) return ZOP_E_FAILED;
    const zo::OwnedLocalMemory owner(text);
    sid = text;
    return ZOP_OK;
}

enum class Root { kMachine, kClasses, kCurrentUser, kUsers, kKernel };

struct RootName {
    std::wstring_view prefix;
    Root root;
};

constexpr RootName kRootNames[] = {
    {L"HKEY_LOCAL_MACHINE\\", Root::kMachine},
    {L"HKLM\\", Root::kMachine},
    {L"HKEY_CLASSES_ROOT\\", Root::kClasses},
    {L"HKCR\\", Root::kClasses},
    {L"HKEY_CURRENT_USER\\", Root::kCurrentUser},
    {L"HKCU\\", Root::kCurrentUser},
    {L"HKEY_USERS\\", Root::kUsers},
    {L"HKU\\", Root::kUsers},
    {L"\\REGISTRY\\", Root::kKernel},
};

}  // namespace

std::int32_t ZopConvertWin32PathToNtPath(std::wstring_view path, ZopNtPath& out) {
    if (path.empty()) return ZOP_E_INVALID_ARG;
    wchar_t full[MAX_PATH] = {};
    const DWORD length = GetFullPathNameW(path.data(), MAX_PATH, full, nullptr);
    if (length == 0 || length > MAX_PATH - 1) return ZOP_E_INVALID_ARG;
    if (full[1] != L':') return Join(out, {full});

    const wchar_t drive[] = {full[0], L':', L'\0'};
    wchar_t target[MAX_PATH] = {};
    if (QueryDosDeviceW(drive, target, MAX_PATH) == 0) {
        const DWORD error = GetLastError();
        ZopLogFormat(kLogError, "ZopConvertWin32PathToNtPath: QueryDosDeviceW failed for '{}', error={}",
                     ZopWideToUtf8(drive), error);
        return ZOP_E_FAILED;
    }
    // A drive may have several targets, each terminated; the first one is used.
    return Join(out, {target, full + 2});
}

std::int32_t ZopRegistryKeyToNtName(std::wstring_view name, ZopNtKeyName& out) {
    const auto* known = std::find_if(std::begin(kRootNames), std::end(kRootNames),
                                     [&](const RootName& row) { return StartsWith(name, row.prefix); });
    if (known == std::end(kRootNames)) return ZOP_E_INVALID_ARG;
    const std::wstring_view rest = name.substr(known->prefix.size());
    switch (known->root) {
        case Root::kMachine:
            return Join(out, {L"\\REGISTRY\\MACHINE\\", rest});
        case Root::kClasses:
            return Join(out, {L"\\REGISTRY\\MACHINE\\SOFTWARE\\Classes\\", rest});
        case Root::kCurrentUser: {
            std::wstring sid;
            if (const std::int32_t status = ReadUserSid(sid); status < 0) return status;
            return Join(out, {L"\\REGISTRY\\USER\\", sid, L"\\", rest});
        }
        case Root::kUsers:
            return Join(out, {L"\\REGISTRY\\USER\\", rest});
        case Root::kKernel:
            return Join(out, {name});
    }
    return ZOP_E_INVALID_ARG;
}

}  // namespace zop
