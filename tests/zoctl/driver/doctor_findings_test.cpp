#include "doctor_findings.h"
#include "crash_findings.h"
#include "driver_names.h"
#include "private_text.h"

#include <gtest/gtest.h>

#include <regex>

#include "rows.h"

namespace {

using zoctl::DoctorFacts;

// A line for each finding that is not good; only those have a remedy.
std::string Objections(const std::vector<zoctl::Finding>& findings) {
    std::string text;
    for (const zoctl::Finding& finding : findings) {
        const bool good = finding.severity == zoctl::Severity::kGood;
        EXPECT_EQ(finding.remedy.empty(), good) << finding.text;
        if (good) continue;
        text += (text.empty() ? "" : "\n") + std::string(SeverityName(finding.severity)) + " " + finding.subject +
                ": " + finding.text;
    }
    return text;
}

void ExpectMatch(const std::string& text, const char* pattern) {
    EXPECT_TRUE(std::regex_match(text, std::regex(pattern))) << pattern << "\n" << text;
}

DoctorFacts Healthy() {
    DoctorFacts facts;
    facts.state = 4;
    facts.startType = 2;
    facts.imagePath = "C:\\drivers\\z.sys";
    facts.fileThere = true;
    facts.fileVersion = {1, 2, 3, 4};
    facts.signature.forDrivers = true;
    facts.instanceRegistered = true;
    facts.altitude = "385100";
    facts.handshake = 0;
    facts.driverVersion = {1, 2, 3};
    facts.masterEnabled = true;
    facts.rules = {1, 0, 0, 9};
    facts.statsVersion = 3;
    return facts;
}

// zoctl_driver_test.cpp breaks a real service; these rows are what it cannot break.
TEST(Judge, FindsTheSpoiltFactAndNothingElse) {
    const std::tuple<std::uint32_t, void (*)(DoctorFacts&), const char*> rows[] = {
        {0, [](auto&) {}, ""},
        {0, [](auto& f) { f.queryStatus = INT32_MIN + 4; }, "wrong service: .*ZOP_E_ACCESS_DENIED.*"},
        {0, [](auto& f) { f.state = 3; }, "wrong service: stopping"},
        {2, [](auto& f) { f.state = 2; }, "wrong service: starting\nnote device: .*while.* starts.*"},
        {0, [](auto& f) { f.signature.trust = 0x80096010; }, "wrong driver signature: .*changed after.*"},
        {0, [](auto& f) { f.signature = {}; },
         "note driver signature: signed by an unknown .*, .*; .* is not likely .*"},
        {0, [](auto& f) { f.altitude = "high"; }, "wrong filter instance: .*not a number"},
        {2, [](auto&) {}, "wrong device: does not exist although.*"},
        {32, [](auto&) {}, "note device: .*does not identify; handshake.*"},
        {5, [](auto& f) { f.holders.assign(2, "process 7"); }, "note device: .*: process 7, process 7; handshake.*"},
        {5, [](auto& f) { f.administrator = true; }, "note device: is held by another process.*"},
        {5, [](auto&) {}, "wrong device: .*denied"},
        {0, [](auto& f) { f.rules = {0, 0, 0, 9}; }, "note rules: 0 process, 0 .* 9 DLL folders: nothing is protected"},
        {0, [](auto& f) { f.rules = {0, 1, 0, 0}; }, ""},
        {0, [](auto& f) { f.rules = {0, 0, 1, 0}; }, ""},
        {0, [](auto& f) { f.statsVersion = 2; }, "note counters: layout 2.*"},
        {0, [](auto& f) { f.bypassAttempts = 3; }, "note counters: 3 unsigned.*"},
        {0, [](auto& f) { f.logError = 32; }, "note diagnostic log: .*another process"},
        {0, [](auto& f) { f.developmentSettings = "development settings: A"; }, "note library: development.* A"},
    };
    for (const auto& [deviceError, spoil, findings] : rows) {
        DoctorFacts facts = Healthy();
        facts.deviceError = deviceError;
        spoil(facts);
        ExpectMatch(Objections(zoctl::Judge(facts)), findings);
    }
}

TEST(JudgeSignature, SaysWhetherWindowsIsLikelyToLoadTheDriver) {
    using zoctl::DriverSignature;
    const zotest::Rows<DriverSignature, const char*, const char*> rows = {
        {"by Microsoft", {0, "M", true, false}, "likely", "ok signed by M"},
        {"by the maker", {0, "A", false, false}, "unlikely", "note signed by A, not by Microsoft.*not likely.*"},
        {"in test mode", {0, "A", false, true}, "likely", "note signed by A.* in test mode and likely.*"},
        {"unsigned", {0x800B0100, "", false, true}, "unlikely", "note not signed.*"},
        {"no program", {0x800B0003, "", false, false}, "unlikely", "note not signed.*"},
        {"no chain", {0x800B010A, "A", false, false}, "unlikely", "note signed by A, with .* does not trust.*"},
        {"distrusted", {0x800B0111, "A", false, false}, "unlikely", "wrong signed by A, .*revoked"},
        {"foreign root", {0x800B0109, "A", false, false}, "unlikely", "note signed by A, with .* does not trust.*"},
        {"expired", {0x800B0101, "A", false, false}, "unlikely", "note signed by A, with .*expired.*"},
        {"revoked", {0x800B010C, "A", true, false}, "unlikely", "wrong signed by A, .*revoked"},
        {"changed", {0x80096010, "", false, true}, "unlikely", "wrong .*changed after it was signed"},
        {"not checked", {0x80070005, "", false, false}, "unknown", "note cannot be checked, error 0x80070005"},
    };
    for (const auto& [name, signature, loads, expected] : rows) {
        SCOPED_TRACE(name);
        const zoctl::Finding finding = zoctl::JudgeSignature(signature);
        ExpectMatch(std::string(SeverityName(finding.severity)) + " " + finding.text, expected);
        EXPECT_STREQ(zoctl::OutlookName(zoctl::OutlookOf(signature)), loads);
    }
}

TEST(JudgeCrashReports, FindsTheSpoiltFactAndNothingElse) {
    using zoctl::CrashFacts;
    const std::pair<void (*)(CrashFacts&), const char*> rows[] = {
        {[](auto&) {}, ""},
        {[](auto& f) { f.missingLibrary = "dbgeng.dll"; }, "note debugger engine: dbgeng.dll is neither.*"},
        {[](auto& f) { f.dumpFolderError = 3; }, ""},
        {[](auto& f) { f.dumpFolderError = 5; }, "note dump folder: D cannot be read by this user"},
        {[](auto& f) { f.dumpFolderError = 21; }, "wrong dump folder: D cannot be read, error 21"},
        {[](auto& f) { f.record.error = 5; }, "wrong crash record: R cannot be written, error 5"},
        {[](auto& f) { f.journal.error = 5; }, "wrong crash journal: J cannot be written, error 5"},
        {[](auto& f) { f.record.path.clear(); }, "wrong crash record: .*no folder.*"},
        {[](auto& f) { f.serverError = 0; }, ""},
        {[](auto& f) { f.serverError = 12002; }, "wrong crash server: S cannot be used: slow \\(error 12002\\)"},
    };
    for (const auto& [spoil, findings] : rows) {
        CrashFacts facts;
        std::tie(facts.dumpFolder, facts.record.path, facts.journal.path) = std::tuple("D", "R", "J");
        std::tie(facts.server, facts.serverErrorText) = std::tuple("S", "slow");
        spoil(facts);
        ExpectMatch(Objections(zoctl::JudgeCrashReports(facts)), findings);
    }
}

TEST(WithoutNames, ReplacesNamesThatAreWholeWordsInAnyCase) {
    const zoctl::PrivateNames names = {{"C:\\Users\\Az", ""}, {"Az", ""}};
    const auto between = [](char c, const std::string& one, const std::string& other) { return one + c + other; };
    for (const char c : std::string("azAZ09_\x80\xFF")) {
        for (const std::string& text : {between(c, "", "Az"), between(c, "Az", ""), between(c, "Az", "Az")})
            EXPECT_EQ(zoctl::WithoutNames(text, names), text);
    }
    for (const char c : std::string("`{@[/:\x7F\\ "))
        EXPECT_EQ(zoctl::WithoutNames(between(c, "aZ", "c:\\usERs\\AZ "), names),
                  between(c, "%USERNAME%", "%USERPROFILE% "));
}

TEST(IsSystemAccount, KnowsTheAccountsOfServices) {
    for (const char* user : {"SYSTEM", "LOCAL SERVICE", "NETWORK SERVICE"})
        EXPECT_TRUE(zoctl::IsSystemAccount(user)) << user;
    EXPECT_FALSE(zoctl::IsSystemAccount("system"));
}

TEST(DriverNames, CallUnlistedNumbersUnknown) {
    EXPECT_STREQ(zoctl::StartTypeName(4), "disabled");
    EXPECT_STREQ(zoctl::StartTypeName(5), "unknown");
    EXPECT_STREQ(zoctl::StateName(5), "unknown");
}

}  // namespace
