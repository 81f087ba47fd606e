#include "doctor_findings.h"

#include <gtest/gtest.h>

namespace {

using zoctl::DoctorFacts;
using zoctl::Finding;
using zoctl::Severity;

DoctorFacts Healthy() {
    DoctorFacts facts;
    facts.state = 4;
    facts.startType = 2;
    facts.imagePath = "C:\\drivers\\z.sys";
    facts.fileThere = true;
    facts.fileVersion = {1, 2, 3, 4};
    facts.instanceRegistered = true;
    facts.altitude = "385100";
    facts.deviceError = 0;
    facts.handshake = 0;
    facts.driverVersion = {1, 2, 3};
    facts.masterEnabled = true;
    facts.rules = {1, 0, 0, 0};
    facts.statsVersion = 3;
    facts.logFile = "log";
    return facts;
}

TEST(Doctor, FindsNothingWrongWithAHealthySetUp) {
    for (const Finding& finding : zoctl::Judge(Healthy())) {
        EXPECT_EQ(finding.severity, Severity::kGood) << finding.subject << ": " << finding.text;
        EXPECT_TRUE(finding.remedy.empty()) << finding.subject;
    }
}

// Beside the broken set-ups of a real service, which zoctl_driver_test.cpp has.
TEST(Doctor, NamesWhatIsWrongAndOnlyThat) {
    const struct {
        const char* name;
        void (*spoil)(DoctorFacts&);
        const char* subject;
        Severity severity;
        const char* words;
    } cases[] = {
        {"not to be asked", [](auto& f) { f.queryStatus = static_cast<std::int32_t>(0x80000004); }, "service",
         Severity::kWrong, "ZOP_E_ACCESS_DENIED"},
        {"pending", [](auto& f) { f.state = 3; }, "service", Severity::kWrong, "stopping"},
        {"no device", [](auto& f) { f.deviceError = 2; }, "device", Severity::kWrong, "does not exist"},
        {"device in use", [](auto& f) { f.deviceError = 32; }, "device", Severity::kNote, "does not name; handshake"},
        {"device in use by a known one",
         [](auto& f) {
             f.deviceError = 5;
             f.holders = {"process 7 (a.exe)", "process 8"};
         },
         "device", Severity::kNote, "process 7 (a.exe), process 8; handshake"},
        {"device denied to an administrator",
         [](auto& f) {
             f.deviceError = 5;
             f.administrator = true;
         },
         "device", Severity::kNote, "held by another process"},
        {"device denied", [](auto& f) { f.deviceError = 5; }, "device", Severity::kWrong, "denied"},
        {"no rules",
         [](auto& f) {
             f.rules = {0, 0, 0, 9};
         },
         "rules", Severity::kNote, "nothing is protected"},
        {"losses", [](auto& f) { f.lostRegistry = 12; }, "events", Severity::kNote, "12 of the registry ring"},
        {"old counters", [](auto& f) { f.statsVersion = 2; }, "counters", Severity::kNote, "layout 2"},
        {"bypass", [](auto& f) { f.bypassAttempts = 3; }, "counters", Severity::kNote, "3 unsigned"},
        {"log elsewhere", [](auto& f) { f.logError = 32; }, "diagnostic log", Severity::kNote, "another process"},
    };
    for (const auto& one : cases) {
        DoctorFacts facts = Healthy();
        one.spoil(facts);
        int found = 0;
        for (const Finding& finding : zoctl::Judge(facts)) {
            if (finding.severity == Severity::kGood) continue;
            ++found;
            EXPECT_STREQ(finding.subject, one.subject) << one.name;
            EXPECT_EQ(finding.severity, one.severity) << one.name;
            EXPECT_NE(finding.text.find(one.words), std::string::npos) << one.name << ": " << finding.text;
            EXPECT_FALSE(finding.remedy.empty()) << one.name;
        }
        EXPECT_EQ(found, 1) << one.name;
    }
    DoctorFacts starting = Healthy();
    starting.state = 2;
    starting.deviceError = 2;
    for (const Finding& finding : zoctl::Judge(starting)) {
        EXPECT_EQ(finding.severity == Severity::kWrong, finding.subject == std::string("service")) << finding.subject;
    }
}

}  // namespace
