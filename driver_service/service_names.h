#pragma once

// The fixed names under which the driver is known to the service manager, the registry and the file system.

#include <iterator>
#include <string_view>

namespace zop {

inline constexpr wchar_t kServiceName[] = L"ZoProtector";
inline constexpr wchar_t kServiceDisplayName[] = L"ZoProtector Driver";
inline constexpr wchar_t kDriverFileName[] = L"ZoProtectorDriver.sys";
inline constexpr wchar_t kLoadOrderGroup[] = L"FSFilter Activity Monitor";

// Under HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kServiceKey[] = L"SYSTEM\\CurrentControlSet\\Services\\ZoProtector";
inline constexpr wchar_t kInstancesKeyName[] = L"Instances";
inline constexpr wchar_t kInstanceName[] = L"ZoProtector Instance";
inline constexpr wchar_t kInstanceKey[] =
    L"SYSTEM\\CurrentControlSet\\Services\\ZoProtector\\Instances\\ZoProtector Instance";
inline constexpr wchar_t kDefaultAltitude[] = L"385100";

static_assert(std::wstring_view(kServiceKey).ends_with(kServiceName));
static_assert(std::wstring_view(kInstanceKey).starts_with(kServiceKey));
static_assert(std::wstring_view(kInstanceKey).substr(std::size(kServiceKey)).starts_with(kInstancesKeyName));
static_assert(std::wstring_view(kInstanceKey).ends_with(kInstanceName));

}  // namespace zop
