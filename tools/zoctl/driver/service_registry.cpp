#include "service_registry.h"

#include <windows.h>

#include "service_names.h"
#include "text.h"

namespace zoctl {

namespace {

std::wstring RegistryText(const std::wstring& key, const wchar_t* value) {
    wchar_t text[MAX_PATH] = {};
    DWORD size = sizeof(text);
    const LSTATUS error = RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), value, RRF_RT_REG_SZ, nullptr, text, &size);
    return error == ERROR_SUCCESS ? text : std::wstring();
}

}  // namespace

bool AllowsUnload() {
    DWORD flag = 0;
    DWORD size = sizeof(flag);
    return RegGetValueW(HKEY_LOCAL_MACHINE, zop::kServiceKey, L"AllowUnload", RRF_RT_REG_DWORD, nullptr, &flag,
                        &size) == ERROR_SUCCESS &&
           flag != 0;
}

std::string AltitudeUnderParameters() {
    const std::wstring instances = std::wstring(zop::kServiceKey) + L"\\Parameters\\" + zop::kInstancesKeyName;
    const std::wstring name = RegistryText(instances, L"DefaultInstance");
    return name.empty() ? std::string() : zo::Utf8FromWide(RegistryText(instances + L"\\" + name, L"Altitude"));
}

}  // namespace zoctl
