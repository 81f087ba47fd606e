#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

#include "event_text.h"
#include "exit_codes.h"
#include "status_table.h"
#include "text_table.h"

namespace {

// The manual page repeats the table; scripts are written by the page.
TEST(ExitCodes, AreThoseOfTheManualPage) {
    std::stringstream page;
    page << std::ifstream(std::string(ZO_SOURCE_DIR) + "/docs/zoctl.md", std::ios::binary).rdbuf();
    std::string table = "\n| code | meaning |\n|---|---|\n";
    for (const zoctl::ExitCodeRow& row : zoctl::ExitCodeTable())
        table += "| " + std::string(row.code) + " | " + row.meaning + " |\n";
    EXPECT_TRUE((page.str() + "\n").find(table + "\n") != std::string::npos) << table;
}

TEST(StatusTable, DescribesAStatusForItsSubject) {
    using zoctl::DescribeStatus;
    using zoctl::Subject;
    const auto noDriver = static_cast<std::int32_t>(0x80000002);
    EXPECT_NE(DescribeStatus(noDriver, Subject::kInstall).advice, DescribeStatus(noDriver, Subject::kService).advice);
    EXPECT_EQ(DescribeStatus(noDriver, Subject::kSigner).advice, DescribeStatus(noDriver, Subject::kAny).advice);
    EXPECT_EQ(DescribeStatus(static_cast<std::int32_t>(0x80004004), Subject::kCrash).exitCode, 130);
    EXPECT_EQ(DescribeStatus(static_cast<std::int32_t>(0x80070ABC), Subject::kAny).name, "HRESULT_FROM_WIN32(2748)");
    const auto unknown = DescribeStatus(static_cast<std::int32_t>(0x8BADF00D), Subject::kAny);
    EXPECT_EQ(unknown.name + " " + unknown.value, "unnamed status 0x8BADF00D");
    EXPECT_EQ(unknown.exitCode, 1);
    std::set<std::pair<std::uint32_t, Subject>> rows;
    for (const auto& row : zoctl::StatusTable())
        EXPECT_TRUE(rows.emplace(row.value, row.subject).second) << row.name << " stands twice";
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
    zoctl::TextTable table({"NAME", "N", "LAST"});
    table.Add({"\xC3\xA9\xC3\xA9", "10", "x\ny"});
    table.Add({"longer", "", ""});
    EXPECT_EQ(table.Render(), "NAME    N   LAST\n\xC3\xA9\xC3\xA9      10  x\\x0Ay\nlonger\n");
}

TEST(EventText, FindsTheStringsOfARecordOfUnknownLayout) {
    const std::string zeros(4, '\0');
    const struct {
        std::string head;
        std::u16string text;
        std::vector<std::string> strings;
        bool more = true;  // zeros follow
    } cases[] = {
        {std::string(3, '\0'), u"C:\\x.dll", {"C:\\x.dll"}},  // at an odd byte
        {zeros, std::u16string(u"first\0second", 12), {"first", "second"}, false},
        {zeros, u"\u0416\u0417\u0418\u0419", {"\xD0\x96\xD0\x97\xD0\x98\xD0\x99"}},
        {zeros + "\x1C\x8B\x55\xA6\x6F\x7C\xDD\x01\xF4\x03" + zeros,  // numbers that happen to be printable
         u"\\Device\\\u65E5\u672C",
         {"\\Device\\\xE6\x97\xA5\xE6\x9C\xAC"}},
        {zeros, u"abc", {}},  // too short
        {"\x01", u"", {}, false},
    };
    for (const auto& one : cases) {
        std::vector<std::uint8_t> bytes(one.head.begin(), one.head.end());
        for (const char16_t unit : one.text + std::u16string(one.more ? 2 : 0, u'\0'))
            bytes.insert(bytes.end(), {static_cast<std::uint8_t>(unit & 0xFF), static_cast<std::uint8_t>(unit >> 8)});
        EXPECT_EQ(zoctl::FindStrings(bytes), one.strings);
    }
}

}  // namespace
