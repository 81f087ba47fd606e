// scale [--rules N] [--log MEGABYTES] [--dumps FEW MANY]: what one item costs among many, against one among few. Rules
// in a driver's table (4000), the diagnostic log (1024 MB), dumps in the folders FEW and MANY, none of them new. The
// exit status is 1 when the cost grows with the number.

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "format.h"
#include "installed_driver.h"
#include "log_reader.h"
#include "temp_folder.h"
#include "text.h"
#include "zocrashreport.h"
#include "zoprotector.h"

namespace {

namespace fs = std::filesystem;

constexpr double kGrows = 3;  // a busy machine makes a factor of two of a constant cost; real growth is tenfold here

void Require(std::int32_t status, const char* what) {
    if (status < 0) throw std::runtime_error(zo::Format("{} gives {:08X}", what, zo::Bits(status)));
}

// The shortest of some runs, in seconds: other programs can only make a run longer.
template <typename Work>
double Time(const Work& work) {
    double best = 1e9;
    for (int run = 0; run < 5; ++run) {
        const auto begin = std::chrono::steady_clock::now();
        work();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }
    return best;
}

// Prints what one item costs, and whether that is too much.
bool Compare(const char* what, double few, double fewItems, double many, double manyItems) {
    const double ratio = many / manyItems / (few / fewItems);
    std::printf("figure: %s: one of %.0f %.2f us, one of %.0f %.2f us, ratio %.2f\n", what, fewItems,
                few / fewItems * 1e6, manyItems, many / manyItems * 1e6, ratio);
    std::fflush(stdout);
    return ratio < kGrows;
}

void AddRules(std::uint32_t from, std::uint32_t to) {
    for (std::uint32_t i = from; i < to; ++i)
        Require(ZoProtector_AddProcessProtectByPath(zo::WideFromUtf8(zo::Format("C:\\rule{}", i)).c_str()), "a rule");
}

// Against the bare command, whose own cost grows with its reply.
bool ListRules(std::uint32_t many) {
    constexpr std::uint32_t kFew = 1000, kHeader = 16, kEntry = 1044, kCapacity = 65535;
    std::vector<std::uint8_t> entries(kHeader + std::size_t{kCapacity} * kEntry);
    std::uint32_t count = 0;
    const auto list = [&](std::uint32_t rules) {
        Require(ZoProtector_ListProcessProtectRules(entries.data(), rules, &count, nullptr), "the list");
        if (count != rules) throw std::runtime_error("the list is not whole");
    };
    const auto ratio = [&](std::uint32_t rules) {
        const double bare = Time([&] {
            const zo::OwnedFile driver = zotest::OpenDriver();
            const zotest::IoResult reply = zotest::SendControl(driver.Get(), ZOP_IOCTL_LIST_PROCESS_RULES, nullptr, 0,
                                                               entries.data(), kHeader + rules * kEntry);
            if (reply.error != 0) throw std::runtime_error("the bare command fails");
        });
        const double library = Time([&] { list(rules); });
        std::printf("figure: a list of %u rules: %.2f ms, the bare command %.2f ms, ratio %.2f\n",
                    static_cast<unsigned>(rules), library * 1e3, bare * 1e3, library / bare);
        return library / bare;
    };
    AddRules(0, kFew);
    const double few = ratio(kFew);
    AddRules(kFew, many);
    const double all = ratio(many);
    Require(ZoProtector_ListProcessProtectRules(entries.data(), kCapacity, &count, nullptr), "a list of 65,535");
    return all < few * kGrows && count == many;
}

// The empty and the long log take turns, because a busy machine changes its speed meanwhile.
bool WriteLog(std::uint32_t megabytes) {
    constexpr int kLines = 200, kRounds = 10;
    const fs::path log = zotest::TodaysLog();
    const auto time = [&](std::uint64_t size) {
        ZoProtector_Uninitialize();
        fs::resize_file(log, size);
        Require(ZoProtector_Initialize(), "opening with this log");
        return Time([] {
            for (int i = 0; i < kLines; ++i)
                Require(ZoProtector_SetMasterEnabled(1), "the master switch");
        });
    };
    double empty = 1e9, full = 1e9;
    for (int round = 0; round < kRounds; ++round) {
        empty = std::min(empty, time(0));
        full = std::min(full, time(std::uint64_t{megabytes} << 20));
    }
    std::printf("the log has %.0f MB\n", static_cast<double>(fs::file_size(log)) / 1e6);
    return Compare("a line at the end of the log", empty, kLines, full, kLines);
}

double FindDumps(const wchar_t* folder, const fs::path& record) {
    const std::wstring recordText = record.wstring();
    ZoCrashReportConfig config{};
    config.minidumpDir = folder;
    config.compareFilePath = recordText.c_str();
    config.serverUrl = L"https://127.0.0.1:9/crash";
    Require(ZoCrashReport_Initialize(&config), "the reporter");
    ZoCrashReport_NotifyNetworkOk();
    return Time([&] {
        zotest::WriteFileBytes(record, std::string(8, '\x7F'));  // later than every dump
        Require(ZoCrashReport_Run(nullptr), "a run without new dumps");
    });
}

double FilesIn(const wchar_t* folder) {
    return static_cast<double>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

struct Options {
    std::uint32_t rules = 4000;
    std::uint32_t megabytes = 1024;
    const wchar_t* few = nullptr;
    const wchar_t* many = nullptr;
};

bool Run(const Options& options) {
    const zotest::TempFolder folder;
    const zotest::ScopedTmp tmp(folder.Path().wstring());
    const zotest::InstalledDriver driver;
    const zotest::SimulatorClient simulator;
    simulator.SetCapacity(ZOSIM_TABLE_PROCESS, ZOSIM_MAX_CAPACITY);
    Require(ZoProtector_Initialize(), "the channel");
    bool good = ListRules(options.rules);
    good = WriteLog(options.megabytes) && good;
    ZoProtector_Uninitialize();
    if (options.many != nullptr) {
        const double few = FindDumps(options.few, folder / "record"), many = FindDumps(options.many, folder / "record");
        good = Compare("a dump in the dump folder", few, FilesIn(options.few), many, FilesIn(options.many)) && good;
    }
    return good;
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
    Options options;
    for (int i = 1; i + 1 < count; i += 2) {
        const std::wstring_view name = arguments[i];
        const auto number = static_cast<std::uint32_t>(std::wcstoul(arguments[i + 1], nullptr, 10));
        if (name == L"--rules") options.rules = number;
        if (name == L"--log") options.megabytes = number;
        if (name == L"--dumps" && i + 2 < count) {
            options.few = arguments[i + 1];
            options.many = arguments[++i + 1];
        }
    }
    try {
        return Run(options) ? 0 : 1;
    } catch (const std::exception& error) {
        std::printf("scale: %s\n", error.what());
        return 1;
    }
}
