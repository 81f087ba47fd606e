#include <windows.h>

#include "error_text.h"
#include "files.h"
#include "format.h"
#include "groups.h"
#include "manifest_reader.h"
#include "text.h"

namespace zoctl {

namespace {

// True when the manifest was read; otherwise says so and sets the exit code.
bool Load(Output& out, const std::string& path, ManifestListing& listing, int& exitCode) {
    std::string bytes;
    const zo::FileReadResult read = zo::ReadWholeFile(zo::WideFromUtf8(path).c_str(), bytes);
    if (!read) {
        const bool absent = read.error == ERROR_FILE_NOT_FOUND || read.error == ERROR_PATH_NOT_FOUND;
        exitCode = out.Refuse(absent ? kExitNoDriver : kExitFailed,
                              zo::Format("{} cannot be read: {}", Quote(path), zo::ErrorText(read.error)),
                              "Check the path of the manifest.");
        return false;
    }
    if (ReadManifestListing(bytes, listing)) return true;
    exitCode = out.Refuse(kExitTampered, zo::Format("{} is no manifest.", Quote(path)),
                          "Name the file that \"zoctl sign\" wrote with --manifest.");
    return false;
}

Json ItemJson(const std::string& path, const ManifestItem& item) {
    Json json = {{"kind", item.kind}, {"path", path}};
    if (item.kind == "file") json.update({{"size", item.size}, {"digest", item.digest}});
    return json;
}

int Show(Output& out, const std::string& path) {
    ManifestListing listing;
    int exitCode = 0;
    if (!Load(out, path, listing, exitCode)) return exitCode;
    TextTable table({"kind", "size", "SHA-256", "path"});
    Json items = Json::array();
    for (const auto& [name, item] : listing.items) {
        table.Add({item.kind, item.kind == "file" ? std::to_string(item.size) : "", item.digest, name});
        if (out.Lines()) {
            out.Line(ItemJson(name, item));
        } else {
            items.push_back(ItemJson(name, item));
        }
    }
    out.Text(zo::Format("Root        {}\nThumbprint  {}\nSigned      {}\n\n", EscapeControls(listing.root),
                        EscapeControls(listing.thumbprint), FileTimeText(listing.time)));
    out.Table(table);
    out.Hint("The signature was not checked; \"zoctl verify\" does that.");
    Json facts = {{"root", listing.root}, {"thumbprint", listing.thumbprint}, {"signed", FileTimeText(listing.time)}};
    if (!out.Lines()) facts["items"] = items;
    return out.Done("", facts);
}

int CompareManifests(Output& out, const std::string& before, const std::string& after) {
    ManifestListing old;
    ManifestListing current;
    int exitCode = 0;
    if (!Load(out, before, old, exitCode) || !Load(out, after, current, exitCode)) return exitCode;
    TextTable table({"change", "kind", "path"});
    Json changes = Json::array();
    std::size_t count = 0;
    const auto add = [&](const char* change, const std::string& path, const ManifestItem& item) {
        ++count;
        table.Add({change, item.kind, path});
        Json json = {{"change", change}};
        json.update(ItemJson(path, item));
        if (out.Lines()) {
            out.Line(json);
        } else {
            changes.push_back(json);
        }
    };
    for (const auto& [path, item] : old.items) {
        const auto found = current.items.find(path);
        if (found == current.items.end()) {
            add("removed", path, item);
        } else if (found->second != item) {
            add("changed", path, found->second);
        }
    }
    for (const auto& [path, item] : current.items) {
        if (!old.items.contains(path)) add("added", path, item);
    }
    if (!table.Empty()) out.Table(table);
    out.Hint("The signatures were not checked; \"zoctl verify\" does that.");
    Json facts = {{"differences", count}, {"sameKey", old.thumbprint == current.thumbprint}};
    if (!out.Lines()) facts["changes"] = changes;
    if (count == 0) return out.Done("Both list the same.", facts);
    return out.Found(kExitFailed, zo::Format("{} differences.", count), facts);
}

}  // namespace

void RegisterManifest(CLI::App& root, Tool& tool) {
    CLI::App& group = tool.AddGroup(root, "manifest", "Look into the manifests of sealed folders");
    const auto first = std::make_shared<std::string>();
    const auto second = std::make_shared<std::string>();
    CLI::App& show =
        tool.AddCommand(group, {"show", "List what a manifest holds", "manifest show C:\\Suite\\suite.zosig"},
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
