#include "trial_manifest.h"

#include <windows.h>

#include <algorithm>

#include "error_text.h"
#include "files.h"
#include "format.h"
#include "long_path.h"
#include "text.h"

namespace zoctl {

namespace {

int RefuseTrial(Output& out, std::uint32_t error) {
    return out.Refuse(error == ERROR_ACCESS_DENIED ? kExitAccess : kExitFailed,
                      "The temporary folder cannot be used: " + zo::ErrorText(error),
                      "Set TMP to a folder in which you may create files.");
}

std::wstring FullPathOf(const std::string& path) {
    std::wstring full;
    return zo::FullPath(zo::WideFromUtf8(path).c_str(), full) == ERROR_SUCCESS ? full : std::wstring();
}

bool SamePath(const std::wstring& one, const std::wstring& other) {
    return CompareStringOrdinal(one.c_str(), -1, other.c_str(), -1, TRUE) == CSTR_EQUAL;
}

}  // namespace

Ended TrialManifest::Create(Output& out) {
    const std::uint32_t error = file_.Create(L"zos");
    return error != ERROR_SUCCESS ? Ended(RefuseTrial(out, error)) : std::nullopt;
}

Ended TrialManifest::Read(Output& out, const std::string& folder, const std::string& manifest,
                          ManifestListing& listing) const {
    if (const zo::FileReadResult read = zo::ReadWholeFile(Path().c_str(), listing.bytes); !read) {
        return RefuseTrial(out, read.error);
    }
    if (const std::string fault = ReadListing(listing); !fault.empty()) {
        return out.Refuse(kExitFailed, "The trial manifest is malformed: " + fault + ".", "Run it again.");
    }
    std::wstring root = FullPathOf(folder);
    if (!root.ends_with(L'\\')) root += L'\\';
    const std::wstring real = FullPathOf(manifest);
    std::erase_if(listing.tree.entries, [&](const zosigner::ListedEntry& entry) {
        std::wstring name = zo::WideFromUtf8(entry.path);
        std::replace(name.begin(), name.end(), L'/', L'\\');
        return SamePath(root + name, real);
    });
    return std::nullopt;
}

}  // namespace zoctl
