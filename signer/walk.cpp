#include "walk.h"

#include <string>
#include <string_view>
#include <utility>

#include "directory_listing.h"
#include "error_text.h"
#include "errors.h"
#include "item_name.h"
#include "message_beginnings.h"
#include "text.h"

namespace zosigner {

namespace {

// An item of a directory that is being walked, kept while the contents of earlier items are listed.
struct PendingItem {
    std::wstring name;
    DirectoryItem listed{};  // without its name
    bool maybeManifest = false;
};

// A directory that is being walked. Its whole listing is read before its subdirectories are entered, so that one handle
// and one buffer are enough for a tree of any depth.
struct Level {
    std::string relative;
    std::wstring path;
    std::vector<PendingItem> items{};
    std::size_t next = 0;
    std::uint32_t error = 0;  // what ended the listing early; reported after its items
};

class Walker {
  public:
    Walker(const TreeRoot& root, const FileIdentity& manifestFile, const Report& report, IoBuffer& buffer,
           std::vector<ManifestDirectory>& directories, std::vector<FoundFile>& files)
        : root_(root),
          manifestFile_(manifestFile),
          report_(report),
          directories_(directories),
          files_(files),
          listing_(buffer) {}

    [[nodiscard]] bool Run() {
        directories_.push_back({std::string(kRootDirectory)});
        if (const std::uint32_t error = Enter(std::string(kRootDirectory), root_.Long(kRootDirectory));
            error != ERROR_SUCCESS) {
            report_.Error("{}{}{}{}", kRootNotListed, root_.Shown(), kBeforeErrorText, zo::ErrorText(error));
            return false;
        }
        while (!levels_.empty())
            Step();
        return true;
    }

  private:
    [[nodiscard]] std::uint32_t Enter(std::string relative, std::wstring path) {
        const bool isRoot = levels_.empty();
        if (const std::uint32_t error = listing_.Open(path.c_str(), isRoot); error != ERROR_SUCCESS) return error;
        Level level{std::move(relative), std::move(path)};
        DirectoryItem item;
        while (listing_.Next(item))
            level.items.push_back({std::wstring(item.name), item, manifestFile_.MayBe(item)});
        level.error = listing_.Error();
        levels_.push_back(std::move(level));
        return ERROR_SUCCESS;
    }

    void Step() {
        Level& level = levels_.back();
        if (level.next < level.items.size()) {
            Visit(level, level.items[level.next++]);
            return;
        }
        if (level.error != ERROR_SUCCESS) report_.Warning("{}{}", kListingFailed, zo::ErrorText(level.error));
        levels_.pop_back();
    }

    // May add a level, which invalidates the references.
    void Visit(const Level& level, const PendingItem& item) {
        std::string relative = JoinRelative(level.relative, zo::Utf8FromWide(item.name));
        if (item.maybeManifest && manifestFile_.Is(JoinPath(level.path, item.name), item.listed)) return;
        if (const NameFault fault = FaultOf(item.name); fault != NameFault::kNone) {
            const auto beginning = fault == NameFault::kControlCharacter ? kControlCharacterName : kNotUtf16Name;
            report_.Warning("{}{}", beginning, root_.Shown(relative));
        } else if (item.listed.IsReparsePoint()) {
            report_.Info("{}{}", kSkippedLink, root_.Shown(relative));
        } else if (item.listed.IsDirectory()) {
            std::wstring path = JoinPath(level.path, item.name);
            directories_.push_back({relative});
            if (const std::uint32_t error = Enter(std::move(relative), std::move(path)); error != ERROR_SUCCESS) {
                report_.Warning("{}{}", kListingFailed, zo::ErrorText(error));
            }
        } else if ((item.listed.attributes & FILE_ATTRIBUTE_DEVICE) == 0) {
            files_.push_back({std::move(relative), item.listed.size, IsShortcut(item.name)});
        }
    }

    const TreeRoot& root_;
    const FileIdentity& manifestFile_;
    const Report& report_;
    std::vector<ManifestDirectory>& directories_;
    std::vector<FoundFile>& files_;
    DirectoryListing listing_;
    std::vector<Level> levels_;
};

}  // namespace

bool Walk(const TreeRoot& root, const FileIdentity& manifestFile, const Report& report, IoBuffer& buffer,
          std::vector<ManifestDirectory>& directories, std::vector<FoundFile>& files) {
    return Walker(root, manifestFile, report, buffer, directories, files).Run();
}

std::int32_t DecideSeals(std::uint32_t mode, ZoSignerSealCallback callback, void* context,
                         std::vector<ManifestDirectory>& directories) {
    if (mode == ZOSIG_SEAL_ALL || mode == ZOSIG_SEAL_NONE) {
        for (ManifestDirectory& directory : directories)
            directory.sealed = mode == ZOSIG_SEAL_ALL;
        return zo::kOk;
    }
    if (callback == nullptr) return zo::kInvalidArgument;

    std::int32_t applyToRest = 0;
    bool answerForRest = false;
    for (ManifestDirectory& directory : directories) {
        if (applyToRest != 0) {
            directory.sealed = answerForRest;
            continue;
        }
        std::int32_t seal = 1;
        const std::wstring path = zo::WideFromUtf8(directory.path);
        if (const std::int32_t status = callback(context, path.c_str(), &seal, &applyToRest); status < 0) return status;
        directory.sealed = answerForRest = seal != 0;
    }
    return zo::kOk;
}

}  // namespace zosigner
