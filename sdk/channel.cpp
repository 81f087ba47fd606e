#include "channel.h"

#include <windows.h>

#include <atomic>
#include <mutex>
#include <utility>

#include "diagnostic_log.h"
#include "driver_records.h"
#include "locks.h"
#include "owned_handles.h"
#include "zoprotector.h"

namespace zop {

namespace {

constexpr const wchar_t* kDevicePath = L"\\\\.\\ZoProtector";
constexpr std::string_view kUninitialized = "ZoProtector_Uninitialize: SDK uninitialized";

struct ChannelState {
    zo::AtomicOwned<zo::FileKind> device;
    std::atomic<bool> initialized = false;
    zo::CriticalSection lock;  // Initialize and Uninitialize only
};

ChannelState channel;

std::int32_t StatusOfCommand(std::uint32_t code, DWORD error) {
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_DEV_NOT_EXIST:
            return ZOP_E_DRIVER_NOT_FOUND;
        case ERROR_ACCESS_DENIED:
            return ZOP_E_ACCESS_DENIED;
        case ERROR_DUP_NAME:
        case ERROR_ALREADY_EXISTS:
            return ZOP_E_ALREADY_EXISTS;
        case ERROR_INVALID_PARAMETER:
            return ZOP_E_INVALID_ARG;
        case ERROR_INSUFFICIENT_BUFFER:
            return ZOP_E_FAILED;
        case ERROR_NOT_FOUND:
            return ZOP_E_NOT_FOUND;
        case ERROR_NOT_ENOUGH_QUOTA:
            return ZOP_E_QUOTA_EXCEEDED;
        default:
            ZopLogFormat(kLogError, "ZopSendIoctl: DeviceIoControl(0x{:08X}) failed, error={}", code, error);
            return ZOP_E_FAILED;
    }
}

std::int32_t AskVersion(ZopVersionReply& version) {
    return ZopSendIoctl(ZOP_IOCTL_GET_VERSION, nullptr, 0, &version, sizeof version, nullptr);
}

// These two close at the end of a scope, also when a log line runs out of memory.
struct CloseLog {
    CloseLog() = default;
    ~CloseLog() { ZopLogClose(); }
    CloseLog(const CloseLog&) = delete;
    CloseLog& operator=(const CloseLog&) = delete;
};

struct CloseUnlessAccepted {
    CloseUnlessAccepted() = default;
    ~CloseUnlessAccepted() {
        if (!channel.initialized) channel.device.Reset();
    }
    CloseUnlessAccepted(const CloseUnlessAccepted&) = delete;
    CloseUnlessAccepted& operator=(const CloseUnlessAccepted&) = delete;
};

// The device is open; the caller closes it on failure.
std::int32_t Handshake() {
    ZopVersionReply driver{};
    if (const std::int32_t status = AskVersion(driver); status < 0) {
        ZopLogFormat(kLogError, "ZoProtector_Initialize: GetVersion failed 0x{:08X}", zo::Bits(status));
        return status;
    }
    // By value: the fields of a packed record cannot be bound to references.
    const std::uint32_t major = driver.major;
    const std::uint32_t minor = driver.minor;
    const std::uint32_t patch = driver.patch;
    if (major != ZOP_SDK_VERSION_MAJOR) {
        ZopLogFormat(kLogError, "ZoProtector_Initialize: Version mismatch (driver={}.{}.{}, sdk={}.{}.{})", major,
                     minor, patch, ZOP_SDK_VERSION_MAJOR, ZOP_SDK_VERSION_MINOR, ZOP_SDK_VERSION_PATCH);
        return ZOP_E_VERSION_MISMATCH;
    }
    channel.initialized = true;
    ZopLogFormat(kLogInfo, "ZoProtector_Initialize: SDK initialized (driver v{}.{}.{})", major, minor, patch);
    return ZOP_OK;
}

}  // namespace

void ZopCloseAtDetach() noexcept {
    const CloseLog closing;  // a failed initialisation, or a line written since, may have left the file open
    if (!channel.initialized) return;
    const std::unique_lock guard(channel.lock, std::try_to_lock);
    channel.device.Reset();       // before the line, as ZoProtector_Uninitialize does
    channel.initialized = false;  // and this
    try {
        ZopLogWriteUnlessLocked(kLogInfo, kUninitialized);
    } catch (...) {
        // No memory for the line. An exception must not leave the library's entry.
    }
}

bool ZopIsInitialized() noexcept {
    return channel.initialized;
}

std::int32_t ZopSendIoctl(std::uint32_t code, const void* in, std::uint32_t inLength, void* out,
                          std::uint32_t outLength, std::uint32_t* bytesReturned) {
    const HANDLE device = channel.device.Get();
    if (device == zo::FileKind::None()) return ZOP_E_NOT_INITIALIZED;
    DWORD returned = 0;
    const BOOL done =
        DeviceIoControl(device, code, const_cast<void*>(in), inLength, out, outLength, &returned, nullptr);
    const DWORD error = done ? ERROR_SUCCESS : GetLastError();
    if (bytesReturned != nullptr) *bytesReturned = returned;
    return done ? ZOP_OK : StatusOfCommand(code, error);
}

}  // namespace zop

using namespace zop;

int32_t ZoProtector_Initialize() {
    if (channel.initialized) return ZOP_OK;
    const std::lock_guard guard(channel.lock);
    if (channel.initialized) return ZOP_OK;

    ZopLogInit();
    ZopLogWrite(kLogInfo, "ZoProtector_Initialize: Starting SDK initialization");
    zo::OwnedFile device(CreateFileW(kDevicePath, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!device) {
        ZopLogFormat(kLogError, "ZoProtector_Initialize: CreateFileW failed, error={}", GetLastError());
        return ZOP_E_DRIVER_NOT_FOUND;
    }
    // The handshake goes through ZopSendIoctl, so other threads can use the handle before it succeeds.
    const CloseUnlessAccepted closing;
    channel.device.Reset(std::move(device));
    return Handshake();
}

int32_t ZoProtector_Uninitialize() {
    if (!channel.initialized) return ZOP_OK;
    const std::lock_guard guard(channel.lock);
    channel.device.Reset();
    channel.initialized = false;
    const CloseLog closing;
    ZopLogWrite(kLogInfo, kUninitialized);
    return ZOP_OK;
}

// Tests the handle and not the initialised flag, so it works during the handshake.
int32_t ZoProtector_GetVersion(uint32_t* major, uint32_t* minor, uint32_t* patch) {
    if (major == nullptr || minor == nullptr || patch == nullptr) return ZOP_E_INVALID_ARG;
    ZopVersionReply version{};
    if (const std::int32_t status = AskVersion(version); status < 0) return status;
    *major = version.major;
    *minor = version.minor;
    *patch = version.patch;
    return ZOP_OK;
}
