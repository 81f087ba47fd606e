#pragma once

// Where the fields of a 64-bit kernel dump file are: of the header that every such file has, and of the block of a
// small ("triage") dump behind it. Offsets count from the start of the file; names are those of the platform's
// debugging headers. The library leaves dumps to the debugger engine; this is for programs that read dumps themselves.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zo::dump {

enum class DumpKind : std::uint32_t { kFull = 1, kKernel = 2, kTriage = 4, kBitmapFull = 5, kBitmapKernel = 6 };

inline constexpr std::string_view kSignature = "PAGEDU64";
inline constexpr std::size_t kMachineImageType = 0x030;
inline constexpr std::size_t kBugCheckCode = 0x038;
inline constexpr std::size_t kBugCheckParameter1 = 0x040;  // the first of four
inline constexpr std::size_t kDumpType = 0xF98;
inline constexpr std::size_t kHeaderSize = 0x2000;

inline constexpr std::size_t kSizeOfDump = kHeaderSize + 0x04;
inline constexpr std::size_t kValidOffset = kHeaderSize + 0x08;  // of the end mark, which is written last

inline constexpr std::uint32_t kMachineX64 = 0x8664;
inline constexpr std::string_view kEndMark = "TRGD";

}  // namespace zo::dump
