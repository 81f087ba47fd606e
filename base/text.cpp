#include "text.h"

#include <windows.h>

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
    const int bytes = static_cast<int>(narrow.size());
    const int length = MultiByteToWideChar(codePage, 0, narrow.data(), bytes, nullptr, 0);
    if (length <= 0) return {};
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(codePage, 0, narrow.data(), bytes, wide.data(), length);
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
