#include "item_name.h"

#include <algorithm>
#include <cstddef>

namespace zosigner {

namespace {

bool IsHighSurrogate(wchar_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool IsLowSurrogate(wchar_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

bool IsUtf16(std::wstring_view name) {
    bool afterHigh = false;
    for (const wchar_t unit : name) {
        if (IsLowSurrogate(unit) != afterHigh) return false;
        afterHigh = IsHighSurrogate(unit);
    }
    return !afterHigh;
}

}  // namespace

NameFault FaultOf(std::wstring_view name) {
    if (std::ranges::any_of(name, [](wchar_t unit) { return unit < L' '; })) return NameFault::kControlCharacter;
    return IsUtf16(name) ? NameFault::kNone : NameFault::kNotUtf16;
}

bool IsShortcut(std::wstring_view name) {
    constexpr std::wstring_view kExtension = L".lnk";
    if (name.size() <= kExtension.size()) return false;
    const std::wstring_view extension = name.substr(name.size() - kExtension.size());
    return std::ranges::equal(extension, kExtension, [](wchar_t unit, wchar_t expected) {
        const bool upper = unit >= L'A' && unit <= L'Z';
        return (upper ? static_cast<wchar_t>(unit - L'A' + L'a') : unit) == expected;
    });
}

}  // namespace zosigner
