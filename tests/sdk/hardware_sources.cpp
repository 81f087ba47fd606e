// Prints what the hardware identifier is made of, as the platform gives it and not yet taken apart, and what the
// library makes of it: one JSON object for each content of the registry value MachineGuid that is tried. The value is
// put back. hardware_id_test.py reckons the digests from it.

// clang-format off
#include <windows.h>
#include <winioctl.h>
#include <intrin.h>
// clang-format on

#include <algorithm>
#include <cstdio>

#include "format.h"
#include "hex.h"
#include "sdk_fixture.h"

namespace {

using sdktest::Bytes;

std::string Hex(const void* bytes, std::size_t size) {
    return zo::ToHex({static_cast<const std::uint8_t*>(bytes), size});
}

std::string Smbios() {
    Bytes table(GetSystemFirmwareTable(0x52534D42, 0, nullptr, 0));
    const UINT size =
        table.empty() ? 0 : GetSystemFirmwareTable(0x52534D42, 0, table.data(), static_cast<UINT>(table.size()));
    return Hex(table.data(), size <= table.size() ? size : 0);
}

std::string Brand() {
    int leaves[12] = {};
    int highest[4];
    __cpuid(highest, static_cast<int>(0x80000000));
    if (static_cast<unsigned>(highest[0]) < 0x80000004) return {};
    for (int i = 0; i < 3; ++i)
        __cpuid(leaves + 4 * i, static_cast<int>(0x80000002) + i);
    return Hex(leaves, sizeof leaves);
}

std::string DiskDescriptor() {
    const zo::OwnedFile disk(CreateFileW(L"\\\\.\\PhysicalDrive0", 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                         OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::uint8_t query[12] = {};
    std::uint8_t descriptor[1024] = {};
    DWORD size = 0;
    DeviceIoControl(disk.Get(), 0x2D1400, query, sizeof query, descriptor, sizeof descriptor, &size, nullptr);
    return Hex(descriptor, size);
}

class MachineGuid {
  public:
    MachineGuid() {
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography", 0, KEY_ALL_ACCESS | KEY_WOW64_64KEY,
                      key_.Out());
        DWORD size = sizeof old_;
        if (RegQueryValueExW(key_.Get(), kName, nullptr, &type_, old_, &size) == ERROR_SUCCESS) size_ = size;
    }
    ~MachineGuid() {
        if (size_ != 0) Set(type_, Bytes(old_, old_ + size_));
    }
    void Set(DWORD type, const Bytes& bytes) {
        RegSetValueExW(key_.Get(), kName, 0, type, bytes.data(), static_cast<DWORD>(bytes.size()));
    }
    void Delete() { RegDeleteValueW(key_.Get(), kName); }
    [[nodiscard]] Bytes Old() const { return {old_, old_ + size_}; }

  private:
    static constexpr const wchar_t* kName = L"MachineGuid";
    zo::OwnedRegistryKey key_;
    BYTE old_[1024] = {};
    DWORD size_ = 0;
    DWORD type_ = 0;
};

// guid is what the registry holds as text now, terminator included; empty when that is no source.
void Report(const char* name, const Bytes& guid) {
    zotest::LogTail log;
    wchar_t text[66];
    std::fill(std::begin(text), std::end(text), L'#');
    std::uint8_t bytes[33] = {};
    std::uint32_t written = 0;
    const int32_t textStatus = ZoProtector_GetHardwareId(text, 65);
    const int32_t bytesStatus = ZoProtector_GetHardwareIdBytes(bytes, 33, &written);
    std::string lines;
    for (const std::string& line : log.Next())
        lines += (lines.empty() ? "\"" : ", \"") + sdktest::LevelAndMessage(line) + '"';
    std::printf("%s\n",
                zo::Format("{{\"case\": \"{}\", \"guid\": \"{}\", \"smbios\": \"{}\", \"brand\": \"{}\", \"disk\": "
                           "\"{}\", \"status\": [{}, {}], \"text\": \"{}\", \"bytes\": \"{}\", \"written\": {}, "
                           "\"lines\": [{}]}}",
                           name, zo::ToHex(guid), Smbios(), Brand(), DiskDescriptor(), textStatus, bytesStatus,
                           zo::Utf8FromWide({text, 66}).c_str(), Hex(bytes, 33), written, lines)
                    .c_str());
}

Bytes Wide(const std::wstring& text, bool terminated = true) {
    const auto* first = reinterpret_cast<const std::uint8_t*>(text.c_str());
    return {first, first + (text.size() + (terminated ? 1 : 0)) * 2};
}

}  // namespace

int main() {
    const zotest::TempFolder folder;
    const zotest::ScopedTmp tmp(folder.Path().wstring());
    ZoProtector_Initialize();  // with or without a driver: it sets up the log
    MachineGuid guid;
    const Bytes old = guid.Old();
    Report("as it is", old);
    const struct {
        const char* name;
        DWORD type;
        Bytes bytes;
        bool counts;
    } cases[] = {
        {"other text", REG_SZ, Wide(L"01234567-89ab-cdef-0123-456789abcdef"), true},
        {"no terminator", REG_SZ, Wide(L"abc", false), true},
        {"longest", REG_SZ, Wide(std::wstring(127, L'g')), true},
        {"longest without terminator", REG_SZ, Wide(std::wstring(128, L'g'), false), true},
        {"too long", REG_SZ, Wide(std::wstring(128, L'g')), false},
        {"only a terminator", REG_SZ, Wide(L""), false},
        {"no bytes", REG_SZ, {}, false},
        {"another type", REG_EXPAND_SZ, Wide(L"abc"), false},
        {"binary", REG_BINARY, Wide(L"abc"), false},
    };
    for (const auto& c : cases) {
        guid.Set(c.type, c.bytes);
        Report(c.name, c.counts ? c.bytes : Bytes());
    }
    guid.Delete();
    Report("missing", {});
    ZoProtector_Uninitialize();
    return 0;
}
