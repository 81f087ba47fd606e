#include "suggestion.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <vector>

namespace zoctl {

namespace {

char Lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

// The optimal string alignment distance, row by row: `before` and `last` are the rows above the current one.
std::size_t Mistakes(std::string_view a, std::string_view b) {
    std::vector<std::size_t> before;
    std::vector<std::size_t> last(b.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::vector<std::size_t> row(b.size() + 1, i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = Lower(a[i - 1]) == Lower(b[j - 1]);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same ? 0u : 1u)});
            const bool swapped =
                i > 1 && j > 1 && Lower(a[i - 1]) == Lower(b[j - 2]) && Lower(a[i - 2]) == Lower(b[j - 1]);
            if (swapped) row[j] = std::min(row[j], before[j - 2] + 1);
        }
        before = std::move(last);
        last = std::move(row);
    }
    return last.back();
}

}  // namespace

std::string ClosestName(std::string_view word, std::span<const std::string> names) {
    std::string closest;
    std::size_t fewest = std::max<std::size_t>(word.size() / 3, 1) + 1;
    for (const std::string& name : names) {
        if (const std::size_t mistakes = Mistakes(word, name); mistakes < fewest) {
            fewest = mistakes;
            closest = name;
        }
    }
    return closest;
}

}  // namespace zoctl
