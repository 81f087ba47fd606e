#pragma once

// Every status that the library returns, as people and scripts need it: its name, what it says, what to do next, and
// the exit code that stands for it. The same status needs different advice for different commands, hence the
// subject.

#include <cstdint>
#include <span>
#include <string>

#include "exit_codes.h"

namespace zoctl {

enum class Subject {
    kAny,
    kChannel,   // opening the driver's device
    kRule,      // a command to the driver that names a path
    kKey,       // one that names a registry key
    kExempt,    // one that names a process's path, for a list that cannot be read back
    kOverride,  // the same by process id
    kProcess,   // a question about a process
    kService,   // the driver's service
    kInstall,   // its file, when it is put into the system
    kUpgrade,   // the file that replaces it
    kCopy,      // a copy made by the driver
    kSigner,
    kCrash,
    kEngine,  // the debugger engine, loading it or analysing a dump
};

struct StatusRow {
    std::uint32_t value;
    Subject subject;
    const char* name;
    const char* meaning;
    const char* advice;
    ExitCode exitCode;
};

struct StatusText {
    std::string name;
    std::string value;  // "0x80000006"
    std::string meaning;
    std::string advice;
    ExitCode exitCode;
};

// The row of the subject if there is one, else that of the subject of which it is a kind (kRule for kKey and kExempt),
// else that of kAny. A Win32 error without a row is named by its number; the caller adds the system's words for it.
[[nodiscard]] StatusText DescribeStatus(std::int32_t status, Subject subject);
[[nodiscard]] bool HasStatusRow(std::int32_t status);
[[nodiscard]] std::span<const StatusRow> StatusTable();

}  // namespace zoctl
