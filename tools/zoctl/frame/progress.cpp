#include "progress.h"

#include <algorithm>
#include <utility>

#include "console.h"
#include "format.h"

namespace zoctl {

namespace {

constexpr unsigned kIntervalMs = 500;

std::uint64_t BytesRead() {
    IO_COUNTERS counters{};
    return GetProcessIoCounters(GetCurrentProcess(), &counters) ? counters.ReadTransferCount : 0;
}

// Files that grow, and what else the process reads, must not make it more than all.
std::string ReadText(std::uint64_t read, std::uint64_t expected) {
    const auto megabytes = [](std::uint64_t bytes) { return static_cast<double>(bytes) / 1e6; };
    if (expected == 0) return zo::Format(", {:.1f} MB read", megabytes(read));
    return zo::Format(", {:.1f} of {:.1f} MB read", megabytes(std::min(read, expected)), megabytes(expected));
}

// "signing: 12 s, 1.0 of 20.5 MB read, 120 files".
std::string ProgressLine(const std::string& what, unsigned seconds, std::uint64_t read, std::uint64_t expected,
                         const std::string& counts) {
    return zo::Format("{}: {} s{}{}", what, seconds, read != 0 ? ReadText(read, expected) : "",
                      counts.empty() ? "" : ", " + counts);
}

}  // namespace

Progress::Progress(const Output& out, std::string what, ProgressFacts facts)
    : what_(std::move(what)), facts_(std::move(facts)) {
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

void Progress::Run() const {
    const std::uint64_t readBefore = BytesRead();
    const ULONGLONG start = GetTickCount64();
    std::uint64_t expected = 0;
    bool asked = false;
    std::size_t width = 0;
    while (!Ended(kIntervalMs)) {
        const std::uint64_t read = BytesRead() - readBefore;
        if (read != 0 && facts_.expectedBytes && !std::exchange(asked, true)) expected = facts_.expectedBytes();
        std::string line = ProgressLine(what_, static_cast<unsigned>((GetTickCount64() - start) / 1000), read, expected,
                                        facts_.counts());
        width = std::max(width, line.size());
        line.resize(width, ' ');
        // Only decoration: a terminal that is gone is found out by the output itself.
        static_cast<void>(Write(Stream::kError, "\r" + line));
    }
    if (width != 0) static_cast<void>(Write(Stream::kError, "\r" + std::string(width, ' ') + "\r"));
}

}  // namespace zoctl
