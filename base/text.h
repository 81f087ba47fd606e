#pragma once

// Conversion between the platform's UTF-16 and narrow text. Ill-formed input is converted as the platform converts it;
// no conversion reports an error.

#include <string>
#include <string_view>

namespace zo {

[[nodiscard]] std::string Utf8FromWide(std::wstring_view wide);
[[nodiscard]] std::wstring WideFromUtf8(std::string_view utf8);

// The system's ANSI code page; characters that it lacks become its default character.
[[nodiscard]] std::string AnsiFromWide(std::wstring_view wide);
[[nodiscard]] std::wstring WideFromAnsi(std::string_view ansi);

}  // namespace zo
