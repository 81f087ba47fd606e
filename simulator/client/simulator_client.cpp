#include "simulator_client.h"

#include "error_text.h"
#include "format.h"

namespace zosim {
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
    if (device_) return;
    const std::uint32_t error = GetLastError();
    throw SimulatorError(zo::Format("cannot open the simulator: {} (error {})", zo::ErrorText(error), error), error);
}

void SimulatorClient::Must(std::uint32_t code, const void* in, std::uint32_t inLength, void* out,
                           std::uint32_t outLength) const {
    const std::uint32_t error = Send(code, in, inLength, out, outLength).error;
    if (error == 0) return;
    throw SimulatorError(zo::Format("the simulator refused: {} (error {})", zo::ErrorText(error), error), error);
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

std::vector<std::uint8_t> SimulatorClient::TableBytes(std::uint32_t table, ZoSimTableReply& header) const {
    const ZoSimReadTable ask{table, 0};
    Must(ZOSIM_IOCTL_READ_TABLE, &ask, sizeof(ask), &header, sizeof(header));
    std::vector<std::uint8_t> reply(sizeof(header) + std::size_t{header.total} * header.entrySize);
    Must(ZOSIM_IOCTL_READ_TABLE, &ask, sizeof(ask), reply.data(), static_cast<std::uint32_t>(reply.size()));
    memcpy(&header, reply.data(), sizeof(header));
    reply.resize(sizeof(header) + std::size_t{header.count} * header.entrySize);
    reply.erase(reply.begin(), reply.begin() + sizeof(header));
    return reply;
}

}  // namespace zosim
