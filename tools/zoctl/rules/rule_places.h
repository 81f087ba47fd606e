#pragma once

// What a rule's names lead to on this machine. An interface, so that the checks can be tested without one.

#include <functional>
#include <string>

namespace zoctl {

enum class Presence { kUnknown, kThere, kAbsent };

struct Place {
    Presence presence = Presence::kUnknown;
    // The NT name that the kernel has for the place where it differs from the rule's, ignoring case; "" when the two
    // are the same, or when it cannot be determined.
    std::string seenAs;
    std::string detour;  // why the kernel never sees the rule's name, as in "goes through the link or mount point
                         // 'C:\link'"; "" when it does, or when nothing shows why
};

class Places {
  public:
    virtual ~Places() = default;
    [[nodiscard]] virtual Place OfPath(const std::string& path, const std::string& nt) const = 0;
    [[nodiscard]] virtual Place OfKey(const std::string& nt) const = 0;
    // Whether a file of the folder fits the filter; kUnknown when the folder cannot be read to its end.
    [[nodiscard]] virtual Presence AnyFile(const std::string& folder, bool recursive,
                                           const std::string& filter) const = 0;
};

}  // namespace zoctl
