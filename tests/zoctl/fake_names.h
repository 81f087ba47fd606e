#pragma once

// A machine with the drives C: and D: (volumes 1 and 2) and the user S-1, for tests of what needs names.

#include <algorithm>

#include "rule_set.h"

class FakeNames : public zoctl::NameForms {
  public:
    Converted ToNtPath(const std::string& path) const override {
        if (path.size() > 259) return {"", "too long"};
        if (path.starts_with("\\\\")) return {path, ""};
        const char drive = Fold(path)[0];
        if (drive != 'C' && drive != 'D') return {"", "no such drive"};
        return {std::string("\\Device\\HarddiskVolume") + (drive == 'C' ? '1' : '2') + path.substr(2), ""};
    }
    Converted ToNtKey(const std::string& key) const override {
        for (const auto& [root, nt] :
             {std::pair{"HKLM\\", "\\REGISTRY\\MACHINE\\"}, std::pair{"HKCU\\", "\\REGISTRY\\USER\\S-1\\"},
              std::pair{"HKU\\", "\\REGISTRY\\USER\\"}, std::pair{"\\REGISTRY\\", "\\REGISTRY\\"}}) {
            const std::string prefix = root;
            if (Fold(key).starts_with(prefix)) return {nt + key.substr(prefix.size()), ""};
        }
        return {"", "unknown root"};
    }
    std::string FromNtPath(const std::string& nt) const override {
        for (const char volume : {'1', '2'}) {
            const std::string prefix = std::string("\\DEVICE\\HARDDISKVOLUME") + volume + "\\";
            if (Fold(nt).starts_with(prefix)) return (volume == '1' ? "C:" : "D:") + nt.substr(prefix.size() - 1);
        }
        return nt.starts_with("\\\\") ? nt : "";
    }
    std::string Fold(const std::string& text) const override {
        std::string upper = text;
        std::transform(upper.begin(), upper.end(), upper.begin(),
                       [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
        return upper;
    }
};
