#pragma once

// The shapes that most rule commands share: one export, its argument, a sentence when it worked. A family states its
// facts in a table of these.

#include <cstdint>
#include <optional>

#include "command.h"

namespace zoctl {

// An export without arguments.
void AddPlainCommand(Tool& tool, CLI::App& group, const CommandText& text, std::int32_t (*call)(), const char* what,
                     const char* done);

// An export that takes a path or key. kind is the argument's name ("path", "folder", "key"); what and done are
// continued with the quoted name: "protect" 'C:\a.exe', "Protected:" 'C:\a.exe'. subject: kKey for a key and kRule for
// a path if left out.
void AddNameCommand(Tool& tool, CLI::App& group, const CommandText& text, const char* kind,
                    std::int32_t (*call)(const wchar_t*), const char* what, const char* done,
                    std::optional<Subject> subject = std::nullopt);

// One that also says whether the rule covers what lies below.
void AddRecursiveCommand(Tool& tool, CLI::App& group, const CommandText& text, const char* kind,
                         std::int32_t (*call)(const wchar_t*, std::uint32_t), const char* what, const char* done);

// An ignore-process list: add, remove, clear.
struct IgnoreListExports {
    std::int32_t (*add)(const wchar_t*, std::int32_t, std::int32_t);
    std::int32_t (*remove)(const wchar_t*);
    std::int32_t (*clear)();
};
void AddIgnoreGroup(Tool& tool, CLI::App& group, const IgnoreListExports& exports);

// enable and disable.
void AddSwitchCommands(Tool& tool, CLI::App& group, std::int32_t (*call)(std::int32_t), const char* of);

}  // namespace zoctl
