#pragma once

// Text formatting: std::format where the standard library has it, {fmt} otherwise. Format strings are checked when the
// code is compiled.

#include <string>
#include <utility>

#if defined(ZO_HAVE_STD_FORMAT)
#include <format>
#else
#include <fmt/format.h>
#endif

namespace zo {

#if defined(ZO_HAVE_STD_FORMAT)
template <typename... Args>
using FormatString = std::format_string<Args...>;

template <typename... Args>
[[nodiscard]] std::string Format(FormatString<Args...> format, Args&&... args) {
    return std::format(format, std::forward<Args>(args)...);
}
#else
template <typename... Args>
using FormatString = fmt::format_string<Args...>;

template <typename... Args>
[[nodiscard]] std::string Format(FormatString<Args...> format, Args&&... args) {
    return fmt::format(format, std::forward<Args>(args)...);
}
#endif

// Statuses are signed; messages show their bits.
[[nodiscard]] constexpr unsigned Bits(int status) noexcept {
    return static_cast<unsigned>(status);
}
[[nodiscard]] constexpr unsigned Bits(long status) noexcept {
    return static_cast<unsigned>(status);
}

}  // namespace zo
