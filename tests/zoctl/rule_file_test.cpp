#include "rule_file.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "fake_names.h"

namespace {

using zoctl::Mistake;
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
        const char* words;
    } cases[] = {
        {"", "is not JSON"},
        {"{\n  \"version\": 1,\n}", "line 3"},
        {"{\"version\": 1, \"comment\": \"\xFF\"}", "is not JSON"},
        {"{\"version\": 1} x", "is not JSON"},
        {"{\"version\": 1, \"version\": 1}", "\"version\" stands twice"},
        {"{\"version\": 1, \"process\": {\"rules\": [], \"rules\": []}}", "\"rules\" stands twice"},
    };
    for (const auto& one : cases) {
        std::vector<Mistake> mistakes;
        static_cast<void>(zoctl::ReadRuleFile(one.text, FakeNames(), mistakes));
        ASSERT_EQ(mistakes.size(), 1u) << one.text;
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
    EXPECT_EQ(rule.given, (zoctl::Rule{"c:\\A", 1, 7, "*.x", "", 0, 0, 0}));
    EXPECT_EQ(rule.nt, (zoctl::Rule{"\\Device\\HarddiskVolume1\\A", 1, 7, "*.x", "", 0, 0, 0}));
    EXPECT_EQ(rule.pointer, "/file/rules/0");
}

// What export writes, check accepts, and it wants just what the driver held.
TEST(RuleFileWrite, ReadsBackAsWhatTheDriverHeld) {
    const std::string volume = "\\Device\\HarddiskVolume1\\";
    zoctl::DriverState state;
    state.masterEnabled = true;
    state.policy = {3, 9};
    state.tables = {{{{volume + "a.exe"}, {volume + "f", 1, 2}, {"\\Device\\Mup\\x"}},
                     {{volume + "b", 1, 1, "*.\xC3\xA9"},
                      {"\\\\server\\s", 0, 0, "", "\\Device\\HarddiskVolume2\\s", 1, 1, 1},
                      {volume + "c", 0, 0, "", "\\Device\\HarddiskVolume9\\s"}},
                     {{"\\registry\\machine\\X", 0, 200}, {"\\REGISTRY\\USER\\S-1\\Y"}, {"\\REGISTRY\\A\\Z"}},
                     {{volume + "w", 1}}}};
    std::vector<std::string> leftOut;
    const auto json = zoctl::WriteRuleFile(state, FakeNames(), leftOut);
    EXPECT_EQ(leftOut.size(), 2u);  // the volume and the device that no drive leads to
    std::vector<Mistake> mistakes;
    const RuleFile file = zoctl::ReadRuleFile(json.dump(), FakeNames(), mistakes);
    ASSERT_TRUE(mistakes.empty()) << Words(mistakes);
    state.tables[Index(Table::kProcess)].pop_back();
    state.tables[Index(Table::kFile)].pop_back();
    state.tables[Index(Table::kRegistry)][0].name = "\\REGISTRY\\MACHINE\\X";
    for (const Table table : zoctl::kAllTables) {
        std::vector<zoctl::Rule> wanted;
        for (const auto& rule : *file.tables[Index(table)])
            wanted.push_back(rule.nt);
        EXPECT_EQ(wanted, state.tables[Index(table)]) << zoctl::TableName(table);
    }
    EXPECT_EQ(file.masterEnabled, true);
    EXPECT_EQ(file.policy, state.policy);
    EXPECT_FALSE(file.HasUnreadable());
}

}  // namespace
