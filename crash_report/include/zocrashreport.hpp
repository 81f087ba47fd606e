#ifndef ZOCRASHREPORT_HPP
#define ZOCRASHREPORT_HPP

/* ZoProtectorLib for C++20: the crash reporter.
 *
 * Each function has the name of its C function without "ZoCrashReport_", and zocrashreport.h says what it does.
 * docs/cpp.md has the rules of the whole layer.
 *
 *     zocrashreport::Reporter reporter({.serverUrl = L"https://crash.example/crash", .appName = L"Suite"});
 *     const ZoCrashRunStats stats = reporter.Run([](zocrashreport::Level, std::wstring_view text) { Log(text); });
 *
 * and on another thread zocrashreport::NotifyNetworkOk() or zocrashreport::Cancel(). Callbacks run on the thread that
 * runs the reporter. An exception that one raises ends at the caller of Run or UploadSingleDump, once that is over; the
 * callback is not run again until then, and a scrambler that raised has given all remaining documents up.
 */

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>

#include "zocrashreport.h"
#include "zostatus.hpp"

namespace zocrashreport {

using zostatus::ErrorTo;
using zostatus::Status;
using zostatus::Text;

enum class Level : std::int32_t {
    kInfo = ZOCRASH_LOG_INFO,
    kWarning = ZOCRASH_LOG_WARNING,
    kError = ZOCRASH_LOG_ERROR
};

/* Gets each message; its text is valid during the call only. */
using OnMessage = zostatus::FunctionRef<void(Level level, std::wstring_view message)>;

/* Turns a document into the payload that is sent, and returns how long that is. It is called twice for each document:
 * with no room, to learn the length, then with room for it. It must not write beyond room. */
using Scrambler = std::function<std::size_t(std::span<const std::uint8_t> document, std::span<std::uint8_t> room)>;

/* What is left out has the library's default. */
struct Config {
    Text serverUrl = {};
    Text appName = {};
    Text appVersion = {};
    std::uint32_t lcid = 0;
    Text minidumpDir = {};
    Text compareFilePath = {};
    bool uploadAll = false;
    std::uint64_t maxDumpBytes = 0;
    std::uint32_t networkWaitSeconds = 0;
};

/* What a run throws: it may have done a part of its work before it failed. */
class RunError : public std::system_error {
  public:
    RunError(std::error_code error, const char* function, const ZoCrashRunStats& done)
        : std::system_error(error, function), stats(done) {}

    ZoCrashRunStats stats;
};

/* ---- For any thread, while a run is on its way ---- */

inline void NotifyNetworkOk(ErrorTo error = {}) {
    error.Take(ZoCrashReport_NotifyNetworkOk(), "ZoCrashReport_NotifyNetworkOk");
}
inline void Cancel(ErrorTo error = {}) {
    error.Take(ZoCrashReport_Cancel(), "ZoCrashReport_Cancel");
}
inline void ResetCancel(ErrorTo error = {}) {
    error.Take(ZoCrashReport_ResetCancel(), "ZoCrashReport_ResetCancel");
}

/* The names that make a crash one of ours, in the ANSI code page; none: the suite's own. */
inline void SetTargetDrivers(std::span<const char* const> names, ErrorTo error = {}) {
    error.Take(ZoCrashReport_SetTargetDrivers(names.data(), static_cast<std::uint32_t>(names.size())),
               "ZoCrashReport_SetTargetDrivers");
}
inline void SetTargetDrivers(std::initializer_list<const char*> names, ErrorTo error = {}) {
    SetTargetDrivers(std::span(names.begin(), names.size()), error);
}

/* ---- The reporter ---- */

/* The process has one reporter, so have one object at a time; it stays where it was made, because the library keeps its
 * address. One thread at a time runs it. */
class Reporter {
  public:
    explicit Reporter(const Config& config = {}, ErrorTo error = {}) { Initialize(config, error); }
    Reporter(const Reporter&) = delete;
    Reporter& operator=(const Reporter&) = delete;
    ~Reporter() {
        if (ownScrambler_) ZoCrashReport_SetBodyScrambler(&Refuse, nullptr);
        ZoCrashReport_Uninitialize();
    }

    /* Another configuration, as a whole. Takes a cancel back. */
    void Initialize(const Config& config, ErrorTo error = {}) {
        ZoCrashReportConfig converted{};
        converted.serverUrl = config.serverUrl.Get();
        converted.appName = config.appName.Get();
        converted.appVersion = config.appVersion.Get();
        converted.lcid = config.lcid;
        converted.minidumpDir = config.minidumpDir.Get();
        converted.compareFilePath = config.compareFilePath.Get();
        converted.uploadAll = config.uploadAll;
        converted.maxDumpBytes = config.maxDumpBytes;
        converted.networkWaitSeconds = config.networkWaitSeconds;
        error.Take(ZoCrashReport_Initialize(&converted), "ZoCrashReport_Initialize");
    }

    /* In the place of the built-in scrambler, which cannot be had back in this process. Once this object has ended, a
     * run gives every document up until another scrambler is set: better none than one that nobody scrambled. */
    void SetBodyScrambler(Scrambler scrambler, ErrorTo error = {}) {
        scrambler_ = std::move(scrambler);
        ownScrambler_ = true;
        error.Take(ZoCrashReport_SetBodyScrambler(&Scramble, this), "ZoCrashReport_SetBodyScrambler");
    }

    /* Documents are sent as they are. */
    void SendPlainDocuments(ErrorTo error = {}) {
        ownScrambler_ = false;
        error.Take(ZoCrashReport_SetBodyScrambler(nullptr, nullptr), "ZoCrashReport_SetBodyScrambler");
    }

    /* The counters are also returned when the call fails and error takes that; thrown, they are in the RunError. */
    ZoCrashRunStats Run(OnMessage message = {}, ErrorTo error = {}) {
        return Call("ZoCrashReport_Run", message, error, [](ZoCrashRunStats* s) { return ZoCrashReport_Run(s); });
    }
    ZoCrashRunStats UploadSingleDump(Text dumpPath, OnMessage message = {}, ErrorTo error = {}) {
        return Call("ZoCrashReport_UploadSingleDump", message, error,
                    [&](ZoCrashRunStats* s) { return ZoCrashReport_UploadSingleDump(dumpPath.Get(), s); });
    }

  private:
    /* Messages only come while a run is on its way, so that a logger need not outlive it. */
    class Logger {
      public:
        Logger(OnMessage message, zostatus::Carrier& carrier) : message_(message), carrier_(carrier) {
            ZoCrashReport_SetLogger(message ? &Deliver : nullptr, this);
        }
        ~Logger() { ZoCrashReport_SetLogger(nullptr, nullptr); }
        Logger(const Logger&) = delete;
        Logger& operator=(const Logger&) = delete;

      private:
        static void Deliver(void* self, std::int32_t level, const wchar_t* message) {
            auto& logger = *static_cast<Logger*>(self);
            logger.carrier_.Guard(0, [&] {
                logger.message_(static_cast<Level>(level), message);
                return 0;
            });
        }

        OnMessage message_;
        zostatus::Carrier& carrier_;
    };

    static constexpr std::int32_t kNoRoom = ZOP_STATUS_FROM_WIN32(122);

    static std::int32_t Scramble(void* self, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t* out,
                                 std::uint32_t outCapacity, std::uint32_t* outLength) {
        auto& reporter = *static_cast<Reporter*>(self);
        return reporter.carrier_.Guard(ZOP_E_FAILED, [&]() -> std::int32_t {
            const std::size_t length = reporter.scrambler_({in, inLength}, {out, outCapacity});
            if (length > UINT32_MAX) return ZOP_E_FAILED;
            *outLength = static_cast<std::uint32_t>(length);
            return length <= outCapacity ? ZOP_OK : kNoRoom;
        });
    }
    static std::int32_t Refuse(void*, const std::uint8_t*, std::uint32_t, std::uint8_t*, std::uint32_t,
                               std::uint32_t*) {
        return ZOP_E_FAILED;
    }

    template <typename Work>
    ZoCrashRunStats Call(const char* what, OnMessage message, ErrorTo error, const Work& work) {
        ZoCrashRunStats stats{};
        std::int32_t status = 0;
        carrier_ = {};
        {
            const Logger logger(message, carrier_);
            status = work(&stats);
        }
        carrier_.Rethrow();
        if (status < 0 && error.Throws()) throw RunError(zostatus::CodeOf(status), what, stats);
        error.Take(status, what);
        return stats;
    }

    Scrambler scrambler_;
    bool ownScrambler_ = false;
    zostatus::Carrier carrier_;
};

}  // namespace zocrashreport

#endif
