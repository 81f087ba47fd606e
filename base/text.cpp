#include "text.h"

#include <windows.h>

#include <algorithm>

namespace zo {

namespace {

std::string NarrowFromWide(UINT codePage, std::wstring_view wide) {
    if (wide.empty()) return {};
    const int units = static_cast<int>(wide.size());
    const int length = WideCharToMultiByte(codePage, 0, wide.data(), units, nullptr, 0, nullptr, nullptr);
    if (length <= 0) return {};
    std::string narrow(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(codePage, 0, wide.data(), units, narrow.data(), length, nullptr, nullptr);
    return narrow;
}

std::wstring WideFromNarrow(UINT codePage, std::string_view narrow) {
    if (narrow.empty()) return {};
    // No byte becomes more than one unit, so one call is enough.
    const int bytes = static_cast<int>(narrow.size());
    std::wstring wide(narrow.size(), L'\0');
    const int length = MultiByteToWideChar(codePage, 0, narrow.data(), bytes, wide.data(), bytes);
    wide.resize(static_cast<std::size_t>(std::max(length, 0)));
    return wide;
}

}  // namespace

std::string Utf8FromWide(std::wstring_view wide) {
    return NarrowFromWide(CP_UTF8, wide);
}

std::string AnsiFromWide(std::wstring_view wide) {
    return NarrowFromWide(CP_ACP, wide);
}

std::wstring WideFromUtf8(std::string_view utf8) {
    return WideFromNarrow(CP_UTF8, utf8);
}

std::wstring WideFromAnsi(std::string_view ansi) {
    return WideFromNarrow(CP_ACP, ansi);
}

}  // namespace zo
