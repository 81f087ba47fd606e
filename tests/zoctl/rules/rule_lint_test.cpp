// What "rules check --lint" finds, on a machine made of two lists.

#include "rule_lint.h"

#include <gtest/gtest.h>

#include "fake_names.h"
#include "rows.h"
#include "wildcards.h"

namespace {

using namespace zoctl;

class FakePlaces : public Places {
  public:
    Place OfPath(const std::string& path, const std::string&) const override {
        return {path.find("gone") == std::string::npos ? Presence::kThere : Presence::kAbsent, {}, {}};
    }
    Place OfKey(const std::string& nt) const override { return OfPath(nt, nt); }
    Presence AnyFile(const std::string&, bool recursive, const std::string& filter) const override {
        if (filter == "*.secret") return Presence::kUnknown;
        return filter == "*.exe" || (recursive && filter == "*.dll") ? Presence::kThere : Presence::kAbsent;
    }
};

// "KIND POINTER" of each finding in these sections of a rule file.
std::string Findings(const std::string& sections) {
    std::vector<Mistake> mistakes;
    const zotest::FakeNames names;
    const RuleFile file = ReadRuleFile("{\"version\": 1, " + sections + "}", names, mistakes);
    EXPECT_TRUE(mistakes.empty()) << sections;
    std::string text;
    for (const LintFinding& finding : Lint(file, names, FakePlaces()))
        text += std::string(text.empty() ? "" : ", ") + finding.kind + " " + finding.pointer;
    return text;
}

using Cases = zotest::Rows<const char*, const char*>;

TEST(RuleLint, FindsFileRulesThatAWiderRuleCovers) {
    const Cases cases = {
        {"a file in a folder", R"({"folder": "C:\\a"}, {"path": "c:\\A\\x"})", "coveredTwice /file/rules/1"},
        {"with a backslash behind", R"({"folder": "C:\\a\\"}, {"path": "C:\\a\\x"})", "coveredTwice /file/rules/1"},
        {"a file of a folder's name", R"({"folder": "C:\\a"}, {"path": "C:\\a", "scope": {"path": "D:\\p"}})", ""},
        {"a file deeper", R"({"folder": "C:\\a"}, {"path": "C:\\a\\b\\x"})", ""},
        {"a file deeper, recursive", R"({"folder": "C:\\a", "recursive": true}, {"path": "C:\\a\\b\\x"})",
         "coveredTwice /file/rules/1"},
        {"a folder in a folder", R"({"folder": "C:\\a"}, {"folder": "C:\\a\\b"})", ""},
        {"a folder in a recursive one", R"({"folder": "C:\\a\\b"}, {"folder": "C:\\a", "recursive": true})",
         "coveredTwice /file/rules/0"},
        {"a name that begins alike", R"({"folder": "C:\\a", "recursive": true}, {"path": "C:\\ab\\x"})", ""},
        {"a filter beside none", R"({"folder": "C:\\a", "filter": "*.exe"}, {"folder": "C:\\a"})",
         "shadowed /file/rules/0"},
        {"a file beside a filter", R"({"folder": "C:\\a", "filter": "*.exe"}, {"path": "C:\\a\\x.exe"})", ""},
        {"a scope beside none", R"({"folder": "C:\\a"}, {"path": "C:\\a\\x", "scope": {"path": "D:\\p"}})",
         "shadowed /file/rules/1"},
        {"another scope",
         R"({"folder": "C:\\a", "scope": {"path": "D:\\q"}}, {"path": "C:\\a\\x", "scope": {"path": "D:\\p"}})", ""},
    };
    for (const auto& [name, rules, findings] : cases)
        EXPECT_EQ(Findings(std::string("\"file\": {\"rules\": [") + rules + "]}"), findings) << name;
}

TEST(RuleLint, FindsWhatIsUselessInTheOtherLists) {
    const Cases cases = {
        {"a subkey", R"("registry": {"rules": [{"key": "HKLM\\A", "recursive": true}, {"key": "HKLM\\A\\B"}]})",
         "coveredTwice /registry/rules/1"},
        {"a subkey of a key alone", R"("registry": {"rules": [{"key": "HKLM\\A"}, {"key": "HKLM\\A\\B"}]})", ""},
        {"an ignored program",
         R"("file": {"ignore": [{"folder": "C:\\a"}, {"path": "C:\\a\\x"}]},
            "registry": {"ignore": [{"folder": "C:\\a"}, {"path": "C:\\a\\x"}]})",
         "coveredTwice /file/ignore/1, coveredTwice /registry/ignore/1"},
        {"absent names",
         R"("process": {"rules": [{"path": "C:\\gone"}]}, "registry": {"rules": [{"key": "HKLM\\gone"}],
            "ignore": [{"path": "C:\\gone"}]}, "file": {"ignore": [{"path": "C:\\gone"}],
            "rules": [{"path": "C:\\a", "scope": {"path": "C:\\gone"}}]})",
         "absent /process/rules/0, absent /file/rules/0/scope, absent /registry/rules/0, absent /file/ignore/0, "
         "absent /registry/ignore/0"},
        {"filters",
         R"("file": {"rules": [{"folder": "C:\\a", "filter": "*.exe"}, {"folder": "C:\\b", "filter": "*.dll"},
            {"folder": "C:\\c", "filter": "*.dll", "recursive": true}, {"folder": "C:\\d", "filter": "*.secret"}]})",
         "filterMatchesNothing /file/rules/1"},
    };
    for (const auto& [name, sections, findings] : cases)
        EXPECT_EQ(Findings(sections), findings) << name;
}

TEST(RuleLint, FiltersMatchAsFileNamePatternsDo) {
    for (const auto& [pattern, name] : {std::pair{"*", ""}, {"*.EXE", "A.EXE"}, {"A?C*", "ABCD"}, {"*A*B", "XAYAB"}})
        EXPECT_TRUE(FitsPattern(pattern, name)) << pattern << " " << name;
    for (const auto& [pattern, name] :
         {std::pair{"", "A"}, {"*.EXE", "A.EXEX"}, {"A?C", "AC"}, {"*A*B", "XBA"}, {"AB*B*", "ABX"}})
        EXPECT_FALSE(FitsPattern(pattern, name)) << pattern << " " << name;
}

}  // namespace
