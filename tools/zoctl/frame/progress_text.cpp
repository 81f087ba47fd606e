#include "progress_text.h"

#include <algorithm>
#include <utility>

#include "format.h"

namespace zoctl {

std::string ProgressText::ReadText(std::uint64_t read) {
    const auto megabytes = [](std::uint64_t bytes) { return static_cast<double>(bytes) / 1e6; };
    if (facts_.expectedBytes && !std::exchange(asked_, true)) expected_ = facts_.expectedBytes();
    if (expected_ == 0) return zo::Format(", {:.1f} MB read", megabytes(read));
    // Files that grow, and what else the process reads, must not make it more than all.
    return zo::Format(", {:.1f} of {:.1f} MB read", megabytes(std::min(read, expected_)), megabytes(expected_));
}

std::string ProgressText::Line(std::uint64_t milliseconds, std::uint64_t read) {
    const std::string counts = facts_.counts();
    std::string line = zo::Format("{}: {} s{}{}{}", what_, milliseconds / 1000, read != 0 ? ReadText(read) : "",
                                  counts.empty() ? "" : ", ", counts);
    width_ = std::max(width_, line.size());
    line.resize(width_, ' ');
    return "\r" + line;
}

std::string ProgressText::Clearing() const {
    return width_ != 0 ? "\r" + std::string(width_, ' ') + "\r" : "";
}

}  // namespace zoctl
