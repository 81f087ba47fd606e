#include "simulator_client.h"

#include <algorithm>
#include <cstring>

#include "format.h"

namespace zotest {
namespace {

zo::OwnedFile OpenDevice(const wchar_t* path) {
    return zo::OwnedFile(
        CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

}  // namespace

IoResult SendControl(HANDLE device, std::uint32_t code, const void* in, std::uint32_t inLength, void* out,
                     std::uint32_t outLength) {
    DWORD returned = 0;
    const BOOL done =
        DeviceIoControl(device, code, const_cast<void*>(in), inLength, out, outLength, &returned, nullptr);
    return {done ? 0 : GetLastError(), returned};
}

zo::OwnedFile OpenDriver() {
    return OpenDevice(L"\\\\.\\ZoProtector");
}

SimulatorClient::SimulatorClient() : device_(OpenDevice(ZOSIM_DEVICE_PATH)) {
    if (!device_) {
        throw std::runtime_error(
            zo::Format("the simulator's control device cannot be opened, error {}", GetLastError()));
    }
}

IoResult SimulatorClient::Send(std::uint32_t code, const void* in, std::uint32_t inLength, void* out,
                               std::uint32_t outLength) const {
    return SendControl(device_.Get(), code, in, inLength, out, outLength);
}

void SimulatorClient::Must(std::uint32_t code, const void* in, std::uint32_t inLength, void* out,
                           std::uint32_t outLength) const {
    const IoResult result = Send(code, in, inLength, out, outLength);
    if (result.error != 0) {
        throw std::runtime_error(zo::Format("the simulator refused 0x{:08X} with error {}", code, result.error));
    }
}

void SimulatorClient::Reset() const {
    Must(ZOSIM_IOCTL_RESET, nullptr, 0);
}

ZoSimState SimulatorClient::State() const {
    ZoSimState state{};
    Must(ZOSIM_IOCTL_GET_STATE, nullptr, 0, &state, sizeof(state));
    return state;
}

ZoSimSettings SimulatorClient::Settings() const {
    ZoSimSettings settings{};
    Must(ZOSIM_IOCTL_GET_SETTINGS, nullptr, 0, &settings, sizeof(settings));
    return settings;
}

void SimulatorClient::SetSettings(const ZoSimSettings& settings) const {
    Must(ZOSIM_IOCTL_SET_SETTINGS, &settings, sizeof(settings));
}

template <typename Change>
void SimulatorClient::ChangeSettings(const Change& change) const {
    ZoSimSettings settings = Settings();
    change(settings);
    SetSettings(settings);
}

void SimulatorClient::SetVersion(std::uint32_t major, std::uint32_t minor, std::uint32_t patch) const {
    ChangeSettings([&](ZoSimSettings& settings) {
        settings.version[0] = major;
        settings.version[1] = minor;
        settings.version[2] = patch;
    });
}

void SimulatorClient::SetStatsVersion(std::uint32_t version) const {
    ChangeSettings([&](ZoSimSettings& settings) { settings.statsVersion = version; });
}

void SimulatorClient::SetCapacity(std::uint32_t table, std::uint32_t capacity) const {
    ChangeSettings([&](ZoSimSettings& settings) { settings.tableCapacity[table] = capacity; });
}

void SimulatorClient::SetStatusReply(const std::uint8_t (&flags)[4], const std::uint32_t (&counts)[4]) const {
    ChangeSettings([&](ZoSimSettings& settings) {
        settings.useStatusReply = 1;
        std::copy_n(flags, 4, settings.statusFlag);
        std::copy_n(counts, 4, settings.statusCount);
    });
}

std::vector<ZoSimRequest> SimulatorClient::Requests(std::uint64_t first) const {
    std::vector<std::uint8_t> reply(sizeof(ZoSimRequestsReply) + ZOSIM_REQUESTS_KEPT * sizeof(ZoSimRequest));
    const ZoSimReadRequests ask{first};
    Must(ZOSIM_IOCTL_READ_REQUESTS, &ask, sizeof(ask), reply.data(), static_cast<std::uint32_t>(reply.size()));
    ZoSimRequestsReply header;
    memcpy(&header, reply.data(), sizeof(header));
    std::vector<ZoSimRequest> requests(header.count);
    if (header.count != 0) memcpy(requests.data(), reply.data() + sizeof(header), header.count * sizeof(ZoSimRequest));
    return requests;
}

ZoSimRequest SimulatorClient::LastRequest() const {
    const std::uint64_t newest = RequestCount();
    const std::vector<ZoSimRequest> requests = Requests(newest);
    if (newest == 0 || requests.empty()) throw std::runtime_error("no request has reached the driver");
    return requests.back();
}

std::vector<std::uint8_t> SimulatorClient::TableBytes(std::uint32_t table, std::uint32_t& entrySize) const {
    const ZoSimReadTable ask{table, 0};
    ZoSimTableReply header{};
    Must(ZOSIM_IOCTL_READ_TABLE, &ask, sizeof(ask), &header, sizeof(header));
    std::vector<std::uint8_t> reply(sizeof(header) + std::size_t{header.total} * header.entrySize);
    Must(ZOSIM_IOCTL_READ_TABLE, &ask, sizeof(ask), reply.data(), static_cast<std::uint32_t>(reply.size()));
    memcpy(&header, reply.data(), sizeof(header));
    entrySize = header.entrySize;
    return {reply.begin() + sizeof(header),
            reply.begin() + static_cast<std::ptrdiff_t>(sizeof(header) + std::size_t{header.count} * header.entrySize)};
}

void SimulatorClient::AddFault(const ZoSimFault& fault) const {
    Must(ZOSIM_IOCTL_ADD_FAULT, &fault, sizeof(fault));
}

void SimulatorClient::ClearFaults() const {
    Must(ZOSIM_IOCTL_CLEAR_FAULTS, nullptr, 0);
}

void SimulatorClient::FailNext(std::uint32_t code, std::uint32_t status, std::uint32_t times) const {
    AddFault({code, 0, times, ZOSIM_FAULT_STATUS, status, 0, 0, 0, {}});
}

void SimulatorClient::ReturnBytes(std::uint32_t code, std::uint32_t returned, std::uint32_t times) const {
    AddFault({code, 0, times, ZOSIM_FAULT_RETURNED, 0, returned, 0, 0, {}});
}

void SimulatorClient::OverwriteWord(std::uint32_t code, std::uint32_t index, std::uint32_t value,
                                    std::uint32_t times) const {
    ZoSimFault fault{code, 0, times, ZOSIM_FAULT_WORDS, 0, 0, 0, 1u << index, {}};
    fault.words[index] = value;
    AddFault(fault);
}

void SimulatorClient::InjectEvents(std::uint32_t ring, std::uint32_t count) const {
    const ZoSimInjection injection{ring, count, 0, 0};
    Must(ZOSIM_IOCTL_INJECT_EVENTS, &injection, sizeof(injection));
}

void SimulatorClient::SetSequence(std::uint32_t ring, std::uint32_t nextSequence) const {
    const ZoSimInjection injection{ring, 0, 1, nextSequence};
    Must(ZOSIM_IOCTL_INJECT_EVENTS, &injection, sizeof(injection));
}

void SimulatorClient::SetProducer(std::uint32_t ring, std::uint32_t perDrain, std::uint32_t perSecond) const {
    const ZoSimProducer producer{ring, perSecond, perDrain, 0};
    Must(ZOSIM_IOCTL_SET_PRODUCER, &producer, sizeof(producer));
}

void SimulatorClient::SetPidSignature(const ZoSimPidSignature& signature) const {
    Must(ZOSIM_IOCTL_SET_PID_SIGNATURE, &signature, sizeof(signature));
}

void SimulatorClient::SetCounters(const ZoSimCounters& counters) const {
    Must(ZOSIM_IOCTL_SET_COUNTERS, &counters, sizeof(counters));
}

std::wstring FieldText(const std::uint16_t* field, std::size_t units) {
    std::wstring text;
    for (std::size_t i = 0; i < units && field[i] != 0; ++i)
        text += static_cast<wchar_t>(field[i]);
    return text;
}

void SetField(std::uint16_t* field, std::size_t units, const std::wstring& text) {
    if (text.size() >= units) throw std::runtime_error("text does not fit its field");
    memset(field, 0, units * sizeof(*field));
    for (std::size_t i = 0; i < text.size(); ++i)
        field[i] = static_cast<std::uint16_t>(text[i]);
}

}  // namespace zotest
