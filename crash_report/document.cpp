#include "document.h"

#include <algorithm>
#include <string_view>

#include "format.h"

namespace zocrash {

namespace {

constexpr std::string_view kHead = "<Crash_protocol>\r\n";
constexpr std::string_view kTail = "</Crash_protocol>\r\n";
constexpr std::string_view kLineEnd = ">\r\n";

}  // namespace

RequestBody RenderDocument(const DocumentFields& fields) {
    std::size_t length = kHead.size() + kTail.size();
    for (const auto& [name, value] : fields) {
        length += 2 * name.size() + value.size() + std::string_view("<></").size() + kLineEnd.size();
    }

    RequestBody text(length);
    auto next = text.Payload().begin();
    const auto put = [&next](std::string_view part) { next = std::copy(part.begin(), part.end(), next); };
    put(kHead);
    for (const auto& [name, value] : fields) {
        for (const std::string_view part :
             {std::string_view("<"), std::string_view(name), std::string_view(">"), std::string_view(value),
              std::string_view("</"), std::string_view(name), kLineEnd}) {
            put(part);
        }
    }
    put(kTail);
    return text;
}

std::string AddressText(std::uint64_t address) {
    return zo::Format("0x{:016X}", address);
}

std::string TimestampText(unsigned year, unsigned month, unsigned day, unsigned hour, unsigned minute,
                          unsigned second) {
    return zo::Format("{}-{}-{} {}:{}:{}", year, month, day, hour, minute, second);
}

std::string BugcheckLine(std::uint32_t code) {
    return zo::Format("Bugcheck code {:x}\n", code);
}

}  // namespace zocrash
