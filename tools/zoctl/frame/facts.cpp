#include "facts.h"

namespace zoctl {

void Facts::Add(const char* label, const char* member, Json value, std::string text) {
    if (label) {
        if (text.empty()) text = value.is_string() ? value.get<std::string>() : value.dump();
        labels_.emplace_back(label);
        texts_.push_back(std::move(text));
    }
    if (member) members_[member] = std::move(value);
}

TextTable Facts::Sheet(std::vector<std::string> heading) const {
    TextTable table(std::move(heading));
    for (std::size_t i = 0; i < labels_.size(); ++i)
        table.Add({labels_[i], texts_[i]});
    return table;
}

TextTable Facts::Line() const {
    TextTable table(labels_);
    table.Add(texts_);
    return table;
}

}  // namespace zoctl
