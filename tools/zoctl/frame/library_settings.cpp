#include "library_settings.h"

#include <windows.h>

#include <cstddef>
#include <vector>

#include "text.h"

namespace zoctl {

std::string DevelopmentSettings() {
    wchar_t path[MAX_PATH] = {};
    const DWORD units = GetModuleFileNameW(GetModuleHandleW(L"ZoProtectorLib.dll"), path, MAX_PATH);
    const DWORD size = units > 0 && units < MAX_PATH ? GetFileVersionInfoSizeW(path, nullptr) : 0;
    std::vector<std::byte> resource(size);
    void* text = nullptr;
    UINT length = 0;
    if (size == 0 || !GetFileVersionInfoW(path, 0, size, resource.data()) ||
        !VerQueryValueW(resource.data(), L"\\StringFileInfo\\040904B0\\SpecialBuild", &text, &length)) {
        return {};
    }
    return zo::Utf8FromWide(static_cast<const wchar_t*>(text));
}

}  // namespace zoctl
