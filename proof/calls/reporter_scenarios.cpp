// A run over one dump of ours, whose document is held back, and one over a server that is not there.

#include "fault_scenarios.h"
#include "loaded_library.h"
#include "temp_folder.h"
#include "zocrashreport.h"

namespace zoproof {
namespace {

namespace fs = std::filesystem;

std::int32_t HoldBack(void*, const std::uint8_t*, std::uint32_t, std::uint8_t*, std::uint32_t, std::uint32_t*) {
    return static_cast<std::int32_t>(0x80004005);
}

}  // namespace

std::vector<Scenario> ReporterScenarios(const fs::path& folder) {
    const fs::path dumps = folder / "dumps", record = folder / "record" / "crash_compare.dat";
    const std::wstring dump = (dumps / "ours.dmp").wstring();
    zotest::WriteFileBytes(dump, zotest::ReadFileBytes(zotest::ProgramFolder() / "dumps" / "ours.dmp"));
    const auto configure = [=](ZoCrashBodyScrambler scrambler) {
        return [=] {
            zotest::RemoveTree(record.wstring());
            const std::wstring dumpsText = dumps.wstring(), recordText = record.wstring();
            ZoCrashReportConfig config{};
            config.minidumpDir = dumpsText.c_str();
            config.compareFilePath = recordText.c_str();
            config.serverUrl = L"https://127.0.0.1:9/crash";  // nobody listens there
            ZoCrashReport_Initialize(&config);
            ZoCrashReport_SetBodyScrambler(scrambler, nullptr);
            ZoCrashReport_NotifyNetworkOk();
        };
    };
    const auto removedWhole = [=]() -> std::string {
        const std::size_t size = zotest::ReadFileBytes(record).size();
        return size == 0 || size == 8 ? "" : "a part of the dedupe record was written";
    };
    const auto run = [] { return ZoCrashReport_Run(nullptr); };
    return {
        {"crash run, held back", configure(HoldBack), run, removedWhole},
        {"crash run, no server", configure(nullptr), run, removedWhole},
        {"crash upload", configure(HoldBack), [=] { return ZoCrashReport_UploadSingleDump(dump.c_str(), nullptr); },
         removedWhole},
    };
}

}  // namespace zoproof
