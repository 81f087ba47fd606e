#pragma once

// The scrambler that is installed until the caller brings another: scrambler_frame.h with AES-128 under the key that
// the build was given.

#include <cstdint>

namespace zocrash {

// A ZoCrashBodyScrambler; the context is not used. Fails with 0x80070057 without an output length, an input or an input
// length, and for an input whose scrambled length 32 bits cannot tell; with 0x8007007A, the needed length told, when
// the output is null or too small.
std::int32_t BuiltInScrambler(void* context, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t* out,
                              std::uint32_t outCapacity, std::uint32_t* outLength);

}  // namespace zocrash
