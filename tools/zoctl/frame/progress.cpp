#include "progress.h"

#include "console.h"

namespace zoctl {

namespace {

constexpr unsigned kIntervalMs = 500;

std::uint64_t BytesRead() {
    IO_COUNTERS counters{};
    return GetProcessIoCounters(GetCurrentProcess(), &counters) ? counters.ReadTransferCount : 0;
}

}  // namespace

Progress::Progress(const Output& out, std::string what, ProgressFacts facts)
    : text_(std::move(what), std::move(facts)) {
    if (out.Machine() || !IsTerminal(Stream::kError)) return;
    end_.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (end_) thread_ = std::thread([this] { Run(); });
}

Progress::~Progress() {
    if (!thread_.joinable()) return;
    SetEvent(end_.Get());
    thread_.join();
}

bool Progress::Ended(unsigned milliseconds) const {
    return WaitForSingleObject(end_.Get(), milliseconds) != WAIT_TIMEOUT;
}

void Progress::Run() {
    const std::uint64_t readBefore = BytesRead();
    const ULONGLONG start = GetTickCount64();
    // Only decoration: a terminal that is gone is found out by the output itself.
    while (!Ended(kIntervalMs))
        static_cast<void>(Write(Stream::kError, text_.Line(GetTickCount64() - start, BytesRead() - readBefore)));
    static_cast<void>(Write(Stream::kError, text_.Clearing()));
}

}  // namespace zoctl
