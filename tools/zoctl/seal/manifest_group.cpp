#include <windows.h>

#include <algorithm>
#include <chrono>
#include <iterator>

#include "files.h"
#include "format.h"
#include "hex.h"
#include "manifest_reader.h"
#include "output.h"
#include "seal_commands.h"
#include "seal_paths.h"
#include "text.h"

namespace zoctl {

namespace {

// A FILETIME as "2026-11-24 22:15:03 UTC".
std::string FileTimeText(std::uint64_t time) {
    using namespace std::chrono;
    constexpr std::uint64_t kTicksPerSecond = 10000000;
    const sys_days begin = year{1601} / January / 1;
    const auto seconds = std::chrono::seconds(time / kTicksPerSecond);
    const sys_days day = begin + floor<days>(seconds);
    const year_month_day date{day};
    const hh_mm_ss clock{seconds - floor<days>(seconds)};
    return zo::Format("{:04d}-{:02d}-{:02d} {:02d}:{:02d}:{:02d} UTC", static_cast<int>(date.year()),
                      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
                      clock.minutes().count(), clock.seconds().count());
}

// Ends the command when the manifest cannot be read.
Ended Load(Output& out, const std::string& path, ManifestListing& listing) {
    if (const Ended ended = CheckManifestName(out, path)) return ended;
    const zo::FileReadResult read = zo::ReadWholeFile(zo::WideFromUtf8(path).c_str(), listing.bytes);
    if (!read) return RefuseUnreadable(out, path, read.error);
    const std::string fault = ReadListing(listing);
    if (fault.empty()) return std::nullopt;
    return out.Refuse(kExitTampered, zo::Format("{} is not a manifest: {}.", Quote(path), fault),
                      "Name the file that \"zoctl sign\" wrote with --manifest.");
}

int Show(Output& out, const std::string& path) {
    ManifestListing listing;
    if (const Ended ended = Load(out, path, listing)) return *ended;
    TextTable table({"kind", "size", "SHA-256", "path"});
    Records items(out, "items");
    for (const ManifestItem& item : SortedItems(listing.tree)) {
        table.Add({std::string(item.kind), item.IsFile() ? std::to_string(item.size) : "", std::string(item.digest),
                   std::string(item.path)});
        items.Add(item.ToJson());
    }
    const std::string thumbprint = zo::ToHex(listing.tree.thumbprint);
    const std::string time = FileTimeText(listing.tree.time);
    out.Text(zo::Format("Root        {}\nThumbprint  {}\nSigned      {}\n\n", EscapeControls(listing.tree.root),
                        thumbprint, time));
    out.Table(table);
    Json facts = {{"root", listing.tree.root}, {"thumbprint", thumbprint}, {"signed", time}};
    items.PutInto(facts);
    const int exitCode = out.Done("", facts);
    out.Hint("The signature was not checked; \"zoctl verify\" does that.");
    return exitCode;
}

struct Change {
    const char* what;   // "removed", "changed", "added"
    ManifestItem item;  // of a change, the newer one
};

std::vector<Change> Changes(const std::vector<ManifestItem>& before, const std::vector<ManifestItem>& after) {
    std::vector<ManifestItem> gone;
    std::vector<ManifestItem> come;
    std::set_difference(before.begin(), before.end(), after.begin(), after.end(), std::back_inserter(gone));
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(), std::back_inserter(come));
    std::vector<Change> changes;
    auto next = come.begin();
    for (const ManifestItem& old : gone) {
        for (; next != come.end() && next->path < old.path; ++next)
            changes.push_back({"added", *next});
        if (next != come.end() && next->path == old.path) {
            changes.push_back({"changed", *next++});
        } else {
            changes.push_back({"removed", old});
        }
    }
    for (; next != come.end(); ++next)
        changes.push_back({"added", *next});
    return changes;
}

int CompareManifests(Output& out, const std::string& before, const std::string& after) {
    ManifestListing old;
    ManifestListing current;
    if (const Ended ended = Load(out, before, old)) return *ended;
    if (const Ended ended = Load(out, after, current)) return *ended;
    TextTable table({"change", "kind", "path"});
    Records records(out, "changes");
    const std::vector<Change> changes = Changes(SortedItems(old.tree), SortedItems(current.tree));
    for (const Change& change : changes) {
        table.Add({change.what, std::string(change.item.kind), std::string(change.item.path)});
        Json json = {{"change", change.what}};
        json.update(change.item.ToJson());
        records.Add(std::move(json));
    }
    if (!table.Empty()) out.Table(table);
    Json facts = {{"differences", changes.size()}, {"sameKey", old.tree.thumbprint == current.tree.thumbprint}};
    records.PutInto(facts);
    const int exitCode = changes.empty() ? out.Done("Both manifests list the same items.", facts)
                                         : out.Found(kExitFailed, Counted(changes.size(), "difference") + ".", facts);
    out.Hint("The signatures were not checked; \"zoctl verify\" does that.");
    return exitCode;
}

}  // namespace

void RegisterManifest(CLI::App& root, Tool& tool) {
    CLI::App& group = tool.AddGroup(root, "manifest", "Inspect the manifests of signed folders");
    const auto first = std::make_shared<std::string>();
    const auto second = std::make_shared<std::string>();
    CLI::App& show =
        tool.AddCommand(group, {"show", "List the contents of a manifest", "manifest show C:\\Suite\\suite.zosig"},
                        [first](Output& out) { return Show(out, *first); });
    show.add_option("file", *first, "The manifest")->required();
    tool.AllowJsonLines(show);
    CLI::App& diff = tool.AddCommand(
        group,
        {"diff", "Compare what two manifests list; exits with 1 when they differ", "manifest diff old.zosig new.zosig"},
        [first, second](Output& out) { return CompareManifests(out, *first, *second); });
    diff.add_option("before", *first, "The older manifest")->required();
    diff.add_option("after", *second, "The newer manifest")->required();
    tool.AllowJsonLines(diff);
}

}  // namespace zoctl
