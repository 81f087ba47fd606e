#pragma once

// Every function of the C++ layer beside the C function that it stands on, one row a function.

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "format.h"
#include "hex.h"
#include "simulator_client.h"
#include "zocrashreport.hpp"
#include "zoprotector.hpp"
#include "zosigner.hpp"

namespace layertest {

using zostatus::ErrorTo;

// What a call handed over besides its status, as text that can be compared.
struct Output {
    std::string text;

    template <typename... Values>
    void Add(const Values&... values) {
        ((text += zo::Format("{} ", values)), ...);
    }
    void AddBytes(const void* bytes, std::size_t size) {
        text += zo::ToHex({static_cast<const std::uint8_t*>(bytes), size}) + ' ';
    }
    template <typename Record>
    void AddRecord(const Record& record) {
        AddBytes(&record, sizeof record);
    }
};

struct Row {
    const char* function;
    std::int32_t (*throughC)(Output& output);
    void (*throughLayer)(Output& output, ErrorTo error);
    void (*before)() = nullptr;  // what must be so before each of the two
};

// What needs the channel: driver and session are there.
[[nodiscard]] const std::vector<Row>& ChannelRows();
inline const zotest::SimulatorClient* simulator = nullptr;
inline zoprotector::Session* session = nullptr;

// Everything else: folder is the test's own; a driver is not installed at the start.
[[nodiscard]] const std::vector<Row>& OtherRows();
[[nodiscard]] const std::vector<Row>& CrashRows();
inline std::wstring folder;

}  // namespace layertest
