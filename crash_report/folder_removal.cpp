#include "folder_removal.h"

#include <windows.h>

#include <string_view>
#include <utility>
#include <vector>

#include "long_path.h"
#include "owned_handles.h"

namespace zocrash {

namespace {

bool IsMissing(DWORD error) {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

// Removes a file, an empty folder or a link. The read-only attribute protects from mistakes, not from this.
DWORD RemoveEntry(const std::wstring& path, DWORD attributes) {
    constexpr DWORD kReadOnly = FILE_ATTRIBUTE_READONLY;
    if (attributes & kReadOnly) SetFileAttributesW(path.c_str(), attributes & ~kReadOnly);
    const bool isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (isFolder ? RemoveDirectoryW(path.c_str()) : DeleteFileW(path.c_str())) return ERROR_SUCCESS;
    return GetLastError();
}

class TreeRemoval {
  public:
    // The folder is known not to be empty and not to be a link.
    RemovalResult Run(const std::wstring& folder) {
        // A list instead of recursion: how deep a tree goes is not ours to say.
        pending_.push_back({folder});
        while (!pending_.empty()) {
            if (!std::exchange(pending_.back().emptied, true)) {
                const std::wstring path = pending_.back().path;
                RemoveContent(path);
            } else {
                Count(RemoveEntry(pending_.back().path, FILE_ATTRIBUTE_DIRECTORY));
                pending_.pop_back();
            }
        }
        return result_;
    }

  private:
    struct Folder {
        std::wstring path;
        bool emptied = false;  // as far as that went
    };
    struct Entry {
        std::wstring name;
        DWORD attributes;
    };

    void Count(DWORD error) {
        if (error == ERROR_SUCCESS) {
            ++result_.removed;
        } else if (!IsMissing(error) && result_.error == 0) {
            result_.error = error;
        }
    }

    // What is no empty folder comes next on the list. A link is never one of these: it is not looked into.
    void RemoveContent(const std::wstring& folder) {
        for (const Entry& entry : List(folder)) {
            std::wstring path = folder + L"\\" + entry.name;
            const DWORD error = RemoveEntry(path, entry.attributes);
            const bool isLink = (entry.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
            if (error == ERROR_DIR_NOT_EMPTY && !isLink) {
                pending_.push_back({std::move(path)});
            } else {
                Count(error);
            }
        }
    }

    // All at once: a listing that goes on while its entries disappear can leave some out.
    std::vector<Entry> List(const std::wstring& folder) {
        std::vector<Entry> entries;
        WIN32_FIND_DATAW found{};
        const zo::OwnedFind search(FindFirstFileW((folder + L"\\*").c_str(), &found));
        if (!search) {
            Count(GetLastError());
            return entries;
        }
        do {
            const std::wstring_view name = found.cFileName;
            if (name != L"." && name != L"..") entries.push_back({found.cFileName, found.dwFileAttributes});
        } while (FindNextFileW(search.Get(), &found));
        if (const DWORD error = GetLastError(); error != ERROR_NO_MORE_FILES) Count(error);
        return entries;
    }

    std::vector<Folder> pending_;
    RemovalResult result_;
};

}  // namespace

RemovalResult RemoveFolder(const std::wstring& folder) {
    const std::wstring path = zo::LongForm(folder.c_str());
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        const DWORD error = GetLastError();
        return {IsMissing(error) ? ERROR_SUCCESS : error, 0};
    }
    const DWORD error = RemoveEntry(path, attributes);
    if (error == ERROR_SUCCESS) return {0, 1};
    const bool isLink = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (error != ERROR_DIR_NOT_EMPTY || isLink) return {error, 0};
    return TreeRemoval().Run(path);
}

}  // namespace zocrash
