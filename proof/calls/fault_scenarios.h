#pragma once

// The main paths of the library, each as one call that is made again and again while another of its platform calls
// fails.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace zoproof {

struct Scenario {
    const char* name;
    std::function<void()> prepare;       // before every run, without faults
    std::function<std::int32_t()> run;   // the path; its status
    std::function<std::string()> check;  // after every run, without faults: what is wrong, or ""
    std::string good = "00000000";       // what it gives without a fault
};

// All of them work below this folder, which the caller owns.
[[nodiscard]] std::vector<Scenario> DriverScenarios(const std::filesystem::path& folder);
[[nodiscard]] std::vector<Scenario> SignerScenarios(const std::filesystem::path& folder);
[[nodiscard]] std::vector<Scenario> ReporterScenarios(const std::filesystem::path& folder);

}  // namespace zoproof
