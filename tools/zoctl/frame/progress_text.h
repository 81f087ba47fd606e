#pragma once

// What a line of progress says, and what clears it again. The clock, the bytes and the terminal are the caller's. Pure.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

namespace zoctl {

// Both are called on a thread of the line's own, and only when the line is shown.
struct ProgressFacts {
    // As in "120 files, 2 findings"; empty when there is nothing to show.
    std::function<std::string()> counts;
    // All that will be read, where that is known beforehand; called once, and only if the platform counts what is read.
    std::function<std::uint64_t()> expectedBytes = {};
};

class ProgressText {
  public:
    ProgressText(std::string what, ProgressFacts facts) : what_(std::move(what)), facts_(std::move(facts)) {}

    // "signing: 12 s, 1.0 of 20.5 MB read, 120 files", at the beginning of the line and as long as the longest so far.
    // read: bytes since the beginning; 0 where the platform does not count them.
    [[nodiscard]] std::string Line(std::uint64_t milliseconds, std::uint64_t read);
    // Clears the line; empty when there was none.
    [[nodiscard]] std::string Clearing() const;

  private:
    [[nodiscard]] std::string ReadText(std::uint64_t read);

    std::string what_;
    ProgressFacts facts_;
    std::uint64_t expected_ = 0;
    bool asked_ = false;
    std::size_t width_ = 0;
};

}  // namespace zoctl
