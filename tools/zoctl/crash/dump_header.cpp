#include "dump_header.h"

#include <cstring>

#include "kernel_dump_layout.h"

namespace zoctl {

namespace {

namespace layout = zo::dump;

constexpr std::size_t kBugCheckEnd = layout::kBugCheckParameter1 + 4 * sizeof(std::uint64_t);
constexpr std::size_t kSmallDumpHead = layout::kHeaderSize + 0x10;  // as far as it is read here

template <typename T>
T Number(const std::string& head, std::size_t offset) {
    T value{};
    std::memcpy(&value, head.data() + offset, sizeof(T));
    return value;
}

// Written last, so that a dump that has its end mark is complete.
bool IsWholeSmallDump(const std::string& head, const ReadFileAt& read) {
    if (head.size() < kSmallDumpHead) return false;
    const std::uint64_t size = Number<std::uint32_t>(head, layout::kSizeOfDump);
    return read(size - 1, 1).size() == 1 &&  // a size of 0 gives an offset that no file has
           read(Number<std::uint32_t>(head, layout::kValidOffset), 4) == layout::kEndMark;
}

}  // namespace

DumpHeader ReadDumpHeader(const ReadFileAt& read) {
    const std::string head = read(0, kSmallDumpHead);
    DumpHeader header;
    if (head.size() < kBugCheckEnd || !head.starts_with(layout::kSignature)) return header;
    header.bugCheck.emplace().code = Number<std::uint32_t>(head, layout::kBugCheckCode);
    for (std::size_t i = 0; std::uint64_t& parameter : header.bugCheck->parameters)
        parameter = Number<std::uint64_t>(head, layout::kBugCheckParameter1 + 8 * i++);
    if (head.size() < layout::kHeaderSize ||
        Number<std::uint32_t>(head, layout::kMachineImageType) != layout::kMachineX64)
        return header;
    header.sound =
        Number<layout::DumpKind>(head, layout::kDumpType) != layout::DumpKind::kTriage || IsWholeSmallDump(head, read);
    return header;
}

}  // namespace zoctl
