#pragma once

// Text for people: tables in columns, and foreign text made safe to show. Pure.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zoctl {

// Control characters (a terminal would act on them, a reader would miss them) become \xNN or \u00NN text, line breaks
// and tabs included; so do the characters that reverse the direction of text. The backslash itself stays as it is, for
// paths are full of them.
[[nodiscard]] std::string EscapeControls(std::string_view utf8);

// "1 file", "2 files"; for nouns that take an s.
[[nodiscard]] std::string Counted(std::uint64_t count, std::string_view noun);

class TextTable {
  public:
    explicit TextTable(std::vector<std::string> headings) : headings_(std::move(headings)) {}

    void Add(std::vector<std::string> cells) {
        cells.resize(headings_.size());
        rows_.push_back(std::move(cells));
    }
    [[nodiscard]] bool Empty() const { return rows_.empty(); }

    // One line a row, cells escaped, the last column not padded.
    [[nodiscard]] std::string Render() const;

  private:
    std::vector<std::string> headings_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace zoctl
