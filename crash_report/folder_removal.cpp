#include "folder_removal.h"

#include <windows.h>

#include <utility>
#include <vector>

#include "folder_listing.h"
#include "long_path.h"

namespace zocrash {

namespace {

bool IsMissing(DWORD error) {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

// A folder to look into; a link to one is not.
bool IsFolder(DWORD attributes) {
    return (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == FILE_ATTRIBUTE_DIRECTORY;
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
    RemovalResult Run(const std::wstring& folder, DWORD attributes) {
        // A list instead of recursion: the depth is not under our control. Each folder comes before its subfolders and
        // is held until they are gone.
        pending_.push_back({folder, attributes, {}});
        while (!pending_.empty()) {
            if (!pending_.back().held) {
                Enter();
            } else {
                RemoveLast(ERROR_DIR_NOT_EMPTY);
            }
        }
        return result_;
    }

  private:
    struct Folder {
        std::wstring path;
        DWORD attributes;
        zo::HeldFolder held;
    };

    void Count(DWORD error) {
        if (error == ERROR_SUCCESS) {
            ++result_.removed;
        } else if (!IsMissing(error) && result_.error == 0) {
            result_.error = error;
        }
    }

    // Holds the last folder of the list, removes its files and links, and puts its subfolders on the list.
    void Enter() {
        zo::HeldFolder held;
        if (const DWORD error = held.Open(pending_.back().path); error != ERROR_SUCCESS) {
            // That something is in it says less than why it could not be opened, unless that was for being a link.
            return RemoveLast(error == zo::kErrorIsALink ? ERROR_DIR_NOT_EMPTY : error);
        }
        pending_.back().held = std::move(held);
        // All at once: a listing that continues while its entries disappear can leave some out.
        std::vector<FolderEntry> entries;
        if (const DWORD error = ListFolder(pending_.back().held, entries); error != ERROR_SUCCESS) Count(error);
        const std::wstring parent = pending_.back().path + L"\\";
        for (const FolderEntry& entry : entries) {
            if (IsFolder(entry.attributes)) {
                pending_.push_back({parent + entry.name, entry.attributes, {}});
            } else {
                Count(RemoveEntry(parent + entry.name, entry.attributes));
            }
        }
    }

    // What could not be opened may be an empty folder, a link or a file: each can still be removed.
    // The parameter is the error to report when something is in it.
    void RemoveLast(DWORD notEmpty) {
        Folder last = std::move(pending_.back());
        pending_.pop_back();
        last.held.Release();
        const DWORD error = RemoveEntry(last.path, last.attributes);
        Count(error == ERROR_DIR_NOT_EMPTY ? notEmpty : error);
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
    return TreeRemoval().Run(path, attributes);
}

}  // namespace zocrash
