#include "output.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <vector>

#include "format.h"

namespace simctl {

namespace {

std::string Words(const std::string& name) {
    std::string words;
    for (const char c : name) {
        if (std::isupper(static_cast<unsigned char>(c))) {
            words += ' ';
            words += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        } else {
            words += c;
        }
    }
    return words;
}

std::string CellOf(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    return value.dump();
}

using Row = std::vector<std::string>;

// Columns as wide as their widest cell, the last one not padded.
std::string Columns(const std::vector<Row>& rows) {
    std::vector<std::size_t> widths;
    for (const Row& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    }
    std::string text;
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i)
            text += i + 1 < row.size() ? zo::Format("{:<{}}  ", row[i], widths[i]) : row[i];
        text += '\n';
    }
    return text;
}

std::string ListText(const Json& list) {
    std::vector<Row> rows(1);
    for (const auto& [name, value] : list.front().items())
        rows.front().push_back(Words(name));
    for (const Json& object : list) {
        Row& row = rows.emplace_back();
        for (const Json& value : object)
            row.push_back(CellOf(value));
    }
    return Columns(rows);
}

bool Write(std::FILE* stream, const std::string& text) {
    return std::fwrite(text.data(), 1, text.size(), stream) == text.size() && std::fflush(stream) == 0;
}

std::string Dump(const Json& document) {
    return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string TextOf(const Json& facts) {
    std::vector<Row> rows;
    std::string lists;
    for (const auto& [name, value] : facts.items()) {
        if (!value.is_array()) {
            rows.push_back({Words(name), CellOf(value)});
        } else if (value.empty()) {
            rows.push_back({Words(name), "none"});
        } else {
            lists += ListText(value) + "\n";
        }
    }
    if (!lists.empty()) lists.pop_back();  // the blank line after the last list
    return Columns(rows) + (rows.empty() || lists.empty() ? "" : "\n") + lists;
}

int Report(const std::string& command, bool json, const Answer& answer) {
    std::string text = answer.sentence.empty() ? TextOf(answer.facts) : answer.sentence + "\n";
    if (json) {
        Json document = {{"command", command}, {"ok", true}, {"exitCode", 0}};
        document.update(answer.facts);
        text = Dump(document);
    }
    if (Write(stdout, text)) return 0;
    std::fputs("simctl: the output could not be written\n", stderr);
    return 1;
}

int ReportFailure(const std::string& command, bool json, int exitCode, const std::string& message) {
    std::fputs(zo::Format("simctl: {}\n", message).c_str(), stderr);
    if (json) {
        Json document = {{"command", command}, {"ok", false}, {"exitCode", exitCode}, {"message", message}};
        if (command.empty()) document["command"] = nullptr;
        Write(stdout, Dump(document));  // the exit code reports the failure when the reader is gone
    }
    return exitCode;
}

}  // namespace simctl
