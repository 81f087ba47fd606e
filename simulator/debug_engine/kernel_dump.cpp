#include "kernel_dump.h"

#include <algorithm>
#include <cstring>

namespace zoengine {
namespace {

constexpr std::size_t kMaxModules = 4096;   // real systems load some hundreds
constexpr std::size_t kMaxStack = 0x40000;  // a kernel stack, with room for nested ones

// Offsets that only an engine needs: of the dump header,
namespace header {
using namespace zo::dump;
constexpr std::size_t kMinorVersion = 0x00C;  // of a free build this is the build number
constexpr std::size_t kPsLoadedModuleList = 0x020;
constexpr std::size_t kNumberProcessors = 0x034;
constexpr std::size_t kContextRecord = 0x348;
constexpr std::size_t kException = 0xF00;
constexpr std::size_t kSystemTime = 0xFA8;
constexpr std::size_t kSystemUpTime = 0x1030;
}  // namespace header

// of a small dump's block,
namespace triage {
using namespace zo::dump;
constexpr std::size_t kContextOffset = kHeaderSize + 0x0C;
constexpr std::size_t kCallStackOffset = kHeaderSize + 0x28;
constexpr std::size_t kSizeOfCallStack = kHeaderSize + 0x2C;
constexpr std::size_t kDriverListOffset = kHeaderSize + 0x30;
constexpr std::size_t kDriverCount = kHeaderSize + 0x34;
constexpr std::size_t kTopOfStack = kHeaderSize + 0x48;
}  // namespace triage

// and of one entry of the driver list: where the name stands, then the loader's own record of the image.
namespace driver {
constexpr std::size_t kNameOffset = 0x00;
constexpr std::size_t kBase = 0x38;
constexpr std::size_t kSizeOfImage = 0x48;
constexpr std::size_t kEntrySize = 0x90;
}  // namespace driver

constexpr std::size_t kContextRsp = 0x98;
constexpr std::size_t kContextRip = 0xF8;

class Bytes {
  public:
    explicit Bytes(std::string_view file) : file_(file) {}

    [[nodiscard]] std::string_view Range(std::uint64_t offset, std::uint64_t size) const {
        if (offset > file_.size() || size > file_.size() - offset) return {};
        return file_.substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(size));
    }

    // 0 outside the file.
    template <typename T>
    [[nodiscard]] T Read(std::uint64_t offset) const {
        T value{};
        const std::string_view range = Range(offset, sizeof(T));
        if (!range.empty()) std::memcpy(&value, range.data(), sizeof(T));
        return value;
    }

  private:
    std::string_view file_;
};

// Names in dumps are UTF-16; what is not printable ASCII becomes "?", so that output stays one line a frame.
std::string ReadName(const Bytes& bytes, std::uint64_t offset) {
    std::string name;
    const std::uint32_t length = std::min<std::uint32_t>(bytes.Read<std::uint32_t>(offset), 260);
    for (std::uint32_t i = 0; i < length; ++i) {
        const auto unit = bytes.Read<std::uint16_t>(offset + 4 + 2ull * i);
        if (unit == 0) break;
        name += unit > 0x20 && unit < 0x7F ? static_cast<char>(unit) : '?';
    }
    return name;
}

std::string ModuleName(std::string file) {
    if (const std::size_t slash = file.find_last_of("\\/"); slash != std::string::npos) file.erase(0, slash + 1);
    if (const std::size_t dot = file.rfind('.'); dot != std::string::npos && dot != 0) file.erase(dot);
    std::string lower = file;
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return lower == "ntoskrnl" || lower == "ntkrnlmp" ? "nt" : file;
}

void ReadModules(const Bytes& bytes, KernelDump& dump) {
    const std::uint64_t list = bytes.Read<std::uint32_t>(triage::kDriverListOffset);
    const std::size_t count = std::min<std::size_t>(bytes.Read<std::uint32_t>(triage::kDriverCount), kMaxModules);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t entry = list + i * driver::kEntrySize;
        if (bytes.Range(entry, driver::kEntrySize).empty()) break;
        Module module;
        module.base = bytes.Read<std::uint64_t>(entry + driver::kBase);
        module.size = bytes.Read<std::uint32_t>(entry + driver::kSizeOfImage);
        module.name = ModuleName(ReadName(bytes, bytes.Read<std::uint32_t>(entry + driver::kNameOffset)));
        if (module.base != 0 && module.size != 0 && !module.name.empty()) dump.modules.push_back(std::move(module));
    }
}

void ReadTriage(const Bytes& bytes, KernelDump& dump) {
    ReadModules(bytes, dump);
    const std::uint64_t offset = bytes.Read<std::uint32_t>(triage::kCallStackOffset);
    const std::uint64_t size = std::min<std::uint64_t>(bytes.Read<std::uint32_t>(triage::kSizeOfCallStack), kMaxStack);
    dump.stack = bytes.Range(offset, size);
    dump.stackBase = bytes.Read<std::uint64_t>(triage::kTopOfStack);
}

}  // namespace

bool IsKernelDump(std::string_view fileStart) noexcept {
    return fileStart.starts_with(header::kSignature);
}

std::optional<KernelDump> ParseKernelDump(std::string_view file) {
    const Bytes bytes(file);
    if (!IsKernelDump(file) || file.size() < kHeaderSize) return std::nullopt;
    if (bytes.Read<std::uint32_t>(header::kMachineImageType) != header::kMachineX64) return std::nullopt;

    KernelDump dump;
    dump.buildNumber = bytes.Read<std::uint32_t>(header::kMinorVersion);
    dump.processors = bytes.Read<std::uint32_t>(header::kNumberProcessors);
    dump.kernelModuleList = bytes.Read<std::uint64_t>(header::kPsLoadedModuleList);
    dump.kind = bytes.Read<std::uint32_t>(header::kDumpType);
    dump.bugCheckCode = bytes.Read<std::uint32_t>(header::kBugCheckCode);
    for (std::size_t i = 0; i < dump.bugCheckParameters.size(); ++i)
        dump.bugCheckParameters[i] = bytes.Read<std::uint64_t>(header::kBugCheckParameter1 + 8 * i);
    std::memcpy(dump.exceptionRecord.data(), file.data() + header::kException, dump.exceptionRecord.size());
    dump.exceptionCode = bytes.Read<std::uint32_t>(header::kException);
    dump.exceptionAddress = bytes.Read<std::uint64_t>(header::kException + 0x10);
    dump.systemTime = bytes.Read<std::uint64_t>(header::kSystemTime);
    dump.upTime = bytes.Read<std::uint64_t>(header::kSystemUpTime);

    std::uint64_t context = header::kContextRecord;
    if (dump.kind == static_cast<std::uint32_t>(DumpKind::kTriage)) {
        const auto end = bytes.Read<std::uint32_t>(triage::kValidOffset);
        if (bytes.Range(end, triage::kEndMark.size()) != triage::kEndMark) return std::nullopt;
        if (const auto offset = bytes.Read<std::uint32_t>(triage::kContextOffset); offset != 0) context = offset;
        ReadTriage(bytes, dump);
    }
    dump.stackPointer = bytes.Read<std::uint64_t>(context + kContextRsp);
    dump.instructionPointer = bytes.Read<std::uint64_t>(context + kContextRip);
    return dump;
}

const Module* FindModule(const KernelDump& dump, std::uint64_t address) noexcept {
    for (const Module& module : dump.modules)
        if (address >= module.base && address - module.base < module.size) return &module;
    return nullptr;
}

std::vector<Frame> WalkStack(const KernelDump& dump, std::size_t limit) {
    std::vector<Frame> frames;
    if (limit == 0) return frames;
    frames.push_back({dump.stackPointer, 0, dump.instructionPointer});
    // The stack pointer may stand above the first byte held, but not outside of the stack.
    const std::uint64_t skipped = dump.stackPointer - dump.stackBase;
    if (skipped >= dump.stack.size()) return frames;
    for (std::uint64_t at = (skipped + 7) & ~std::uint64_t{7}; at + 8 <= dump.stack.size(); at += 8) {
        std::uint64_t cell = 0;
        std::memcpy(&cell, dump.stack.data() + at, sizeof(cell));
        if (FindModule(dump, cell) == nullptr) continue;
        frames.back().returnAddress = cell;
        if (frames.size() == limit) break;
        frames.push_back({dump.stackBase + at + 8, 0, cell});
    }
    return frames;
}

}  // namespace zoengine
