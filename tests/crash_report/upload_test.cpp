// The exchange with a server, over real TLS.

#include <windows.h>
#include <wininet.h>

#include <algorithm>
#include <optional>

#include "process_counts.h"
#include "reporter_fixture.h"

namespace zotest {
namespace {

constexpr Outcome kKnown{.found = 1, .selected = 1, .alreadyKnown = 1};
constexpr Outcome kSent{.found = 1, .selected = 1, .accepted = 1, .uploaded = 1};
constexpr Outcome kTwoSent{.found = 2, .selected = 2, .accepted = 2, .uploaded = 2};
constexpr Outcome kUploadFailed{.found = 1, .selected = 1, .accepted = 1, .uploadsFailed = 1};

class Uploads : public ServerTest {
  protected:
    Uploads() : ServerTest(false) {
        NewCrash();
        Conditions("");
        config_.serverUrl = url_.c_str();
        Configure();
    }

    std::wstring url_ = zo::WideFromUtf8(Url());
    std::filesystem::path dump_ = AddDump("a.dmp", kOurs, kBase);
};

class Certificates : public Uploads {
  protected:
    static void SetUpTestSuite() {}
    static void TearDownTestSuite() {}
};

// In runs of their own, with a certificate that nobody trusts and with one for another host: a process that was refused
// once keeps what it knows of the trusted certificates.
TEST_F(Certificates, DISABLED_ThatAreNotTheServersAreRefused) {
    const bool wrongHost = std::filesystem::exists(ServerFile("wrong-host.der"));
    EXPECT_EQ(wrongHost ? Trust(L"add", "wrong-host.der") : 0u, 0u);
    EXPECT_EQ(Upload(dump_), kQueryFailed);
    EXPECT_TRUE(NewRequests().empty());
    EXPECT_EQ(wrongHost ? Trust(L"remove", "wrong-host.der") : 0u, 0u);
}

TEST_F(Uploads, AskFirstThenSendTheDumpWithTheHeadOfTheProtocol) {
    Script("OpenDumpFile say opening\nWaitForEvent say waited\n");
    EXPECT_EQ(Upload(dump_), kSent);
    const std::vector<Request> requests = NewRequests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(Field(requests[0].document, "Cmd") + Field(requests[0].document, "MinDump"), "1?");
    EXPECT_EQ(Field(requests[1].document, "Cmd"), "2");
    for (const Request& request : requests) {
        const std::string payload = std::to_string((request.document.size() + 17) / 8 * 8);
        EXPECT_TRUE(request.body.starts_with(payload + "&")) << request.body.substr(0, 20);
        EXPECT_TRUE(request.head.starts_with("POST /crash HTTP/1.1\r\n")) << request.head;
        EXPECT_NE(request.head.find("\r\nUser-Agent: Tesk Bug Report Tool\r\n"), std::string::npos) << request.head;
        EXPECT_NE(request.head.find("\r\nAccept: text/*\r\n"), std::string::npos) << request.head;
        EXPECT_EQ(request.head.find("\r\nReferer:"), std::string::npos) << request.head;
    }
    // The server has checked the lengths. What it decoded is the dump, and the text from the wait on.
    const std::string number = requests[1].reply.substr(requests[1].reply.find_last_of(' ') + 1);
    const std::string stored = zo::Format("dumps/report-{:06}.dmp", std::stoi(number));
    EXPECT_EQ(ReadFileBytes(ServerFile(stored)), ReadFileBytes(dump_));
    EXPECT_TRUE(Field(requests[1].document, "CrashStack").starts_with("d2FpdGVk"));  // "waited"
}

// What an exchange comes to when the server treats the query, and then the full document (which is not sent where there
// is nothing), in these ways. A "*" keeps the condition for what the platform may send again by itself.
TEST_F(Uploads, CountWhatTheReplysTextSaysAndNothingElse) {
    const std::tuple<std::string, std::string, Outcome> rows[] = {
        {"*refuse", "", kQueryFailed},
        {"*drop-before", "", kQueryFailed},
        {"empty", "", kQueryFailed},
        {"*garbage", "", kQueryFailed},
        {"status 404", "", kQueryFailed},
        {"text 3000 known\\r\\n", "", kKnown},
        {"status 404 200 send it", "text 200", kSent},
        {"text 200", "status 500 200", kSent},
        // The half of a reply that arrived before the connection broke counts as it is.
        {"drop-inside", "drop-inside", kSent},
        {"redirect /say/200%20elsewhere", "text 200", kSent},
        {"pieces 1", "chunked 3", kSent},
        {"large 1048576", "text 2001 ok", kSent},
        {"text 200", "*drop-before", kUploadFailed},
        {"text 200", "text 300 late", kUploadFailed},
    };
    for (const auto& [query, full, outcome] : rows) {
        SCOPED_TRACE(query + " then " + full);
        NewCrash();
        Conditions(query + "\n" + full + "\n");
        EXPECT_EQ(Upload(dump_), outcome);
        // The dump is sent after an answer that begins with 200 and only then.
        EXPECT_EQ(!full.empty(), std::ranges::any_of(NewRequests(), [](auto& one) { return one.body.size() > 10000; }));
    }
}

// A reply that goes on for ever, beginning with "200".
struct MadeReply {
    DWORD pieceBytes = 3;
    bool failAfterPiece = false;
    bool cancelAtFirst = false;
    ULONGLONG millisecondsPerRead = 0;
};

TEST_F(Uploads, ReadRepliesToALimitAndWhatArrivedCounts) {
    const Outcome cancelled{.status = 0x80004004, .found = 1, .selected = 1, .accepted = 1, .uploaded = 1};
    // With the number of reads of the query's reply and of the full document's.
    const Rows<MadeReply, int, Outcome> rows = {
        {"a read fails", {.failAfterPiece = true}, 4, kSent},
        {"more than is kept", {.pieceBytes = 1024}, 128, kSent},
        {"a minute is over, a byte at a time", {.pieceBytes = 1, .millisecondsPerRead = 20'000}, 6, kSent},
        {"cancelled", {.pieceBytes = 1024, .cancelAtFirst = true}, 2, cancelled},
    };
    MadeReply made;
    int reads = 0;
    int readsOfOne = 0;  // reply
    ULONGLONG now = 0;
    const ImportHook clock("GetTickCount64", GetTickCount64, [&] { return now; });
    const ImportHook read("InternetReadFile", InternetReadFile, [&](HINTERNET, void* buffer, DWORD size, DWORD* bytes) {
        ++reads;
        if (reads > 1000 || (made.failAfterPiece && reads % 2 == 0)) return FALSE;
        if (made.cancelAtFirst) api_.cancel();
        now += made.millisecondsPerRead;
        *bytes = std::min(size, made.pieceBytes);
        std::memset(buffer, '0', *bytes);
        if ((reads - 1) % readsOfOne == 0) *static_cast<char*>(buffer) = '2';
        return TRUE;
    });
    for (const auto& [name, reply, expectedReads, outcome] : rows) {
        SCOPED_TRACE(name);
        NewCrash();
        made = reply;
        reads = 0;
        readsOfOne = expectedReads / 2;
        EXPECT_EQ(Upload(dump_), outcome);
        EXPECT_EQ(reads, expectedReads);
        api_.resetCancel();
    }
}

TEST_F(Uploads, ShareOneSessionInARunAndScrambleEachDocumentAnew) {
    AddDump("b.dmp", kOurs2, kBase + 1);
    Strings asked;
    const ImportHook session("InternetOpenA", InternetOpenA,
                             [&](const char* agent, DWORD access, auto proxy, auto bypass, DWORD flags) {
                                 asked.push_back(zo::Format("session {} {} {}", agent, access, flags));
                                 return InternetOpenA(agent, access, proxy, bypass, flags);
                             });
    const ImportHook random("BCryptGenRandom", BCryptGenRandom,
                            [&](auto provider, auto buffer, ULONG size, auto flags) {
                                asked.push_back(zo::Format("random {}", size));
                                return BCryptGenRandom(provider, buffer, size, flags);
                            });
    const ImportHook connect(
        "InternetConnectA", InternetConnectA,
        [&](auto internet, const char* host, INTERNET_PORT port, auto user, auto password, DWORD service, DWORD flags,
            DWORD_PTR context) {
            asked.push_back(zo::Format("connect {}:{} {} {} {}", host, port, service, flags, context));
            return InternetConnectA(internet, host, port, user, password, service, flags, context);
        });
    const ImportHook request(
        "HttpOpenRequestA", HttpOpenRequestA,
        [&](auto connection, auto verb, auto path, auto version, auto referrer, auto types, DWORD flags, auto context) {
            asked.push_back(zo::Format("request {:08x}", flags));
            return HttpOpenRequestA(connection, verb, path, version, referrer, types, flags, context);
        });
    EXPECT_EQ(Run(), kTwoSent);
    Strings expected{"session Tesk Bug Report Tool 0 0"};
    const std::string place = Url().substr(8, Url().find('/', 8) - 8);
    // Of each document eight bytes in front and at most nine behind it.
    for (int document = 0; document < 4; ++document)
        expected.insert(expected.end(), {"random 17", "connect " + place + " 3 0 0", "request 80c00000"});
    EXPECT_EQ(asked, expected);
}

TEST_F(Uploads, GoToTheServerOfTheBuildByDefault) {
    config_.serverUrl = nullptr;
    Configure();
    std::string host = "no";
    const ImportHook connect("InternetConnectA", InternetConnectA, [&](auto, const char* name, auto...) {
        host = name;
        return HINTERNET{};
    });
    EXPECT_EQ(Upload(dump_), kQueryFailed);
    constexpr std::string_view kUrl(ZO_CRASH_SERVER_URL);
    constexpr std::size_t kStart = std::string_view("https://").size();
    EXPECT_EQ(host, kUrl.substr(kStart, kUrl.find_first_of(":/", kStart) - kStart));
}

TEST_F(Uploads, CarryThePreviousDumpInLaterQueries) {
    AddDump("b.dmp", kOurs2, kBase + 1);
    EXPECT_EQ(Run(), kTwoSent);
    const std::vector<Request> requests = NewRequests();
    ASSERT_EQ(requests.size(), 4u);
    const auto field = [&](std::size_t number, const char* name) { return Field(requests[number].document, name); };
    for (const char* name : {"MinDump", "CrashStack", "CrashDumpLen", "CrashStackLen"}) {
        EXPECT_EQ(field(0, name), "?") << name;
        EXPECT_EQ(field(2, name), field(1, name)) << name;
    }
    EXPECT_NE(field(3, "MinDump"), field(1, "MinDump"));
    EXPECT_NE(field(2, "CrashSignature"), field(1, "CrashSignature"));
}

TEST_F(Uploads, SendTheDumpAsItIsByThenAndOnlyWithItsText) {
    // With what the file holds after its analysis, and the length that is sent ("?": nothing is).
    const Rows<const char*, std::optional<std::string>, const char*> rows = {
        {"the dump is gone", "GetLastEventInformation delete", std::nullopt, "?"},
        {"the dump is empty", "", "", "?"},
        {"the engine prints nothing", "SetOutputCallbacks fail 0x80004005", std::nullopt, "?"},
        {"the dump has grown", "GetLastEventInformation grow 5000", std::nullopt, "105000"},
    };
    SetTarget("bugcheck");
    api_.setScrambler(nullptr, nullptr);
    for (const auto& [name, script, dump, sentLength] : rows) {
        SCOPED_TRACE(name);
        AddDump("a.dmp", kOurs, kBase);
        Script(script);
        Conditions("text 200\ntext 200\n");
        onEvent_ = [path = dump_, bytes = dump](const std::string& event) {
            if (bytes && event.starts_with("0 Dump ")) WriteFileBytes(path, *bytes);
        };
        const bool sent = *sentLength != '?';
        EXPECT_EQ(Upload(dump_), sent ? kSent : kUploadFailed);
        const std::vector<Request> requests = NewRequests();
        EXPECT_EQ(requests.size(), sent ? 2u : 1u);
        EXPECT_EQ(Field(requests.back().body, "CrashDumpLen"), sentLength);
    }
}

TEST_F(Uploads, LeaveNoHandleBehind) {
    const std::pair<const char*, Outcome> cases[] = {
        {"DebugCreate fail 0x80004001", {.status = 0x80004001, .found = 2}},
        {"ReadBugCheckData fail 0x8000ffff", {.found = 2}},
        {"", kTwoSent},
    };
    AddDump("b.dmp", kOurs2, kBase + 1);
    Conditions("*text 200\n");
    // The first rounds make what stays for good. After that one handle of any run would show.
    std::uint32_t warm = 0;
    for (int round = 0; round < 5; ++round) {
        if (round == 2) warm = OpenHandleCount();
        for (const auto& [script, outcome] : cases) {
            Script(script);
            SetRecord(0);
            ASSERT_EQ(Run(), outcome);
        }
    }
    EXPECT_LE(OpenHandleCount(), warm);
}

}  // namespace
}  // namespace zotest
