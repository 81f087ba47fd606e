#pragma once

// The crash reporter as zoctl drives it: it is configured from options, its messages are collected, its documents are
// held back when nothing is to be sent, and Ctrl-C cancels it.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "dump_header.h"
#include "zocrashreport.h"

namespace zoctl {

struct CrashOptions {
    std::string server;
    std::string appName;
    std::string appVersion;
    std::uint32_t lcid = 0;
    std::string dumpFolder;
    std::string record;
    std::string journal;
    std::uint64_t maxBytes = 0;
    bool all = false;
    bool plain = false;
    bool passFailed = false;  // also dumps for which the engine seems to be at fault
    std::vector<std::string> targets;
    bool dryRun = false;
    std::string file;  // of the commands for one dump
};

// One new dump as the reporter's messages describe it.
struct CrashDumpLine {
    std::string path;
    std::vector<std::string> matched = {};
    bool selected = false;
    bool reached = true;       // false when the run ended before this dump's turn
    std::int32_t failure = 0;  // the status of an analysis that failed
    DumpHeader header = {};
    std::string signature = {};  // these three only when the query was held back
    std::string address = {};
    std::string document = {};
};

struct CrashMessage {
    std::int32_t level;
    std::string text;
};

struct CrashResult {
    std::int32_t status = 0;
    bool cancelled = false;
    ZoCrashRunStats stats{};
    std::uint32_t heldBack = 0;  // queries; the reporter counts them as failed
    std::vector<CrashDumpLine> dumps;
    std::vector<CrashMessage> messages;
};

// kSend does the real thing. kShow takes everything new whether it matches or not, kDryRun what would be sent; both
// hold every document back and work on a copy of the dedupe record.
enum class CrashMode { kSend, kShow, kDryRun };

// The progress function gets each message as it comes.
[[nodiscard]] CrashResult RunCrashReporter(const CrashOptions& options, CrashMode mode,
                                           const std::function<void(const CrashMessage&)>& progress);

// Where documents go under these options.
[[nodiscard]] std::string CrashServer(const CrashOptions& options);

}  // namespace zoctl
