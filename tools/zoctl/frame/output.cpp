#include "output.h"

#include "console.h"
#include "error_text.h"
#include "format.h"

namespace zoctl {

namespace {

// Names come from outside and may hold what UTF-8 cannot say; a document is written all the same.
std::string Dump(const Json& json, int indent) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

std::string Quote(std::string_view name) {
    return "'" + EscapeControls(name) + "'";
}

StatusText FullStatusText(std::int32_t status, Subject subject) {
    StatusText text = DescribeStatus(status, subject);
    const std::uint32_t bits = zo::Bits(status);
    if (!HasStatusRow(status) && (bits & 0xFFFF0000u) == 0x80070000u) text.meaning = zo::ErrorText(bits & 0xFFFFu);
    return text;
}

Json TextOrNull(const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

Json StatusJson(std::int32_t status, Subject subject) {
    const StatusText text = DescribeStatus(status, subject);
    return {{"name", text.name}, {"value", text.value}};
}

bool Output::WriteOut(std::string_view text, bool isDocument) {
    if (!captured_) return isDocument ? WriteOnlyDocument(text) : Write(Stream::kOut, text);
    captured_->append(text);
    return true;
}

void Output::Put(std::string_view text) {
    if (!WriteOut(text, mode_ == OutputMode::kJson)) writable_ = false;
}

void Output::Text(std::string_view text) {
    if (!Machine()) Put(text);
}

void Output::Table(const TextTable& table) {
    Text(table.Render());
}

void Output::Hint(std::string_view sentence) {
    if (captured_) return;
    // Standard error is the last place to report to; when it is gone there is none.
    static_cast<void>(Write(Stream::kError, zo::Format("{}\n", sentence)));
}

void Output::Line(const Json& object) {
    Put(Dump(object, -1) + "\n");
}

std::string Output::DocumentText(const Json& document) const {
    return Dump(document, Lines() ? -1 : 2) + "\n";
}

int Output::Finish(int exitCode, Json document, const Json& facts) {
    const Json members = reshape_ ? reshape_(facts, exitCode) : facts;
    if (Machine()) {
        document.update(members);
        if (command_.empty()) document["command"] = nullptr;
        if (!WriteOut(DocumentText(document), true)) writable_ = false;
    }
    return End(exitCode);
}

std::string Output::Name() const {
    return command_.empty() ? "zoctl" : "zoctl " + command_;
}

void Output::PrepareForCtrlC() const {
    if (!Machine()) return;
    const Json document = {{"command", command_},
                           {"ok", false},
                           {"exitCode", static_cast<int>(kExitCancelled)},
                           {"message", "Cancelled half-way."},
                           {"advice", "Run it again."}};
    SetLastWords(DocumentText(document));
}

int Output::End(int exitCode) {
    if (captured_) return exitCode;
    SetLastWords({});
    if (writable_) return exitCode;
    Hint("zoctl: the output could not be written.");
    return exitCode == kExitDone ? static_cast<int>(kExitFailed) : exitCode;
}

int Output::Done(std::string_view sentence, const Json& facts) {
    if (!sentence.empty()) Text(zo::Format("{}\n", sentence));
    return Finish(kExitDone, {{"command", command_}, {"ok", true}, {"exitCode", 0}}, facts);
}

int Output::Found(int exitCode, std::string_view sentence, const Json& facts, std::string_view advice) {
    const bool good = exitCode == kExitDone;
    if (!sentence.empty()) Text(zo::Format("{}\n", sentence));
    Json document = {{"command", command_}, {"ok", good}, {"exitCode", exitCode}};
    if (!good && !sentence.empty()) document["message"] = std::string(sentence);
    if (!good && !advice.empty()) {
        Hint(zo::Format("  Next: {}", advice));
        document["advice"] = std::string(advice);
    }
    return Finish(exitCode, std::move(document), facts);
}

int Output::Fail(std::int32_t status, Subject subject, std::string_view what, const Json& facts) {
    const StatusText text = FullStatusText(status, subject);
    const std::string message = zo::Format("Could not {}: {}", what, text.meaning);
    Hint(zo::Format("{}: {} [{} {}]\n  Next: {}", Name(), message, text.name, text.value, text.advice));
    return Finish(text.exitCode,
                  {{"command", command_},
                   {"ok", false},
                   {"exitCode", static_cast<int>(text.exitCode)},
                   {"status", {{"name", text.name}, {"value", text.value}}},
                   {"message", message},
                   {"advice", text.advice}},
                  facts);
}

int Output::Report(std::int32_t status, Subject subject, std::string_view what, std::string_view done,
                   const Json& facts) {
    return status < 0 ? Fail(status, subject, what, facts) : Done(done, facts);
}

int Output::Refuse(int exitCode, std::string_view message, std::string_view advice, const Json& facts) {
    Hint(zo::Format("{}: {}\n  Next: {}", Name(), message, advice));
    return Finish(exitCode,
                  {{"command", command_},
                   {"ok", false},
                   {"exitCode", exitCode},
                   {"message", std::string(message)},
                   {"advice", std::string(advice)}},
                  facts);
}

void Records::Add(Json object) {
    if (out_.Lines()) {
        out_.Line(object);
    } else if (out_.Machine()) {
        list_.push_back(std::move(object));
    }
}

void Records::PutInto(Json& facts) const {
    if (!out_.Lines()) facts[member_] = list_;
}

}  // namespace zoctl
