#pragma once

// Text formatting: std::format where the standard library has it, {fmt} otherwise. Format strings are checked when the
// code is compiled.

#include <string>
#include <utility>

#if defined(ZO_HAVE_STD_FORMAT)
#include <format>
#else
#include <fmt/core.h>
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
namespace detail {
[[nodiscard]] std::string FormatArguments(fmt::string_view format, fmt::format_args args);
}

template <typename... Args>
using FormatString = fmt::format_string<Args...>;

template <typename... Args>
[[nodiscard]] std::string Format(FormatString<Args...> format, Args&&... args) {
    return detail::FormatArguments(format, fmt::make_format_args(args...));
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
