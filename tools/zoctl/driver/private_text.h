#pragma once

// Takes the user's name out of texts that go to others. Pure.

#include <string>
#include <vector>

#include "json_reader.h"

namespace zoctl {

struct PrivateNames {
    std::vector<std::string> profiles;  // paths of the user's profile folder, long and short
    std::vector<std::string> users;     // the account's name, and the profile folder's own
};

// Services run under accounts of the system, whose names are no secret and are words of many paths.
[[nodiscard]] bool IsSystemAccount(const std::string& user);

// Profile paths become %USERPROFILE%; after that, names that are whole words become %USERNAME%. Letter case of ASCII
// does not count.
[[nodiscard]] std::string WithoutNames(std::string text, const PrivateNames& names);
// The same for all texts of a document; the names of its members stay.
void RemoveNames(Json& document, const PrivateNames& names);

}  // namespace zoctl
