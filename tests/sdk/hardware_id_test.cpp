// The hardware identifier, computed anew from sources that stand in for this machine's.

// clang-format off
#include <windows.h>
#include <winioctl.h>
// clang-format on

#include <utility>

#include "cng.h"
#include "hex.h"
#include "import_hook.h"
#include "processor.h"
#include "sdk_fixture.h"

namespace sdktest {
namespace {

using std::literals::operator""s;

// A firmware table with one system structure, whose UUID is 16 bytes of this value.
std::string Firmware(char fill) {
    return "\0\3\4\0\x1B\0\0\0\1\x19\0\0\0\0\0\0"s + std::string(16, fill) + "\0\0\0"s;
}

// A device descriptor whose serial number begins at byte 40.
std::string Disk(const std::string& serial) {
    return std::string(24, '\0') + char{40} + std::string(15, '\0') + serial;
}

// What the platform answers; empty is a source that cannot be read.
struct Sources {
    std::string firmware = Firmware(7), guid = "a\0b\0c\0\0\0"s, disk = Disk("  SER 1 ");
    DWORD guidType = REG_SZ;
} now;

// What must be taken from Sources{}.
struct Identifiers {
    std::string uuid = std::string(16, 7), guid = "a\0b\0c\0"s, serial = "SER 1";
};

UINT WINAPI ReadFirmware(DWORD provider, DWORD table, void* buffer, DWORD size) {
    EXPECT_EQ(std::pair(provider, table), std::pair(DWORD{0x52534D42}, DWORD{0}));  // 'RSMB'
    now.firmware.copy(static_cast<char*>(buffer), size);
    return static_cast<UINT>(now.firmware.size());
}

LSTATUS WINAPI QueryValue(HKEY key, const wchar_t* name, DWORD*, DWORD* type, BYTE* data, DWORD* size) {
    EXPECT_STREQ(name, L"MachineGuid");
    EXPECT_EQ(RegQueryValueExW(key, name, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS) << "another key";
    const DWORD room = std::exchange(*size, static_cast<DWORD>(now.guid.size()));
    *type = now.guidType;
    if (now.guid.empty() || *size > room) return ERROR_MORE_DATA;
    now.guid.copy(reinterpret_cast<char*>(data), room);
    return ERROR_SUCCESS;
}

HANDLE WINAPI OpenDisk(const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE) {
    EXPECT_STREQ(name, L"\\\\.\\PhysicalDrive0");
    EXPECT_EQ(access, 0u) << "any user may ask";
    EXPECT_EQ(share, DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE});
    return CreateEventW(nullptr, TRUE, FALSE, nullptr);  // any handle will do
}

BOOL WINAPI QueryDisk(HANDLE, DWORD code, void* query, DWORD, void* out, DWORD room, DWORD* returned, OVERLAPPED*) {
    EXPECT_EQ(std::pair(code, room), std::pair(DWORD{IOCTL_STORAGE_QUERY_PROPERTY}, DWORD{1024}));
    EXPECT_EQ(static_cast<STORAGE_PROPERTY_QUERY*>(query)->PropertyId, StorageDeviceProperty);
    *returned = static_cast<DWORD>(now.disk.copy(static_cast<char*>(out), room));
    return now.disk.empty() ? FALSE : TRUE;
}

std::string ProcessorBrand() {
    std::string brand;
    for (std::uint32_t leaf = 0x80000002; leaf <= 0x80000004 && zo::CpuId(0x80000000)[0] >= 0x80000004; ++leaf)
        for (const std::uint32_t word : zo::CpuId(leaf))
            brand.append(reinterpret_cast<const char*>(&word), sizeof word);
    brand = brand.c_str();  // up to its terminator
    brand.erase(brand.find_last_not_of(' ') + 1);
    return brand.erase(0, brand.find_first_not_of(' '));
}

class HardwareId : public SdkTest {
  protected:
    void Expect(const Identifiers& identifiers) {
        zo::Hasher hasher(BCRYPT_SHA256_ALGORITHM);
        int found = 0;
        for (const auto& [label, value] : {std::pair{"SMBIOS_UUID\x1F"s, identifiers.uuid},
                                           {"MACHINE_GUID\x1F"s, identifiers.guid},
                                           {"CPU_BRAND\x1F"s, ProcessorBrand()},
                                           {"DISK0_SERIAL\x1F"s, identifiers.serial}}) {
            if (value.empty()) continue;
            ++found;
            ASSERT_GE(hasher.Update((label + value).data(), label.size() + value.size()), 0);
        }
        zo::Sha256Digest digest{}, bytes{};
        ASSERT_GE(hasher.Finish(digest), 0);
        const std::string mixed = zo::Format("[INFO ] ComputeHardwareIdDigest: mixed {} identifier source(s)", found);
        EXPECT_EQ(ZoProtector_GetHardwareId(text_.data(), 65), ZOP_OK);
        EXPECT_EQ(Log(), (Lines{mixed, "[INFO ] ZoProtector_GetHardwareId: produced HID"}));
        EXPECT_EQ(zo::Utf8FromWide(text_), zo::ToHex(digest, zo::HexCase::kUpper) + "\0#"s);
        EXPECT_EQ(ZoProtector_GetHardwareIdBytes(bytes.data(), 32, &written_), ZOP_OK);
        EXPECT_EQ(Log(), Lines{mixed});
        EXPECT_EQ(bytes, digest);
        EXPECT_EQ(written_, 32u);
    }

    std::wstring text_ = std::wstring(66, L'#');
    std::uint32_t written_ = 99;
};

TEST_F(HardwareId, IsTheDigestOfTheSourcesThatCanBeRead) {
    const zotest::ImportHook hooks[] = {
        {"GetSystemFirmwareTable", &ReadFirmware},
        {"RegQueryValueExW", &QueryValue},
        {"DeviceIoControl", &QueryDisk},
        {"CreateFileW", &OpenDisk},
    };
    const struct {
        const char* name;
        Sources sources;
        Identifiers identifiers;
    } cases[] = {
        {"all", {}, {}},
        {"no firmware table", {.firmware = {}}, {.uuid = {}}},
        {"UUID of all FF", {.firmware = Firmware('\xFF')}, {.uuid = {}}},
        {"GUID without terminator", {.guid = "a\0b\0c\0"s}, {}},
        {"longest GUID", {.guid = std::string(256, 'g')}, {.guid = std::string(256, 'g')}},
        {"GUID too long", {.guid = std::string(258, 'g')}, {.guid = {}}},
        {"GUID of a terminator only", {.guid = "\0\0"s}, {.guid = {}}},
        {"GUID of an odd byte count", {.guid = "a\0b\0c"s}, {.guid = "a\0b\0"s}},
        {"GUID of another type", {.guidType = REG_EXPAND_SZ}, {.guid = {}}},
        {"no disk", {.disk = {}}, {.serial = {}}},
        {"blank serial number", {.disk = Disk("   ")}, {.serial = {}}},
        {"tabs are not blanks", {.disk = Disk(" \tSER\t ")}, {.serial = "\tSER\t"}},
        {"processor alone", {.firmware = {}, .guid = {}, .disk = {}}, {.uuid = {}, .guid = {}, .serial = {}}},
    };
    for (const auto& [name, sources, identifiers] : cases) {
        SCOPED_TRACE(name);
        now = sources;
        Expect(identifiers);
    }
}

TEST_F(HardwareId, WritesNothingWithoutCryptography) {
    const zotest::ImportHook hook("BCryptOpenAlgorithmProvider", BCryptOpenAlgorithmProvider,
                                  [](auto...) { return static_cast<NTSTATUS>(0xC0000001); });
    zo::Sha256Digest bytes{};
    EXPECT_EQ(ZoProtector_GetHardwareId(text_.data(), 65), ZOP_E_FAILED);
    EXPECT_EQ(text_, std::wstring(66, L'#'));
    EXPECT_EQ(ZoProtector_GetHardwareIdBytes(bytes.data(), 32, &written_), ZOP_E_FAILED);
    EXPECT_EQ(bytes, zo::Sha256Digest{});
    EXPECT_EQ(written_, 0u);
}

}  // namespace
}  // namespace sdktest
