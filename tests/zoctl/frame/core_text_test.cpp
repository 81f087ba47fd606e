#include <gtest/gtest.h>

#include <set>

#include "status_table.h"
#include "suggestion.h"
#include "text_table.h"

namespace {

TEST(StatusTable, NamesAStatusThatHasNoRow) {
    const auto describe = [](std::uint32_t status) {
        const auto text = zoctl::DescribeStatus(static_cast<std::int32_t>(status), zoctl::Subject::kCrash);
        return text.name + " " + text.value + " " + std::to_string(text.exitCode);
    };
    EXPECT_EQ(describe(0x80004004), "E_ABORT 0x80004004 130");
    EXPECT_EQ(describe(0x80070ABC), "HRESULT_FROM_WIN32(2748) 0x80070ABC 1");
    EXPECT_EQ(describe(0x8BADF00D), "unnamed status 0x8BADF00D 1");
    // The diagnostic log holds nothing about the signer.
    const auto advice = zoctl::DescribeStatus(static_cast<std::int32_t>(0xD0000001), zoctl::Subject::kSigner).advice;
    EXPECT_EQ(advice.find("log"), std::string::npos) << advice;
    std::set<std::pair<std::uint32_t, zoctl::Subject>> rows;
    for (const auto& row : zoctl::StatusTable())
        EXPECT_TRUE(rows.emplace(row.value, row.subject).second) << row.name << " is there twice";
}

TEST(Suggestion, IsTheNameWithTheFewestMistakes) {
    const std::vector<std::string> names = {"install", "uninstall", "start", "stop", "status", "zap"};
    const std::pair<const char*, const char*> cases[] = {
        {"instal", "install"}, {"INSTALL", "install"}, {"sotp", "stop"}, {"statsu", "status"},
        {"stat", "start"},     {"xxxx", ""},           {"s", ""},        {"ZP", "zap"},
        {"sxxp", ""},
    };
    for (const auto& [word, name] : cases)
        EXPECT_EQ(zoctl::ClosestName(word, names), name) << word;
}

TEST(Text, ShowsNoCharacterThatATerminalObeys) {
    const std::pair<const char*, const char*> cases[] = {
        {"C:\\plain \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "C:\\plain \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"a\x1B[31mb\r\n\tc\x7F", "a\\x1B[31mb\\x0D\\x0A\\x09c\\x7F"},
        {"\xC2\x9By\xE2\x80\xA8y\xE2\x80\xAEz\xE2\x81\xA6", "\\u009By\\u2028y\\u202Ez\\u2066"},
        {"cut \xE2\x82", "cut \xE2\x82"},
    };
    for (const auto& [in, out] : cases)
        EXPECT_EQ(zoctl::EscapeControls(in), out);
}

TEST(TextTable, AlignsItsColumnsByTheCellsOfATerminal) {
    zoctl::TextTable table({"NAME", "N", "LAST"});
    table.Add({"longest", "", ""});
    table.Add({"\xC3\xA9\xC3\xA9", "10", "x\ny"});           // two letters of two bytes
    table.Add({"\xE6\x97\xA5\xE6\x9C\xAC.x", "7", "last"});  // two wide characters of three bytes
    EXPECT_EQ(table.Render(),
              "NAME     N   LAST\n"
              "longest\n"
              "\xC3\xA9\xC3\xA9       10  x\\x0Ay\n"
              "\xE6\x97\xA5\xE6\x9C\xAC.x   7   last\n");
}

}  // namespace
