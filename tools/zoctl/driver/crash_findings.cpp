#include "crash_findings.h"

#include "format.h"

namespace zoctl {

namespace {

Finding JudgeEngine(const CrashFacts& facts) {
    constexpr const char* kSubject = "debugger engine";
    if (facts.missingLibrary.empty()) return Good(kSubject, "found");
    return Note(
        kSubject, facts.missingLibrary + " is neither next to zoctl nor in the system folder",
        "Put the dbghelp.dll and dbgeng.dll of the Debugging Tools for Windows next to the program that reports "
        "crashes.");
}

Finding JudgeDumpFolder(const CrashFacts& facts) {
    constexpr const char* kSubject = "dump folder";
    switch (facts.dumpFolderError) {
        case 0:
            return Good(kSubject, facts.dumpFolder);
        case kErrorFileNotFound:
        case kErrorPathNotFound:
            return Good(kSubject, facts.dumpFolder + " does not exist; Windows creates it at the first crash");
        case kErrorAccessDenied:
            return Note(kSubject, facts.dumpFolder + " cannot be read by this user",
                        "Report crashes as an administrator, or while the driver runs, which can copy the dumps.");
        default:
            return Wrong(kSubject, zo::Format("{} cannot be read, error {}", facts.dumpFolder, facts.dumpFolderError),
                         "Check MinidumpDir in the registry's CrashControl key, and the folder.");
    }
}

Finding JudgeFile(const char* subject, const CrashFile& file) {
    if (file.path.empty()) {
        return Wrong(subject, "this user has no folder for it", "Give its path to \"zoctl crash run\".");
    }
    if (file.error == 0) return Good(subject, file.path);
    return Wrong(subject, zo::Format("{} cannot be written, error {}", file.path, file.error),
                 "Give this user write access to the file and its folder.");
}

Finding JudgeServer(const CrashFacts& facts) {
    constexpr const char* kSubject = "crash server";
    if (*facts.serverError == 0) return Good(kSubject, facts.server + " answers");
    return Wrong(
        kSubject,
        zo::Format("{} cannot be used: {} (error {})", facts.server, facts.serverErrorText, *facts.serverError),
        "Check the network, the proxy and the server's certificate.");
}

}  // namespace

std::vector<Finding> JudgeCrashReports(const CrashFacts& facts) {
    std::vector<Finding> findings = {JudgeEngine(facts), JudgeDumpFolder(facts),
                                     JudgeFile("crash record", facts.record)};
    // It is next to the record, so that it rarely adds anything to that.
    const Finding journal = JudgeFile("crash journal", facts.journal);
    if (journal.severity != Severity::kGood) findings.push_back(journal);
    if (facts.serverError) findings.push_back(JudgeServer(facts));
    return findings;
}

}  // namespace zoctl
