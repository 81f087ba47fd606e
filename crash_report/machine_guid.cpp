#include "machine_guid.h"

#include <windows.h>

#include <array>
#include <cwctype>

#include "owned_handles.h"

namespace zocrash {

namespace {

constexpr std::size_t kDigits = 32;

std::wstring ReadMachineGuid() {
    zo::OwnedRegistryKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography", 0, KEY_READ | KEY_WOW64_64KEY,
                      key.Out()) != ERROR_SUCCESS) {
        return {};
    }
    std::array<wchar_t, 129> value{};  // one more than is read, so that it always ends
    DWORD type = 0;
    DWORD size = 256;
    if (RegQueryValueExW(key.Get(), L"MachineGuid", nullptr, &type, reinterpret_cast<BYTE*>(value.data()), &size) !=
            ERROR_SUCCESS ||
        type != REG_SZ) {
        return {};
    }
    return value.data();
}

}  // namespace

std::string MachineGuid() {
    std::string digits;
    for (const wchar_t unit : ReadMachineGuid()) {
        if (digits.size() == kDigits) break;
        if (unit != L'-') digits += static_cast<char>(std::towlower(unit));
    }
    digits.resize(kDigits, '0');
    return "ZoProtector_" + digits;
}

}  // namespace zocrash
