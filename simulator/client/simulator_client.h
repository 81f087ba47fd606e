#pragma once

// The simulator's control device as a C++ object. zoprotector_simulator.h describes each command; this only carries it.
// A call that the device refuses raises a SimulatorError, so callers need not check every step; use Send() where a
// refusal is expected.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "driver_records.h"
#include "owned_handles.h"
#include "zoprotector_simulator.h"

namespace zosim {

// One DeviceIoControl: 0 or the Win32 error, and the byte count that came back.
struct IoResult {
    std::uint32_t error = 0;
    std::uint32_t returned = 0;
};
[[nodiscard]] IoResult SendControl(HANDLE device, std::uint32_t code, const void* in = nullptr,
                                   std::uint32_t inLength = 0, void* out = nullptr, std::uint32_t outLength = 0);

// The driver's own control device, opened as the library opens it; empty when there is no driver.
[[nodiscard]] zo::OwnedFile OpenDriver();

class SimulatorError : public std::runtime_error {
  public:
    SimulatorError(const std::string& message, std::uint32_t win32Error)
        : std::runtime_error(message), error(win32Error) {}

    std::uint32_t error;  // ERROR_FILE_NOT_FOUND when no simulator is running
};

class SimulatorClient {
  public:
    SimulatorClient();

    [[nodiscard]] IoResult Send(std::uint32_t code, const void* in = nullptr, std::uint32_t inLength = 0,
                                void* out = nullptr, std::uint32_t outLength = 0) const {
        return SendControl(device_.Get(), code, in, inLength, out, outLength);
    }

    template <typename Record>
    [[nodiscard]] Record Get(std::uint32_t code) const {
        Record record{};
        Must(code, nullptr, 0, &record, sizeof(record));
        return record;
    }
    template <typename Record>
    void Set(std::uint32_t code, const Record& record) const {
        Must(code, &record, sizeof(record));
    }

    // Everything as right after loading.
    void Reset() const { Must(ZOSIM_IOCTL_RESET, nullptr, 0); }

    [[nodiscard]] ZoSimState State() const { return Get<ZoSimState>(ZOSIM_IOCTL_GET_STATE); }
    [[nodiscard]] ZoSimSettings Settings() const { return Get<ZoSimSettings>(ZOSIM_IOCTL_GET_SETTINGS); }
    void SetSettings(const ZoSimSettings& settings) const { Set(ZOSIM_IOCTL_SET_SETTINGS, settings); }
    // Reads the settings, has them changed and writes them back.
    template <typename Step>
    void ChangeSettings(const Step& step) const {
        ZoSimSettings settings = Settings();
        step(settings);
        SetSettings(settings);
    }
    void SetVersion(std::uint32_t major, std::uint32_t minor, std::uint32_t patch) const {
        const std::uint32_t version[] = {major, minor, patch};
        ChangeSettings([&](ZoSimSettings& settings) { std::copy_n(version, 3, settings.version); });
    }
    void SetStatsVersion(std::uint32_t version) const {
        ChangeSettings([&](ZoSimSettings& settings) { settings.statsVersion = version; });
    }
    void SetCapacity(std::uint32_t table, std::uint32_t capacity) const {
        ChangeSettings([&](ZoSimSettings& settings) { settings.tableCapacity[table] = capacity; });
    }
    void SetStatusReply(const std::uint8_t (&flags)[4], const std::uint32_t (&counts)[4]) const {
        ChangeSettings([&](ZoSimSettings& settings) {
            settings.useStatusReply = 1;
            std::copy_n(flags, 4, settings.statusFlag);
            std::copy_n(counts, 4, settings.statusCount);
        });
    }

    // The requests that the driver still remembers, oldest first, from the given sequence number on.
    [[nodiscard]] std::vector<ZoSimRequest> Requests(std::uint64_t first = 0) const;
    // Raises std::runtime_error when there was none.
    [[nodiscard]] ZoSimRequest LastRequest() const;
    // How many commands the driver has received since loading or reset; "nothing was sent" is an unchanged number.
    [[nodiscard]] std::uint64_t RequestCount() const { return State().requests; }

    // The table's entries as records of their type (ZopRuleRecord and so on), without the padding.
    template <typename Record>
    [[nodiscard]] std::vector<Record> Table(std::uint32_t table) const {
        ZoSimTableReply header{};
        const std::vector<std::uint8_t> bytes = TableBytes(table, header);
        std::vector<Record> records(header.count);
        for (std::size_t i = 0; i < records.size(); ++i)
            memcpy(&records[i], bytes.data() + i * header.entrySize, sizeof(Record));
        return records;
    }
    // The entries one after the other; the header tells how many there are and the length of each.
    [[nodiscard]] std::vector<std::uint8_t> TableBytes(std::uint32_t table, ZoSimTableReply& header) const;

    void AddFault(const ZoSimFault& fault) const { Set(ZOSIM_IOCTL_ADD_FAULT, fault); }
    void ClearFaults() const { Must(ZOSIM_IOCTL_CLEAR_FAULTS, nullptr, 0); }
    // The next commands of this code (ZOSIM_ANY_CODE for any) answer this NTSTATUS and are not carried out.
    void FailNext(std::uint32_t code, std::uint32_t status, std::uint32_t times = 1) const {
        AddFault({code, 0, times, ZOSIM_FAULT_STATUS, status, 0, 0, 0, {}});
    }
    // The next commands of this code are carried out and answer this byte count instead of their own.
    void ReturnBytes(std::uint32_t code, std::uint32_t returned, std::uint32_t times = 1) const {
        AddFault({code, 0, times, ZOSIM_FAULT_RETURNED, 0, returned, 0, 0, {}});
    }

    // ring: ZOSIM_RING_EVENTS or ZOSIM_RING_REGISTRY.
    void InjectEvents(std::uint32_t ring, std::uint32_t count) const {
        Set(ZOSIM_IOCTL_INJECT_EVENTS, ZoSimInjection{ring, count, 0, 0});
    }
    void SetSequence(std::uint32_t ring, std::uint32_t nextSequence) const {
        Set(ZOSIM_IOCTL_INJECT_EVENTS, ZoSimInjection{ring, 0, 1, nextSequence});
    }
    void SetProducer(std::uint32_t ring, std::uint32_t perDrain, std::uint32_t perSecond = 0) const {
        Set(ZOSIM_IOCTL_SET_PRODUCER, ZoSimProducer{ring, perSecond, perDrain, 0});
    }

    void SetPidSignature(const ZoSimPidSignature& signature) const { Set(ZOSIM_IOCTL_SET_PID_SIGNATURE, signature); }
    void SetCounters(const ZoSimCounters& counters) const { Set(ZOSIM_IOCTL_SET_COUNTERS, counters); }

  private:
    void Must(std::uint32_t code, const void* in, std::uint32_t inLength, void* out = nullptr,
              std::uint32_t outLength = 0) const;

    zo::OwnedFile device_;
};

// The text of a record's UTF-16 field, up to its terminator.
[[nodiscard]] inline std::wstring FieldText(const std::uint16_t* field, std::size_t units) {
    return {field, std::find(field, field + units, 0)};
}
template <std::size_t N>
[[nodiscard]] std::wstring FieldText(const std::uint16_t (&field)[N]) {
    return FieldText(field, N);
}
// Writes text into a record's field; the rest of the field becomes zero. The text must fit.
template <std::size_t N>
void SetField(std::uint16_t (&field)[N], const std::wstring& text) {
    if (text.size() >= N) throw std::runtime_error("text does not fit its field");
    std::fill(std::copy(text.begin(), text.end(), field), field + N, std::uint16_t{0});
}
// The record that a request carried.
template <typename Record>
[[nodiscard]] Record RecordOf(const ZoSimRequest& request) {
    static_assert(sizeof(Record) <= ZOSIM_REQUEST_BYTES);
    Record record;
    memcpy(&record, request.in, sizeof(record));
    return record;
}

}  // namespace zosim
