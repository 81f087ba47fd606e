#pragma once

// The command line of a process that is started, as the C runtime of that process splits it again.

#include <cstddef>
#include <string>
#include <string_view>

namespace zo {

// A backslash is only special before a quotation mark, and then it is doubled.
[[nodiscard]] inline std::wstring QuotedArgument(std::wstring_view argument) {
    std::wstring text = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'"') text.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        text += c;
    }
    return text.append(backslashes, L'\\') + L'"';
}

}  // namespace zo
