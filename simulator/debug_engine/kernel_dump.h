#pragma once

// A 64-bit kernel dump file as far as this engine reads it: the header that every such file has, and of a small
// ("triage") dump the module list and the raw stack. Pure: bytes in, values out. The input is hostile; an offset that
// leaves the file is treated as "not held".

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kernel_dump_layout.h"

namespace zoengine {

using zo::dump::DumpKind;
using zo::dump::kHeaderSize;

struct Module {
    std::string name;  // without folder and extension; the kernel's own image is called "nt"
    std::uint64_t base = 0;
    std::uint32_t size = 0;
};

struct Frame {
    std::uint64_t childSp = 0;
    std::uint64_t returnAddress = 0;  // 0 when the stack ends here
    std::uint64_t instruction = 0;
};

struct KernelDump {
    std::uint32_t buildNumber = 0;
    std::uint32_t processors = 0;
    std::uint32_t kind = 0;  // a DumpKind, or what else the file says
    std::uint32_t bugCheckCode = 0;
    std::array<std::uint64_t, 4> bugCheckParameters{};
    std::array<std::uint8_t, 152> exceptionRecord{};  // an EXCEPTION_RECORD64
    std::uint32_t exceptionCode = 0;                  // 0: the last event was no exception
    std::uint64_t exceptionAddress = 0;
    std::uint64_t instructionPointer = 0;
    std::uint64_t stackPointer = 0;
    std::uint64_t kernelModuleList = 0;
    std::uint64_t systemTime = 0;  // 100 ns since 1601
    std::uint64_t upTime = 0;      // 100 ns
    std::vector<Module> modules;
    std::uint64_t stackBase = 0;  // address of the first byte of stack
    std::string stack;
};

// Whether the first bytes of a file are those of a 64-bit kernel dump; eight bytes suffice to say no.
[[nodiscard]] bool IsKernelDump(std::string_view fileStart) noexcept;

// Nothing when the header is cut off or is not that of a 64-bit kernel dump of an x64 machine, or when a small dump
// lacks its end mark. Modules and stack that the file does not hold stay empty.
[[nodiscard]] std::optional<KernelDump> ParseKernelDump(std::string_view file);

[[nodiscard]] const Module* FindModule(const KernelDump& dump, std::uint64_t address) noexcept;

// Without the images there is no unwind data, so every eight-byte cell of the stack that points into a module counts as
// a return address. At least the current instruction is a frame; at most `limit` are returned.
[[nodiscard]] std::vector<Frame> WalkStack(const KernelDump& dump, std::size_t limit);

}  // namespace zoengine
