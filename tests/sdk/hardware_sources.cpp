// Prints the sources of this machine's hardware identifier as the platform gives them, not yet taken apart, and what
// the library makes of them; then what it makes of the sources that come in on standard input. See hardware_id_test.py.

// clang-format off
#include <windows.h>
#include <winioctl.h>
// clang-format on

#include <algorithm>
#include <iostream>
#include <utility>

#include "hex.h"
#include "import_hook.h"
#include "owned_handles.h"
#include "processor.h"
#include "sdk_fixture.h"

namespace {

// Empty is a source that cannot be read.
struct Sources {
    sdktest::Bytes smbios, guid, disk;
    DWORD guidType = REG_SZ;
    bool hashes = true;
} now;

void ReadMachine() {
    now.smbios.resize(65536);
    now.smbios.resize(GetSystemFirmwareTable(0x52534D42, 0, now.smbios.data(), 65536));
    DWORD size = 1024;
    now.guid.resize(size);
    RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography", L"MachineGuid", RRF_RT_REG_SZ, nullptr,
                 now.guid.data(), &size);
    now.guid.resize(size);
    const zo::OwnedFile drive(CreateFileW(L"\\\\.\\PhysicalDrive0", 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
    STORAGE_PROPERTY_QUERY query = {StorageDeviceProperty, PropertyStandardQuery, {}};
    now.disk.resize(1024);
    if (!DeviceIoControl(drive.Get(), IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof query, now.disk.data(), 1024, &size,
                         nullptr))
        size = 0;
    now.disk.resize(size);
}

UINT WINAPI ReadFirmware(DWORD, DWORD, void* buffer, DWORD size) {
    if (size >= now.smbios.size()) std::copy(now.smbios.begin(), now.smbios.end(), static_cast<BYTE*>(buffer));
    return static_cast<UINT>(now.smbios.size());
}

LSTATUS WINAPI QueryValue(HKEY, const wchar_t*, DWORD*, DWORD* type, BYTE* data, DWORD* size) {
    const DWORD room = std::exchange(*size, static_cast<DWORD>(now.guid.size()));
    *type = now.guidType;
    if (now.guid.empty() || *size > room) return ERROR_MORE_DATA;
    std::copy(now.guid.begin(), now.guid.end(), data);
    return ERROR_SUCCESS;
}

HANDLE WINAPI OpenDisk(const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD disposition,
                       DWORD attributes, HANDLE like) {
    const bool isDisk = std::wstring(name) == L"\\\\.\\PhysicalDrive0";
    return isDisk ? CreateEventW(nullptr, TRUE, FALSE, nullptr)  // any handle will do
                  : CreateFileW(name, access, share, security, disposition, attributes, like);
}

BOOL WINAPI QueryDisk(HANDLE, DWORD, void*, DWORD, void* out, DWORD, DWORD* returned, OVERLAPPED*) {
    std::copy(now.disk.begin(), now.disk.end(), static_cast<BYTE*>(out));
    *returned = static_cast<DWORD>(now.disk.size());
    return now.disk.empty() ? FALSE : TRUE;
}

NTSTATUS WINAPI OpenProvider(void** provider, const wchar_t* algorithm, const wchar_t* implementation, ULONG flags) {
    if (!now.hashes) return static_cast<NTSTATUS>(0xC0000001);
    return BCryptOpenAlgorithmProvider(provider, algorithm, implementation, flags);
}

void Report() {
    zotest::LogTail log;
    std::uint8_t bytes[33] = {};
    std::wstring text(66, L'#');
    std::uint32_t written = 99;
    const int32_t textStatus = ZoProtector_GetHardwareId(text.data(), 65);
    const int32_t bytesStatus = ZoProtector_GetHardwareIdBytes(bytes, 33, &written);
    std::cout << textStatus << ' ' << bytesStatus << ' ' << zo::Utf8FromWide(text.c_str()) << ' ' << zo::ToHex(bytes)
              << ' ' << written;
    for (const std::string& line : sdktest::NewLines(log))
        std::cout << '|' << line;
    std::cout << std::endl;
}

}  // namespace

int main() {
    const sdktest::OwnTemporaryFolder temporary;
    ZoProtector_Initialize();  // with or without a driver: it sets up the log
    ZoProtector_Uninitialize();
    ReadMachine();
    std::cout << zo::ToHex(now.smbios) << ' ' << zo::ToHex(now.guid) << ' ' << zo::ToHex(now.disk) << ' ';
    for (std::uint32_t leaf = 0x80000002; leaf <= 0x80000004 && zo::CpuId(0x80000000)[0] >= 0x80000004; ++leaf)
        for (const std::uint32_t word : zo::CpuId(leaf))
            std::cout << zo::ToHex({reinterpret_cast<const std::uint8_t*>(&word), sizeof word});
    std::cout << std::endl;
    Report();
    {
        const zotest::ImportHook hooks[] = {
            {"GetSystemFirmwareTable", &ReadFirmware},
            {"RegQueryValueExW", &QueryValue},
            {"DeviceIoControl", &QueryDisk},
            {"CreateFileW", &OpenDisk},
            {"BCryptOpenAlgorithmProvider", &OpenProvider},
        };
        // "-" is no hexadecimal text and so an empty source.
        for (std::string smbios, guid, disk; std::cin >> smbios >> guid >> disk >> now.guidType >> now.hashes;) {
            static_cast<void>(zo::DecodeHex(smbios, now.smbios));
            static_cast<void>(zo::DecodeHex(guid, now.guid));
            static_cast<void>(zo::DecodeHex(disk, now.disk));
            Report();
        }
    }
    ZoProtector_Uninitialize();
    return 0;
}
