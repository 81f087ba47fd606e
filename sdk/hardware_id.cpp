// A stable identifier of the machine: a SHA-256 digest over up to four identifiers of hardware and installation. A
// missing source contributes nothing, so the digest changes when a disk is replaced or a driver starts to hide its
// serial number. It needs no driver.

// clang-format off
#include <windows.h>
#include <winioctl.h>
// clang-format on

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <vector>

#include "cng.h"
#include "diagnostic_log.h"
#include "hex.h"
#include "identifier_text.h"
#include "owned_handles.h"
#include "processor.h"
#include "smbios.h"
#include "zoprotector.h"

using namespace zop;

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kDigestSize = 32;
constexpr std::uint32_t kTextCapacity = 2 * kDigestSize + 1;

Bytes BytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

// Each source returns its bytes; empty when it has none.

Bytes ReadSystemUuid() {
    constexpr DWORD kRawSmbios = 0x52534D42;  // 'RSMB'
    constexpr UINT kSmallestTable = 9;        // a header and something behind it
    const UINT size = GetSystemFirmwareTable(kRawSmbios, 0, nullptr, 0);
    if (size < kSmallestTable) return {};
    Bytes table(size);
    const UINT read = GetSystemFirmwareTable(kRawSmbios, 0, table.data(), size);
    if (read == 0 || read > size) return {};
    const auto uuid = ZopFindSystemUuid({table.data(), read});
    return uuid ? Bytes(uuid->begin(), uuid->end()) : Bytes();
}

Bytes ReadMachineGuid() {
    zo::OwnedRegistryKey key;
    // The 64-bit view, whatever the bitness of the process.
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography", 0, KEY_READ | KEY_WOW64_64KEY,
                      key.Out()) != ERROR_SUCCESS) {
        return {};
    }
    std::array<wchar_t, 128> text{};
    DWORD type = 0;
    DWORD size = sizeof text;
    if (RegQueryValueExW(key.Get(), L"MachineGuid", nullptr, &type, reinterpret_cast<BYTE*>(text.data()), &size) !=
            ERROR_SUCCESS ||
        type != REG_SZ) {
        return {};
    }
    std::size_t length = size / sizeof(wchar_t);
    if (length > 0 && text[length - 1] == L'\0') --length;
    const auto* first = reinterpret_cast<const std::uint8_t*>(text.data());
    return {first, first + length * sizeof(wchar_t)};
}

Bytes ReadProcessorBrand() {
    constexpr std::uint32_t kHighestExtendedLeaf = 0x80000000;
    constexpr std::uint32_t kFirstBrandLeaf = 0x80000002;
    constexpr std::uint32_t kLastBrandLeaf = 0x80000004;
    std::array<std::uint32_t, 4> registers = zo::CpuId(kHighestExtendedLeaf);
    if (registers[0] < kLastBrandLeaf) return {};
    std::array<std::uint8_t, 3 * sizeof registers> brand{};
    for (std::uint32_t leaf = kFirstBrandLeaf; leaf <= kLastBrandLeaf; ++leaf) {
        registers = zo::CpuId(leaf);
        std::memcpy(brand.data() + (leaf - kFirstBrandLeaf) * sizeof registers, registers.data(), sizeof registers);
    }
    return BytesOf(ZopTextAt(brand, 0));
}

Bytes ReadFirstDiskSerial() {
    // No access rights: the query needs none, so any user may send it.
    const zo::OwnedFile disk(CreateFileW(L"\\\\.\\PhysicalDrive0", 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                         OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!disk) return {};
    STORAGE_PROPERTY_QUERY query{};
    static_assert(sizeof query == 12);
    query.PropertyId = StorageDeviceProperty;
    query.QueryType = PropertyStandardQuery;
    std::array<std::uint8_t, 1024> descriptor{};
    DWORD returned = 0;
    if (!DeviceIoControl(disk.Get(), IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof query, descriptor.data(),
                         static_cast<DWORD>(descriptor.size()), &returned, nullptr)) {
        return {};
    }
    return BytesOf(ZopSerialOfDescriptor(descriptor, returned));
}

std::int32_t ComputeHardwareIdDigest(zo::Sha256Digest& digest) {
    // The order is part of the digest.
    const ZopIdentifier identifiers[] = {
        {"SMBIOS_UUID", ReadSystemUuid()},
        {"MACHINE_GUID", ReadMachineGuid()},
        {"CPU_BRAND", ReadProcessorBrand()},
        {"DISK0_SERIAL", ReadFirstDiskSerial()},
    };
    const ZopMixedIdentifiers mixed = ZopMixIdentifiers(identifiers);
    if (mixed.count == 0) {
        ZopLogWrite(kLogError, "ComputeHardwareIdDigest: no identifier sources available on this host");
        return ZOP_E_FAILED;
    }
    ZopLogFormat(kLogInfo, "ComputeHardwareIdDigest: mixed {} identifier source(s)", mixed.count);
    return zo::HashOnce(BCRYPT_SHA256_ALGORITHM, mixed.input, digest) < 0 ? ZOP_E_FAILED : ZOP_OK;
}

}  // namespace

int32_t ZoProtector_GetHardwareId(wchar_t* text, uint32_t capacity) {
    if (text == nullptr || capacity < kTextCapacity) return ZOP_E_INVALID_ARG;
    zo::Sha256Digest digest{};
    if (const std::int32_t status = ComputeHardwareIdDigest(digest); status < 0) return status;
    const std::string digits = zo::ToHex(digest, zo::HexCase::kUpper);
    *std::copy(digits.begin(), digits.end(), text) = L'\0';
    ZopLogWrite(kLogInfo, "ZoProtector_GetHardwareId: produced HID");
    return ZOP_OK;
}

int32_t ZoProtector_GetHardwareIdBytes(uint8_t* buffer, uint32_t bufferSize, uint32_t* bytesWritten) {
    if (bytesWritten == nullptr) return ZOP_E_INVALID_ARG;
    *bytesWritten = 0;
    if (buffer == nullptr || bufferSize < kDigestSize) return ZOP_E_INVALID_ARG;
    zo::Sha256Digest digest{};
    if (const std::int32_t status = ComputeHardwareIdDigest(digest); status < 0) return status;
    std::copy(digest.begin(), digest.end(), buffer);
    *bytesWritten = kDigestSize;
    return ZOP_OK;
}
