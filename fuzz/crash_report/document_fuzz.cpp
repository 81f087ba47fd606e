// What is put on the wire: the document's rendering and the built-in scrambler's frame, which are taken apart
// again, and base64, for which both encoders must agree.

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "base64.h"
#include "document.h"
#include "request_body.h"
#include "require.h"
#include "scrambler_frame.h"

namespace {

class Mixer : public zocrash::BlockCipher {
  public:
    std::int32_t Encrypt(std::span<std::uint8_t> blocks) override {
        for (std::size_t i = 0; i < blocks.size(); ++i)
            blocks[i] = static_cast<std::uint8_t>(blocks[i] * std::size_t{167} + i % 16);
        return 0;
    }
};

std::string Unscramble(const std::string& scrambled, const zocrash::ScramblerRandomness& random) {
    Require(scrambled.size() >= 16 && scrambled.size() % 8 == 0);
    std::string plain = scrambled.substr(8);
    std::uint8_t block[16];
    for (std::size_t at = 0; at < plain.size(); ++at) {
        if (at % 16 == 0) {
            std::memcpy(block, scrambled.data(), 8);
            for (int i = 0; i < 8; ++i)
                block[15 - i] = static_cast<std::uint8_t>(std::uint64_t{at / 16} >> 8 * i);
            Require(Mixer().Encrypt(block) == 0);
        }
        plain[at] = static_cast<char>(plain[at] ^ block[at % 16]);
    }
    Require(plain.back() >= 2 && plain.back() <= 9);
    const std::size_t end = plain.size() - static_cast<std::size_t>(plain.back());
    Require(std::memcmp(&plain[end], random.padding, plain.size() - end - 1) == 0);
    return plain.substr(0, end);
}

std::int32_t Scramble(void* context, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t* out,
                      std::uint32_t capacity, std::uint32_t* length) {
    *length = static_cast<std::uint32_t>(zocrash::ScrambledLength(inLength));
    if (out == nullptr) return 0;
    Require(capacity == *length);
    Require(zocrash::ScrambleBytes({in, inLength}, *static_cast<zocrash::ScramblerRandomness*>(context),
                                   *std::make_unique<Mixer>(), {out, capacity}) == 0);
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    zocrash::ScramblerRandomness random{};
    if (size < sizeof(random)) return 0;
    std::memcpy(&random, data, sizeof(random));
    const std::string value(data + sizeof(random), data + size);

    std::string encoded;
    zocrash::EncodeBase64(value, encoded);
    std::string portable(encoded.size(), ' ');
    zocrash::EncodeBase64Portable({data + sizeof(random), value.size()}, portable.data());
    Require(portable == encoded);

    zocrash::RequestBody body;
    const zocrash::DocumentFields fields{{"MinDump", encoded}, {"Any", value}};
    Require(zocrash::ScrambleDocument(zocrash::RenderDocument(fields), Scramble, &random, body) == 0);
    const std::string framed(body.Frame().begin(), body.Frame().end());
    const std::string payload = framed.substr(framed.find('&') + 1);
    Require(framed == std::to_string(payload.size()) + "&" + payload);
    Require(Unscramble(payload, random) == "<Crash_protocol>\r\n<Any>" + value + "</Any>\r\n<MinDump>" + encoded +
                                               "</MinDump>\r\n</Crash_protocol>\r\n");
    return 0;
}
