#pragma once

// The built zoctl.exe run as a process, with a simulator that reports what reached the driver.

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "child_process.h"
#include "installed_driver.h"
#include "loaded_library.h"
#include "rows.h"
#include "temp_folder.h"
#include "text.h"

namespace zotest {

using Codes = std::vector<std::uint32_t>;
using Json = nlohmann::json;

struct ZoctlRun {
    int exitCode = -1;
    std::string out;
    std::string err;
    Json json;  // of standard output; discarded when that is not one JSON document
};

inline ZoctlRun RunZoctl(const std::vector<std::string>& words, const ChildOptions& options = {}) {
    std::vector<std::wstring> arguments;
    for (const std::string& word : words)
        arguments.push_back(zo::WideFromUtf8(word));
    const ChildResult result = RunChild((ProgramFolder() / "zoctl.exe").wstring(), arguments, options);
    return {static_cast<int>(result.exitCode), result.out, result.err, Json::parse(result.out, nullptr, false)};
}

// A blank ends a word, and nothing else does.
inline ZoctlRun Zoctl(const std::string& line, const ChildOptions& options = {}) {
    std::vector<std::string> words;
    std::istringstream rest(line);
    for (std::string word; std::getline(rest, word, ' ');)
        words.push_back(word);
    return RunZoctl(words, options);
}

// Whether a run ended with this code and has these words in its text and these members in its document.
[[nodiscard]] inline testing::AssertionResult Gave(const ZoctlRun& run, int exitCode, const std::string& words = "",
                                                   const Json& members = {}) {
    bool good = run.exitCode == exitCode && (run.out + run.err).find(words) != std::string::npos;
    for (const auto& [name, value] : members.items())
        good = good && run.json.contains(name) && run.json[name] == value;
    return testing::AssertionResult(good) << "exit code " << run.exitCode << "\n" << run.out << run.err;
}

// One member of each object of a list in the document; null for an object without it.
[[nodiscard]] inline Json Each(const ZoctlRun& run, const char* list, const char* member) {
    Json values = Json::array();
    for (const Json& entry : run.json.at(list))
        values.push_back(entry.value(member, Json()));
    return values;
}

// The numbers of process, file, registry and DLL rules, of exemptions from the file and the registry filter, and of
// signature overrides that the driver holds.
inline Codes TableCounts() {
    const ZoSimState state = SimulatorClient().State();
    return {state.tableCount, state.tableCount + ZOSIM_TABLE_PID};
}

class ZoctlTest : public DriverTest {
  protected:
    // The codes that reached the driver since the last look, without the handshake that opens each channel.
    Codes Sent() {
        Codes codes;
        for (const ZoSimRequest& request : Simulator().Requests(seen_ + 1)) {
            if (request.code != ZOP_IOCTL_GET_VERSION) codes.push_back(request.code);
        }
        seen_ = Simulator().RequestCount();
        return codes;
    }

  private:
    std::uint64_t seen_ = 0;
};

// For tests that let zoctl itself install the driver; each begins and ends without a service.
class ZoctlServiceTest : public testing::Test {
  protected:
    void SetUp() override { RemoveDriverService(); }
    void TearDown() override { RemoveDriverService(); }

    static void InstallAndStart() {
        ASSERT_EQ(RunZoctl({"driver", "install", File()}).exitCode, 0);
        ASSERT_EQ(Zoctl("driver start").exitCode, 0);
    }

    // A driver file next to the programs.
    static std::string File(const char* name = "ZoProtectorDriver.sys") {
        return zo::Utf8FromWide((ProgramFolder() / name).wstring());
    }
};

}  // namespace zotest
