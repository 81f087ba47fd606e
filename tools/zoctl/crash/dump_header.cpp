#include "dump_header.h"

#include <cstring>

namespace zoctl {

namespace {

constexpr std::size_t kMachine = 0x30;
constexpr std::size_t kBugCheckCode = 0x38;
constexpr std::size_t kBugCheckParameters = 0x40;
constexpr std::size_t kBugCheckEnd = 0x60;
constexpr std::size_t kDumpType = 0xF98;
constexpr std::size_t kHeaderSize = 0x2000;
// A small dump's own block follows the header. Its offsets count from the start of the file.
constexpr std::size_t kSizeOfDump = kHeaderSize + 0x04;
constexpr std::size_t kEndMarkOffset = kHeaderSize + 0x08;
constexpr std::size_t kSmallDumpHead = kHeaderSize + 0x10;

constexpr std::uint32_t kMachineX64 = 0x8664;
constexpr std::uint32_t kSmallDump = 4;
constexpr char kEndMark[] = "TRGD";

template <typename T>
T Number(const std::string& head, std::size_t offset) {
    T value{};
    std::memcpy(&value, head.data() + offset, sizeof(T));
    return value;
}

// Written last, so that a dump that has its end mark is complete.
bool IsWholeSmallDump(const std::string& head, const ReadFileAt& read) {
    if (head.size() < kSmallDumpHead) return false;
    const auto size = Number<std::uint32_t>(head, kSizeOfDump);
    return size > 0 && read(size - 1u, 1).size() == 1 &&
           read(Number<std::uint32_t>(head, kEndMarkOffset), 4) == kEndMark;
}

}  // namespace

DumpHeader ReadDumpHeader(const ReadFileAt& read) {
    const std::string head = read(0, kSmallDumpHead);
    DumpHeader header;
    if (head.size() < kBugCheckEnd || !head.starts_with("PAGEDU64")) return header;
    header.bugCheck.emplace().code = Number<std::uint32_t>(head, kBugCheckCode);
    for (std::size_t i = 0; std::uint64_t& parameter : header.bugCheck->parameters)
        parameter = Number<std::uint64_t>(head, kBugCheckParameters + 8 * i++);
    if (head.size() < kHeaderSize || Number<std::uint32_t>(head, kMachine) != kMachineX64) return header;
    header.sound = Number<std::uint32_t>(head, kDumpType) != kSmallDump || IsWholeSmallDump(head, read);
    return header;
}

}  // namespace zoctl
