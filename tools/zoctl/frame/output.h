#pragma once

// How a command reports. It states its facts once, as JSON, and what people read beside them; this class decides which
// of the two reaches the reader. With --json standard output carries one JSON document and nothing else; with --jsonl
// one object a line. Hints and failures always go to standard error as sentences too.
//
// The document of a command that worked: {"command", "ok": true, "exitCode": 0, ...facts}; of one that failed:
// {"command", "ok": false, "exitCode", "status": {"name", "value"}, "message", "advice", ...facts}. "command" is null
// when the command line did not get as far as naming one.

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "exit_codes.h"
#include "status_table.h"
#include "text_table.h"

namespace zoctl {

using Json = nlohmann::ordered_json;

// What a step of a command returns when it can end the command early: the exit code once that was reported, or nothing
// when the command goes on.
using Ended = std::optional<int>;

enum class OutputMode { kText, kJson, kJsonLines };

class Output {
  public:
    Output(std::string command, OutputMode mode) : command_(std::move(command)), mode_(mode) {}

    // Writes into the text instead, and no hints: for a command that is run by another one.
    Output(std::string command, OutputMode mode, std::string& text)
        : command_(std::move(command)), mode_(mode), captured_(&text) {}

    [[nodiscard]] bool Machine() const { return mode_ != OutputMode::kText; }
    [[nodiscard]] bool Lines() const { return mode_ == OutputMode::kJsonLines; }
    [[nodiscard]] const std::string& Command() const { return command_; }
    void SetMode(OutputMode mode) { mode_ = mode; }
    // From now on Ctrl-C leaves a document behind even where it ends the process at once.
    void PrepareForCtrlC() const;

    // For people only; control characters are the caller's (Quote, TextTable) to make safe.
    void Text(std::string_view text);
    void Table(const TextTable& table);
    // Standard error, in every mode.
    void Hint(std::string_view sentence);
    // One object of a stream.
    void Line(const Json& object);

    // The end of a command; each returns the exit code. Only the first call of a command writes a document.
    int Done(std::string_view sentence, const Json& facts = Json::object());
    // It ran, and what it found is not good: the document says ok false, with the code and no status. advice is left
    // out where the findings themselves say what to do.
    int Found(int exitCode, std::string_view sentence, const Json& facts = Json::object(),
              std::string_view advice = {});
    // what: the attempt, as in "protect 'C:\a.exe'".
    int Fail(std::int32_t status, Subject subject, std::string_view what, const Json& facts = Json::object());
    // Done or Fail, by the status.
    int Report(std::int32_t status, Subject subject, std::string_view what, std::string_view done,
               const Json& facts = Json::object());
    // A failure that has no status of the library.
    int Refuse(int exitCode, std::string_view message, std::string_view advice, const Json& facts = Json::object());

    // For a command that is made of others: its document gets what this makes of the facts of the part that ends it.
    using Reshape = std::function<Json(const Json& facts, int exitCode)>;
    void ReshapeFacts(Reshape reshape) { reshape_ = std::move(reshape); }

    // The end of a stream that is no document.
    int End(int exitCode);

    // Whether everything could be written so far; a stream whose reader is gone may stop.
    [[nodiscard]] bool Writable() const { return writable_; }
    // Writes to standard output as it is, in every mode.
    void Put(std::string_view text);

  private:
    int Finish(int exitCode, Json document, const Json& facts);
    [[nodiscard]] std::string Name() const;
    [[nodiscard]] std::string DocumentText(const Json& document) const;
    bool WriteOut(std::string_view text, bool isDocument);

    std::string command_;
    OutputMode mode_;
    std::string* captured_ = nullptr;
    bool writable_ = true;
    Reshape reshape_;
};

// What the command does; returns the exit code, which the calls above give.
using Action = std::function<int(Output&)>;

// Objects that a command finds one after the other: with --jsonl each is written at once, otherwise the document gets
// them as a list.
class Records {
  public:
    Records(Output& out, const char* member) : out_(out), member_(member) {}

    void Add(Json object);
    // Puts the list into the facts, unless it was streamed.
    void PutInto(Json& facts) const;

  private:
    Output& out_;
    const char* member_;
    Json list_ = Json::array();
};

// 'name', safe to show.
[[nodiscard]] std::string Quote(std::string_view name);
// null for an empty text.
[[nodiscard]] Json TextOrNull(const std::string& text);
// {"name": ..., "value": ...}
[[nodiscard]] Json StatusJson(std::int32_t status, Subject subject = Subject::kAny);
// What the status means, the system's own words for a Win32 error without a row included.
[[nodiscard]] StatusText FullStatusText(std::int32_t status, Subject subject);

}  // namespace zoctl
