#include <gtest/gtest.h>

#include <set>

#include "hex.h"
#include "json_reader.h"
#include "progress_text.h"
#include "status_table.h"
#include "suggestion.h"
#include "text_table.h"
#include "utf16_text.h"
#include "zip_file.h"

namespace {

TEST(StatusTable, NamesAStatusThatHasNoRow) {
    const auto describe = [](std::uint32_t status) {
        const auto text = zoctl::DescribeStatus(static_cast<std::int32_t>(status), zoctl::Subject::kCrash);
        return text.name + " " + text.value + " " + std::to_string(text.exitCode);
    };
    EXPECT_EQ(describe(0x80004004), "E_ABORT 0x80004004 130");
    EXPECT_EQ(describe(0x80070ABD), "HRESULT_FROM_WIN32(2749) 0x80070ABD 1");
    EXPECT_EQ(describe(0x8BADF00D), "unnamed status 0x8BADF00D 1");
    // The diagnostic log holds nothing about the signer.
    const auto advice = zoctl::DescribeStatus(static_cast<std::int32_t>(0xD0000001), zoctl::Subject::kSigner).advice;
    EXPECT_EQ(advice.find("log"), std::string::npos) << advice;
    std::set<std::pair<std::uint32_t, zoctl::Subject>> rows;
    for (const auto& row : zoctl::StatusTable())
        EXPECT_TRUE(rows.emplace(row.value, row.subject).second) << row.name << " is there twice";
}

TEST(Suggestion, IsTheNameWithTheFewestMistakes) {
    const std::vector<std::string> names = {
        "install", "uninstall", "start", "stop", "status", "zap", "longer than is kept in the object"};
    const std::pair<const char*, const char*> cases[] = {
        {"instal", "install"}, {"INSTALL", "install"}, {"sotp", "stop"}, {"statsu", "status"},
        {"stat", "start"},     {"xxxx", ""},           {"s", ""},        {"ZP", "zap"},
        {"sxxp", ""},          {"AP", "zap"},          {"", ""},         {"stopp", "stop"},
        {"tsop", "stop"},      {"instxl", "install"},
    };
    for (const auto& [word, name] : cases)
        EXPECT_EQ(zoctl::ClosestName(word, names), name) << word;
}

TEST(Text, ShowsNoCharacterThatATerminalObeys) {
    const std::pair<const char*, const char*> cases[] = {
        {"C:\\plain \u00E9\u0410\u20AC\U0001F600\x1B", "C:\\plain \u00E9\u0410\u20AC\U0001F600\\x1B"},
        {"a\x1B[31mb\r\n\tc\x7F", "a\\x1B[31mb\\x0D\\x0A\\x09c\\x7F"},
        {"\x1F ~\x7F\xC2\x80\xC2\x9F\xC2\xA0", "\\x1F ~\\x7F\\u0080\\u009F\xC2\xA0"},
        {"\u200D\u200E\u200F\u2010", "\u200D\\u200E\\u200F\u2010"},
        {"\u2027\u2028\u2029\u202A\u202E\u202F", "\u2027\\u2028\\u2029\\u202A\\u202E\u202F"},
        {"\u2065\u2066\u2069\u206A\u0915", "\u2065\\u2066\\u2069\u206A\u0915"},
        {"cut \xE2\x82", "cut \\xE2\\x82"},
        {"\xC3\x1B[2J\x80.\xBF\xC0\x9B\xF0\x9F\x98[", "\\xC3\\x1B[2J\\x80.\\xBF\\x1B\\xF0\\x9F\\x98["},
    };
    for (const auto& [in, out] : cases)
        EXPECT_EQ(zoctl::EscapeControls(in), out);
}

TEST(Text, IsReadInTheEncodingsOfWindows) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"\x7F\u0080\u07FF\u0800\uD7FF\uE000\uFFFD\U00010000\U0010FFFF",
         "7F008000FF070008FFD700E0FDFF00D800DCFFDBFFDF"},
        {"\uFFFDA\uFFFD\uFFFD\uFFFD\uE000", "00D8410000DCFFDFFFDB00E0"},  // surrogates without their other half
        {"A\uFFFD", "410000D8"},
    };
    for (const auto& [utf8, littleEndian] : cases) {
        std::vector<std::uint8_t> bytes;
        ASSERT_TRUE(zo::DecodeHex(littleEndian, bytes));
        std::string file(bytes.begin(), bytes.end());
        EXPECT_EQ(zoctl::Utf8OfFile("\xFF\xFE" + file), utf8) << littleEndian;
        for (std::size_t i = 0; i < file.size(); i += 2)
            std::swap(file[i], file[i + 1]);
        EXPECT_EQ(zoctl::Utf8OfFile("\xFE\xFF" + file + "\x12"), utf8) << littleEndian;
    }
    EXPECT_EQ(zoctl::Utf8OfFile("\xEF\xBB\xBFtext"), "text");
}

TEST(Json, NamesEachMistakeByItsPlace) {
    std::vector<zoctl::Mistake> mistakes;
    EXPECT_TRUE(zoctl::ParseJson(R"({"a": [1, {"~/x": 1, "~/x": 2}, [3]], "b": {"c": 1}, "a": 4})", mistakes));
    EXPECT_FALSE(zoctl::ParseJson("[1 2]", mistakes));
    std::string lines;
    for (const auto& [pointer, message] : mistakes)
        lines += pointer + ": " + message + "\n";
    EXPECT_EQ(lines,
              "/a/1/~0~1x: duplicate member\n/a: duplicate member\n"
              ": cannot be read as JSON: parse error at line 1, column 4: syntax error while parsing array - "
              "unexpected number literal; expected ']'\n");
}

TEST(ProgressText, CoversTheLineBeforeIt) {
    std::string counts = "1 file";
    zoctl::ProgressText text("signing", {[&] { return counts; }});
    EXPECT_EQ(text.Clearing(), "");
    EXPECT_EQ(text.Line(999, 0), "\rsigning: 0 s, 1 file");
    EXPECT_EQ(text.Line(12000, 1), "\rsigning: 12 s, 0.0 MB read, 1 file");
    counts = "";
    EXPECT_EQ(text.Line(13000, 0), "\rsigning: 13 s" + std::string(21, ' '));
    EXPECT_EQ(text.Clearing(), "\r" + std::string(34, ' ') + "\r");
}

TEST(ProgressText, AsksOnceHowMuchWillBeRead) {
    std::uint64_t all = 2'000'000;
    zoctl::ProgressText text("verifying", {[] { return ""; }, [&] { return all++; }});
    EXPECT_EQ(text.Line(1000, 1'500'000), "\rverifying: 1 s, 1.5 of 2.0 MB read");
    EXPECT_EQ(text.Line(2000, 3'000'000), "\rverifying: 2 s, 2.0 of 2.0 MB read");
    EXPECT_EQ(all, 2'000'001u);
}

TEST(Zip, HasTheBytesThatUnpackersRead) {
    const zoctl::ZipEntry entries[] = {{"a", "123456789"}, {"b/\u00E9", ""}};
    const std::string zip = zoctl::ZipOf(entries, {2026, 11, 24, 22, 15, 6});
    EXPECT_EQ(
        zo::ToHex({reinterpret_cast<const std::uint8_t*>(zip.data()), zip.size()}),
        // A header and a file's bytes, twice: version, names in UTF-8, stored, time, CRC-32, sizes, name's length.
        "504b0304140000080000e3b1785d2639f4cb09000000090000000100000061313233343536373839"
        "504b0304140000080000e3b1785d00000000000000000000000004000000622fc3a9"
        // The directory: the same behind the version of the maker, with the place of each header.
        "504b01021400140000080000e3b1785d2639f4cb090000000900000001000000000000000000000000000000000061"
        "504b01021400140000080000e3b1785d000000000000000000000000040000000000000000000000000028000000622fc3a9"
        // Its end: one disk, two files, the directory's size and place, no comment.
        "504b05060000000002000200610000004a0000000000");
}

TEST(TextTable, AlignsItsColumnsByTheCellsOfATerminal) {
    zoctl::TextTable table({"NAME", "N", "LAST"});
    table.Add({"longest", "", "end"});
    table.Add({"\xC3\xA9\xC3\xA9", "10", "x\ny"});           // two letters of two bytes
    table.Add({"\xE6\x97\xA5\xE6\x9C\xAC.x", "7", "last"});  // two wide characters of three bytes
    EXPECT_EQ(table.Render(),
              "NAME     N   LAST\n"
              "longest      end\n"
              "\xC3\xA9\xC3\xA9       10  x\\x0Ay\n"
              "\xE6\x97\xA5\xE6\x9C\xAC.x   7   last\n");
}

}  // namespace
