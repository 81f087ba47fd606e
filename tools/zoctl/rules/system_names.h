#pragma once

// The names of this machine: the library's own conversion forwards, and the way back through the drive letters.

#include <string>
#include <utility>
#include <vector>

#include "rule_set.h"

namespace zoctl {

class SystemNames final : public NameForms {
  public:
    SystemNames();

    [[nodiscard]] Converted ToNtPath(const std::string& path) const override;
    [[nodiscard]] Converted ToNtKey(const std::string& key) const override;
    [[nodiscard]] std::string FromNtPath(const std::string& ntPath) const override;
    [[nodiscard]] std::string Fold(const std::string& text) const override;

  private:
    struct Drive {
        std::string name;    // "C:"
        std::string target;  // folded, "\DEVICE\HARDDISKVOLUME1"
    };
    std::vector<Drive> drives_;
};

}  // namespace zoctl
