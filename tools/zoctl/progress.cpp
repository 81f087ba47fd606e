#include "progress.h"

#include <algorithm>

#include "console.h"
#include "format.h"

namespace zoctl {

namespace {

constexpr DWORD kIntervalMs = 500;

std::uint64_t BytesRead() {
    IO_COUNTERS counters{};
    return GetProcessIoCounters(GetCurrentProcess(), &counters) ? counters.ReadTransferCount : 0;
}

std::string Megabytes(std::uint64_t bytes) {
    return zo::Format("{:.1f} MB", static_cast<double>(bytes) / 1e6);
}

}  // namespace

Progress::Progress(const Output& out, std::string what, std::uint64_t expectedBytes)
    : what_(std::move(what)), expectedBytes_(expectedBytes) {
    if (out.Machine() || !IsTerminal(Stream::kError)) return;
    end_.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (end_) thread_ = std::thread([this] { Run(); });
}

Progress::~Progress() {
    if (!thread_.joinable()) return;
    SetEvent(end_.Get());
    thread_.join();
}

void Progress::Run() const {
    const std::uint64_t readBefore = BytesRead();
    std::size_t width = 0;
    for (unsigned ticks = 1; WaitForSingleObject(end_.Get(), kIntervalMs) == WAIT_TIMEOUT; ++ticks) {
        std::string line = zo::Format("{}: {} s", what_, ticks * kIntervalMs / 1000);
        if (const std::uint64_t read = BytesRead() - readBefore; read != 0) {
            line += ", " + Megabytes(read) + (expectedBytes_ != 0 ? " of " + Megabytes(expectedBytes_) : "") + " read";
        }
        width = std::max(width, line.size());
        line.resize(width, ' ');
        // Only decoration: a terminal that is gone is found out by the output itself.
        static_cast<void>(Write(Stream::kError, "\r" + line));
    }
    if (width != 0) static_cast<void>(Write(Stream::kError, "\r" + std::string(width, ' ') + "\r"));
}

}  // namespace zoctl
