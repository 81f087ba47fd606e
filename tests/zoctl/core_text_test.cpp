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
    std::ifstream page(std::string(ZO_SOURCE_DIR) + "/docs/zoctl.md", std::ios::binary);
    std::vector<std::string> documented;
    bool inTable = false;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("## Exit status", 0) == 0) inTable = true;
        if (inTable && line.rfind("| ", 0) == 0 && line.rfind("| code", 0) != 0) documented.push_back(line);
    }
    std::vector<std::string> coded;
    for (const zoctl::ExitCodeRow& row : zoctl::ExitCodeTable()) {
        coded.push_back("| " + std::string(row.code) + " | " + row.meaning + " |");
    }
    EXPECT_EQ(documented, coded);
}

TEST(StatusTable, GivesEachStatusItsNameAndExitCode) {
    using zoctl::Subject;
    const struct {
        std::uint32_t status;
        Subject subject;
        const char* name;
        int exitCode;
    } cases[] = {
        {0x80000002, Subject::kService, "ZOP_E_DRIVER_NOT_FOUND", 3},
        {0x80000002, Subject::kInstall, "ZOP_E_DRIVER_NOT_FOUND", 3},
        {0x80070715, Subject::kUpgrade, "ERROR_RESOURCE_TYPE_NOT_FOUND", 1},
        {0x80000003, Subject::kChannel, "ZOP_E_VERSION_MISMATCH", 4},
        {0x80049101, Subject::kSigner, "ZOSIG_E_THUMBPRINT_MISMATCH", 33},
        {0x80049103, Subject::kSigner, "ZOSIG_E_BAD_MANIFEST", 32},
        {0x80049104, Subject::kSigner, "ZOSIG_E_NO_KEY", 33},
        {0x80049106, Subject::kSigner, "ZOSIG_E_TAMPERED", 32},
        {0x8007041D, Subject::kService, "ERROR_SERVICE_REQUEST_TIMEOUT", 1},
        {0x80004004, Subject::kCrash, "E_ABORT", 130},
        {0x80070ABC, Subject::kAny, "HRESULT_FROM_WIN32(2748)", 1},
        {0x8BADF00D, Subject::kAny, "unnamed status", 1},
    };
    for (const auto& one : cases) {
        const auto text = zoctl::DescribeStatus(static_cast<std::int32_t>(one.status), one.subject);
        EXPECT_EQ(text.name, one.name);
        EXPECT_EQ(text.exitCode, one.exitCode) << one.name;
        EXPECT_FALSE(text.meaning.empty() || text.advice.empty()) << one.name;
    }
    std::set<std::pair<std::uint32_t, zoctl::Subject>> rows;
    for (const auto& row : zoctl::StatusTable()) {
        EXPECT_TRUE(rows.emplace(row.value, row.subject).second) << row.name << " stands twice";
        EXPECT_EQ(std::string(row.meaning).back(), '.') << row.name;
        EXPECT_EQ(std::string(row.advice).back(), '.') << row.name;
    }
}

TEST(Text, ShowsNoCharacterThatATerminalObeys) {
    const struct {
        const char* in;
        const char* out;
    } cases[] = {
        {"C:\\plain \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "C:\\plain \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"a\x1B[31mb\r\n\tc\x7F", "a\\x1B[31mb\\x0D\\x0A\\x09c\\x7F"},
        {"\xC2\x9B"
         "x\xE2\x80\xA8y\xE2\x80\xAEz\xE2\x81\xA6",
         "\\u009Bx\\u2028y\\u202Ez\\u2066"},
        {"cut \xE2\x82", "cut \xE2\x82"},
    };
    for (const auto& one : cases)
        EXPECT_EQ(zoctl::EscapeControls(one.in), one.out);
    zoctl::TextTable table({"NAME", "N", "LAST"});
    table.Add({"\xC3\xA9\xC3\xA9", "10", "x\ny"});
    table.Add({"longer", "", ""});
    EXPECT_EQ(table.Render(), "NAME    N   LAST\n\xC3\xA9\xC3\xA9      10  x\\x0Ay\nlonger\n");
}

TEST(EventText, FindsTheStringsOfARecordOfUnknownLayout) {
    const auto record = [](std::string head, std::u16string text, std::string tail) {
        std::vector<std::uint8_t> bytes(head.begin(), head.end());
        for (const char16_t unit : text) {
            bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
            bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
        }
        bytes.insert(bytes.end(), tail.begin(), tail.end());
        return bytes;
    };
    using Strings = std::vector<std::string>;
    const std::string zeros(4, '\0');
    const struct {
        const char* name;
        std::vector<std::uint8_t> bytes;
        Strings strings;
    } cases[] = {
        {"at an even byte", record("\x01\x02\x03\x04" + zeros, u"\\Device\\a.exe", zeros), {"\\Device\\a.exe"}},
        {"at an odd byte", record(std::string(3, '\0'), u"C:\\x.dll", zeros), {"C:\\x.dll"}},
        {"two of them, the second up to the record's end",
         record(zeros, std::u16string(u"first\0second", 12), ""),
         {"first", "second"}},
        {"beyond Latin", record(zeros, u"\u0416\u0417\u0418\u0419", zeros), {"\xD0\x96\xD0\x97\xD0\x98\xD0\x99"}},
        {"numbers that happen to be printable, before a name",
         record(zeros + "\x1C\x8B\x55\xA6\x6F\x7C\xDD\x01\xF4\x03" + zeros, u"\\Device\\\u65E5\u672C", zeros),
         {"\\Device\\\xE6\x97\xA5\xE6\x9C\xAC"}},
        {"too short", record(zeros, u"abc", zeros), {}},
        {"none", record("\x01", u"", zeros), {}},
        {"empty", {}, {}},
    };
    for (const auto& one : cases)
        EXPECT_EQ(zoctl::FindStrings(one.bytes), one.strings) << one.name;
}

}  // namespace
