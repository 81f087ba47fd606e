#pragma once

// What the library's exports are measured against: the platform calls that the same job cannot do without, in plain
// code of fixed buffers. One handle to the driver, the name conversion, one DeviceIoControl, one line appended to a
// file and sent to the debugger.

#include <windows.h>

#include <cstdint>
#include <filesystem>

#include "driver_records.h"
#include "owned_handles.h"

namespace zobench {

class BareChannel {
  public:
    explicit BareChannel(const std::filesystem::path& logFile);

    // False when the driver refuses.
    bool Send(std::uint32_t code, const void* record, std::uint32_t size) const;
    // The same, then the line.
    bool SendAndLog(std::uint32_t code, const void* record, std::uint32_t size, const char* format, const wchar_t* name,
                    int number) const;

    // Allocates a zeroed reply, asks, copies the records out: what a drain or a list is at least. countWord is where
    // the header counts the records that follow. Returns how many came.
    std::uint32_t Fetch(std::uint32_t code, const void* in, std::uint32_t inLength, std::uint32_t countWord,
                        std::uint32_t recordSize, std::uint32_t capacity, void* records, std::uint32_t* position) const;

    static void ConvertPath(const wchar_t* path, std::uint16_t* out);
    static void ConvertMachineKey(const wchar_t* key, std::uint16_t* out);
    static void ConvertUserKey(const wchar_t* key, std::uint16_t* out);

  private:
    zo::OwnedFile device_;
    zo::OwnedFile log_;
};

}  // namespace zobench
