#include "tree_bytes.h"

#include <windows.h>

#include <string_view>
#include <vector>

#include "long_path.h"
#include "owned_handles.h"

namespace zoctl {

std::uint64_t TreeBytes(const std::wstring& root, const std::function<bool()>& ended) {
    std::uint64_t bytes = 0;
    std::vector<std::wstring> pending{zo::LongForm(root.c_str())};
    while (!pending.empty() && !ended()) {
        const std::wstring folder = std::move(pending.back()) + L"\\";
        pending.pop_back();
        WIN32_FIND_DATAW item{};
        const zo::OwnedFind listing(FindFirstFileExW((folder + L"*").c_str(), FindExInfoBasic, &item,
                                                     FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH));
        for (bool more = static_cast<bool>(listing); more; more = FindNextFileW(listing.Get(), &item) != FALSE) {
            const std::wstring_view name = item.cFileName;
            if ((item.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
                bytes += std::uint64_t{item.nFileSizeHigh} << 32 | item.nFileSizeLow;
            } else if ((item.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0 && name != L"." && name != L"..") {
                pending.push_back(folder + item.cFileName);
            }
        }
    }
    return bytes;
}

}  // namespace zoctl
