#include "rule_file.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "fake_names.h"

namespace {

using zoctl::DriverState;
using zoctl::Mistake;
using zoctl::Rule;
using zoctl::RuleFile;
using zoctl::Table;

std::vector<std::string> PointersOf(const std::vector<Mistake>& mistakes) {
    std::vector<std::string> pointers;
    for (const Mistake& mistake : mistakes)
        pointers.push_back(mistake.pointer);
    std::sort(pointers.begin(), pointers.end());
    return pointers;
}

std::string Words(const std::vector<Mistake>& mistakes) {
    std::string words;
    for (const Mistake& mistake : mistakes)
        words += mistake.pointer + ": " + mistake.message + "\n";
    return words;
}

// The same files as the schema is tried on.
TEST(RuleFileCheck, FindsEveryMistakeAndItsPlace) {
    std::ifstream file(std::string(ZO_SOURCE_DIR) + "/tests/zoctl/rule_files.json", std::ios::binary);
    const auto cases = nlohmann::json::parse(file);
    ASSERT_GT(cases.size(), 10u);
    for (const auto& one : cases) {
        std::vector<Mistake> mistakes;
        static_cast<void>(zoctl::ReadRuleFile(one["document"].dump(), FakeNames(), mistakes));
        auto expected = one["mistakes"].get<std::vector<std::string>>();
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(PointersOf(mistakes), expected) << one["name"] << "\n" << Words(mistakes);
    }
}

TEST(RuleFileCheck, TellsWhereATextIsNoJsonAndWhatStandsTwice) {
    const struct {
        const char* text;
        const char* pointer;
        const char* words;
    } cases[] = {
        {"", "", "cannot be read as JSON"},
        {"{\n  \"version\": 1,\n}", "", "line 3"},
        {"{\"version\": 1, \"comment\": \"\xFF\"}", "", "cannot be read as JSON"},
        {"{\"version\": 1} x", "", "cannot be read as JSON"},
        {"{\"version\": 1e999}", "", "'1e999'"},
        {"{\"version\": 1, \"version\": 1}", "/version", "stands twice"},
        {"{\"version\": 1, \"process\": {\"rules\": [{\"path\": \"C:\\\\a\"}, {\"path\": \"C:\\\\b\", \"path\": "
         "\"C:\\\\c\"}]}}",
         "/process/rules/1/path", "stands twice"},
        {"{\"version\": 1, \"dll\": {\"folders\": [], \"enabled\": true, \"folders\": []}}", "/dll/folders",
         "stands twice"},
    };
    for (const auto& one : cases) {
        std::vector<Mistake> mistakes;
        static_cast<void>(zoctl::ReadRuleFile(one.text, FakeNames(), mistakes));
        ASSERT_EQ(mistakes.size(), 1u) << one.text << "\n" << Words(mistakes);
        EXPECT_EQ(mistakes[0].pointer, one.pointer) << one.text;
        EXPECT_NE(mistakes[0].message.find(one.words), std::string::npos) << mistakes[0].message;
    }
}

TEST(RuleFileRead, KeepsWhatIsManagedApartFromWhatIsEmpty) {
    std::vector<Mistake> mistakes;
    const RuleFile file = zoctl::ReadRuleFile(
        "\xEF\xBB\xBF{\"version\":1,\"process\":{\"rules\":[]},\"file\":{\"rules\":[{\"folder\":\"c:\\\\A\","
        "\"recursive\":7,"
        "\"filter\":\"*.x\"}]},\"registry\":{},\"signature\":{\"overrides\":[]}}",
        FakeNames(), mistakes);
    ASSERT_TRUE(mistakes.empty()) << Words(mistakes);
    EXPECT_TRUE(file.tables[Index(Table::kProcess)]);
    EXPECT_FALSE(file.tables[Index(Table::kRegistry)]);
    EXPECT_FALSE(file.tables[Index(Table::kDll)]);
    EXPECT_TRUE(file.overrides);
    EXPECT_FALSE(file.fileIgnore);
    EXPECT_FALSE(file.masterEnabled);
    const zoctl::WantedRule& rule = file.tables[Index(Table::kFile)]->at(0);
    EXPECT_EQ(rule.given, (Rule{"c:\\A", 1, 7, "*.x", "", 0, 0, 0}));
    EXPECT_EQ(rule.nt, (Rule{"\\Device\\HarddiskVolume1\\A", 1, 7, "*.x", "", 0, 0, 0}));
    EXPECT_EQ(rule.pointer, "/file/rules/0");
}

// What export writes, check accepts, and it wants just what the driver held; the rest is named.
TEST(RuleFileWrite, ReadsBackAsWhatTheDriverHeldAndLeavesOutWhatNoFileCanAskFor) {
    const std::string volume = "\\Device\\HarddiskVolume1\\";
    const std::string scope = "\\Device\\HarddiskVolume2\\s";
    DriverState state;
    state.masterEnabled = true;
    state.policy = {3, 9};
    const std::array<std::vector<Rule>, zoctl::kTables> kept = {
        {{{volume + "a.exe"}, {volume + "f", 1, 2}},
         {{volume + "b", 1, 1, "*.\xC3\xA9"}, {"\\\\server\\s", 0, 1, "*", scope, 1, 1, 1}},
         {{"\\REGISTRY\\MACHINE\\X", 0, 200}, {"\\REGISTRY\\USER\\S-1\\Y"}, {"\\REGISTRY\\A\\Z"}},
         {{volume + "w", 1}}}};
    const std::array<std::vector<Rule>, zoctl::kTables> leftOut = {
        {{{"\\Device\\Mup\\x"}, {volume + "r", 0, 1}, {volume + "i", 2}},
         {{volume + "c", 0, 0, "", "\\Device\\HarddiskVolume9\\s"},
          {volume + "d", 0, 0, "*.x"},
          {volume + "e", 1, 0, "", "", 0, 0, 1},
          {volume + "g", 1, 0, "", "", 1, 1},
          {volume + "h", 1, 2, "", scope},
          {volume + "i", 1, 0, "a\nb"}},
         {},
         {}}};
    std::size_t missing = 0;
    for (const Table table : zoctl::kAllTables) {
        auto& rules = state.tables[Index(table)] = leftOut[Index(table)];
        missing += rules.size();
        rules.insert(rules.end(), kept[Index(table)].begin(), kept[Index(table)].end());
    }
    std::vector<std::string> sentences;
    const auto json = zoctl::WriteRuleFile(state, FakeNames(), sentences);
    EXPECT_EQ(sentences.size(), missing);
    std::vector<Mistake> mistakes;
    const RuleFile file = zoctl::ReadRuleFile(json.dump(), FakeNames(), mistakes);
    ASSERT_TRUE(mistakes.empty()) << Words(mistakes);
    for (const Table table : zoctl::kAllTables) {
        std::vector<Rule> wanted;
        for (const auto& rule : *file.tables[Index(table)])
            wanted.push_back(rule.nt);
        EXPECT_EQ(wanted, kept[Index(table)]) << zoctl::TableName(table);
    }
    EXPECT_EQ(file.masterEnabled, true);
    EXPECT_EQ(file.policy, state.policy);
    EXPECT_FALSE(file.HasUnreadable());
}

// Flags that the driver holds without their names are shown, or a difference would have two sides that look the same.
TEST(RuleFileWrite, ShowsEveryFlagThatIsHeld) {
    const Rule odd{"C:\\a", 0, 0, "", "", 1, 2, 1};
    EXPECT_EQ(zoctl::RuleJson(Table::kFile, odd).dump(),
              R"({"path":"C:\\a","scope":{"folder":"","recursive":2},"exclusive":true})");
    EXPECT_EQ(zoctl::DescribeRule(Table::kFile, odd), "file 'C:\\a', scope folder '', scope recursive (2), exclusive");
}

}  // namespace
