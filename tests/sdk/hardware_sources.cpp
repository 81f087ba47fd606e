// Prints the hardware identifier that the library makes, once of what this machine has and then of what the functions
// that it asks are made to answer: one JSON object each, sources included as the platform gives them and not yet taken
// apart. hardware_id_test.py reckons the digests from them.

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "hex.h"
#include "import_hook.h"
#include "owned_handles.h"
#include "processor.h"
#include "sdk_fixture.h"

namespace {

using sdktest::Bytes;

Bytes Wide(const std::wstring& text, std::size_t size) {
    const auto* first = reinterpret_cast<const std::uint8_t*>(text.c_str());
    return {first, first + size};
}
// A header and a system structure whose UUID is 16 times the same byte, and its end mark.
Bytes Smbios(std::uint8_t uuid) {
    Bytes table = {0, 3, 4, 0, 27, 0, 0, 0, 1, 25, 0, 0, 0, 0, 0, 0};
    table.insert(table.end(), 16, uuid);
    table.insert(table.end(), 3, std::uint8_t{0});
    return table;
}
Bytes Disk(const std::string& serial, std::uint8_t offset = 40) {
    Bytes descriptor(40);
    descriptor[24] = offset;
    descriptor.insert(descriptor.end(), serial.begin(), serial.end());
    return descriptor;
}

struct Sources {
    const char* name = "as it is";
    Bytes smbios = Smbios(7);  // empty: none
    DWORD guidType = REG_SZ;
    Bytes guid = Wide(L"abc", 8);
    LSTATUS keyError = ERROR_SUCCESS;
    Bytes disk = Disk("  SER 1 ");  // empty: the query fails
    bool hashes = true;
};
Sources now;
bool scripted = false;  // else the platform answers, and now is what it said

UINT WINAPI ReadFirmware(DWORD provider, DWORD id, void* buffer, DWORD size) {
    if (scripted) {
        if (size >= now.smbios.size()) std::copy(now.smbios.begin(), now.smbios.end(), static_cast<BYTE*>(buffer));
        return static_cast<UINT>(now.smbios.size());
    }
    const UINT read = GetSystemFirmwareTable(provider, id, buffer, size);
    const auto* first = static_cast<const BYTE*>(buffer);
    now.smbios = read <= size ? Bytes(first, first + read) : Bytes();
    return read;
}

LSTATUS WINAPI OpenKey(HKEY root, const wchar_t* name, DWORD options, REGSAM access, HKEY* key) {
    return now.keyError != ERROR_SUCCESS ? now.keyError : RegOpenKeyExW(root, name, options, access, key);
}

LSTATUS WINAPI QueryValue(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size) {
    if (scripted) {
        const DWORD room = std::exchange(*size, static_cast<DWORD>(now.guid.size()));
        *type = now.guidType;
        if (*size > room) return ERROR_MORE_DATA;
        std::copy(now.guid.begin(), now.guid.end(), data);
        return ERROR_SUCCESS;
    }
    now.keyError = RegQueryValueExW(key, name, reserved, type, data, size);
    now.guidType = *type;
    now.guid.assign(data, data + *size);
    return now.keyError;
}

BOOL WINAPI QueryDisk(HANDLE disk, DWORD code, void* in, DWORD inSize, void* out, DWORD outSize, DWORD* returned,
                      OVERLAPPED* overlapped) {
    auto* const bytes = static_cast<BYTE*>(out);
    if (scripted) {
        std::copy(now.disk.begin(), now.disk.end(), bytes);
        *returned = static_cast<DWORD>(now.disk.size());
        return now.disk.empty() ? FALSE : TRUE;
    }
    const BOOL done = DeviceIoControl(disk, code, in, inSize, out, outSize, returned, overlapped);
    now.disk.assign(bytes, bytes + *returned);
    return done;
}

HANDLE WINAPI OpenDisk(const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD disposition,
                       DWORD attributes, HANDLE like) {
    const bool isDisk = std::wstring(name) == L"\\\\.\\PhysicalDrive0";
    if (isDisk && scripted) return CreateEventW(nullptr, TRUE, FALSE, nullptr);  // any handle will do
    if (isDisk) now.disk.clear();
    return CreateFileW(name, access, share, security, disposition, attributes, like);
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
    std::string lines;
    for (const std::string& line : sdktest::NewLines(log))
        lines += (lines.empty() ? "\"" : ", \"") + line + '"';
    std::array<std::uint8_t, 48> brand{};
    for (std::uint32_t leaf = 0; leaf < 3 && zo::CpuId(0x80000000)[0] >= 0x80000004; ++leaf) {
        const auto registers = zo::CpuId(0x80000002 + leaf);
        memcpy(brand.data() + 16 * leaf, registers.data(), 16);
    }
    std::printf("%s\n",
                zo::Format("{{\"case\": \"{}\", \"key\": {}, \"type\": {}, \"guid\": \"{}\", \"smbios\": \"{}\", "
                           "\"brand\": \"{}\", \"disk\": \"{}\", \"hashes\": {}, \"status\": [{}, {}], "
                           "\"text\": \"{}\", \"bytes\": \"{}\", \"written\": {}, \"lines\": [{}]}}",
                           now.name, now.keyError, now.guidType, zo::ToHex(now.guid), zo::ToHex(now.smbios),
                           zo::ToHex(brand), zo::ToHex(now.disk), now.hashes, textStatus, bytesStatus,
                           zo::Utf8FromWide(text.c_str()), zo::ToHex(bytes), written, lines)
                    .c_str());
}

}  // namespace

int main() {
    const zotest::TempFolder folder;
    const zotest::ScopedTmp tmp(folder.Path().wstring());
    ZoProtector_Initialize();  // with or without a driver: it sets up the log
    ZoProtector_Uninitialize();
    {
        const zotest::ImportHook hooks[] = {
            {"GetSystemFirmwareTable", &ReadFirmware},
            {"RegOpenKeyExW", &OpenKey},
            {"RegQueryValueExW", &QueryValue},
            {"DeviceIoControl", &QueryDisk},
            {"CreateFileW", &OpenDisk},
            {"BCryptOpenAlgorithmProvider", &OpenProvider},
        };
        Report();
        scripted = true;
        const std::wstring g(130, L'g');
        const Sources cases[] = {
            {.name = "all"},
            {.name = "no firmware table", .smbios = {}},
            {.name = "UUID of all FF", .smbios = Smbios(0xFF)},
            {.name = "no key", .keyError = ERROR_FILE_NOT_FOUND},
            {.name = "no terminator", .guid = Wide(L"abc", 6)},
            {.name = "longest", .guid = Wide(g, 256)},
            {.name = "too long", .guid = Wide(g, 258)},
            {.name = "only a terminator", .guid = Wide(L"", 2)},
            {.name = "no bytes", .guid = {}},
            {.name = "odd byte count", .guid = Wide(L"abc", 5)},
            {.name = "another type", .guidType = REG_EXPAND_SZ},
            {.name = "no disk", .disk = {}},
            {.name = "descriptor cut", .disk = Bytes(39, 24)},
            {.name = "no serial number", .disk = Disk("SER", 0)},
            {.name = "blank serial number", .disk = Disk("   ")},
            {.name = "processor alone", .smbios = {}, .keyError = ERROR_ACCESS_DENIED, .disk = {}},
            {.name = "no cryptography", .hashes = false},
        };
        for (const Sources& sources : cases) {
            now = sources;
            Report();
        }
    }
    ZoProtector_Uninitialize();
    return 0;
}
