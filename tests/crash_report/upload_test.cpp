// The exchange with a server, over real TLS.

#include <windows.h>
#include <wininet.h>

#include <algorithm>
#include <thread>

#include "handle_count.h"
#include "import_hook.h"
#include "reporter_fixture.h"

namespace zocrashtest {
namespace {

constexpr char kQueryFailed[] = "0: 1 1 0 0 1 0 0";
constexpr char kKnown[] = "0: 1 1 0 1 0 0 0";
constexpr char kSent[] = "0: 1 1 1 0 0 1 0";
constexpr char kUploadFailed[] = "0: 1 1 1 0 0 0 1";

class Uploads : public ServerTest {
  protected:
    Uploads() : ServerTest(false) {
        api_.networkOk();
        NewCrash();
        Conditions("");
        UseServer(Url());
    }
    void UseServer(const std::string& url) {
        url_ = zo::WideFromUtf8(url);
        config_.serverUrl = url_.c_str();
        Configure();
    }

    std::wstring url_;
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
    EXPECT_EQ(Upload(AddDump("a.dmp", kOurs, kBase)), kQueryFailed);
    EXPECT_EQ(Posts(), 0u);
    EXPECT_EQ(wrongHost ? Trust(L"remove", "wrong-host.der") : 0u, 0u);
}

TEST_F(Uploads, AskFirstSendTheDumpOnceAndNeverAKnownCrashAgain) {
    const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase);
    Script("OpenDumpFile say opening\nWaitForEvent say waited\n");
    EXPECT_EQ(Upload(dump), kSent);
    EXPECT_EQ(Upload(dump), kKnown);
    const std::vector<Request> requests = NewRequests();
    ASSERT_EQ(requests.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        const auto& [head, body, document, reply] = requests[i];
        const std::string payload = std::to_string((document.size() + 17) / 8 * 8);
        EXPECT_TRUE(body.starts_with(payload + "&")) << body.substr(0, 20);
        EXPECT_TRUE(head.starts_with("POST /crash HTTP/1.1\r\n")) << head;
        for (const std::string& field : {std::string("User-Agent: Tesk Bug Report Tool"), std::string("Accept: text/*"),
                                         zo::Format("Content-Length: {}", body.size())})
            EXPECT_NE(head.find("\r\n" + field + "\r\n"), std::string::npos) << field << " in " << head;
        EXPECT_EQ(head.find("\r\nReferer:"), std::string::npos);
        EXPECT_EQ(Field(document, "Cmd"), i == 1 ? "2" : "1");
        EXPECT_EQ(Field(document, "MinDump") != "?", i == 1);
    }
    // The server has checked the lengths. What it decoded is the dump, and the text from the wait on.
    const std::string number = requests[1].reply.substr(requests[1].reply.find_last_of(' ') + 1);
    const std::string stored = zo::Format("dumps/report-{:06}.dmp", std::stoi(number));
    EXPECT_EQ(zotest::ReadFileBytes(ServerFile(stored)), zotest::ReadFileBytes(dump));
    EXPECT_TRUE(Field(requests[1].document, "CrashStack").starts_with("d2FpdGVk"));  // "waited"
}

bool readFails = true;

BOOL WINAPI FailAfterThreeBytes(HINTERNET request, void* buffer, DWORD, DWORD* read) {
    readFails = !readFails;
    return readFails ? FALSE : InternetReadFile(request, buffer, 3, read);
}

// What an exchange comes to when the server answers the query, and then the full document, in these ways. A "*" keeps
// the condition for what the platform may send again by itself.
TEST_F(Uploads, CountWhatTheReplysTextSaysAndNothingElse) {
    const struct {
        std::string query;
        std::string full;  // not reached when empty
        const char* outcome;
    } cases[] = {
        {"*refuse", "", kQueryFailed},
        {"*drop-before", "", kQueryFailed},
        {"*hang 1", "", kQueryFailed},
        {"empty", "", kQueryFailed},
        {"*garbage", "", kQueryFailed},
        {"status 404", "", kQueryFailed},
        {"text 3000 known\\r\\n", "", kKnown},
        {"status 404 200 send it", "text 200", kSent},
        {"slow 1", "status 500 200", kSent},
        // The half of a reply that arrived before the connection broke counts as it stands.
        {"drop-inside", "drop-inside", kSent},
        {"redirect /say/200%20elsewhere", "text 200", kSent},
        {"pieces 1", "chunked 3", kSent},
        {"large 1048576", "text 2001 ok", kSent},
        {"text 200", "*drop-before", kUploadFailed},
        {"text 200", "text 300 late", kUploadFailed},
    };
    const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.query + " then " + c.full);
        NewCrash();
        Conditions(c.query + "\n" + c.full + "\n");
        EXPECT_EQ(Upload(dump), c.outcome);
        // The dump goes out after an answer that begins with 200 and never else.
        const std::vector<Request> requests = NewRequests();
        EXPECT_EQ(!c.full.empty(), std::any_of(requests.begin(), requests.end(),
                                               [](const Request& request) { return request.body.size() > 10000; }));
    }
    // A read that fails ends the reply likewise.
    NewCrash();
    const zotest::ImportHook hook("InternetReadFile", FailAfterThreeBytes);
    EXPECT_EQ(Upload(dump), kSent);
}

TEST_F(Uploads, GoNowhereWithoutAServerOrAProperAddress) {
    const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase);
    const std::string url = Url();
    for (const std::string& wrong : {"http" + url.substr(5), "HTTPS" + url.substr(5), std::string("https:///crash"),
                                     std::string("https://localhost:1/crash"), std::string("https://no.invalid/x")}) {
        UseServer(wrong);
        EXPECT_EQ(Upload(dump), kQueryFailed) << wrong;
    }
    EXPECT_TRUE(NewRequests().empty());
    // Another path of the server is posted to, and answers with its own text.
    UseServer(url.substr(0, url.rfind('/')) + "/a/b");
    EXPECT_EQ(Upload(dump), kQueryFailed);
    EXPECT_TRUE(NewRequests().at(0).head.starts_with("POST /a/b HTTP/1.1\r\n"));
}

// What the library asked of the platform's Internet functions.
Strings asked;

HINTERNET WINAPI NoteSession(const char* agent, DWORD access, const char* proxy, const char* bypass, DWORD flags) {
    asked.push_back(zo::Format("session {} {} {}", agent, access, flags));
    return InternetOpenA(agent, access, proxy, bypass, flags);
}

HINTERNET WINAPI NoteRequest(HINTERNET connection, const char* verb, const char* path, const char* version,
                             const char* referrer, const char** types, DWORD flags, DWORD_PTR context) {
    asked.push_back(zo::Format("request {:08x}", flags));
    return HttpOpenRequestA(connection, verb, path, version, referrer, types, flags, context);
}

TEST_F(Uploads, ShareOneSessionInARunAndCarryThePreviousDumpInLaterQueries) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs2, kBase + 2);
    asked.clear();
    const zotest::ImportHook session("InternetOpenA", NoteSession);
    const zotest::ImportHook request("HttpOpenRequestA", NoteRequest);
    EXPECT_EQ(Run(), "0: 2 2 2 0 0 2 0");
    const std::string post = "request 80c00000";
    EXPECT_EQ(asked, (Strings{"session Tesk Bug Report Tool 0 0", post, post, post, post}));
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

TEST_F(Uploads, FailWhenTheDumpOrTheEnginesTextIsMissing) {
    const char* names[] = {"bugcheck"};
    api_.setTargets(names, 1);
    api_.setScrambler(nullptr, nullptr);
    for (const auto& [script, sent] :
         {std::pair("GetLastEventInformation delete", false), std::pair("SetOutputCallbacks fail 0x80004005", false),
          std::pair("GetLastEventInformation grow 5000", true)}) {
        const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase);
        Script(script);
        Conditions("text 200\ntext 200\n");
        EXPECT_EQ(Upload(dump), sent ? kSent : kUploadFailed) << script;
        const std::vector<Request> requests = NewRequests();
        EXPECT_EQ(requests.size(), sent ? 2u : 1u);
        EXPECT_EQ(Field(requests.back().body, "CrashDumpLen"), sent ? "105000" : "?");
    }
}

TEST_F(Uploads, FinishTheDumpInHandAfterACancel) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs2, kBase + 2);
    Conditions("slow 1\nslow 1\n");
    std::thread other([this] {
        while (Posts() == taken_)
            Sleep(20);
        api_.cancel();
    });
    EXPECT_EQ(Run(), "80004004: 2 1 1 0 0 1 0");
    other.join();
    EXPECT_EQ(Record(), kBase + 2);
    EXPECT_EQ(NewRequests().size(), 2u);
}

TEST_F(Uploads, LeaveNoHandleBehind) {
    const std::pair<const char*, const char*> cases[] = {
        {"DebugCreate fail 0x80004001", "80004001: 2 0 0 0 0 0 0"},
        {"ReadBugCheckData fail 0x8000ffff", "0: 2 0 0 0 0 0 0"},
        {"", "0: 2 2 2 0 0 2 0"},
    };
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs2, kBase + 2);
    Conditions("*text 200\n");
    std::uint32_t warm = 0;
    for (int run = 0; run < 150; ++run) {
        if (run == 6) warm = zotest::OpenHandleCount();
        const auto& [script, outcome] = cases[run % 3];
        Script(script);
        SetRecord(kBase);
        ASSERT_EQ(Run(), outcome);
    }
    EXPECT_LE(zotest::OpenHandleCount(), warm);
}

}  // namespace
}  // namespace zocrashtest
