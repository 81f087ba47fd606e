#include "console.h"

#include <shellapi.h>

#include <mutex>

#include "exit_codes.h"
#include "locks.h"
#include "text.h"

namespace zoctl {

namespace {

// The handler runs on a thread of its own, so what it reaches is guarded.
struct CtrlC {
    zo::CriticalSection lock;
    HANDLE event = nullptr;                 // the living Cancellation's
    std::function<void()>* hook = nullptr;  // likewise
    bool pressed = false;
    zo::CriticalSection writing;  // of standard output, and the text below
    std::string lastWords;
};

CtrlC& State() {
    static CtrlC state;
    return state;
}

HANDLE HandleOf(Stream stream) {
    return GetStdHandle(stream == Stream::kOut ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

bool IsConsole(HANDLE handle) {
    DWORD mode = 0;
    return GetConsoleMode(handle, &mode) != FALSE;
}

// Long text goes in pieces, for a console takes about 32,000 units at once.
bool WriteToConsole(HANDLE console, std::wstring_view wide) {
    while (!wide.empty()) {
        DWORD written = 0;
        const auto piece = static_cast<DWORD>(std::min<std::size_t>(wide.size(), 8192));
        if (!WriteConsoleW(console, wide.data(), piece, &written, nullptr) || written == 0) return false;
        wide.remove_prefix(written);
    }
    return true;
}

bool WriteTo(HANDLE handle, std::string_view utf8) {
    if (IsConsole(handle)) return WriteToConsole(handle, zo::WideFromUtf8(utf8));
    while (!utf8.empty()) {
        DWORD written = 0;
        const auto piece = static_cast<DWORD>(std::min<std::size_t>(utf8.size(), 1u << 20));
        if (!WriteFile(handle, utf8.data(), piece, &written, nullptr) || written == 0) return false;
        utf8.remove_prefix(written);
    }
    return true;
}

// For programs: at a console nobody reads a document. A reader that stopped reading must not keep the process alive, so
// the wait for the line being written has an end.
void WriteLastWords(CtrlC& state) {
    constexpr int kTries = 100;
    if (IsConsole(HandleOf(Stream::kOut))) return;
    for (int i = 0; i < kTries; ++i) {
        if (state.writing.try_lock()) {
            WriteTo(HandleOf(Stream::kOut), state.lastWords);
            return;  // keeping the lock: nothing may be written after this
        }
        Sleep(10);
    }
}

BOOL WINAPI OnCtrlC(DWORD kind) {
    if (kind != CTRL_C_EVENT && kind != CTRL_BREAK_EVENT) return FALSE;
    CtrlC& state = State();
    {
        const std::lock_guard guard(state.lock);
        if (state.event && !state.pressed) {
            state.pressed = true;
            SetEvent(state.event);
            if (*state.hook) (*state.hook)();
            return TRUE;
        }
    }
    WriteLastWords(state);
    TerminateProcess(GetCurrentProcess(), kExitCancelled);
    return TRUE;
}

}  // namespace

std::vector<std::string> CommandLineArguments() {
    int count = 0;
    wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    const zo::OwnedLocalMemory owner(static_cast<void*>(arguments));
    std::vector<std::string> utf8;
    for (int i = 1; i < count; ++i)
        utf8.push_back(zo::Utf8FromWide(arguments[i]));
    return utf8;
}

void SetLastWords(std::string text) {
    const std::lock_guard guard(State().writing);
    State().lastWords = std::move(text);
}

bool Write(Stream stream, std::string_view utf8) {
    if (stream != Stream::kOut) return WriteTo(HandleOf(stream), utf8);
    const std::lock_guard guard(State().writing);
    return WriteTo(HandleOf(stream), utf8);
}

bool WriteOnlyDocument(std::string_view utf8) {
    const std::lock_guard guard(State().writing);
    State().lastWords.clear();
    return WriteTo(HandleOf(Stream::kOut), utf8);
}

bool IsTerminal(Stream stream) {
    return IsConsole(HandleOf(stream));
}

bool InputIsTerminal() {
    return IsConsole(GetStdHandle(STD_INPUT_HANDLE));
}

std::string ReadLine() {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    std::string line;
    char byte = 0;
    for (DWORD read = 0; ReadFile(input, &byte, 1, &read, nullptr) && read == 1 && byte != '\n';) {
        if (byte != '\r') line += byte;
    }
    return line;
}

Cancellation::Cancellation(std::function<void()> hook)
    : hook_(std::move(hook)), event_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    CtrlC& state = State();
    const std::lock_guard guard(state.lock);
    state.hook = &hook_;
    state.event = event_.Get();
}

Cancellation::~Cancellation() {
    CtrlC& state = State();
    const std::lock_guard guard(state.lock);
    state.event = nullptr;
    state.hook = nullptr;
}

bool Cancellation::Requested() const {
    return Wait(0);
}

bool Cancellation::Wait(unsigned milliseconds) const {
    return WaitForSingleObject(event_.Get(), milliseconds) == WAIT_OBJECT_0;
}

void InstallCtrlC() {
    SetConsoleCtrlHandler(OnCtrlC, TRUE);
}

}  // namespace zoctl
