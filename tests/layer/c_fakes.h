#pragma once

// Fakes of the library's C functions: each notes its call, fills its outputs with bytes that can be told apart, and
// answers what the test wants.

#include <windows.h>

#include <algorithm>
#include <concepts>
#include <string>
#include <string_view>
#include <vector>

#include "format.h"
#include "text.h"
#include "zocrashreport.h"
#include "zoprotector.h"
#include "zosigner.h"

namespace layertest {

inline std::string calls;                   // in their order: "ZoProtector_AddProcessProtectByFolder(C:\a, 1) "
inline std::vector<std::uint8_t> filledIn;  // what the fakes wrote into the outputs, all bytes in a row
inline std::vector<std::uint32_t> numbers;  // for the next numbers that are outputs; without one, bytes that count up
inline std::int32_t answer;                 // of every fake

inline void* context;
inline ZoCrashLogger logger;
inline ZoCrashBodyScrambler scrambler;

inline void Note(std::uint32_t level, std::wstring_view message) {
    calls += zo::Format("[{} {}] ", level, zo::Utf8FromWide(message));
}

// How an argument shows in a call.
template <std::integral Number>
std::string Shown(Number number) {
    return std::to_string(number);
}
inline std::string Shown(const wchar_t* text) {
    return text == nullptr ? "null" : zo::Utf8FromWide(text);
}
inline std::string Shown(const char* const* twoNames) {
    return zo::Format("{} {}", twoNames[0], twoNames[1]);
}

inline std::string FillIn(void* output, std::size_t size) {
    auto* const bytes = static_cast<std::uint8_t*>(output);
    std::generate(bytes, bytes + size,
                  [] { return filledIn.emplace_back(static_cast<std::uint8_t>(filledIn.size())); });
    return "out";
}
template <typename Record>
    requires(!std::is_const_v<Record> && !std::is_function_v<Record>)
std::string Shown(Record* record) {
    return FillIn(record, sizeof *record);
}
inline std::string Shown(std::uint8_t* digest) {
    return FillIn(digest, 32);
}
inline std::string Shown(wchar_t* hexadecimalDigest) {
    return FillIn(hexadecimalDigest, 65 * sizeof(wchar_t));
}
inline std::string Shown(std::uint32_t* number) {
    if (numbers.empty()) return FillIn(number, sizeof *number);
    *number = numbers.front();
    numbers.erase(numbers.begin());
    return "out";
}

// Room for records, into which none are written, or the context of a callback.
inline std::string Shown(void* pointer) {
    context = pointer;
    numbers = {0, 0, 0};
    return pointer == nullptr ? "null" : "pointer";
}
inline std::string Shown(ZoCrashLogger function) {
    logger = function;
    return function == nullptr ? "null" : "function";
}
inline std::string Shown(ZoCrashBodyScrambler function) {
    scrambler = function;
    return function == nullptr ? "null" : "function";
}

inline std::string Shown(const ZopSignaturePolicy* policy) {
    return zo::Format("{} {}", policy->mode, policy->minLevel);
}
inline std::string Shown(const ZoCrashReportConfig* config) {
    const auto& c = *config;
    return zo::Format("{} {} {} {} {} {} {} {} {}", Shown(c.serverUrl), Shown(c.appName), Shown(c.appVersion), c.lcid,
                      Shown(c.minidumpDir), Shown(c.compareFilePath), c.uploadAll, c.maxDumpBytes,
                      c.networkWaitSeconds);
}
template <typename Options>
std::string ShownOptions(const Options& options) {
    for (int message = 0; message < 2 && options.logCallback != nullptr; ++message)
        options.logCallback(options.logContext, 2, L"message");
    const std::string key = options.keyBlob == nullptr ? "null" : std::to_string(*options.keyBlob);
    return zo::Format("{} {} {} {} {}", Shown(options.root), Shown(options.manifest), Shown(options.keystore), key,
                      options.keyBlobSize);
}
inline std::string Shown(const ZoSignerSignOptions* options) {
    std::int32_t seal = 7, rest = 7;
    if (options->sealCallback != nullptr && options->sealCallback(options->sealContext, L"a/b", &seal, &rest) < 0)
        Note(0, L"no answer");
    return zo::Format("{} {} {} {}", ShownOptions(*options), options->sealMode, seal, rest);
}
inline std::string Shown(const ZoSignerVerifyOptions* options) {
    return ShownOptions(*options);
}

template <typename Row, typename Export>
struct Fake;
template <typename Row, typename... Arguments>
struct Fake<Row, std::int32_t(Arguments...)> {
    static inline std::string function;
    static std::int32_t Call(Arguments... arguments) {
        std::string shown;
        ((shown += (shown.empty() ? "" : ", ") + Shown(arguments)), ...);
        calls += zo::Format("{}({}) ", function, shown);
        for (int message = 0; message < 2 && logger != nullptr && function == "ZoCrashReport_Run"; ++message)
            logger(context, 2, L"message");
        return answer;
    }
};

}  // namespace layertest
