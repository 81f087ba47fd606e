#pragma once

// The body of a request: a payload and, before it, its length in decimal and "&". Room for that prefix is kept in front
// of the payload from the start, so that a body of a dump's size is framed in place instead of being copied.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace zocrash {

class RequestBody {
  public:
    RequestBody() = default;
    // Room for so many payload bytes, which are not initialised.
    explicit RequestBody(std::size_t capacity);

    [[nodiscard]] std::span<std::uint8_t> Payload() noexcept { return {storage_.get() + kPrefixRoom, length_}; }

    // Cuts the payload; a length beyond it changes nothing.
    void Truncate(std::size_t length) noexcept;

    // Writes the prefix and gives the whole body, which lives as long as this object.
    [[nodiscard]] std::span<const std::uint8_t> Frame() noexcept;

  private:
    static constexpr std::size_t kPrefixRoom = 24;  // twenty digits and "&", rounded up

    std::unique_ptr<std::uint8_t[]> storage_ = std::make_unique<std::uint8_t[]>(kPrefixRoom);
    std::size_t length_ = 0;
};

// The public scrambler callback, spelled without the platform's header.
using BodyScrambler = std::int32_t (*)(void* context, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t* out,
                                       std::uint32_t outCapacity, std::uint32_t* outLength);

// The payload of a document: the scrambled text, or the text itself without a scrambler. The text is freed before this
// returns. Gives a status; a document that is too long for the scrambler's 32-bit lengths is refused.
[[nodiscard]] std::int32_t ScrambleDocument(RequestBody text, BodyScrambler scrambler, void* context,
                                            RequestBody& body);

}  // namespace zocrash
