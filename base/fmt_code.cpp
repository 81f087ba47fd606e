// {fmt} itself, for toolchains without std::format: compiled here once, because as a header-only library it would cost
// every user of text formatting seconds of compiling.

#define FMT_HEADER_ONLY
#include <fmt/format.h>

#include "format.h"

namespace zo::detail {

std::string FormatArguments(fmt::string_view format, fmt::format_args args) {
    return fmt::vformat(format, args);
}

}  // namespace zo::detail
