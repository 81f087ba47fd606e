#include <bit>

#include "folder_link.h"
#include "zoctl_process.h"

namespace {

using namespace zotest;

constexpr const char* kFull = R"({
    "version": 1,
    "master": {"enabled": true},
    "process": {"rules": [{"path": "C:\\s\\日.exe"}, {"folder": "C:\\s\\bin", "recursive": true}]},
    "file": {
        "enabled": true,
        "rules": [{"path": "C:\\s\\x.ini"}, {"folder": "C:\\s", "filter": "*.exe"},
                  {"folder": "C:\\s", "filter": "*.dll"},
                  {"folder": "C:\\d", "recursive": true, "scope": {"folder": "C:\\s"}, "exclusive": true}],
        "ignore": [{"path": "C:\\s\\u.exe"}]
    },
    "registry": {"rules": [{"key": "HKLM\\S", "recursive": true}], "ignore": []},
    "dll": {"folders": [{"folder": "C:\\w", "recursive": true}]},
    "signature": {"policy": {"mode": 1, "minLevel": 2}, "overrides": [7]}
})";
constexpr const char* kAbc =
    R"({"version": 1, "process": {"rules": [{"path": "C:\\a"}, {"path": "C:\\b"}, {"path": "C:\\c"}]}})";
constexpr const char* kFolderA =
    R"({"version": 1, "process": {"rules": [{"folder": "C:\\a"}, {"path": "C:\\b"}, {"path": "C:\\c"}]}})";
const Json kUnreadable = {"file.ignore", "registry.ignore", "signature.overrides", "file.enabled"};
const std::set<std::uint32_t> kReading = {ZOP_IOCTL_LIST_PROCESS_RULES,  ZOP_IOCTL_LIST_FILE_RULES,
                                          ZOP_IOCTL_LIST_REGISTRY_RULES, ZOP_IOCTL_LIST_DLL_WHITELIST,
                                          ZOP_IOCTL_GET_MASTER_ENABLED,  ZOP_IOCTL_GET_SIGNATURE_POLICY};

class ZoctlRules : public ZoctlTest {
  protected:
    std::string Path(const char* name) { return zo::Utf8FromWide((folder_ / name).wstring()); }

    // Runs "rules WORDS" and keeps the changing commands that it sent.
    ZoctlRun Rules(std::vector<std::string> words) {
        words.insert(words.begin(), "rules");
        ZoctlRun run = RunZoctl(words);
        changes_ = Sent();
        std::erase_if(changes_, [](std::uint32_t code) { return kReading.contains(code); });
        return run;
    }
    // The same with a file of this text.
    ZoctlRun Do(const char* verb, const std::string& text, std::vector<std::string> options = {"--json"}) {
        WriteFileBytes(folder_ / "rules.json", text);
        options.insert(options.begin(), {verb, Path("rules.json")});
        return Rules(options);
    }
    ZoctlRun Apply(const std::string& text) { return Do("apply", text); }

    Codes changes_;
    TempFolder folder_;
};

TEST_F(ZoctlRules, ApplyingTwiceSendsNothingTheSecondTime) {
    EXPECT_TRUE(Gave(Do("diff", kFull), 50));
    EXPECT_EQ(changes_, Codes{});
    const ZoctlRun dry = Do("apply", kFull, {"--dry-run"});
    EXPECT_TRUE(Gave(dry, 0, "15 commands would be sent."));
    EXPECT_EQ(dry.err, "");
    EXPECT_EQ(changes_, Codes{});

    const ZoctlRun first = Apply(kFull);
    EXPECT_TRUE(Gave(first, 0, "", {{"inForce", 8}, {"unreadable", "sent"}, {"notSent", Json::array()}}));
    EXPECT_EQ(first.err, "");
    // 8 rules; file ignores cleared and filled, registry ignores cleared, overrides cleared and filled, the file
    // switch; the policy. The master switch is on already.
    EXPECT_EQ(changes_.size(), 8u + 2 + 1 + 2 + 1 + 1);
    EXPECT_EQ(first.json["steps"].size(), changes_.size());
    EXPECT_EQ(TableCounts(), (Codes{2, 4, 1, 1, 1, 0, 1}));
    const ZoSimState state = Simulator().State();
    EXPECT_TRUE(state.fileProtectEnabled == 1 && state.signatureMode == 1 && state.signatureMinLevel == 2);

    EXPECT_TRUE(Gave(Apply(kFull), 0, "--resend", {{"unreadable", "held back"}, {"notSent", kUnreadable}}));
    EXPECT_EQ(changes_, Codes{});
    EXPECT_TRUE(Gave(Do("diff", kFull), 0, "cannot be read back."));
    EXPECT_TRUE(Gave(Do("apply", kFull, {"--resend"}), 0,
                     "6 commands sent. All 8 rules of the file are in force, read back from the driver."));
    EXPECT_EQ(changes_.size(), 6u);

    // What the driver has now, written as a file, is in force too. Nothing else is touched on the way.
    WriteFileBytes(folder_ / "out.json.1.new", "mine");
    EXPECT_TRUE(Gave(Rules({"export", Path("out.json")}), 0));
    EXPECT_TRUE(Gave(Rules({"export", Path("out.json")}), 6, "Give --force to replace it."));
    EXPECT_TRUE(Gave(Rules({"export", Path("none\\out.json")}), 3));
    EXPECT_TRUE(Gave(Rules({"export", Path("out.json"), "--force"}), 0));
    EXPECT_EQ(ReadFileBytes(folder_ / "out.json.1.new"), "mine");
    const std::filesystem::directory_iterator files(folder_.Path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 3);
    EXPECT_TRUE(Gave(Rules({"apply", Path("out.json")}), 0));
    EXPECT_EQ(changes_, Codes{});
    const ZoctlRun shown = Rules({"export"});
    EXPECT_TRUE(Gave(shown, 0, "The file leaves them out."));
    EXPECT_EQ(shown.out, ReadFileBytes(folder_ / "out.json"));
    EXPECT_TRUE(shown.out.starts_with("{\n    \"version\": 1,") && shown.out.find("日") != std::string::npos)
        << shown.out;
}

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

TEST_F(ZoctlRules, ApplyRefusesAMassRemovalUnlessAllowed) {
    ASSERT_EQ(Apply(kFull).exitCode, 0);
    const char* const empty = R"({"version": 1, "process": {"rules": []}, "file": {"rules": []},
                                  "registry": {"rules": []}, "dll": {}})";
    const ZoctlRun refused = Apply(empty);
    EXPECT_TRUE(Gave(refused, 1, "7 of the 7"));
    EXPECT_EQ(changes_, Codes{});
    EXPECT_EQ(Each(refused, "steps", "outcome"), Json({"not tried", "not tried", "not tried"}));
    EXPECT_EQ(Do("apply", empty, {"--dry-run", "--json"}).json["steps"], refused.json["steps"]);
    const ZoctlRun dry = Do("apply", empty, {"--dry-run"});
    EXPECT_TRUE(Gave(dry, 0, "would send clear the process table"));
    EXPECT_TRUE(Gave(dry, 0, {"--allow-mass-removal"}));
    EXPECT_TRUE(Gave(Do("apply", empty, {"--allow-mass-removal"}), 0));
    EXPECT_EQ(changes_,
              (Codes{ZOP_IOCTL_CLEAR_PROCESS_RULES, ZOP_IOCTL_CLEAR_FILE_RULES, ZOP_IOCTL_REMOVE_REGISTRY_RULE}));
    EXPECT_TRUE(Gave(Apply(R"({"version": 1, "master": {"enabled": false}})"), 1));
    EXPECT_EQ(changes_, Codes{});
}

TEST_F(ZoctlRules, ApplyStopsAtAFullTableAndCountsTheRest) {
    Simulator().SetCapacity(ZOSIM_TABLE_PROCESS, 2);
    Json file = Json::parse(kAbc);
    for (int i = 0; i < 50; ++i)
        file["process"]["rules"].push_back({{"path", "C:\\more" + std::to_string(i)}});
    file["registry"]["rules"] = {{{"key", "HKLM\\S"}}, {{"key", "HKLM\\T"}}};
    Simulator().SetCapacity(ZOSIM_TABLE_REGISTRY, 1);
    const ZoctlRun run = Apply(file.dump());
    EXPECT_TRUE(Gave(run, 8, "", {{"inForce", 3}}));
    EXPECT_EQ(run.json["fullTables"],
              Json({{{"table", "process"}, {"notAdded", 51}}, {{"table", "registry"}, {"notAdded", 1}}}));
    Simulator().SetCapacity(ZOSIM_TABLE_REGISTRY, 2);
    EXPECT_EQ(std::count(changes_.begin(), changes_.end(), ZOP_IOCTL_ADD_PROCESS_RULE), 3);
    EXPECT_EQ(run.json["steps"][2]["outcome"], "failed");
    EXPECT_EQ(run.json["steps"][2]["status"]["name"], "ZOP_E_QUOTA_EXCEEDED");
    EXPECT_EQ(run.json["steps"][3]["outcome"], "not tried");
    EXPECT_EQ(run.json["difference"]["tables"]["process"]["missing"][0]["pointer"], "/process/rules/2");
    const ZoctlRun text = Do("apply", file.dump(), {});
    EXPECT_TRUE(Gave(text, 8, "process: the driver's table is full; 51 rules were not added."));
    EXPECT_TRUE(Gave(text, 8, "/process/rules/6)\n  + 46 more\n"));
    EXPECT_EQ(text.out.find("not tried"), std::string::npos) << text.out;
    EXPECT_TRUE(Gave(Do("apply", kAbc, {}), 8, "process: the driver's table is full; 1 rule was not added."));
}

TEST_F(ZoctlRules, ApplyAfterAFailureGoesOnWhereItCanAndFinishesTheNextTime) {
    const auto fail = [](std::uint32_t code, std::uint32_t status) {
        return ZoSimFault{code, 0, 1, ZOSIM_FAULT_STATUS, status, 0, 0, 0, {}};
    };
    const std::uint32_t readFirst = 7;  // with the handshake
    const ZoSimFault gone{ZOSIM_ANY_CODE, readFirst, ZOSIM_FOR_EVER, ZOSIM_FAULT_STATUS, 0xC0000001, 0, 0, 0, {}};
    constexpr const char* kNone = R"({"version": 1, "process": {"rules": []}})";
    constexpr std::uint32_t kAdd = ZOP_IOCTL_ADD_PROCESS_RULE, kRemove = ZOP_IOCTL_REMOVE_PROCESS_RULE;
    const Rows<const char*, ZoSimFault, const char*, int, Codes, Json> rows = {
        {"an add", kNone, fail(kAdd, 0xC0000001), kAbc, 50, {kAdd, kAdd, kAdd}, {"failed", "done", "done"}},
        {"an add that does nothing", kNone, fail(kAdd, 0), kAbc, 50, {kAdd, kAdd, kAdd}, {"done", "done", "done"}},
        {"an add without a driver",
         kNone,
         fail(kAdd, 0xC0000034),
         kAbc,
         50,
         {kAdd},
         {"failed", "not tried", "not tried"}},
        {"a removal", kAbc, fail(kRemove, 0xC0000022), kFolderA, 50, {kRemove}, {"failed", "not tried"}},
        {"a removal that does nothing", kAbc, fail(kRemove, 0), kFolderA, 50, {kRemove, kAdd}, {"done", "failed"}},
        {"the driver stops answering", kNone, gone, kAbc, 1, {kAdd}, {"failed", "not tried", "not tried"}},
    };
    for (const auto& [name, held, fault, wanted, exitCode, changes, outcomes] : rows) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(Gave(Do("apply", held, {"--allow-mass-removal"}), 0));
        Simulator().AddFault(fault);
        const ZoctlRun run = Apply(wanted);
        EXPECT_TRUE(Gave(run, exitCode, "Apply the file again; then only what is missing is sent."));
        EXPECT_EQ(changes_, changes);
        EXPECT_EQ(Each(run, "steps", "outcome"), outcomes);
        Simulator().ClearFaults();
        EXPECT_TRUE(Gave(Apply(wanted), 0));
    }
}

// What cannot be read back goes first and the rest waits for it: otherwise the next application would find nothing
// wrong.
TEST_F(ZoctlRules, ApplyAfterAFailureSendsAgainWhatCannotBeReadBack) {
    Simulator().FailNext(ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS, 0xC0000044);
    EXPECT_TRUE(Gave(Apply(kFull), 8,
                     "--resend: file.ignore, registry.ignore, signature.overrides, file.enabled cannot be read back",
                     {{"notSent", kUnreadable}}));
    EXPECT_EQ(changes_, (Codes{ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES, ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS}));
    EXPECT_TRUE(Gave(Apply(kFull), 0, "", {{"notSent", Json::array()}}));
    EXPECT_EQ(Simulator().State().tableCount[ZOSIM_TABLE_FILE_IGNORE], 1u);
    Simulator().FailNext(ZOP_IOCTL_ENABLE_FILE_PROTECT, 0xC0000022);
    EXPECT_TRUE(Gave(Do("apply", R"({"version": 1, "file": {"enabled": true}})"), 50, "failed: 1, not tried: 0.",
                     {{"notSent", {"file.enabled"}}}));
}

TEST_F(ZoctlRules, ApplyShowsWhatBecameOfEachCommand) {
    const char* const text = R"({"version": 1, "process": {"rules": [{"path": "C:\\a"}]},
                                 "registry": {"rules": [{"key": "HKLM\\S"}]}, "signature": {"overrides": [7]}})";
    Simulator().FailNext(ZOP_IOCTL_ADD_REGISTRY_RULE, 0xC000000D);
    ZoctlRun run = Do("apply", text, {});
    EXPECT_TRUE(
        run.out.starts_with("done       clear the signature overrides\n"
                            "done       signature override for process 7\n"
                            "done       add process rule: file 'C:\\a'\n"
                            "FAILED     add registry rule: key 'HKLM\\S': ZOP_E_INVALID_ARG 0x80000008\n"))
        << run.out;
    EXPECT_TRUE(Gave(run, 50, "Give a key that begins with"));
    Simulator().FailNext(ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE, 0xC0000035);
    run = Do("apply", text, {"--resend"});
    EXPECT_TRUE(Gave(run, 50, "The process is exempt already."));
    EXPECT_TRUE(Gave(run, 50, "not tried  add registry rule"));
    EXPECT_TRUE(Gave(Apply(text), 0));
    EXPECT_TRUE(Gave(Apply(text), 0, "", {{"unreadable", "held back"}}));
}

TEST_F(ZoctlRules, ApplyReportsNoRuleInForceWhileItsSwitchIsOff) {
    const std::string open = R"({"version": 1, "file": {)", rules = R"("rules": [{"path": "C:\\a"}]})";
    EXPECT_TRUE(Gave(Apply(open + rules + "}"), 0, "zoctl file enable", {{"inForce", 1}}));
    EXPECT_TRUE(
        Gave(Rules({"apply", Path("rules.json")}), 0, "0 commands sent. The rule of the file is in force, read back"));
    EXPECT_TRUE(Gave(Zoctl("disable"), 0));
    EXPECT_TRUE(Gave(Apply(open + rules + "}"), 50, "held but not in force", {{"inForce", 0}}));
    EXPECT_TRUE(Gave(Apply(open + rules + R"(, "master": {"enabled": false}})"), 0, "", {{"inForce", 0}}));
    EXPECT_TRUE(Gave(Zoctl("enable"), 0));
    EXPECT_TRUE(Gave(Do("apply", open + R"("enabled": false, )" + rules + "}", {"--allow-mass-removal", "--json"}), 0,
                     "", {{"inForce", 0}, {"held", 1}}));
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
