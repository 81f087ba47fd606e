#include "manifest_reader.h"

#include <charconv>
#include <chrono>

#include "format.h"

namespace zoctl {

namespace {

bool NextLine(std::string_view& text, std::string_view& line) {
    if (text.empty()) return false;
    const std::size_t end = text.find('\n');
    line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    return true;
}

bool Take(std::string_view line, std::string_view key, std::string& value) {
    if (!line.starts_with(key)) return false;
    value = line.substr(key.size());
    return true;
}

std::uint64_t Number(const std::string& text) {
    std::uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);  // what is no number counts as 0
    return number;
}

bool ReadHeader(std::string_view& text, ManifestListing& listing) {
    std::string_view line;
    std::string value;
    while (NextLine(text, line)) {
        if (line == "----") return true;
        if (Take(line, "TIME ", value)) listing.time = Number(value);
        static_cast<void>(Take(line, "ROOT ", listing.root) || Take(line, "PUB ", listing.thumbprint));
    }
    return false;
}

ManifestItem ReadFileLines(std::string_view& text) {
    ManifestItem item{"file"};
    std::string_view line;
    std::string value;
    for (int i = 0; i < 3 && NextLine(text, line); ++i) {
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        if (Take(line, "SIZE ", value)) item.size = Number(value);
        if (Take(line, "HASH ", value)) item.digest = value;
    }
    return item;
}

}  // namespace

bool ReadManifestListing(std::string_view text, ManifestListing& listing) {
    std::string_view line;
    if (!NextLine(text, line) || line != "ZOSIG1") return false;
    if (!NextLine(text, line) || !line.starts_with("MSIG ")) return false;
    if (!ReadHeader(text, listing)) return false;
    std::string path;
    while (NextLine(text, line)) {
        if (Take(line, "D S ", path)) {
            listing.items[path] = {"sealed folder"};
        } else if (Take(line, "D O ", path)) {
            listing.items[path] = {"open folder"};
        } else if (Take(line, "K ", path)) {
            listing.items[path] = {"shortcut"};
        } else if (Take(line, "F ", path)) {
            listing.items[path] = ReadFileLines(text);
        }
    }
    return true;
}

std::string FileTimeText(std::uint64_t time) {
    using namespace std::chrono;
    constexpr std::uint64_t kTicksPerSecond = 10000000;
    const sys_days begin = year{1601} / January / 1;
    const auto seconds = std::chrono::seconds(time / kTicksPerSecond);
    const sys_days day = begin + floor<days>(seconds);
    const year_month_day date{day};
    const hh_mm_ss clock{seconds - floor<days>(seconds)};
    return zo::Format("{:04d}-{:02d}-{:02d} {:02d}:{:02d}:{:02d} UTC", static_cast<int>(date.year()),
                      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
                      clock.minutes().count(), clock.seconds().count());
}

}  // namespace zoctl
