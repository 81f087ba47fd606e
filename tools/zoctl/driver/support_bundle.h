#pragma once

// "zoctl doctor --bundle": one file for support with what the commands that show something answer, and the log. Nothing
// in it is secret, and the user's name is taken out.

#include <functional>
#include <string>
#include <vector>

#include "output.h"

namespace zoctl {

struct BundleOptions {
    std::string file;
    bool yes = false;  // do not ask
};

// One answer as a command writes it with --json.
struct BundleAnswer {
    std::string name;  // of the file in the bundle, without ".json"
    std::string document;
};

// Shows what the bundle has and asks before it writes it. collect is called once, after the checks.
[[nodiscard]] int WriteSupportBundle(Output& out, const BundleOptions& options,
                                     const std::function<std::vector<BundleAnswer>()>& collect);

}  // namespace zoctl
