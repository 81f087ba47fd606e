#pragma once

// The simulator's control device as a C++ object. zoprotector_simulator.h tells what each command does; this only
// carries it. A call that the device refuses fails the running test at once with the Win32 error (an exception that
// GoogleTest reports), so tests need not check every step; where a refusal is what is tested, use Send().
//
//   zotest::SimulatorClient simulator;            // the driver must be running: see installed_driver.h
//   simulator.FailNext(ZOP_IOCTL_ADD_FILE_RULE, 0xC0000044);
//   ... call the library ...
//   const ZoSimRequest request = simulator.LastRequest();

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "driver_records.h"
#include "owned_handles.h"
#include "zoprotector_simulator.h"

namespace zotest {

// One DeviceIoControl: 0 or the Win32 error, and the byte count that came back.
struct IoResult {
    std::uint32_t error = 0;
    std::uint32_t returned = 0;
};
[[nodiscard]] IoResult SendControl(HANDLE device, std::uint32_t code, const void* in = nullptr,
                                   std::uint32_t inLength = 0, void* out = nullptr, std::uint32_t outLength = 0);

// The driver's own control device, opened as the library opens it; empty when there is no driver.
[[nodiscard]] zo::OwnedFile OpenDriver();

class SimulatorClient {
  public:
    SimulatorClient();

    [[nodiscard]] IoResult Send(std::uint32_t code, const void* in = nullptr, std::uint32_t inLength = 0,
                                void* out = nullptr, std::uint32_t outLength = 0) const;

    // Everything as right after loading.
    void Reset() const;

    [[nodiscard]] ZoSimState State() const;
    [[nodiscard]] ZoSimSettings Settings() const;
    void SetSettings(const ZoSimSettings& settings) const;
    void SetVersion(std::uint32_t major, std::uint32_t minor, std::uint32_t patch) const;
    void SetStatsVersion(std::uint32_t version) const;
    void SetCapacity(std::uint32_t table, std::uint32_t capacity) const;
    void SetStatusReply(const std::uint8_t (&flags)[4], const std::uint32_t (&counts)[4]) const;

    // The requests that the driver still remembers, oldest first, from the given sequence number on.
    [[nodiscard]] std::vector<ZoSimRequest> Requests(std::uint64_t first = 0) const;
    // Raises std::runtime_error when there was none.
    [[nodiscard]] ZoSimRequest LastRequest() const;
    // How many commands the driver has received since loading or reset; "nothing was sent" is an unchanged number.
    [[nodiscard]] std::uint64_t RequestCount() const { return State().requests; }

    // The table's entries as records of their type (ZopRuleRecord and so on), without the padding.
    template <typename Record>
    [[nodiscard]] std::vector<Record> Table(std::uint32_t table) const {
        std::uint32_t entrySize = 0;
        const std::vector<std::uint8_t> bytes = TableBytes(table, entrySize);
        std::vector<Record> records(entrySize == 0 ? 0 : bytes.size() / entrySize);
        for (std::size_t i = 0; i < records.size(); ++i) {
            memcpy(&records[i], bytes.data() + i * entrySize, sizeof(Record));
        }
        return records;
    }

    void AddFault(const ZoSimFault& fault) const;
    void ClearFaults() const;
    // The next commands of this code (ZOSIM_ANY_CODE for any) answer this NTSTATUS and are not carried out.
    void FailNext(std::uint32_t code, std::uint32_t status, std::uint32_t times = 1) const;
    // The next command of this code is carried out and answers this byte count instead of its own.
    void ReturnBytes(std::uint32_t code, std::uint32_t returned, std::uint32_t times = 1) const;
    // The next command of this code is carried out; then word index (0 to 3) of its reply is overwritten.
    void OverwriteWord(std::uint32_t code, std::uint32_t index, std::uint32_t value, std::uint32_t times = 1) const;

    // ring: ZOSIM_RING_EVENTS or ZOSIM_RING_REGISTRY.
    void InjectEvents(std::uint32_t ring, std::uint32_t count) const;
    void SetSequence(std::uint32_t ring, std::uint32_t nextSequence) const;
    void SetProducer(std::uint32_t ring, std::uint32_t perDrain, std::uint32_t perSecond = 0) const;

    void SetPidSignature(const ZoSimPidSignature& signature) const;
    void SetCounters(const ZoSimCounters& counters) const;

  private:
    template <typename Change>
    void ChangeSettings(const Change& change) const;
    [[nodiscard]] std::vector<std::uint8_t> TableBytes(std::uint32_t table, std::uint32_t& entrySize) const;
    void Must(std::uint32_t code, const void* in, std::uint32_t inLength, void* out = nullptr,
              std::uint32_t outLength = 0) const;

    zo::OwnedFile device_;
};

// The text of a record's UTF-16 field, up to its terminator.
[[nodiscard]] std::wstring FieldText(const std::uint16_t* field, std::size_t units);
template <std::size_t N>
[[nodiscard]] std::wstring FieldText(const std::uint16_t (&field)[N]) {
    return FieldText(field, N);
}
// Writes text into a record's field; the rest of the field becomes zero. The text must fit.
void SetField(std::uint16_t* field, std::size_t units, const std::wstring& text);
template <std::size_t N>
void SetField(std::uint16_t (&field)[N], const std::wstring& text) {
    SetField(field, N, text);
}
// The record that a request carried.
template <typename Record>
[[nodiscard]] Record RecordOf(const ZoSimRequest& request) {
    static_assert(sizeof(Record) <= ZOSIM_REQUEST_BYTES);
    Record record;
    memcpy(&record, request.in, sizeof(record));
    return record;
}

}  // namespace zotest
