#pragma once

// How a command reports. It states its facts once, as JSON; they are printed as one JSON document or as text.
//
// The document of a command that worked: {"command", "ok": true, "exitCode": 0, ...facts}; of one that failed:
// {"command", "ok": false, "exitCode", "message"}.

#include <nlohmann/json.hpp>
#include <string>

namespace simctl {

using Json = nlohmann::ordered_json;

// What a command has to say: facts, or only a sentence for people.
struct Answer {
    std::string sentence;
    Json facts = Json::object();
};

// Facts as text: a line for each value, a table for each list of objects; "processRules" reads "process rules".
[[nodiscard]] std::string TextOf(const Json& facts);

// Prints the answer; returns 0, or 1 when it could not be written.
int Report(const std::string& command, bool json, const Answer& answer);

// Prints the failure to standard error, and with json a document to standard output; returns the exit code.
int ReportFailure(const std::string& command, bool json, int exitCode, const std::string& message);

}  // namespace simctl
