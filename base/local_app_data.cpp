#include "local_app_data.h"

// clang-format off
#include <windows.h>
#include <objbase.h>
#include <shlobj.h>
// clang-format on

#include "owned_handles.h"

namespace zo {

namespace {

// FOLDERID_LocalAppData, whose own definition needs an import library.
constexpr GUID kLocalAppData = {0xF1B32785, 0x6FBA, 0x4FCF, {0x9D, 0x55, 0x7B, 0x8E, 0x7F, 0x15, 0x70, 0x91}};

struct TaskMemoryKind {
    using Handle = wchar_t*;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { CoTaskMemFree(handle); }
};

}  // namespace

std::filesystem::path LocalAppDataFolder() {
    Owned<TaskMemoryKind> folder;
    if (FAILED(SHGetKnownFolderPath(kLocalAppData, 0, nullptr, folder.Out()))) return {};
    return folder.Get();
}

}  // namespace zo
