#pragma once

// Facts that a command states once, for both of its readers: people get a table, programs get members of the document.

#include <string>
#include <vector>

#include "output.h"

namespace zoctl {

class Facts {
  public:
    // A null label keeps the fact out of the table, a null member out of the document. The table shows the text, or the
    // value where there is none.
    void Add(const char* label, const char* member, Json value, std::string text = {});

    // One fact a line, below this heading.
    [[nodiscard]] TextTable Sheet(std::vector<std::string> heading) const;
    // All facts in one line, below their labels.
    [[nodiscard]] TextTable Line() const;
    [[nodiscard]] const Json& Members() const { return members_; }

  private:
    std::vector<std::string> labels_;
    std::vector<std::string> texts_;
    Json members_ = Json::object();
};

}  // namespace zoctl
