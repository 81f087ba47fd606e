#pragma once

// Names of a machine that needs no machine.

#include <algorithm>
#include <string>

#include "rule_set.h"

namespace zotest {

// A machine with the drives C: and D: (volumes 1 and 2).
class FakeNames : public zoctl::NameForms {
  public:
    Converted ToNtPath(const std::string& path) const override {
        if (path.starts_with("\\\\")) return {path, ""};
        const std::string drive = Fold(path.substr(0, 2));
        if (drive != "C:" && drive != "D:") return {"", "no such drive"};
        return {(drive == "C:" ? "\\Device\\HarddiskVolume1" : "\\Device\\HarddiskVolume2") + path.substr(2), ""};
    }
    Converted ToNtKey(const std::string& key) const override {
        for (const auto& [root, nt] : {std::pair{"HKLM\\", "\\REGISTRY\\MACHINE\\"},
                                       {"HKU\\", "\\REGISTRY\\USER\\"},
                                       {"\\REGISTRY\\", "\\REGISTRY\\"}}) {
            if (Fold(key).starts_with(root)) return {nt + key.substr(std::string(root).size()), ""};
        }
        return {"", "unknown root"};
    }
    std::string FromNtPath(const std::string& nt) const override {
        for (const char* drive : {"C:", "D:"}) {
            const std::string volume = ToNtPath(drive).text;
            if (Fold(nt).starts_with(Fold(volume) + "\\")) return drive + nt.substr(volume.size());
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

}  // namespace zotest
