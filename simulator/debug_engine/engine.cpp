#include "engine.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "engine_host.h"
#include "format.h"

namespace zoengine {
namespace {

// What a dump's own structures need; a file's padding beyond it is never read.
constexpr std::uint64_t kMaxRead = 16u << 20;

constexpr HRESULT kNoSession = E_UNEXPECTED;
constexpr HRESULT kCorrupt = static_cast<HRESULT>(0x80070570u);  // ERROR_FILE_CORRUPT

HRESULT LastError() {
    return HRESULT_FROM_WIN32(GetLastError());
}

bool ReadStart(HANDLE file, std::uint64_t limit, std::string& bytes) {
    LARGE_INTEGER size{};
    const LARGE_INTEGER start{};
    if (!GetFileSizeEx(file, &size) || !SetFilePointerEx(file, start, nullptr, FILE_BEGIN)) return false;
    bytes.resize(static_cast<std::size_t>(std::min<std::uint64_t>(static_cast<std::uint64_t>(size.QuadPart), limit)));
    DWORD read = 0;
    if (!ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr)) return false;
    bytes.resize(read);
    return true;
}

void Grow(const std::string& path, std::uint64_t size) {
    const zo::OwnedFile file(CreateFileA(path.c_str(), FILE_APPEND_DATA,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                         FILE_ATTRIBUTE_NORMAL, nullptr));
    const std::string more(static_cast<std::size_t>(size), '\0');
    DWORD written = 0;
    if (!file || !WriteFile(file.Get(), more.data(), static_cast<DWORD>(more.size()), &written, nullptr))
        RecordCall("script: dump not grown", LastError());
}

void Delete(const std::string& path) {
    if (!DeleteFileA(path.c_str())) RecordCall("script: dump not deleted", LastError());
}

void Store(PULONG64 out, std::uint64_t value) {
    if (out != nullptr) *out = value;
}

void Store(PULONG out, ULONG value) {
    if (out != nullptr) *out = value;
}

// Copies what fits and tells the full size; S_FALSE when it did not fit.
HRESULT FillBuffer(const void* from, ULONG size, PVOID to, ULONG capacity, PULONG used) {
    Store(used, size);
    if (to == nullptr) return S_OK;
    std::memcpy(to, from, std::min(size, capacity));
    return capacity < size ? S_FALSE : S_OK;
}

}  // namespace

HRESULT Engine::Give(REFIID id, PVOID* object) {
    *object = nullptr;
    if (IsEqualIID(id, IID_IUnknown) || IsEqualIID(id, IID_IDebugClient)) *object = static_cast<IDebugClient*>(this);
    if (IsEqualIID(id, IID_IDebugControl)) *object = static_cast<IDebugControl*>(this);
    if (*object == nullptr) return E_NOINTERFACE;
    AddRef();
    return S_OK;
}

HRESULT Engine::QueryInterface(REFIID id, PVOID* object) {
    if (object == nullptr) return E_INVALIDARG;
    const std::vector<ScriptLine> lines = ScriptFor("QueryInterface", DumpName());
    const auto scripted = [&lines](Act act) {
        return std::ranges::any_of(lines, [act](auto& l) { return l.act == act; });
    };
    *object = scripted(Act::kFail) ? kJunkPointer : nullptr;
    const char* const name = IsEqualIID(id, IID_IDebugControl)  ? "IDebugControl"
                             : IsEqualIID(id, IID_IDebugClient) ? "IDebugClient"
                                                                : "another interface";
    return Step("QueryInterface", name, [&] { return scripted(Act::kNull) ? S_OK : Give(id, object); });
}

ULONG Engine::AddRef() {
    return ++references_;
}

ULONG Engine::Release() {
    const ULONG left = --references_;
    if (left != 0) return left;
    RecordCall("last Release", S_OK);
    delete this;
    return 0;
}

template <typename Work>
HRESULT Engine::Step(std::string_view step, std::string_view arguments, Work work) {
    const std::optional<HRESULT> scripted = Misbehave(ScriptFor(step, DumpName()));
    const HRESULT result = scripted ? *scripted : work();
    RecordCall(zo::Format("{}({})", step, arguments), result);
    return result;
}

std::optional<HRESULT> Engine::Misbehave(const std::vector<ScriptLine>& lines) {
    std::optional<HRESULT> failure;
    for (const ScriptLine& line : lines) {
        switch (line.act) {
            case Act::kFail:
                failure = static_cast<HRESULT>(line.number);
                break;
            case Act::kHang:
                Sleep(static_cast<DWORD>(line.number));
                break;
            case Act::kBabble:
                Print(DEBUG_OUTPUT_NORMAL, Babble(line.number));
                break;
            case Act::kSay:
                Print(DEBUG_OUTPUT_NORMAL, line.text);
                break;
            case Act::kDelete:
                Delete(path_);
                break;
            case Act::kGrow:
                Grow(path_, line.number);
                break;
            case Act::kNull:
                break;  // for the calls that hand out an interface, which look for it themselves
        }
    }
    return failure;
}

// Callers must not rely on line ends: text arrives in pieces of changing size.
void Engine::Print(std::uint32_t mask, std::string_view text) {
    static constexpr std::array<std::size_t, 7> kSizes{61, 7, 128, 1, 33, 509, 16};
    if (callbacks_ == nullptr || (mask & outputMask_) == 0) return;
    while (!text.empty()) {
        const std::string piece(text.substr(0, kSizes[pieces_++ % kSizes.size()]));
        text.remove_prefix(piece.size());
        callbacks_->Output(mask, piece.c_str());
    }
}

void Engine::Print(const std::vector<OutputText>& texts) {
    for (const OutputText& output : texts)
        Print(output.mask, output.text);
}

HRESULT Engine::ReplaceCallbacks(PDEBUG_OUTPUT_CALLBACKS callbacks) {
    void* held = nullptr;
    if (callbacks != nullptr) {
        if (FAILED(callbacks->QueryInterface(IID_IUnknown, &held))) return E_UNEXPECTED;
        callbacks->Release();
        // An object that claims an interface it does not have would crash the engine when that is used.
        void* foreign = nullptr;
        if (SUCCEEDED(callbacks->QueryInterface(IID_IDebugClient, &foreign))) return E_UNEXPECTED;
        // QueryInterface adds the reference that this engine holds.
        const HRESULT result = callbacks->QueryInterface(IID_IDebugOutputCallbacks, &held);
        if (FAILED(result)) return result;
        callbacks->Output(DEBUG_OUTPUT_NORMAL, nullptr);  // no text at all must do no harm
    }
    auto* const old = std::exchange(callbacks_, static_cast<PDEBUG_OUTPUT_CALLBACKS>(held));
    if (old != nullptr) old->Release();
    return S_OK;
}

std::string Engine::DumpName() const {
    return path_.substr(path_.find_last_of("\\/") + 1);
}

HRESULT Engine::Open(const char* path) {
    file_.Reset(CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file_) return LastError();
    std::string start;
    if (!ReadStart(file_.Get(), kMaxRead, start)) return LastError();
    const std::optional<KernelDump> dump = ParseKernelDump(start);
    if (!dump) return kCorrupt;
    Print(OpeningText(path, *dump));
    return S_OK;
}

HRESULT Engine::OpenDumpFile(PCSTR path) {
    if (path == nullptr) return E_INVALIDARG;
    if (file_) return kNoSession;  // one at a time
    path_ = path;
    const HRESULT result = Step("OpenDumpFile", path, [&] { return Open(path); });
    if (FAILED(result)) {
        file_.Reset();
        path_.clear();
    }
    return result;
}

HRESULT Engine::Load() {
    if (!file_) return kNoSession;
    std::string bytes;
    if (!ReadStart(file_.Get(), kMaxRead, bytes)) return LastError();
    dump_ = ParseKernelDump(bytes);
    if (!dump_) return kCorrupt;  // it was whole when it was opened
    Print(LoadingText(*dump_));
    return S_OK;
}

HRESULT Engine::WaitForEvent(ULONG flags, ULONG timeout) {
    return Step("WaitForEvent", zo::Format("{}, {:x}", flags, timeout), [&] { return Load(); });
}

HRESULT Engine::EndSession(ULONG flags) {
    return Step("EndSession", zo::Format("{}", flags), [&] {
        const bool open = static_cast<bool>(file_);
        dump_.reset();
        file_.Reset();
        path_.clear();
        return open ? S_OK : kNoSession;
    });
}

HRESULT Engine::GetOutputCallbacks(PDEBUG_OUTPUT_CALLBACKS* callbacks) {
    if (callbacks == nullptr) return E_INVALIDARG;
    *callbacks = callbacks_;
    if (callbacks_ != nullptr) callbacks_->AddRef();
    return S_OK;
}

HRESULT Engine::SetOutputCallbacks(PDEBUG_OUTPUT_CALLBACKS callbacks) {
    return Step("SetOutputCallbacks", callbacks != nullptr ? "object" : "none",
                [&] { return ReplaceCallbacks(callbacks); });
}

HRESULT Engine::GetOutputMask(PULONG mask) {
    if (mask == nullptr) return E_INVALIDARG;
    *mask = outputMask_;
    return S_OK;
}

HRESULT Engine::SetOutputMask(ULONG mask) {
    return Step("SetOutputMask", zo::Format("0x{:x}", mask), [&] {
        outputMask_ = mask;
        return S_OK;
    });
}

HRESULT Engine::FlushCallbacks() {
    return S_OK;  // nothing is held back
}

HRESULT Engine::ReadBugCheckData(PULONG code, PULONG64 arg1, PULONG64 arg2, PULONG64 arg3, PULONG64 arg4) {
    return Step("ReadBugCheckData", "", [&] {
        if (!dump_) return kNoSession;
        Store(code, dump_->bugCheckCode);
        Store(arg1, dump_->bugCheckParameters[0]);
        Store(arg2, dump_->bugCheckParameters[1]);
        Store(arg3, dump_->bugCheckParameters[2]);
        Store(arg4, dump_->bugCheckParameters[3]);
        return S_OK;
    });
}

HRESULT Engine::OutputStackTrace(ULONG outputControl, PDEBUG_STACK_FRAME frames, ULONG framesSize, ULONG flags) {
    const std::string arguments =
        zo::Format("{}, {}, {}, 0x{:x}", outputControl, frames != nullptr ? "frames" : "none", framesSize, flags);
    return Step("OutputStackTrace", arguments, [&] {
        if (!dump_) return kNoSession;
        std::vector<Frame> shown;
        if (frames == nullptr) shown = WalkStack(*dump_, framesSize);
        for (ULONG i = 0; frames != nullptr && i < framesSize; ++i)
            shown.push_back({frames[i].StackOffset, frames[i].ReturnOffset, frames[i].InstructionOffset});
        const StackColumns columns{(flags & DEBUG_STACK_COLUMN_NAMES) != 0, (flags & DEBUG_STACK_FRAME_ADDRESSES) != 0,
                                   (flags & DEBUG_STACK_FRAME_NUMBERS) != 0};
        const ULONG to = outputControl & DEBUG_OUTCTL_SEND_MASK;
        if (to == DEBUG_OUTCTL_THIS_CLIENT || to == DEBUG_OUTCTL_ALL_CLIENTS)
            Print(DEBUG_OUTPUT_NORMAL, StackText(*dump_, shown, columns));
        return S_OK;
    });
}

HRESULT Engine::GetLastEventInformation(PULONG type, PULONG processId, PULONG threadId, PVOID extra, ULONG extraSize,
                                        PULONG extraUsed, PSTR description, ULONG descriptionSize,
                                        PULONG descriptionUsed) {
    return Step("GetLastEventInformation", zo::Format("{} bytes", extraSize), [&] {
        if (!dump_) return kNoSession;
        if (description == nullptr && descriptionSize != 0) return E_INVALIDARG;
        const bool exception = dump_->exceptionCode != 0;
        Store(type, exception ? DEBUG_EVENT_EXCEPTION : DEBUG_EVENT_BREAKPOINT);
        Store(processId, 0);
        Store(threadId, 0);
        DEBUG_LAST_EVENT_INFO_EXCEPTION event{};
        static_assert(sizeof(event.ExceptionRecord) == sizeof(dump_->exceptionRecord));
        std::memcpy(&event.ExceptionRecord, dump_->exceptionRecord.data(), sizeof(event.ExceptionRecord));
        const DEBUG_LAST_EVENT_INFO_BREAKPOINT breakpoint{};
        const HRESULT result = exception ? FillBuffer(&event, sizeof(event), extra, extraSize, extraUsed)
                                         : FillBuffer(&breakpoint, sizeof(breakpoint), extra, extraSize, extraUsed);
        const std::string text =
            exception ? zo::Format("Exception {:08x}", dump_->exceptionCode) : std::string("Break instruction");
        const HRESULT described = FillBuffer(text.c_str(), static_cast<ULONG>(text.size() + 1), description,
                                             descriptionSize, descriptionUsed);
        if (description != nullptr && descriptionSize != 0) description[descriptionSize - 1] = '\0';
        return result == S_OK ? described : result;
    });
}

HRESULT Engine::IsPointer64Bit() {
    return dump_ ? S_OK : kNoSession;
}

HRESULT Engine::GetDebuggeeType(PULONG debuggeeClass, PULONG qualifier) {
    if (!dump_) return kNoSession;
    Store(debuggeeClass, DEBUG_CLASS_KERNEL);
    const bool isTriage = dump_->kind == static_cast<std::uint32_t>(DumpKind::kTriage);
    Store(qualifier, isTriage ? DEBUG_KERNEL_SMALL_DUMP : DEBUG_KERNEL_DUMP);
    return S_OK;
}

HRESULT Engine::GetExecutionStatus(PULONG status) {
    if (status == nullptr) return E_INVALIDARG;
    *status = dump_ ? DEBUG_STATUS_BREAK : DEBUG_STATUS_NO_DEBUGGEE;
    return S_OK;
}

}  // namespace zoengine
