#pragma once

// The scrambler that is in use until the caller sets another one: scrambler_frame.h with AES-128 and the key of the
// build.

#include <cstdint>

namespace zocrash {

// A ZoCrashBodyScrambler; the context is not used. Fails with 0x80070057 when the output length, the input or its
// length is missing, or when the scrambled length does not fit in 32 bits; with 0x8007007A, and the needed length in
// *outLength, when the output is null or too small.
std::int32_t BuiltInScrambler(void* context, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t* out,
                              std::uint32_t outCapacity, std::uint32_t* outLength);

}  // namespace zocrash
