#include "folder_removal.h"

#include <windows.h>

#include <string_view>
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
    if (attributes & FILE_ATTRIBUTE_READONLY) SetFileAttributesW(path.c_str(), attributes & ~FILE_ATTRIBUTE_READONLY);
    const bool isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (isFolder ? RemoveDirectoryW(path.c_str()) : DeleteFileW(path.c_str())) return ERROR_SUCCESS;
    return GetLastError();
}

class TreeRemoval {
  public:
    // The folder is known not to be empty and not to be a link.
    RemovalResult Run(const std::wstring& folder) {
        // A list instead of recursion: how deep a tree goes is not ours to say.
        pending_.push_back(folder);
        while (!pending_.empty() && result_.error == 0) {
            const std::size_t before = pending_.size();
            const std::wstring current = pending_.back();
            RemoveContent(current);
            if (result_.error != 0 || pending_.size() > before) continue;
            Count(RemoveEntry(current, FILE_ATTRIBUTE_DIRECTORY));
            pending_.pop_back();
        }
        return result_;
    }

  private:
    void Count(DWORD error) {
        if (error == ERROR_SUCCESS) {
            ++result_.removed;
        } else if (!IsMissing(error)) {
            result_.error = error;
        }
    }

    // What is no empty folder is left for later.
    void RemoveContent(const std::wstring& folder) {
        WIN32_FIND_DATAW found{};
        const zo::OwnedFind search(FindFirstFileW((folder + L"\\*").c_str(), &found));
        if (!search) {
            result_.error = GetLastError();
            return;
        }
        do {
            const std::wstring_view name = found.cFileName;
            if (name == L"." || name == L"..") continue;
            std::wstring path = folder + L"\\" + found.cFileName;
            const DWORD error = RemoveEntry(path, found.dwFileAttributes);
            const bool isLink = (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
            if (error == ERROR_DIR_NOT_EMPTY && !isLink) {
                pending_.push_back(std::move(path));
            } else {
                Count(error);
            }
        } while (result_.error == 0 && FindNextFileW(search.Get(), &found));
        if (const DWORD error = GetLastError(); result_.error == 0 && error != ERROR_NO_MORE_FILES) {
            result_.error = error;
        }
    }

    std::vector<std::wstring> pending_;
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
