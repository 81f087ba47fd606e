#include "built_in_scrambler.h"

#include <array>
#include <limits>

#include "cng.h"
#include "errors.h"
#include "hex.h"
#include "owned_handles.h"
#include "scrambler_frame.h"

namespace zocrash {

namespace {

class Aes128 : public BlockCipher {
  public:
    [[nodiscard]] std::int32_t Open() {
        std::array<std::uint8_t, 16> key{};
        if (!zo::DecodeHexExactly(ZO_CRASH_SCRAMBLER_KEY, key)) return zo::kFail;
        NTSTATUS status = BCryptOpenAlgorithmProvider(provider_.Out(), BCRYPT_AES_ALGORITHM, nullptr, 0);
        if (status >= 0) {
            std::array<wchar_t, 16> mode{BCRYPT_CHAIN_MODE_ECB};
            status = BCryptSetProperty(provider_.Get(), BCRYPT_CHAINING_MODE, reinterpret_cast<PUCHAR>(mode.data()),
                                       sizeof(mode), 0);
        }
        if (status >= 0) {
            status = BCryptGenerateSymmetricKey(provider_.Get(), key_.Out(), nullptr, 0, key.data(),
                                                static_cast<ULONG>(key.size()), 0);
        }
        SecureZeroMemory(key.data(), key.size());
        return status < 0 ? zo::HresultFromNtStatus(status) : zo::kOk;
    }

    [[nodiscard]] std::int32_t Encrypt(std::span<std::uint8_t> blocks) override {
        const auto length = static_cast<ULONG>(blocks.size());
        ULONG written = 0;
        const NTSTATUS status =
            BCryptEncrypt(key_.Get(), blocks.data(), length, nullptr, nullptr, 0, blocks.data(), length, &written, 0);
        return status < 0 ? zo::HresultFromNtStatus(status) : zo::kOk;
    }

  private:
    zo::OwnedAlgorithm provider_;
    zo::OwnedCryptoKey key_;  // destroyed before its provider
};

}  // namespace

std::int32_t BuiltInScrambler(void*, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t* out,
                              std::uint32_t outCapacity, std::uint32_t* outLength) {
    if (outLength == nullptr || in == nullptr || inLength == 0) return zo::kInvalidArgument;
    const std::uint64_t needed = ScrambledLength(inLength);
    if (needed > std::numeric_limits<std::uint32_t>::max()) return zo::kInvalidArgument;
    *outLength = static_cast<std::uint32_t>(needed);
    if (out == nullptr || outCapacity < needed) return zo::kInsufficientBuffer;

    ScramblerRandomness random;
    if (const std::int32_t status = zo::FillRandom({reinterpret_cast<std::uint8_t*>(&random), sizeof(random)});
        status < 0) {
        return zo::HresultFromNtStatus(status);
    }
    Aes128 cipher;
    if (const std::int32_t status = cipher.Open(); status < 0) return status;
    return ScrambleBytes({in, inLength}, random, cipher, {out, static_cast<std::size_t>(needed)});
}

}  // namespace zocrash
