#pragma once

// ZIP archives whose files are stored as they are, which every unpacker reads. Pure.

#include <cstdint>
#include <span>
#include <string>

namespace zoctl {

struct ZipEntry {
    std::string name;  // UTF-8, with / between folders
    std::string bytes;
};

struct ZipTime {
    unsigned year = 1980;  // the first that the form can express
    unsigned month = 1;
    unsigned day = 1;
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
};

// All files together have to be smaller than 4 GiB, and no more than 65535.
[[nodiscard]] std::string ZipOf(std::span<const ZipEntry> entries, const ZipTime& time);

}  // namespace zoctl
