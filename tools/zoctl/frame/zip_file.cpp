#include "zip_file.h"

#include <array>

namespace zoctl {

namespace {

constexpr std::array<std::uint32_t, 256> MakeCrcTable() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < table.size(); ++i) {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit)
            value = (value >> 1) ^ ((value & 1) != 0 ? 0xEDB88320u : 0u);
        table[i] = value;
    }
    return table;
}

std::uint32_t Crc32(const std::string& bytes) {
    static constexpr std::array<std::uint32_t, 256> kTable = MakeCrcTable();
    std::uint32_t crc = 0xFFFFFFFFu;
    for (const char byte : bytes)
        crc = (crc >> 8) ^ kTable[(crc ^ static_cast<unsigned char>(byte)) & 0xFF];
    return ~crc;
}

// Numbers of these many bytes, little-endian.
void Put16(std::string& out, std::size_t number) {
    for (int shift = 0; shift < 16; shift += 8)
        out += static_cast<char>((number >> shift) & 0xFF);
}

void Put32(std::string& out, std::size_t number) {
    Put16(out, number & 0xFFFF);
    Put16(out, (number >> 16) & 0xFFFF);
}

constexpr std::uint32_t kLocalHeader = 0x04034B50;
constexpr std::uint32_t kCentralHeader = 0x02014B50;
constexpr std::uint32_t kEndOfDirectory = 0x06054B50;
constexpr unsigned kVersion = 20;
constexpr unsigned kNameIsUtf8 = 0x0800;

// What the header before a file's bytes and its entry in the directory at the end have in common.
std::string Description(const ZipEntry& entry, const ZipTime& time) {
    std::string out;
    Put16(out, kVersion);
    Put16(out, kNameIsUtf8);
    Put16(out, 0);  // stored
    Put16(out, time.hour << 11 | time.minute << 5 | time.second / 2);
    Put16(out, (time.year - 1980) << 9 | time.month << 5 | time.day);
    Put32(out, Crc32(entry.bytes));
    Put32(out, entry.bytes.size());
    Put32(out, entry.bytes.size());
    Put16(out, entry.name.size());
    Put16(out, 0);  // no extra field
    return out;
}

}  // namespace

std::string ZipOf(std::span<const ZipEntry> entries, const ZipTime& time) {
    std::string zip;
    std::string directory;
    for (const ZipEntry& entry : entries) {
        const std::string description = Description(entry, time);
        Put32(directory, kCentralHeader);
        Put16(directory, kVersion);
        directory += description;
        directory.append(10, '\0');  // no comment, first disk, no attributes
        Put32(directory, zip.size());
        directory += entry.name;
        Put32(zip, kLocalHeader);
        zip += description + entry.name + entry.bytes;
    }
    const std::size_t start = zip.size();
    zip += directory;
    Put32(zip, kEndOfDirectory);
    Put32(zip, 0);  // one disk
    Put16(zip, entries.size());
    Put16(zip, entries.size());
    Put32(zip, directory.size());
    Put32(zip, start);
    Put16(zip, 0);  // no comment
    return zip;
}

}  // namespace zoctl
