// The crash reporter against a bare read, base64, scramble and post of the same bytes to the same server; its base64
// against memcpy; its memory; many dumps in one run; and what a known and a new crash cost on the wire.
//
// Run with a crash server that accepts everything (scripts/bench does that). The engine's time is left out: the
// reporter's own begins with the line that it logs when a dump has been analysed.

// clang-format off
#include <windows.h>
#include <psapi.h>
#include <wininet.h>
// clang-format on

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "base64.h"
#include "built_in_scrambler.h"
#include "cng.h"
#include "files.h"
#include "format.h"
#include "hex.h"
#include "owned_handles.h"
#include "text.h"
#include "upload.h"
#include "zocrashreport.h"

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr int kRounds = 9;
constexpr std::size_t kMebibyte = 1 << 20;

template <typename... Args>
void Print(zo::FormatString<Args...> format, Args&&... args) {
    std::puts(zo::Format(format, std::forward<Args>(args)...).c_str());
    std::fflush(stdout);
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// "(at most 1.10)", and whether that was missed.
std::string AtMost(double target, double reached) {
    return zo::Format("(at most {:.2f}){}", target, reached <= target ? "" : " MISSED");
}

std::string AtLeast(double target, double reached) {
    return zo::Format("(at least {:.2f}){}", target, reached >= target ? "" : " MISSED");
}

std::filesystem::path ProgramFolder() {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return std::filesystem::path(path).parent_path();
}

// A dump that the engine opens, of the given size and with the given write time.
std::filesystem::path MakeDump(const std::filesystem::path& folder, const std::string& name, std::size_t size) {
    std::string bytes;
    if (!zo::ReadWholeFile((ProgramFolder() / "dumps" / "ours.dmp").c_str(), bytes))
        throw std::runtime_error("the dump cannot be read");
    std::uint32_t state = 1;
    while (bytes.size() + 4 <= size) {
        state = state * 1664525 + 1013904223;
        bytes.append(reinterpret_cast<const char*>(&state), 4);
    }
    const std::filesystem::path path = folder / name;
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path;
}

// The process's memory in use, sampled; the peak since construction over what it was then.
class MemoryPeak {
  public:
    MemoryPeak()
        : before_(Now()), thread_([this] {
              while (!stop_) {
                  peak_ = std::max<std::size_t>(peak_, Now());
                  Sleep(1);
              }
          }) {}
    MemoryPeak(const MemoryPeak&) = delete;
    MemoryPeak& operator=(const MemoryPeak&) = delete;
    ~MemoryPeak() {
        if (thread_.joinable()) Stop();
    }
    std::size_t Stop() {
        stop_ = true;
        thread_.join();
        return peak_ > before_ ? peak_ - before_ : 0;
    }

  private:
    static std::size_t Now() {
        PROCESS_MEMORY_COUNTERS counters{};
        GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
        return counters.WorkingSetSize;
    }
    std::size_t before_;
    std::size_t peak_ = 0;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

// The reporter's log shows when a dump was analysed.
struct Analysed {
    Clock::time_point at;
    static void Log(void* context, std::int32_t, const wchar_t* message) {
        if (std::wcsncmp(message, L"Dump ", 5) == 0) static_cast<Analysed*>(context)->at = Clock::now();
    }
};

// Sends documents unchanged and counts them.
struct Counted {
    std::vector<std::uint64_t> bytes;
    static std::int32_t Copy(void* context, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t* out,
                             std::uint32_t, std::uint32_t* length) {
        *length = inLength;
        if (out == nullptr) return 0;
        std::memcpy(out, in, inLength);
        static_cast<Counted*>(context)->bytes.push_back(inLength);
        return 0;
    }
};

void CompareBase64() {
    for (const std::size_t size : {256 * std::size_t{1024}, 10 * kMebibyte}) {
        std::vector<std::uint8_t> in(size, 0x5A);
        std::string text(zocrash::Base64Length(size), '\0');
        std::vector<std::uint8_t> copy(size);
        std::vector<double> ratios;
        double encodeBest = 1e9;
        for (int round = 0; round < 15; ++round) {
            const int repeat = static_cast<int>(20 * kMebibyte / size) + 1;
            auto start = Clock::now();
            for (int i = 0; i < repeat; ++i) {
                zocrash::EncodeBase64(in, text.data());
                in[static_cast<std::size_t>(i) % size] ^= static_cast<std::uint8_t>(text[5]);
            }
            const double encode = Seconds(Clock::now() - start).count() / repeat;
            start = Clock::now();
            for (int i = 0; i < repeat; ++i) {
                std::memcpy(copy.data(), in.data(), size);
                in[static_cast<std::size_t>(i) % size] ^= copy[7];
            }
            const double move = Seconds(Clock::now() - start).count() / repeat;
            ratios.push_back(move / encode);
            encodeBest = std::min(encodeBest, encode);
        }
        const double ratio = Median(ratios);
        Print("base64 of {} KiB: {:.2f} GB/s, {:.2f} of memcpy's speed {}", size / 1024,
              static_cast<double>(size) / encodeBest / 1e9, ratio, AtLeast(0.25, ratio));
    }
}

void Configure(const std::filesystem::path& folder, const std::filesystem::path& record, const std::string& url) {
    const std::wstring wideUrl = zo::WideFromUtf8(url);
    ZoCrashReportConfig config{};
    config.serverUrl = wideUrl.c_str();
    config.minidumpDir = folder.c_str();
    config.compareFilePath = record.c_str();
    config.maxDumpBytes = 1 << 30;
    ZoCrashReport_Initialize(&config);
    ZoCrashReport_NotifyNetworkOk();
}

// The platform's own work for one document and nothing else: one buffer, into which the file is read and encoded, in
// which it is scrambled, and which is posted.
class BareExchange {
  public:
    BareExchange(const std::string& url, bool scramble) : url_(url), scramble_(scramble) {
        std::array<std::uint8_t, 16> key{};
        static_cast<void>(zo::DecodeHexExactly(ZO_CRASH_SCRAMBLER_KEY, key));
        std::array<wchar_t, 16> mode{BCRYPT_CHAIN_MODE_ECB};
        BCryptOpenAlgorithmProvider(provider_.Out(), BCRYPT_AES_ALGORITHM, nullptr, 0);
        BCryptSetProperty(provider_.Get(), BCRYPT_CHAINING_MODE, reinterpret_cast<PUCHAR>(mode.data()), sizeof(mode),
                          0);
        BCryptGenerateSymmetricKey(provider_.Get(), key_.Out(), nullptr, 0, key.data(), static_cast<ULONG>(key.size()),
                                   0);
    }

    // A session has its own connections, and the reporter's is new with each run.
    [[nodiscard]] bool OpenSession() { return zocrash::OpenInternetSession("bench", session_) >= 0; }

    [[nodiscard]] bool Run(const std::filesystem::path& dump) {
        const std::string query(kQueryBytes, 'q');
        Start(query.size());
        std::memcpy(Text(), query.data(), query.size());
        if (!Finish(query.size())) return false;
        std::string bytes;
        if (!zo::ReadWholeFile(dump.c_str(), bytes)) return false;
        const std::size_t length = query.size() + zocrash::Base64Length(bytes.size());
        Start(length);
        std::memcpy(Text(), query.data(), query.size());
        zocrash::EncodeBase64({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()},
                              Text() + query.size());
        const bool kept = Finish(length);
        session_.Reset();
        return kept;
    }

  private:
    static constexpr std::size_t kQueryBytes = 580;
    static constexpr std::size_t kPrefix = 24;
    static constexpr std::size_t kNonce = 8;
    static constexpr std::size_t kLongestPadding = 9;
    static constexpr std::size_t kPiece = 32768;

    void Start(std::size_t length) {
        body_ = std::make_unique_for_overwrite<std::uint8_t[]>(kPrefix + kNonce + length + kLongestPadding);
    }
    char* Text() { return reinterpret_cast<char*>(body_.get() + kPrefix + kNonce); }

    [[nodiscard]] bool Finish(std::size_t length) {
        std::uint8_t* payload = body_.get() + kPrefix + kNonce;
        std::size_t size = length;
        if (scramble_) {
            payload -= kNonce;
            size = (length + 10 + 7) / 8 * 8;
            Scramble(payload, size);
        }
        const std::string prefix = std::to_string(size) + "&";
        std::ranges::copy(prefix, payload - prefix.size());
        return zocrash::Post(session_, url_, {payload - prefix.size(), prefix.size() + size}, neverCancelled_).status ==
               200;
    }

    // In place: random bytes before and behind the text, then the key stream over all but the first eight.
    void Scramble(std::uint8_t* payload, std::size_t size) {
        static_cast<void>(zo::FillRandom({payload, kNonce}));
        static_cast<void>(zo::FillRandom({payload + size - 2, 2}));
        std::vector<std::uint8_t> stream(kPiece);
        for (std::size_t at = kNonce; at < size; at += kPiece) {
            for (std::size_t block = 0; block < kPiece; block += 16) {
                const std::uint64_t number = _byteswap_uint64((at - kNonce + block) / 16);
                std::memcpy(&stream[block], payload, kNonce);
                std::memcpy(&stream[block + kNonce], &number, sizeof(number));
            }
            ULONG written = 0;
            BCryptEncrypt(key_.Get(), stream.data(), kPiece, nullptr, nullptr, 0, stream.data(), kPiece, &written, 0);
            for (std::size_t i = 0, end = std::min(kPiece, size - at); i < end; ++i)
                payload[at + i] ^= stream[i];
        }
    }

    zo::OwnedInternet session_;
    const std::string& url_;
    bool scramble_;
    const std::atomic<bool> neverCancelled_{false};
    zo::OwnedAlgorithm provider_;
    zo::OwnedCryptoKey key_;  // destroyed before its provider
    std::unique_ptr<std::uint8_t[]> body_;
};

void CompareExchange(const std::filesystem::path& folder, const std::string& url) {
    const std::size_t size = 4 * kMebibyte;
    const std::filesystem::path dump = MakeDump(folder, "exchange.dmp", size);
    Configure(folder, folder / "record", url);
    Analysed analysed{};
    ZoCrashReport_SetLogger(Analysed::Log, &analysed);
    for (const bool scramble : {true, false}) {
        if (!scramble) ZoCrashReport_SetBodyScrambler(nullptr, nullptr);
        BareExchange bareExchange(url, scramble);
        std::vector<double> reporter;
        std::vector<double> bare;
        for (int round = 0; round <= kRounds; ++round) {
            ZoCrashRunStats stats{};
            ZoCrashReport_UploadSingleDump(dump.c_str(), &stats);
            const double own = Seconds(Clock::now() - analysed.at).count();
            if (stats.uploadsSucceeded != 1) return Print("the reporter's upload failed");
            if (!bareExchange.OpenSession()) return Print("no session could be opened");
            const auto start = Clock::now();
            if (!bareExchange.Run(dump)) return Print("the bare upload failed");
            const double other = Seconds(Clock::now() - start).count();
            if (round == 0) continue;  // connections and caches warm up
            reporter.push_back(own);
            bare.push_back(other);
        }
        const double ratio = Median(reporter) / Median(bare);
        Print("a dump of {} MiB {}: {:.1f} ms, bare {:.1f} ms, ratio {:.2f} {}", size / kMebibyte,
              scramble ? "scrambled" : "plain", 1e3 * Median(reporter), 1e3 * Median(bare), ratio, AtMost(1.1, ratio));
    }
    ZoCrashReport_SetLogger(nullptr, nullptr);
    std::filesystem::remove(dump);
}

void MeasureMemory(const std::filesystem::path& folder, const std::string& url) {
    const std::size_t size = 24 * kMebibyte;
    const std::filesystem::path dump = MakeDump(folder, "memory.dmp", size);
    Configure(folder, folder / "record", url);
    for (const bool scramble : {true, false}) {
        ZoCrashReport_SetBodyScrambler(scramble ? zocrash::BuiltInScrambler : nullptr, nullptr);
        MemoryPeak peak;
        ZoCrashRunStats stats{};
        ZoCrashReport_UploadSingleDump(dump.c_str(), &stats);
        const std::size_t used = peak.Stop();
        const double times = static_cast<double>(used) / static_cast<double>(size);
        Print("memory at its peak for a dump of {} MiB {}: {:.2f} times the dump {}{}", size / kMebibyte,
              scramble ? "scrambled" : "plain", times, AtMost(5, times),
              stats.uploadsSucceeded == 1 ? "" : " - but the upload failed");
    }
    std::filesystem::remove(dump);
}

void MeasureManyDumps(const std::filesystem::path& folder, const std::string& url) {
    const std::filesystem::path many = folder / "many";
    std::filesystem::create_directories(many);
    for (int i = 0; i < 50; ++i)
        MakeDump(many, zo::Format("{:02}.dmp", i), kMebibyte / 4);
    double half = 0;
    for (const int count : {25, 50}) {
        if (count == 25) {
            for (int i = 25; i < 50; ++i)
                std::filesystem::rename(many / zo::Format("{:02}.dmp", i), folder / zo::Format("{:02}.later", i));
        } else {
            for (int i = 25; i < 50; ++i)
                std::filesystem::rename(folder / zo::Format("{:02}.later", i), many / zo::Format("{:02}.dmp", i));
        }
        std::filesystem::remove(folder / "record");
        Configure(many, folder / "record", url);
        MemoryPeak peak;
        ZoCrashRunStats stats{};
        const auto start = Clock::now();
        ZoCrashReport_Run(&stats);
        const double took = Seconds(Clock::now() - start).count();
        Print("{} dumps of 256 KiB in one run: {:.2f} s, {:.2f} MiB at the peak, {} sent", count, took,
              static_cast<double>(peak.Stop()) / kMebibyte, stats.uploadsSucceeded);
        if (count == 25) half = took;
        if (count == 50) Print("twice the dumps take {:.2f} times as long (2 is linear)", took / half);
    }
    std::filesystem::remove_all(many);
}

void MeasureBytes(const std::filesystem::path& folder, const std::string& url) {
    const std::filesystem::path dump = MakeDump(folder, "bytes.dmp", 0);
    Configure(folder, folder / "record", url);
    Counted counted;
    ZoCrashReport_SetBodyScrambler(Counted::Copy, &counted);
    ZoCrashReport_UploadSingleDump(dump.c_str(), nullptr);
    ZoCrashReport_SetBodyScrambler(zocrash::BuiltInScrambler, nullptr);
    if (counted.bytes.size() != 2) return Print("the exchange had {} documents", counted.bytes.size());
    const std::uint64_t known = counted.bytes[0];
    const std::uint64_t fresh = known + counted.bytes[1];
    Print("bytes on the wire for a dump of {}: {} when the crash is known, {} when it is new: {:.5f}",
          std::filesystem::file_size(dump), known, fresh, static_cast<double>(known) / static_cast<double>(fresh));
    std::filesystem::remove(dump);
}

int Run() {
    CompareBase64();
    char url[512] = "";
    if (GetEnvironmentVariableA("ZO_CRASH_SERVER_URL", url, sizeof(url)) == 0) {
        Print("No crash server: start this with one, as scripts/bench does, for the rest.");
        return 1;
    }
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "zo_crash_report_bench";
    std::filesystem::create_directories(folder);
    CompareExchange(folder, url);
    MeasureMemory(folder, url);
    MeasureManyDumps(folder, url);
    MeasureBytes(folder, url);
    std::filesystem::remove_all(folder);
    return 0;
}

}  // namespace

int main() {
    try {
        return Run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
