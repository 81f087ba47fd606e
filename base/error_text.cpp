#include "error_text.h"

#include <windows.h>

#include <array>
#include <string_view>

#include "format.h"
#include "text.h"

namespace zo {

std::string ErrorText(std::uint32_t error) {
    std::array<wchar_t, 512> buffer{};
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0,
                                        buffer.data(), static_cast<DWORD>(buffer.size()), nullptr);
    std::wstring_view text(buffer.data(), length);
    while (!text.empty() && (text.back() == L'\r' || text.back() == L'\n' || text.back() == L' ')) {
        text.remove_suffix(1);
    }
    if (text.empty()) return Format("error {}", error);
    return Utf8FromWide(text);
}

}  // namespace zo
