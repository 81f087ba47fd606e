#include "request_body.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <utility>

#include "errors.h"

namespace zocrash {

namespace {

constexpr auto kTooLarge = static_cast<std::int32_t>(0x800700DFu);  // ERROR_FILE_TOO_LARGE

}  // namespace

RequestBody::RequestBody(std::size_t capacity)
    : storage_(std::make_unique_for_overwrite<std::uint8_t[]>(kPrefixRoom + capacity)), length_(capacity) {}

void RequestBody::Truncate(std::size_t length) noexcept {
    length_ = std::min(length_, length);
}

std::span<const std::uint8_t> RequestBody::Frame() noexcept {
    char digits[kPrefixRoom];
    char* const end = std::to_chars(digits, digits + sizeof(digits) - 1, length_).ptr;
    *end = '&';
    const auto prefixLength = static_cast<std::size_t>(end + 1 - digits);
    std::uint8_t* const start = storage_.get() + kPrefixRoom - prefixLength;
    std::memcpy(start, digits, prefixLength);
    return {start, prefixLength + length_};
}

std::int32_t ScrambleDocument(RequestBody text, BodyScrambler scrambler, void* context, RequestBody& body) {
    const std::span<const std::uint8_t> in = text.Payload();
    if (in.size() > std::numeric_limits<std::uint32_t>::max()) return kTooLarge;
    if (scrambler == nullptr) {
        body = std::move(text);
        return zo::kOk;
    }

    const auto inLength = static_cast<std::uint32_t>(in.size());
    std::uint32_t length = 0;
    const std::int32_t sizing = scrambler(context, in.data(), inLength, nullptr, 0, &length);
    if (sizing < 0 && sizing != zo::kInsufficientBuffer) return sizing;

    RequestBody scrambled(length);
    const std::int32_t status = scrambler(context, in.data(), inLength, scrambled.Payload().data(), length, &length);
    if (status < 0) return status;
    scrambled.Truncate(length);
    body = std::move(scrambled);
    return zo::kOk;
}

}  // namespace zocrash
