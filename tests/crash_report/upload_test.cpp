// The exchange with a server, over real TLS.

#include <windows.h>
#include <wininet.h>

#include <thread>

#include "format.h"
#include "handle_count.h"
#include "import_hook.h"
#include "reporter_fixture.h"
#include "text.h"

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
    if (wrongHost) {
        EXPECT_EQ(Trust(L"add", "wrong-host.der"), 0u);
    }
    EXPECT_EQ(Upload(AddDump("a.dmp", kOurs, kBase)), kQueryFailed);
    EXPECT_EQ(Posts(), 0u);
    if (wrongHost) {
        EXPECT_EQ(Trust(L"remove", "wrong-host.der"), 0u);
    }
}

// The program that makes the certificate good for these tests, which find it added.
TEST_F(Uploads, NeedACertificateThatIsAddedAndRemovedByStatus) {
    const std::pair<const wchar_t*, std::uint32_t> steps[] = {{L"check", 0}, {L"remove", 0}, {L"check", 7},
                                                              {L"trust", 2}, {L"add", 0},    {L"check", 0}};
    for (const auto& [verb, status] : steps)
        EXPECT_EQ(Trust(verb, "certificate.der"), status) << zo::Utf8FromWide(verb);
    EXPECT_EQ(Trust(L"add", "conditions.txt"), 1u);
}

TEST_F(Uploads, AskFirstSendTheDumpOnceAndNeverAKnownCrashAgain) {
    const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase);
    for (const bool plain : {false, true}) {
        SCOPED_TRACE(plain);
        Script(zo::Format("OpenDumpFile say opening\nWaitForEvent say waited\nOutputStackTrace say {}\n", plain));
        if (plain) api_.setScrambler(nullptr, nullptr);
        const std::size_t before = Posts();
        EXPECT_EQ(Upload(dump), kSent);
        EXPECT_EQ(Upload(dump), kKnown);

        const std::vector<Request> requests = Requests(before);
        ASSERT_EQ(requests.size(), 3u);
        for (std::size_t i = 0; i < 3; ++i) {
            const auto& [head, body, document, reply] = requests[i];
            EXPECT_TRUE(head.starts_with("POST /crash HTTP/1.1\r\n")) << head;
            const Strings fields{"User-Agent: Tesk Bug Report Tool", "Accept: text/*",
                                 "Content-Length: " + std::to_string(body.size())};
            for (const std::string& field : fields)
                EXPECT_NE(head.find("\r\n" + field + "\r\n"), std::string::npos) << field << " in " << head;
            EXPECT_EQ(head.find("\r\nReferer:"), std::string::npos);
            EXPECT_EQ(Field(document, "Cmd"), i == 1 ? "2" : "1");
            EXPECT_EQ(Field(document, "MinDump") != "?", i == 1);
            const std::size_t payload = plain ? document.size() : (document.size() + 17) / 8 * 8;
            const std::string prefix = std::to_string(payload) + "&";
            EXPECT_TRUE(body.starts_with(prefix)) << body.substr(0, 20);
            EXPECT_EQ(body.size(), prefix.size() + payload);
            EXPECT_EQ(plain, body == prefix + document);
        }
        // The server has checked the lengths. What it decoded is the dump, and the text from the wait on.
        const std::string number = requests[1].reply.substr(requests[1].reply.find_last_of(' ') + 1);
        const std::string stored = zo::Format("dumps/report-{:06}.dmp", std::stoi(number));
        EXPECT_EQ(zotest::ReadFileBytes(ServerFile(stored)), zotest::ReadFileBytes(dump));
        EXPECT_TRUE(Field(requests[1].document, "CrashStack").starts_with("d2FpdGVk"));  // "waited"
    }
}

bool readFails = true;

BOOL WINAPI FailAfterThreeBytes(HINTERNET request, void* buffer, DWORD, DWORD* read) {
    readFails = !readFails;
    return readFails ? FALSE : InternetReadFile(request, buffer, 3, read);
}

// What an exchange comes to when the server answers the query, and then the full document, in these ways. A "*" keeps
// the condition for what the platform may send again by itself.
TEST_F(Uploads, CountWhatTheReplysTextSaysAndNothingElse) {
    struct Case {
        std::string query;
        std::string full;  // not reached when empty
        const char* outcome;
    };
    const Case cases[] = {
        {"*refuse", "", kQueryFailed},
        {"*drop-reading", "", kQueryFailed},
        {"*drop-before", "", kQueryFailed},
        {"*hang 1", "", kQueryFailed},
        {"empty", "", kQueryFailed},
        {"*garbage", "", kQueryFailed},
        {"noise", "", kQueryFailed},
        {"status 404", "", kQueryFailed},
        {"text 400 bad", "", kQueryFailed},
        {"text 3000 known\\r\\n", "", kKnown},
        {"status 500 300 known", "", kKnown},
        {"status 404 200 send it", "text 200", kSent},
        {"text 200", "status 500 200", kSent},
        {"slow 1", "slow 1", kSent},
        // The half of a reply that arrived before the connection broke counts as it stands.
        {"drop-inside", "drop-inside", kSent},
        {"redirect /say/200%20elsewhere", "text 200", kSent},
        {"redirect /say/300", "", kKnown},
        {"pieces 1", "chunked 3", kSent},
        {"large 1048576", "text 2001 ok", kSent},
        {"text 200", "*drop-before", kUploadFailed},
        {"text 200", "text 300 late", kUploadFailed},
        {"text 200", "*garbage", kUploadFailed},
    };
    const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.query + " then " + c.full);
        NewCrash();
        const std::size_t before = Posts();
        Conditions(c.query + "\n" + c.full + "\n");
        EXPECT_EQ(Upload(dump), c.outcome);
        // The dump goes out after an answer that begins with 200 and never else.
        bool dumpSent = false;
        for (const Request& request : Requests(before))
            dumpSent = dumpSent || request.body.size() > 10000;
        EXPECT_EQ(dumpSent, !c.full.empty());
    }
    // A read that fails ends the reply likewise.
    Conditions("");
    NewCrash();
    const zotest::ImportHook hook("InternetReadFile", FailAfterThreeBytes);
    EXPECT_EQ(Upload(dump), kSent);
}

TEST_F(Uploads, GoNowhereWithoutAServerOrAProperAddress) {
    const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase);
    const std::string url = Url();
    const std::size_t before = Posts();
    const Strings urls{"http" + url.substr(5), "HTTPS" + url.substr(5), "https:///crash", "https://localhost:1/crash",
                       "https://nowhere.invalid/crash"};
    for (const std::string& wrong : urls) {
        UseServer(wrong);
        EXPECT_EQ(Upload(dump), kQueryFailed) << wrong;
    }
    EXPECT_EQ(Posts(), before);
    // Another path of the server is posted to, and answers with its own text.
    UseServer(url.substr(0, url.rfind('/')) + "/a/b");
    EXPECT_EQ(Upload(dump), kQueryFailed);
    ASSERT_EQ(Posts(), before + 1);
    EXPECT_TRUE(Requests(before)[0].head.starts_with("POST /a/b HTTP/1.1\r\n"));
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
    api_.setScrambler(nullptr, nullptr);
    asked.clear();
    const zotest::ImportHook session("InternetOpenA", NoteSession);
    const zotest::ImportHook request("HttpOpenRequestA", NoteRequest);
    const std::size_t before = Posts();
    EXPECT_EQ(Run(), "0: 2 2 2 0 0 2 0");
    const std::string post = "request 80c00000";
    EXPECT_EQ(asked, (Strings{"session Tesk Bug Report Tool 0 0", post, post, post, post}));
    const std::vector<Request> requests = Requests(before);
    ASSERT_EQ(requests.size(), 4u);
    const auto field = [&](std::size_t number, const char* name) { return Field(requests[number].document, name); };
    for (const char* name : {"MinDump", "CrashStack", "CrashDumpLen", "CrashStackLen"}) {
        EXPECT_EQ(field(0, name), "?") << name;
        EXPECT_EQ(field(2, name), field(1, name)) << name;
    }
    EXPECT_NE(field(3, "MinDump"), field(1, "MinDump"));
    EXPECT_NE(field(2, "CrashSignature"), field(1, "CrashSignature"));
    EXPECT_EQ(field(3, "CrashSignature"), field(2, "CrashSignature"));
}

TEST_F(Uploads, FailWhenTheDumpOrTheEnginesTextIsMissing) {
    struct Case {
        const char* script;
        const char* outcome;
    };
    const Case cases[] = {
        {"GetLastEventInformation delete", kUploadFailed},
        {"SetOutputCallbacks fail 0x80004005", kUploadFailed},
        {"GetLastEventInformation grow 5000", kSent},
    };
    const char* names[] = {"bugcheck"};
    api_.setTargets(names, 1);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.script);
        const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase);
        const std::uintmax_t size = std::filesystem::file_size(dump);
        Script(c.script);
        Conditions("text 200\ntext 200\n");
        const std::size_t before = Posts();
        EXPECT_EQ(Upload(dump), c.outcome);
        const std::vector<Request> requests = Requests(before);
        EXPECT_EQ(requests.size(), stats_.uploadsSucceeded + 1);
        EXPECT_TRUE(c.outcome != kSent || requests.back().body.size() > (size + 5000) * 4 / 3);
    }
}

TEST_F(Uploads, FinishTheDumpInHandAfterACancel) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs2, kBase + 2);
    Conditions("slow 1\nslow 1\n");
    const std::size_t before = Posts();
    std::thread other([&] {
        while (Posts() == before)
            Sleep(20);
        api_.cancel();
    });
    EXPECT_EQ(Run(), "80004004: 2 1 1 0 0 1 0");
    other.join();
    EXPECT_EQ(Record(), kBase + 2);
    EXPECT_EQ(Posts(), before + 2);
}

TEST_F(Uploads, LeaveNoHandleBehind) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs2, kBase + 2);
    Conditions("*text 200\n");
    Configure();
    std::uint32_t warm = 0;
    for (int run = 0; run < 105; ++run) {
        if (run == 5) warm = zotest::OpenHandleCount();
        SetRecord(kBase);
        ASSERT_EQ(Run(), "0: 2 2 2 0 0 2 0");
    }
    EXPECT_LE(zotest::OpenHandleCount(), warm);
}

}  // namespace
}  // namespace zocrashtest
