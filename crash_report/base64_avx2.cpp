#include "base64_avx2.h"

#if defined(__AVX2__)
#include <immintrin.h>
#endif

namespace zocrash {

#if defined(__AVX2__)

namespace {

constexpr std::size_t kGroup = 24;   // bytes encoded at a time
constexpr std::size_t kLoaded = 28;  // bytes read for them: two overlapping halves of 16

// Each half's first twelve bytes become four 32-bit fields that each hold one group of three bytes twice, in the order
// in which the multiplications below want them; these part every group into its four six-bit values, one a byte.
__m256i SixBitValues(__m256i in) noexcept {
    const __m256i order = _mm256_broadcastsi128_si256(_mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    const __m256i fields = _mm256_shuffle_epi8(in, order);
    // Multiplying a 16-bit half by a power of two shifts it by an amount of its own.
    const __m256i firstAndThird =
        _mm256_mulhi_epu16(_mm256_and_si256(fields, _mm256_set1_epi32(0x0FC0FC00)), _mm256_set1_epi32(0x04000040));
    const __m256i secondAndFourth =
        _mm256_mullo_epi16(_mm256_and_si256(fields, _mm256_set1_epi32(0x003F03F0)), _mm256_set1_epi32(0x01000010));
    return _mm256_or_si256(firstAndThird, secondAndFourth);
}

// The alphabet is five runs, in each of which character minus value is the same. The run's number: 0 for A to Z, 1 for
// a to z, 2 to 11 for the digits, 12 for "+", 13 for "/".
__m256i Characters(__m256i values) noexcept {
    const __m256i above25 = _mm256_cmpgt_epi8(values, _mm256_set1_epi8(25));
    const __m256i run = _mm256_sub_epi8(_mm256_subs_epu8(values, _mm256_set1_epi8(51)), above25);
    constexpr char kDigit = '0' - 52;
    const __m256i offsets =
        _mm256_broadcastsi128_si256(_mm_setr_epi8('A', 'a' - 26, kDigit, kDigit, kDigit, kDigit, kDigit, kDigit, kDigit,
                                                  kDigit, kDigit, kDigit, '+' - 62, '/' - 63, 0, 0));
    return _mm256_add_epi8(values, _mm256_shuffle_epi8(offsets, run));
}

}  // namespace

std::size_t EncodeBase64Avx2(const std::uint8_t* bytes, std::size_t size, char* text) noexcept {
    std::size_t done = 0;
    for (; size - done >= kLoaded; done += kGroup, text += 32) {
        const auto* low = reinterpret_cast<const __m128i*>(bytes + done);
        const auto* high = reinterpret_cast<const __m128i*>(bytes + done + kGroup / 2);
        const __m256i in = _mm256_set_m128i(_mm_loadu_si128(high), _mm_loadu_si128(low));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(text), Characters(SixBitValues(in)));
    }
    return done;
}

#else

std::size_t EncodeBase64Avx2(const std::uint8_t*, std::size_t, char*) noexcept {
    return 0;
}

#endif

}  // namespace zocrash
