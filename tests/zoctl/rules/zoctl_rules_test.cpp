#include <bit>

#include "folder_link.h"
#include "rules_fixture.h"

namespace {

using namespace zotest;

TEST_F(ZoctlRules, ListShowsMoreRulesThanTheFirstReplyHolds) {
    Json file = {{"version", 1}};
    for (int i = 0; i < 300; ++i)
        file["process"]["rules"].push_back({{"path", "C:\\" + std::to_string(i)}});
    const std::string last = std::string(1, static_cast<char>('A' + std::bit_width(GetLogicalDrives()) - 1)) + ":\\x";
    file["process"]["rules"].push_back({{"path", last}});
    EXPECT_TRUE(Gave(Apply(file.dump()), 0));
    const Json tables = Rules({"list", "--json"}).json["tables"];
    ASSERT_EQ(tables["process"]["rules"].size(), 301u);
    EXPECT_EQ(tables["process"]["rules"][299]["win32"], "C:\\299");
    EXPECT_EQ(tables["process"]["rules"][300]["win32"], last) << "of the last drive";
    EXPECT_EQ(tables["file"]["rules"].size(), 0u);
}

TEST_F(ZoctlRules, CheckNamesEveryMistakeAndNeedsNoDriver) {
    for (const char* verb : {"check", "diff", "apply"}) {
        const ZoctlRun run =
            Do(verb, R"({"version": 1, "process": {"rules": [{"path": "a.exe"}, {"folder": "Q:\\x"}]}, "extra": 1,
                         "registry": {"rules": [{"key": "HKCU\\A"}, {"key": "hkey_current_user\\a"}, {"key": "X"}]}})");
        EXPECT_EQ(Each(run, "mistakes", "pointer"), Json({"/extra", "/process/rules/0/path", "/process/rules/1/folder",
                                                          "/registry/rules/2/key", "/registry/rules/1"}));
        EXPECT_TRUE(Gave(run, 2, "its drive does not exist on this machine")) << verb;
        EXPECT_TRUE(Gave(run, 2, "must begin with HKLM")) << verb;
    }
    EXPECT_TRUE(Gave(Do("check", kFull), 0));
    EXPECT_TRUE(Gave(Rules({"check", Path("none.json")}), 3));
    EXPECT_EQ(Simulator().RequestCount(), 0u);
}

// The drive Q: leads to the test's folder, and HKCU\zotest_link to another key.
class ZoctlRulesAndLinks : public ZoctlRules {
  protected:
    ZoctlRulesAndLinks() {
        const std::wstring key = L"\\REGISTRY\\MACHINE\\SOFTWARE";
        const auto size = static_cast<DWORD>(key.size() * sizeof(wchar_t));
        DefineDosDeviceW(DDD_RAW_TARGET_PATH, L"Q:", (L"\\??\\" + folder_.Path().wstring()).c_str());
        RegCreateKeyExW(HKEY_CURRENT_USER, L"zotest_link", 0, nullptr, REG_OPTION_CREATE_LINK | REG_OPTION_VOLATILE,
                        KEY_ALL_ACCESS, nullptr, link_.Out(), nullptr);
        EXPECT_EQ(RegSetKeyValueW(link_.Get(), nullptr, L"SymbolicLinkValue", REG_LINK, key.c_str(), size), 0);
    }
    void TearDown() override {
        DefineDosDeviceW(DDD_REMOVE_DEFINITION, L"Q:", nullptr);
        // RegDeleteKeyW would follow the link.
        const FARPROC remove = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtDeleteKey");
        reinterpret_cast<LONG(WINAPI*)(HANDLE)>(reinterpret_cast<void*>(remove))(link_.Get());
        ZoctlRules::TearDown();
    }

    zo::OwnedRegistryKey link_;
};

TEST_F(ZoctlRulesAndLinks, CheckNotesNamesThatTheKernelNeverSees) {
    WriteFileBytes(folder_ / "longfoldername" / "a.exe", "");
    LinkFolder(folder_ / "longfoldername", folder_ / "link");
    wchar_t shortName[MAX_PATH] = {};
    ASSERT_NE(GetShortPathNameW((folder_ / "longfoldername").c_str(), shortName, MAX_PATH), 0u);
    const std::string shortFolder = std::filesystem::path(shortName).filename().string();
    const std::string full = Path("longfoldername"), drive = full.substr(0, 2);
    wchar_t volume[MAX_PATH] = {};
    ASSERT_NE(QueryDosDeviceW(zo::WideFromUtf8(drive).c_str(), volume, MAX_PATH), 0u);
    const std::string nt = zo::Utf8FromWide(volume) + full.substr(2);
    Json file = {{"version", 1}};
    for (const std::string& path : {Path("longfoldername\\a.exe"), Path("LONGFOLDERNAME"), Path("none\\a.exe"),
                                    std::string("\\\\server\\share\\a.exe"), Path("link\\a.exe"), Path("link\\none"),
                                    Path((shortFolder + "\\a.exe").c_str()), std::string("Q:\\a.exe"), full + "\\",
                                    drive + "\\", drive + "\\none\\a.exe"}) {
        file["process"]["rules"].push_back({{"path", path}});
    }
    file["file"]["rules"] = {{{"path", Path("x")}, {"scope", {{"folder", Path("link")}}}}};
    file["registry"] = {{"rules",
                         {{{"key", "HKLM\\SOFTWARE"}},
                          {{"key", "HKCU\\zotest_link\\none"}},

                          {{"key", "HKLM\\SOFTWARE\\\\none"}}}},
                        {"ignore", {{{"path", Path("link")}}}}};
    const zo::OwnedFile used(CreateFileW((folder_ / "longfoldername" / "a.exe").c_str(), GENERIC_READ, 0, nullptr,
                                         OPEN_EXISTING, 0, nullptr));  // which hides nothing from the check
    const ZoctlRun run = Do("check", file.dump());
    EXPECT_TRUE(Gave(run, 0, "Note: /process/rules/3: The driver never sees the name"));
    const std::string link = "link or mount point '" + Path("link") + "'. It sees '" + nt;
    const std::pair<const char*, std::string> ends[] = {
        {"/process/rules/3", "which begins with two backslashes and is sent to the driver unchanged."},
        {"/process/rules/4", link + "\\a.exe'."},
        {"/process/rules/5", link + "\\none'."},
        {"/process/rules/6",
         "which has the short name '" + Path(shortFolder.c_str()) + "'. It sees '" + nt + "\\a.exe'."},
        {"/process/rules/7", "which is on the substituted drive 'Q:'."},
        {"/file/rules/0/scope", link + "'."},
        {"/registry/rules/1", "\\none'."},
        {"/registry/rules/2", "'HKLM\\SOFTWARE\\\\none'. It sees '\\REGISTRY\\Machine\\Software\\none'."},
        {"/registry/ignore/0", link + "'."}};
    ASSERT_EQ(run.json["notes"].size(), std::size(ends)) << run.out;
    for (std::size_t i = 0; i < std::size(ends); ++i) {
        const Json& note = run.json["notes"][i];
        EXPECT_EQ(note["pointer"], ends[i].first);
        EXPECT_TRUE(note["message"].get<std::string>().ends_with(ends[i].second)) << note << ends[i].second;
    }
}

TEST_F(ZoctlRulesAndLinks, LintLooksAtThisMachine) {
    WriteFileBytes(folder_ / "suite" / "in" / "a.exe", "");
    LinkFolder(folder_ / "suite", folder_ / "link");
    const auto rule = [this](const char* filter, bool recursive, const std::string& above = "") {
        return Json{{"folder", above + Path("suite")}, {"filter", filter}, {"recursive", recursive}};
    };
    Json file = {{"version", 1}};
    file["file"]["rules"] = {rule("*.EXE", true), {{"folder", Path("suite\\in")}, {"filter", "*.exe"}}};
    EXPECT_TRUE(Gave(Do("check", file.dump(), {"--lint"}), 41, "covered by /file/rules/0"));
    file["file"]["rules"] = {rule("*.EXE", true),
                             rule("*.dll", true),
                             {{"path", Path("link\\in\\a.exe")}},
                             {{"path", Path("none")}},
                             {{"path", Path("suite\\in\\a.exe\\none")}},
                             {{"folder", "C:\\"}, {"filter", "*.none"}},
                             {{"folder", "Q:\\suite"}, {"filter", "*.none"}},
                             rule("*.none", false, "\\\\?\\")};
    file["registry"]["rules"] = {{{"key", "HKLM\\SOFTWARE"}}, {{"key", "HKLM\\zotest_none"}}, {{"key", "HKLM\\"}}};
    const ZoctlRun run = Do("check", file.dump(), {"--lint", "--json"});
    EXPECT_EQ(Each(run, "findings", "kind"), Json({"absent", "absent", "absent", "unseenName", "unseenName",
                                                   "unseenName", "filterMatchesNothing", "filterMatchesNothing"}))
        << run.out;
    EXPECT_EQ(Each(run, "findings", "pointer"),
              Json({"/file/rules/3", "/file/rules/4", "/registry/rules/1", "/file/rules/2", "/file/rules/6",
                    "/file/rules/7", "/file/rules/1", "/file/rules/5"}));
    file.erase("registry");
    file["file"]["rules"] = Json::array({rule("*.EXE", true)});
    EXPECT_TRUE(Gave(Do("check", file.dump(), {"--lint", "--json"}), 0, "", {{"findings", Json::array()}}));
}

TEST_F(ZoctlRules, ListShowsATableForEachKindAndNtPathsOnRequest) {
    EXPECT_TRUE(Gave(Apply(kFull), 0));
    EXPECT_EQ(Rules({"list"}).out, R"(process rules: 2
KIND    RECURSIVE  PATH
file    no         C:\s\日.exe
folder  yes        C:\s\bin
file rules: 4
KIND    RECURSIVE  PATH        FILTER  SCOPE        EXCLUSIVE
file    no         C:\s\x.ini                       no
folder  no         C:\s        *.exe                no
folder  no         C:\s        *.dll                no
folder  yes        C:\d                folder C:\s  yes
registry rules: 1
KIND  RECURSIVE  KEY
key   yes        HKLM\S
dll rules: 1
KIND    RECURSIVE  PATH
folder  yes        C:\w
)");
    EXPECT_TRUE(Gave(Rules({"list", "--nt"}), 0, "NT PATH\nfolder  yes        \\Device\\HarddiskVolume1\\w\n"));
    const Json scoped = Rules({"list", "--json"}).json["tables"]["file"]["rules"];
    EXPECT_EQ(scoped[2].value("win32Scope", "none"), "none");
    EXPECT_EQ(scoped[3].value("win32Scope", "none"), "C:\\s");
}

TEST_F(ZoctlRules, DiffShowsEachDifference) {
    EXPECT_TRUE(Gave(Apply(kAbc), 0));
    const std::string file = R"({"version": 1, "master": {"enabled": false},
        "process": {"rules": [{"folder": "C:\\a"}, {"path": "C:\\c"}, {"path": "C:\\d"}]},
        "signature": {"policy": {"mode": 3, "minLevel": 4}}})";
    const ZoctlRun run = Do("diff", file, {});
    EXPECT_EQ(run.out, R"(process: 1 in force, 1 missing, 1 extra, 1 different
  + file '\Device\HarddiskVolume1\d'  (/process/rules/2)
  - file '\Device\HarddiskVolume1\b'
  ~ folder '\Device\HarddiskVolume1\a'  (/process/rules/0)
    held: file '\Device\HarddiskVolume1\a'
file: not managed by the file
registry: not managed by the file
dll: not managed by the file
master switch: on, wanted off
signature policy: mode 0, minimum level 0; wanted 3, 4
The driver does not match the file.
)");
    EXPECT_EQ(run.err, "  Next: \"zoctl rules apply\" makes it match.\n");
    const Json facts = Do("diff", file).json;
    EXPECT_EQ(facts["master"], Json({{"held", true}, {"wanted", false}}));
    EXPECT_EQ(facts["signaturePolicy"]["wanted"], Json({{"mode", 3}, {"minLevel", 4}}));
}

TEST_F(ZoctlRules, DiffMarksARuleThatOnlyClearingRemoves) {
    // Put into the driver directly, for no drive path leads to the volume.
    ZopRuleRecord record{};
    SetField(record.path, L"\\Device\\HarddiskVolume99\\x.exe");
    ASSERT_EQ(SendControl(OpenDriver().Get(), ZOP_IOCTL_ADD_PROCESS_RULE, &record, sizeof(record)).error, 0u);
    EXPECT_TRUE(Gave(Zoctl("process add C:\\a"), 0));
    const char* const file = R"({"version": 1, "process": {"rules": [{"path": "C:\\a"}]}})";
    const ZoctlRun diff = Do("diff", file);
    EXPECT_EQ(diff.json["tables"]["process"]["surplus"][0]["onlyByClear"], true) << diff.out;
    EXPECT_FALSE(diff.json["message"].empty() || diff.json["advice"].empty());
    EXPECT_TRUE(Gave(Rules({"diff", Path("rules.json")}), 50, "only clearing"));
    EXPECT_EQ(Rules({"list", "--json"}).json["tables"]["process"]["rules"][0]["win32"], nullptr);
    EXPECT_TRUE(Gave(Rules({"export", Path("out.json")}), 1, "HarddiskVolume99\\x.exe' has no Win32 name."));
    EXPECT_TRUE(Gave(Apply(file), 0));
    EXPECT_EQ(changes_, (Codes{ZOP_IOCTL_CLEAR_PROCESS_RULES, ZOP_IOCTL_ADD_PROCESS_RULE}));
}

TEST_F(ZoctlRules, ExportNamesWhatCannotBeRead) {
    for (const auto& [code, named] : {std::pair{ZOP_IOCTL_GET_MASTER_ENABLED, "read the master switch"},
                                      {ZOP_IOCTL_GET_SIGNATURE_POLICY, "read the signature policy"},
                                      {ZOP_IOCTL_LIST_FILE_RULES, "read the file table"}}) {
        Simulator().FailNext(code, 0xC0000001);
        EXPECT_TRUE(Gave(Rules({"export", Path("out.json")}), 1, named)) << named;
    }
}

}  // namespace
