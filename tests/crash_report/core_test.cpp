// The reporter's pure cores: what is read from the wire and what is put on it. The fuzzer shows that both
// encoders of base64 agree; the crash server decodes what arrives, base64 and the built-in scrambler.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "base64.h"
#include "document.h"
#include "reporter_messages.h"
#include "request_body.h"
#include "rows.h"
#include "server_reply.h"
#include "server_url.h"

namespace zocrash {
namespace {

std::string Text(std::span<const std::uint8_t> bytes) {
    return {bytes.begin(), bytes.end()};
}

TEST(ServerReply, TakesStatusFromTheTextBeforeTheFirstBlankButThreeCharactersAtMost) {
    const std::pair<std::string, std::string> cases[] = {
        {"20", "0:"},
        {"200", "200:"},
        {"200 ", "200:"},
        {"300  two blanks\r\nb\r\n\r\n\n", "300: two blanks\r\nb"},
        {"2001 x", "200:x"},
        {"2000", "200:"},
        {"2 00", "2:00"},
        {" 200", "0:200"},
        {"2x0", "2:"},
        {"x200 y", "0:y"},
        {"-29 x", "-29:x"},
        {"\n+2 x", "2:x"},
        {std::string("20\0 x", 5), "20:x"},
    };
    for (const auto& [text, expected] : cases) {
        const ServerReply reply = ParseServerReply(text);
        EXPECT_EQ(std::to_string(reply.status) + ":" + std::string(reply.message), expected) << text;
    }
}

TEST(ServerUrl, TakesHttpsHostsWithPortAndPathAndRefusesAllElse) {
    const std::pair<const char*, const char*> cases[] = {
        {"https://crash.example", "crash.example 443 /"},
        {"https://crash.example:8443/a/b", "crash.example 8443 /a/b"},
        {"https://h/a:b?c=d:1/e", "h 443 /a:b?c=d:1/e"},
        {"https://h:65535:2//y", "h 65535 //y"},
    };
    for (const auto& [text, expected] : cases) {
        ServerUrl url;
        EXPECT_TRUE(ParseServerUrl(text, url)) << text;
        EXPECT_EQ(url.host + " " + std::to_string(url.port) + " " + url.path, expected);
    }
    for (const char* text : {"", "http://h/", "Https://h/", "https:///x", "https://:8443/x", "https://h:/x",
                             "https://h:0/x", "https://h:65536/x", "https://h:-1/x"}) {
        ServerUrl url;
        EXPECT_FALSE(ParseServerUrl(text, url)) << text;
    }
}

TEST(MessageParts, AreWhatWasFormattedIntoThePlaceholders) {
    using Parts = std::vector<std::string_view>;
    const zotest::Rows<const char*, const char*, Parts> rows = {
        {"one part at the end", kDumpFolderMessage, "Minidump dir: C:\\D", {"C:\\D"}},
        {"text after the part", kDumpsFoundMessage, "Found 2 new minidump(s)", {"2"}},
        {"three parts", kDumpAnalysedMessage, "Dump a matched=[x|y] upload=true", {"a", "x|y", "true"}},
        {"an empty part", kDumpAnalysedMessage, "Dump a matched=[] upload=false", {"a", "", "false"}},
        {"format text in the path", kDumpFailedMessage, "Analyze failed: a (0x1).b (0x2)", {"a (0x1).b", "2"}},
        {"another beginning", kDumpFolderMessage, "2 Minidump dir: C:", {}},
        {"another end", kDumpsFoundMessage, "Found 2 new minidump(s)!", {}},
        {"a text missing in between", kDumpAnalysedMessage, "Dump a upload=true", {}},
        {"no part at all", "Aborting", "Aborting", {}},
    };
    for (const auto& [name, format, message, parts] : rows)
        EXPECT_EQ(MessageParts(format, message), parts) << name;
}

TEST(Base64, FillsTheLastFourCharactersUp) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"\xFB\xEF\xFF\x01", "++//AQ=="}};
    for (const auto& [bytes, expected] : cases) {
        std::string text;
        EncodeBase64(bytes, text);
        EXPECT_EQ(text, expected);
    }
}

TEST(Document, RendersFieldsInByteOrderUnescapedAndUnindented) {
    const DocumentFields fields{{"b", "2"}, {"Cmd", ""}, {"\xE4", "high"}, {"a", "<&>\"\r\n"}, {"Z", "z"}};
    EXPECT_EQ(Text(RenderDocument(fields).Payload()),
              "<Crash_protocol>\r\n<Cmd></Cmd>\r\n<Z>z</Z>\r\n<a><&>\"\r\n</a>\r\n<b>2</b>\r\n"
              "<\xE4>high</\xE4>\r\n</Crash_protocol>\r\n");
    EXPECT_EQ(TimestampText(2026, 1, 2, 3, 4, 5), "2026-1-2 3:4:5");
}

constexpr std::uint32_t kSilent = 0xFFFFFFFF;  // as "needed": the scrambler reports no length

// Answers the sizing call as scripted, then writes "scrambled" and reports a length.
struct ScriptedScrambler {
    std::uint32_t sizing;
    std::uint32_t needed;
    std::uint32_t second;
    std::uint32_t reported;

    static std::int32_t Call(void* context, const std::uint8_t*, std::uint32_t, std::uint8_t* out,
                             std::uint32_t capacity, std::uint32_t* length) {
        const auto& self = *static_cast<const ScriptedScrambler*>(context);
        EXPECT_TRUE(out != nullptr || capacity == 0);
        if (self.needed != kSilent) *length = out == nullptr ? self.needed : self.reported;
        if (out != nullptr) std::memcpy(out, "scrambled", std::min<std::size_t>(capacity, 9));
        return static_cast<std::int32_t>(out == nullptr ? self.sizing : self.second);
    }
};

TEST(Scrambling, AsksForTheSizeThenCutsToWhatTheSecondCallReports) {
    constexpr std::uint32_t kNeedsBuffer = 0x8007007A, kRefused = 0x80004005;
    const zotest::Rows<ScriptedScrambler, std::uint32_t, const char*> rows = {
        {"size given with an error", {kNeedsBuffer, 9, 0, 9}, 0, "9&scrambled"},
        {"size given with a success", {0, 9, 0, 9}, 0, "9&scrambled"},
        {"size refused", {kRefused, 9, 0, 9}, kRefused, "0&"},
        {"second call refused", {kNeedsBuffer, 9, kNeedsBuffer, 9}, kNeedsBuffer, "0&"},
        {"shorter than the buffer", {kNeedsBuffer, 9, 0, 4}, 0, "4&scra"},
        {"longer than the buffer", {kNeedsBuffer, 9, 0, 4000}, 0, "9&scrambled"},
        {"nothing at all", {kNeedsBuffer, 0, 0, 0}, 0, "0&"},
        {"a size of 0 without an error", {0, 0, 0, 0}, 0, "0&"},
        {"no size", {0, kSilent, 0, 0}, 0, "0&"},
    };
    for (auto [name, script, status, expected] : rows) {
        SCOPED_TRACE(name);
        RequestBody body;
        const std::int32_t result = ScrambleDocument(RenderDocument({}), ScriptedScrambler::Call, &script, body);
        EXPECT_EQ(static_cast<std::uint32_t>(result), status);
        EXPECT_EQ(Text(body.Frame()), expected);
    }
}

}  // namespace
}  // namespace zocrash
