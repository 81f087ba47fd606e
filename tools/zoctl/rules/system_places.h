#pragma once

// This machine's files, folders and keys. Names on network paths and drives are not looked up, because a server that
// does not answer would hold the command.

#include "rule_places.h"
#include "rule_set.h"

namespace zoctl {

class SystemPlaces : public Places {
  public:
    explicit SystemPlaces(const NameForms& names) : names_(names) {}

    [[nodiscard]] Place OfPath(const std::string& path, const std::string& nt) const override;
    [[nodiscard]] Place OfKey(const std::string& nt) const override;
    // Does not enter links, and gives up after 100,000 names.
    [[nodiscard]] Presence AnyFile(const std::string& folder, bool recursive, const std::string& filter) const override;

  private:
    const NameForms& names_;
};

}  // namespace zoctl
