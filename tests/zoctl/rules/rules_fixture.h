#pragma once

// Rule files, and zoctl's commands for them on a driver of the simulator.

#include <set>

#include "zoctl_process.h"

namespace zotest {

inline constexpr const char* kFull = R"({
    "version": 1,
    "master": {"enabled": true},
    "process": {"rules": [{"path": "C:\\s\\日.exe"}, {"folder": "C:\\s\\bin", "recursive": true}]},
    "file": {
        "enabled": true,
        "rules": [{"path": "C:\\s\\x.ini"}, {"folder": "C:\\s", "filter": "*.exe"},
                  {"folder": "C:\\s", "filter": "*.dll"},
                  {"folder": "C:\\d", "recursive": true, "scope": {"folder": "C:\\s"}, "exclusive": true}],
        "ignore": [{"path": "C:\\s\\u.exe"}]
    },
    "registry": {"rules": [{"key": "HKLM\\S", "recursive": true}], "ignore": []},
    "dll": {"folders": [{"folder": "C:\\w", "recursive": true}]},
    "signature": {"policy": {"mode": 1, "minLevel": 2}, "overrides": [7]}
})";
inline constexpr const char* kAbc =
    R"({"version": 1, "process": {"rules": [{"path": "C:\\a"}, {"path": "C:\\b"}, {"path": "C:\\c"}]}})";
inline constexpr const char* kFolderA =
    R"({"version": 1, "process": {"rules": [{"folder": "C:\\a"}, {"path": "C:\\b"}, {"path": "C:\\c"}]}})";
inline const Json kUnreadable = {"file.ignore", "registry.ignore", "signature.overrides", "file.enabled"};
inline const std::set<std::uint32_t> kReading = {ZOP_IOCTL_LIST_PROCESS_RULES,  ZOP_IOCTL_LIST_FILE_RULES,
                                                 ZOP_IOCTL_LIST_REGISTRY_RULES, ZOP_IOCTL_LIST_DLL_WHITELIST,
                                                 ZOP_IOCTL_GET_MASTER_ENABLED,  ZOP_IOCTL_GET_SIGNATURE_POLICY};

class ZoctlRules : public ZoctlTest {
  protected:
    std::string Path(const char* name) { return zo::Utf8FromWide((folder_ / name).wstring()); }

    // Runs "rules WORDS" and keeps the changing commands that it sent.
    ZoctlRun Rules(std::vector<std::string> words) {
        words.insert(words.begin(), "rules");
        ZoctlRun run = RunZoctl(words);
        changes_ = Sent();
        std::erase_if(changes_, [](std::uint32_t code) { return kReading.contains(code); });
        return run;
    }
    // The same with a file of this text.
    ZoctlRun Do(const char* verb, const std::string& text, std::vector<std::string> options = {"--json"}) {
        WriteFileBytes(folder_ / "rules.json", text);
        options.insert(options.begin(), {verb, Path("rules.json")});
        return Rules(options);
    }
    ZoctlRun Apply(const std::string& text) { return Do("apply", text); }

    Codes changes_;
    TempFolder folder_;
};

}  // namespace zotest
