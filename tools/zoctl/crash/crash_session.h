#pragma once

// The crash reporter as zoctl drives it: settings from options, its messages heard, its documents held back when
// nothing is to be sent, Ctrl-C passed on as a cancel.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "zocrashreport.h"

namespace zoctl {

struct CrashOptions {
    std::string server;
    std::string appName;
    std::string appVersion;
    std::uint32_t lcid = 0;
    std::string dumpFolder;
    std::string record;
    std::uint64_t maxBytes = 0;
    bool all = false;
    bool plain = false;
    std::vector<std::string> targets;
    bool dryRun = false;
    std::string file;  // of the commands for one dump
};

// One new dump as the reporter's messages tell of it.
struct CrashDumpLine {
    std::string path;
    std::vector<std::string> matched = {};
    bool selected = false;
    std::string failure = {};   // the status of an analysis that failed, "0x..."
    std::string document = {};  // the query that was held back
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
