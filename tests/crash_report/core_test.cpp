// The reporter's pure cores: what is read off the wire and what is put on it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "base64.h"
#include "document.h"
#include "request_body.h"
#include "scrambler_frame.h"
#include "server_reply.h"
#include "server_url.h"

namespace zocrash {
namespace {

constexpr auto kNeedsBuffer = static_cast<std::int32_t>(0x8007007Au);
constexpr auto kRefused = static_cast<std::int32_t>(0x80004005u);

std::string Text(std::span<const std::uint8_t> bytes) {
    return {bytes.begin(), bytes.end()};
}

RequestBody BodyOf(std::string_view text) {
    RequestBody body(text.size());
    std::copy(text.begin(), text.end(), body.Payload().begin());
    return body;
}

TEST(ServerReply, TakesStatusFromTheTextBeforeTheFirstBlankButThreeCharactersAtMost) {
    struct Case {
        std::string text;
        int status;
        std::string message;
    };
    const Case cases[] = {
        {"", 0, ""},
        {"20", 0, ""},
        {"200", 200, ""},
        {"200 ", 200, ""},
        {"200 Send it\r\n", 200, "Send it"},
        {"300 a\r\nb\r\n\r\n\n", 300, "a\r\nb"},
        {"300  two blanks", 300, " two blanks"},
        {"2001 x", 200, "x"},
        {"2000", 200, ""},
        {"20 x", 20, "x"},
        {"2 00", 2, "00"},
        {" 200", 0, "200"},
        {"2x0", 2, ""},
        {"x200 y", 0, "y"},
        {"-20 x", -20, "x"},
        {"+20 x", 20, "x"},
        {"\n20 x", 20, "x"},
        {"\t\v\f", 0, ""},
        {"--2", 0, ""},
        {std::string("20\0 x", 5), 20, "x"},
    };
    for (const Case& c : cases) {
        const ServerReply reply = ParseServerReply(c.text);
        EXPECT_EQ(reply.status, c.status) << c.text;
        EXPECT_EQ(reply.message, c.message) << c.text;
    }
}

TEST(ServerUrl, TakesHttpsHostsWithPortAndPathAndRefusesAllElse) {
    struct Case {
        const char* text;
        const char* host;  // null: refused
        int port;
        const char* path;
    };
    const Case cases[] = {
        {"https://crash.example/crash", "crash.example", 443, "/crash"},
        {"https://crash.example", "crash.example", 443, "/"},
        {"https://crash.example:8443/a/b", "crash.example", 8443, "/a/b"},
        {"https://crash.example:8443", "crash.example", 8443, "/"},
        {"https://h/a:b?c=d:1/e", "h", 443, "/a:b?c=d:1/e"},
        {"https://h:65535//y", "h", 65535, "//y"},
        {"https://h:1:2/y", "h", 1, "/y"},
        {"", nullptr, 0, ""},
        {"http://h/crash", nullptr, 0, ""},
        {"Https://h/crash", nullptr, 0, ""},
        {" https://h/crash", nullptr, 0, ""},
        {"https://", nullptr, 0, ""},
        {"https:///crash", nullptr, 0, ""},
        {"https://:8443/crash", nullptr, 0, ""},
        {"https://h:/crash", nullptr, 0, ""},
        {"https://h:0/crash", nullptr, 0, ""},
        {"https://h:65536/crash", nullptr, 0, ""},
        {"https://h:-1/crash", nullptr, 0, ""},
    };
    for (const Case& c : cases) {
        ServerUrl url{"untouched", 7, "untouched"};
        ASSERT_EQ(ParseServerUrl(c.text, url), c.host != nullptr) << c.text;
        EXPECT_EQ(url.host, c.host != nullptr ? c.host : "untouched") << c.text;
        EXPECT_EQ(url.port, c.host != nullptr ? c.port : 7) << c.text;
        EXPECT_EQ(url.path, c.host != nullptr ? c.path : "untouched") << c.text;
    }
}

TEST(Document, RendersFieldsInByteOrderUnescapedAndUnindented) {
    EXPECT_EQ(Text(RenderDocument({}).Payload()), "<Crash_protocol>\r\n</Crash_protocol>\r\n");
    const DocumentFields fields{{"b", "2"}, {"Cmd", ""}, {"\xE4", "high"}, {"a", "<&>\"\r\n"}, {"Z", "z"}};
    EXPECT_EQ(Text(RenderDocument(fields).Payload()),
              "<Crash_protocol>\r\n<Cmd></Cmd>\r\n<Z>z</Z>\r\n<a><&>\"\r\n</a>\r\n<b>2</b>\r\n"
              "<\xE4>high</\xE4>\r\n</Crash_protocol>\r\n");
}

TEST(Document, WritesNumbersAsTheServerReadsThem) {
    EXPECT_EQ(AddressText(0), "0x0000000000000000");
    EXPECT_EQ(AddressText(0xfffff8000012abcd), "0xFFFFF8000012ABCD");
    EXPECT_EQ(TimestampText(2026, 1, 2, 3, 4, 5), "2026-1-2 3:4:5");
    EXPECT_EQ(TimestampText(2026, 11, 24, 23, 59, 0), "2026-11-24 23:59:0");
    EXPECT_EQ(BugcheckLine(0x1E), "Bugcheck code 1e\n");
    EXPECT_EQ(BugcheckLine(0), "Bugcheck code 0\n");
    EXPECT_EQ(BugcheckLine(0xC000021A), "Bugcheck code c000021a\n");
}

TEST(RequestBody, PutsItsLengthBeforeThePayload) {
    RequestBody body = BodyOf("0123456789");
    EXPECT_EQ(Text(body.Frame()), "10&0123456789");
    body.Truncate(20);
    EXPECT_EQ(Text(body.Frame()), "10&0123456789");
    body.Truncate(9);
    EXPECT_EQ(Text(body.Frame()), "9&012345678");
    EXPECT_EQ(Text(RequestBody().Frame()), "0&");
}

// Answers the sizing call as told and then writes "scrambled", saying how long that is.
struct ScriptedScrambler {
    std::int32_t sizing;
    std::uint32_t needed;
    std::int32_t second;
    std::uint32_t reported;
    std::vector<std::string> calls;

    static std::int32_t Call(void* context, const std::uint8_t* in, std::uint32_t inLength, std::uint8_t* out,
                             std::uint32_t capacity, std::uint32_t* length) {
        auto& self = *static_cast<ScriptedScrambler*>(context);
        self.calls.push_back(std::string(in, in + inLength) + (out != nullptr ? " out " : " size ") +
                             std::to_string(capacity));
        if (out == nullptr) {
            *length = self.needed;
            return self.sizing;
        }
        std::memcpy(out, "scrambled", std::min<std::size_t>(capacity, 9));
        *length = self.reported;
        return self.second;
    }
};

TEST(Scrambling, AsksForTheSizeThenCutsToWhatTheSecondCallReports) {
    struct Case {
        ScriptedScrambler script;
        std::int32_t status;
        std::size_t calls;
        const char* body;
    };
    const Case cases[] = {
        {{kNeedsBuffer, 9, 0, 9, {}}, 0, 2, "9&scrambled"},
        {{0, 9, 0, 9, {}}, 0, 2, "9&scrambled"},
        {{1, 9, 0, 9, {}}, 0, 2, "9&scrambled"},
        {{kRefused, 9, 0, 9, {}}, kRefused, 1, "0&"},
        {{kNeedsBuffer, 9, kRefused, 9, {}}, kRefused, 2, "0&"},
        {{kNeedsBuffer, 9, kNeedsBuffer, 9, {}}, kNeedsBuffer, 2, "0&"},
        {{kNeedsBuffer, 9, 0, 4, {}}, 0, 2, "4&scra"},
        {{kNeedsBuffer, 9, 0, 4000, {}}, 0, 2, "9&scrambled"},
        {{kNeedsBuffer, 0, 0, 0, {}}, 0, 2, "0&"},
    };
    for (Case c : cases) {
        SCOPED_TRACE(c.body);
        RequestBody body;
        EXPECT_EQ(ScrambleDocument(BodyOf("doc"), ScriptedScrambler::Call, &c.script, body), c.status);
        EXPECT_EQ(Text(body.Frame()), c.body);
        ASSERT_EQ(c.script.calls.size(), c.calls);
        EXPECT_EQ(c.script.calls[0], "doc size 0");
        if (c.calls == 2) {
            EXPECT_EQ(c.script.calls[1], "doc out " + std::to_string(c.script.needed));
        }
    }
    RequestBody plain;
    EXPECT_EQ(ScrambleDocument(BodyOf("doc"), nullptr, nullptr, plain), 0);
    EXPECT_EQ(Text(plain.Frame()), "3&doc");
}

// A stand-in for AES: the counter block itself with every byte moved on, so that the stream shows the counters.
class CountingCipher : public BlockCipher {
  public:
    std::int32_t Encrypt(std::span<std::uint8_t> blocks) override {
        for (std::uint8_t& byte : blocks)
            byte = static_cast<std::uint8_t>(byte * 5 + 3);
        return --callsBeforeFailure == 0 ? kRefused : 0;
    }
    int callsBeforeFailure = -1;
};

TEST(ScramblerFrame, IsTheNonceThenDataAndPaddingUnderTheStreamOfItsCounters) {
    const ScramblerRandomness random{{1, 2, 3, 4, 5, 6, 7, 8}, {11, 12, 13, 14, 15, 16, 17, 18, 19}};
    for (const std::size_t length : {1u, 5u, 6u, 13u, 14u, 32758u, 32768u, 70000u}) {
        SCOPED_TRACE(length);
        std::vector<std::uint8_t> expected(length);
        for (std::size_t i = 0; i < length; ++i)
            expected[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
        CountingCipher cipher;
        std::vector<std::uint8_t> out((length + 17) / 8 * 8);
        ASSERT_EQ(ScrambledLength(length), out.size());
        ASSERT_EQ(ScrambleBytes(expected, random, cipher, out), 0);

        const std::size_t padding = out.size() - 8 - length;
        expected.insert(expected.end(), random.padding, random.padding + padding - 1);
        expected.push_back(static_cast<std::uint8_t>(padding));
        for (std::size_t i = 0; i < expected.size(); ++i) {
            const std::size_t at = i % 16;
            const std::size_t counter = at < 8 ? random.nonce[at] : i / 16 >> (8 * (15 - at)) & 0xFF;
            expected[i] ^= static_cast<std::uint8_t>(counter * 5 + 3);
        }
        expected.insert(expected.begin(), random.nonce, random.nonce + 8);
        ASSERT_EQ(out, expected);
    }
    CountingCipher failing;
    failing.callsBeforeFailure = 2;
    std::vector<std::uint8_t> out(ScrambledLength(70000));
    EXPECT_EQ(ScrambleBytes(std::vector<std::uint8_t>(70000), random, failing, out), kRefused);
}

}  // namespace
}  // namespace zocrash
