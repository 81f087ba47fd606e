#pragma once

// The simulator's control device. Whatever fails is raised as a Failure, which ends the command.

#include <cstdint>
#include <string>
#include <vector>

#include "owned_handles.h"
#include "zoprotector_simulator.h"

namespace simctl {

enum Exit : int { kDone = 0, kRefused = 1, kUsage = 2, kNoSimulator = 3 };

struct Failure {
    int exitCode;
    std::string message;
};

class Device {
  public:
    Device();

    void Tell(std::uint32_t code) const { Send(code, nullptr, 0, nullptr, 0); }
    template <typename Record>
    void Set(std::uint32_t code, const Record& record) const {
        Send(code, &record, sizeof(record), nullptr, 0);
    }
    template <typename Record>
    [[nodiscard]] Record Get(std::uint32_t code) const {
        Record record{};
        Send(code, nullptr, 0, &record, sizeof(record));
        return record;
    }
    // Reads the settings, changes them and writes them back.
    template <typename Change>
    void ChangeSettings(const Change& change) const {
        ZoSimSettings settings = Get<ZoSimSettings>(ZOSIM_IOCTL_GET_SETTINGS);
        change(settings);
        Set(ZOSIM_IOCTL_SET_SETTINGS, settings);
    }

    // The last requests, oldest first, from this sequence number on.
    [[nodiscard]] std::vector<ZoSimRequest> Requests(std::uint64_t first) const;
    // A table's entries, one after the other; the header says how many there are and how long each is.
    [[nodiscard]] std::vector<std::uint8_t> Table(std::uint32_t table, ZoSimTableReply& header) const;

  private:
    void Send(std::uint32_t code, const void* in, std::size_t inLength, void* out, std::size_t outLength) const;

    zo::OwnedFile handle_;
};

}  // namespace simctl
