#pragma once

// A Win32 path in a buffer of MAX_PATH units, the size that the platform's path calls and the service manager work
// with. Text that does not fit is refused and never cut, except where AssignCut says so.

#include <windows.h>

#include <cstddef>
#include <string_view>

namespace zop {

class ZopPathBuffer {
  public:
    static constexpr DWORD kUnits = MAX_PATH;

    // False, with the old text kept, when the new one does not fit.
    [[nodiscard]] bool Assign(std::wstring_view text) noexcept {
        if (text.size() >= kUnits) return false;
        AssignCut(text);
        return true;
    }
    [[nodiscard]] bool Append(std::wstring_view text) noexcept {
        const std::size_t length = View().size();
        if (text.size() >= kUnits - length) return false;
        text.copy(units_ + length, text.size());
        units_[length + text.size()] = L'\0';
        return true;
    }
    void AssignCut(std::wstring_view text) noexcept {
        const std::size_t length = text.copy(units_, kUnits - 1);
        units_[length] = L'\0';
    }

    // Leaves the folder with its separator; a text without a separator stays whole.
    void CutAfterLastSeparator() noexcept {
        const std::size_t separator = View().find_last_of(L"\\/");
        if (separator != std::wstring_view::npos) units_[separator + 1] = L'\0';
    }

    [[nodiscard]] bool Empty() const noexcept { return units_[0] == L'\0'; }
    [[nodiscard]] const wchar_t* Text() const noexcept { return units_; }
    [[nodiscard]] std::wstring_view View() const noexcept { return units_; }

    // For platform calls that fill kUnits units and terminate them.
    [[nodiscard]] wchar_t* Data() noexcept { return units_; }

  private:
    wchar_t units_[kUnits] = {};
};

}  // namespace zop
