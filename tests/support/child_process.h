#pragma once

// Runs a program and collects its output, for tests of zoctl and of what happens when a process ends.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace zotest {

struct ChildResult {
    std::uint32_t exitCode = 0;  // 0xDEAD when it was ended by force, after a minute
    std::string out;             // all of standard output, bytes as they came
    std::string err;
};

struct ChildOptions {
    bool deafReader = false;  // nobody reads standard output
    std::vector<std::pair<std::wstring, std::wstring>>
        environment;  // set for the child, in addition to what it inherits
};

// Standard input is empty. Arguments are quoted as the C runtime reads them. Raises std::runtime_error when the program
// cannot be started.
[[nodiscard]] ChildResult RunChild(const std::wstring& program, const std::vector<std::wstring>& arguments,
                                   const ChildOptions& options = {});

}  // namespace zotest
