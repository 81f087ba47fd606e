#pragma once

// What the engine prints about a dump. Pure: values in, text out. Each piece carries the output kind that a client's
// mask selects by, as the engine's callers see it.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kernel_dump.h"

namespace zoengine {

struct OutputText {
    std::uint32_t mask = 1;  // a DEBUG_OUTPUT_ bit
    std::string text;
};

// When the file is opened: its name and what kind of dump it is.
[[nodiscard]] std::vector<OutputText> OpeningText(std::string_view path, const KernelDump& dump);

// When the dump is brought to its event: system, modules and the bug check.
[[nodiscard]] std::vector<OutputText> LoadingText(const KernelDump& dump);

struct StackColumns {
    bool names = false;      // the row of headings
    bool addresses = false;  // stack pointer and return address before each call site
    bool numbers = false;    // the frame's number in front
};

[[nodiscard]] std::string StackText(const KernelDump& dump, const std::vector<Frame>& frames, StackColumns columns);

// "module+0x1234", or the bare address when no module holds it.
[[nodiscard]] std::string CallSite(const KernelDump& dump, std::uint64_t address);

}  // namespace zoengine
