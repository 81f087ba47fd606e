#include "device.h"

#include <cstring>

#include "error_text.h"
#include "format.h"

namespace simctl {

Device::Device()
    : handle_(CreateFileW(ZOSIM_DEVICE_PATH, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                          OPEN_EXISTING, 0, nullptr)) {
    if (handle_) return;
    const DWORD error = GetLastError();
    if (error == ERROR_FILE_NOT_FOUND) {
        throw Failure{kNoSimulator, "no simulator is running; start its driver with \"zoctl driver start\""};
    }
    throw Failure{kRefused, zo::Format("cannot open the simulator: {} (error {})", zo::ErrorText(error), error)};
}

void Device::Send(std::uint32_t code, const void* in, std::size_t inLength, void* out, std::size_t outLength) const {
    DWORD returned = 0;
    if (DeviceIoControl(handle_.Get(), code, const_cast<void*>(in), static_cast<DWORD>(inLength), out,
                        static_cast<DWORD>(outLength), &returned, nullptr)) {
        return;
    }
    const DWORD error = GetLastError();
    throw Failure{kRefused, zo::Format("the simulator refused: {} (error {})", zo::ErrorText(error), error)};
}

std::vector<ZoSimRequest> Device::Requests(std::uint64_t first) const {
    std::vector<std::uint8_t> reply(sizeof(ZoSimRequestsReply) + ZOSIM_REQUESTS_KEPT * sizeof(ZoSimRequest));
    const ZoSimReadRequests ask{first};
    Send(ZOSIM_IOCTL_READ_REQUESTS, &ask, sizeof(ask), reply.data(), reply.size());
    ZoSimRequestsReply header;
    std::memcpy(&header, reply.data(), sizeof(header));
    std::vector<ZoSimRequest> requests(header.count);
    if (!requests.empty()) {
        std::memcpy(requests.data(), reply.data() + sizeof(header), requests.size() * sizeof(ZoSimRequest));
    }
    return requests;
}

std::vector<std::uint8_t> Device::Table(std::uint32_t table, ZoSimTableReply& header) const {
    const ZoSimReadTable ask{table, 0};
    Send(ZOSIM_IOCTL_READ_TABLE, &ask, sizeof(ask), &header, sizeof(header));
    std::vector<std::uint8_t> reply(sizeof(header) + std::size_t{header.total} * header.entrySize);
    Send(ZOSIM_IOCTL_READ_TABLE, &ask, sizeof(ask), reply.data(), reply.size());
    std::memcpy(&header, reply.data(), sizeof(header));
    reply.resize(sizeof(header) + std::size_t{header.count} * header.entrySize);
    reply.erase(reply.begin(), reply.begin() + sizeof(header));
    return reply;
}

}  // namespace simctl
