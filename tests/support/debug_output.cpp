#include "debug_output.h"

#include <windows.h>

#include <cstddef>

#include "locks.h"

namespace zotest {
namespace {

constexpr DWORD kPrintAnsi = 0x40010006;

struct Capture {
    zo::CriticalSection lock;
    std::vector<std::string> strings;
};
Capture capture;

LONG CALLBACK Catch(EXCEPTION_POINTERS* pointers) {
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    if (record.ExceptionCode != kPrintAnsi || record.NumberParameters < 2) return EXCEPTION_CONTINUE_SEARCH;
    // The parameters are the length with the terminator and the address.
    const auto* text = reinterpret_cast<const char*>(record.ExceptionInformation[1]);
    capture.lock.lock();
    capture.strings.emplace_back(text, record.ExceptionInformation[0] == 0 ? 0 : record.ExceptionInformation[0] - 1);
    capture.lock.unlock();
    return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

DebugOutput::DebugOutput() {
    capture.lock.lock();
    capture.strings.clear();
    capture.lock.unlock();
    handler_ = AddVectoredExceptionHandler(1, Catch);
}

DebugOutput::~DebugOutput() {
    RemoveVectoredExceptionHandler(handler_);
}

std::vector<std::string> DebugOutput::Strings() const {
    capture.lock.lock();
    std::vector<std::string> copy = capture.strings;
    capture.lock.unlock();
    return copy;
}

}  // namespace zotest
