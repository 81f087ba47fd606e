#pragma once

// The built zoctl.exe run as a process, beside a simulator that tells what reached the driver.

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "child_process.h"
#include "installed_driver.h"
#include "loaded_library.h"
#include "temp_folder.h"
#include "text.h"

namespace zotest {

using Json = nlohmann::json;

struct ZoctlRun {
    int exitCode = -1;
    std::string out;
    std::string err;
    Json json;  // of standard output; discarded when that is not one JSON document
};

// "\" and blanks in the words are taken as they are: one word, one argument.
inline ZoctlRun RunZoctl(const std::vector<std::string>& words, const ChildOptions& options = {}) {
    std::vector<std::wstring> arguments;
    for (const std::string& word : words)
        arguments.push_back(zo::WideFromUtf8(word));
    const ChildResult result = RunChild((ProgramFolder() / "zoctl.exe").wstring(), arguments, options);
    EXPECT_FALSE(result.timedOut);
    return {static_cast<int>(result.exitCode), result.out, result.err, Json::parse(result.out, nullptr, false)};
}

[[nodiscard]] inline std::vector<std::string> Words(const std::string& line) {
    std::vector<std::string> words(1);
    for (const char c : line) {
        if (c == ' ') {
            words.emplace_back();
        } else {
            words.back() += c;
        }
    }
    return words;
}

// The codes that a run sent, without the handshake that opens each channel.
class SentCodes {
  public:
    explicit SentCodes(const SimulatorClient& simulator) : simulator_(simulator), before_(simulator.RequestCount()) {}

    [[nodiscard]] std::vector<ZoSimRequest> Requests() const {
        std::vector<ZoSimRequest> requests = simulator_.Requests(before_ + 1);
        std::erase_if(requests, [](const ZoSimRequest& request) { return request.code == ZOP_IOCTL_GET_VERSION; });
        return requests;
    }
    [[nodiscard]] std::vector<std::uint32_t> Codes() const {
        std::vector<std::uint32_t> codes;
        for (const ZoSimRequest& request : Requests())
            codes.push_back(request.code);
        return codes;
    }

  private:
    const SimulatorClient& simulator_;
    std::uint64_t before_;
};

}  // namespace zotest
