#include "wildcards.h"

namespace zoctl {

bool FitsPattern(std::string_view pattern, std::string_view text) {
    std::size_t at = 0;
    std::size_t in = 0;
    std::size_t star = std::string_view::npos;
    std::size_t resume = 0;
    while (in < text.size()) {
        if (at < pattern.size() && pattern[at] == '*') {
            star = at++;
            resume = in;
        } else if (at < pattern.size() && (pattern[at] == '?' || pattern[at] == text[in])) {
            ++at;
            ++in;
        } else if (star != std::string_view::npos) {  // the last star takes one more
            at = star + 1;
            in = ++resume;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', at) == std::string_view::npos;
}

}  // namespace zoctl
