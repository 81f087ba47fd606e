// The exchange with a server, over real TLS: run by simulator/crash_server/serve, whose environment tells where that is
// and whose folder shows what reached it.

#include <atomic>
#include <cctype>
#include <chrono>
#include <map>
#include <thread>

#include "child_process.h"
#include "format.h"
#include "handle_count.h"
#include "reporter_fixture.h"
#include "text.h"

namespace zocrashtest {
namespace {

constexpr std::uint64_t kBase = 133500000000000000;
constexpr char kAgent[] = "Tesk Bug Report Tool";

std::string Environment(const char* name) {
    char value[1024] = "";
    GetEnvironmentVariableA(name, value, sizeof(value));
    return value;
}

std::filesystem::path ServerFolder() {
    return "Z:" + Environment("ZO_CRASH_SERVER_FOLDER");
}

void Trust(const wchar_t* verb, const char* certificate) {
    const auto result = zotest::RunChild((zotest::ProgramFolder() / "trust_certificate.exe").wstring(),
                                         {verb, (ServerFolder() / certificate).wstring()});
    ASSERT_EQ(result.exitCode, 0u) << result.err;
}

// One post as the server kept it.
struct Request {
    std::string head;
    std::string body;
    std::string document;
    std::string reply;
};

class Uploads : public ReporterTest {
  protected:
    static void SetUpTestSuite() { Trust(L"add", "certificate.der"); }
    static void TearDownTestSuite() { Trust(L"remove", "certificate.der"); }

    explicit Uploads(bool holdBack = false)
        : ReporterTest(holdBack), url_(zo::WideFromUtf8(Environment("ZO_CRASH_SERVER_URL"))) {
        config_.serverUrl = url_.c_str();
        api_.notifyNetworkOk();
        static int number = 0;
        // A crash of its own for each test, whatever the server has seen before.
        Script(zo::Format("OutputStackTrace say crash {} of {}\\n\n", ++number, GetTickCount64()));
        Configure();
        Conditions("");
    }
    ~Uploads() override { Conditions(""); }

    static void Conditions(const std::string& lines) {
        zotest::WriteFileBytes(ServerFolder() / "conditions.txt", lines);
    }

    static std::size_t Count() {
        std::size_t count = 0;
        while (std::filesystem::exists(Part(count + 1, "head")))
            ++count;
        return count;
    }

    // Those since the number of posts was `before`.
    static std::vector<Request> Requests(std::size_t before) {
        std::vector<Request> requests;
        for (std::size_t i = before + 1; i <= Count(); ++i) {
            requests.push_back({zotest::ReadFileBytes(Part(i, "head")), zotest::ReadFileBytes(Part(i, "body")),
                                zotest::ReadFileBytes(Part(i, "document")), zotest::ReadFileBytes(Part(i, "reply"))});
        }
        return requests;
    }

    std::int32_t Upload(const std::filesystem::path& dump) {
        stats_ = {};
        return api_.uploadSingleDump(dump.c_str(), &stats_);
    }

    const std::wstring url_;

  private:
    static std::filesystem::path Part(std::size_t number, const char* part) {
        return ServerFolder() / "requests" / zo::Format("{:04}.{}", number, part);
    }
};

std::string HeadField(const std::string& head, const std::string& name) {
    const std::size_t start = head.find("\r\n" + name + ": ");
    if (start == std::string::npos) return "";
    const std::size_t value = start + name.size() + 4;
    return head.substr(value, head.find("\r\n", value) - value);
}

// In runs of their own: a process that was refused once keeps what it knows of the trusted certificates.
class Certificates : public Uploads {
  protected:
    static void SetUpTestSuite() {}
    static void TearDownTestSuite() {}
};

TEST_F(Certificates, DISABLED_OfAnUnknownIssuerAreRefused) {
    const std::size_t before = Count();
    EXPECT_EQ(Upload(AddDump("a.dmp", kOurs, kBase + 1)), 0);
    EXPECT_EQ(Counters(), "1 1 0 0 1 0 0");
    EXPECT_EQ(Count(), before);
}

// For a server that was started with --wrong-host.
TEST_F(Certificates, DISABLED_OfAnotherHostAreRefused) {
    Trust(L"add", "wrong-host.der");
    const std::size_t before = Count();
    EXPECT_EQ(Upload(AddDump("a.dmp", kOurs, kBase + 1)), 0);
    EXPECT_EQ(Counters(), "1 1 0 0 1 0 0");
    EXPECT_EQ(Count(), before);
    Trust(L"remove", "wrong-host.der");
}

TEST_F(Uploads, AskFirstSendTheDumpOnceAndNeverAKnownCrashAgain) {
    const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase + 1);
    for (const bool plain : {false, true}) {
        SCOPED_TRACE(plain);
        if (plain) {
            api_.setBodyScrambler(nullptr, nullptr);
            Script(zo::Format("OutputStackTrace say plain {}\n", GetTickCount64()));
        }
        const std::size_t before = Count();
        EXPECT_EQ(Upload(dump), 0);
        EXPECT_EQ(Counters(), "1 1 1 0 0 1 0");
        EXPECT_EQ(Upload(dump), 0);
        EXPECT_EQ(Counters(), "1 1 0 1 0 0 0");

        const std::vector<Request> requests = Requests(before);
        ASSERT_EQ(requests.size(), 3u);
        const char* commands[] = {"1", "2", "1"};
        for (std::size_t i = 0; i < 3; ++i) {
            const Request& request = requests[i];
            EXPECT_TRUE(request.head.starts_with("POST /crash HTTP/1.1\r\n")) << request.head;
            EXPECT_EQ(HeadField(request.head, "User-Agent"), kAgent);
            EXPECT_EQ(HeadField(request.head, "Accept"), "text/*");
            EXPECT_EQ(HeadField(request.head, "Referer"), "");
            EXPECT_EQ(HeadField(request.head, "Content-Length"), std::to_string(request.body.size()));
            EXPECT_EQ(Field(request.document, "Cmd"), commands[i]);
            const std::size_t payload = plain ? request.document.size() : (request.document.size() + 17) / 8 * 8;
            const std::string prefix = std::to_string(payload) + "&";
            EXPECT_EQ(request.body.substr(0, prefix.size()), prefix);
            EXPECT_EQ(request.body.size(), prefix.size() + payload);
            EXPECT_EQ(plain, request.body == prefix + request.document);
        }
        // The dump as the server decoded it, and the six fields that only the full document adds.
        const std::string number = requests[1].reply.substr(requests[1].reply.find_last_of(' ') + 1);
        const std::string stored = zo::Format("report-{:06}.dmp", std::stoi(number));
        EXPECT_EQ(zotest::ReadFileBytes(ServerFolder() / "dumps" / stored), zotest::ReadFileBytes(dump));
        EXPECT_EQ(Field(requests[1].document, "CrashDumpLen"), std::to_string(std::filesystem::file_size(dump)));
        for (const char* name : {"CrashStack", "CrashStackLen", "CrashStackBase64Len", "CrashDumpBase64Len"}) {
            EXPECT_NE(Field(requests[1].document, name), "?") << name;
            EXPECT_EQ(Field(requests[0].document, name), "?") << name;
        }
    }
}

// What an exchange comes to when the server answers the query, and then the full document, in these ways. A "*" keeps
// the condition for what the platform may send again by itself.
TEST_F(Uploads, CountWhatTheReplysTextSaysAndNothingElse) {
    struct Case {
        std::string query;
        std::string full;  // not reached when empty
        const char* counters;
    };
    constexpr char kQueryFailed[] = "1 1 0 0 1 0 0";
    constexpr char kKnown[] = "1 1 0 1 0 0 0";
    constexpr char kSent[] = "1 1 1 0 0 1 0";
    constexpr char kUploadFailed[] = "1 1 1 0 0 0 1";
    const Case cases[] = {
        {"*refuse", "", kQueryFailed},
        {"*drop-reading", "", kQueryFailed},
        {"*drop-before", "", kQueryFailed},
        {"*hang 1", "", kQueryFailed},
        {"empty", "", kQueryFailed},
        {"*garbage", "", kQueryFailed},
        {"noise", "", kQueryFailed},
        {"text 20", "", kQueryFailed},
        {"text 400 bad", "", kQueryFailed},
        {"status 404", "", kQueryFailed},
        {"text x200 fine", "", kQueryFailed},
        {"text 300 known\\r\\n", "", kKnown},
        {"text 3000 x", "", kKnown},
        {"status 500 300 known", "", kKnown},
        {"status 404 200 send it", "text 200", kSent},
        {"text 200", "status 500 200", kSent},
        {"slow 1", "slow 1", kSent},
        {"redirect /say/200%20elsewhere", "text 200", kSent},
        {"redirect /say/300", "", kKnown},
        {"pieces 1", "text 200 ok", kSent},
        {"chunked 3", "text 2001 ok", kSent},
        {"large 1048576", "text 200 ok", kSent},
        {"text 200", "*drop-before", kUploadFailed},
        {"text 200", "text 300 late", kUploadFailed},
        {"text 200", "empty", kUploadFailed},
        {"text 200", "*garbage", kUploadFailed},
    };
    const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase + 1);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.query + " then " + c.full);
        Script(zo::Format("OutputStackTrace say {} {}\n", c.query, GetTickCount64()));
        const std::size_t before = Count();
        Conditions(c.query + "\n" + c.full + "\n");
        EXPECT_EQ(Upload(dump), 0);
        EXPECT_EQ(Counters(), c.counters);
        // The dump goes out after an answer that begins with 200 and never else.
        bool dumpSent = false;
        for (const Request& request : Requests(before))
            dumpSent = dumpSent || request.body.size() > 10000;
        EXPECT_EQ(dumpSent, !c.full.empty());
    }
}

TEST_F(Uploads, GoNowhereWithoutAServerOrAProperAddress) {
    const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase + 1);
    const std::wstring hostAndPath = url_.substr(std::wstring(L"https://").size());
    const std::wstring urls[] = {L"http://" + hostAndPath,
                                 L"HTTPS://" + hostAndPath,
                                 L"https://",
                                 L"https:///crash",
                                 L"https://localhost:1/crash",
                                 L"https://localhost:99999/crash",
                                 L"https://nowhere.invalid/crash",
                                 L"crash"};
    const std::size_t before = Count();
    for (const std::wstring& url : urls) {
        config_.serverUrl = url.c_str();
        Configure();
        EXPECT_EQ(Upload(dump), 0);
        EXPECT_EQ(Counters(), "1 1 0 0 1 0 0") << zo::Utf8FromWide(url);
    }
    EXPECT_EQ(Count(), before);
    // Another path of the server is posted to, and answers with its own text.
    const std::wstring other = url_.substr(0, url_.rfind(L'/')) + L"/a/b";
    config_.serverUrl = other.c_str();
    Configure();
    EXPECT_EQ(Upload(dump), 0);
    EXPECT_EQ(Counters(), "1 1 0 0 1 0 0");
    ASSERT_EQ(Requests(before).size(), 1u);
    EXPECT_TRUE(Requests(before)[0].head.starts_with("POST /a/b HTTP/1.1\r\n"));
}

TEST_F(Uploads, CarryThePreviousDumpInLaterQueriesOfARun) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs2, kBase + 2);
    const std::size_t before = Count();
    Conditions("text 200\ntext 200\ntext 300 known\n");
    EXPECT_EQ(api_.run(&stats_), 0);
    EXPECT_EQ(Counters(), "2 2 1 1 0 1 0");
    EXPECT_STREQ(stats_.matchedDrivers, L"ZoProtector;ZoProtector");
    // These conditions keep the bodies only.
    const std::vector<Request> requests = Requests(before);
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_LT(requests[0].body.size(), 2000u);
    EXPECT_GT(requests[1].body.size(), 10000u);
    EXPECT_GT(requests[2].body.size(), requests[1].body.size() - 100);

    // The same two dumps over the protocol: each document is checked by the server.
    Conditions("");
    zotest::RemoveTree(record_.wstring());
    const std::size_t second = Count();
    api_.setBodyScrambler(nullptr, nullptr);
    stats_ = {};
    EXPECT_EQ(api_.run(&stats_), 0);
    EXPECT_EQ(Counters(), "2 2 2 0 0 2 0");
    const std::vector<Request> real = Requests(second);
    ASSERT_EQ(real.size(), 4u);
    for (const char* name : {"MinDump", "CrashStack", "CrashDumpLen", "CrashStackLen"}) {
        EXPECT_EQ(Field(real[0].document, name), "?") << name;
        EXPECT_EQ(Field(real[2].document, name), Field(real[1].document, name)) << name;
    }
    EXPECT_NE(Field(real[3].document, "MinDump"), Field(real[1].document, "MinDump"));
    EXPECT_NE(Field(real[2].document, "CrashSignature"), Field(real[1].document, "CrashSignature"));
    EXPECT_EQ(Field(real[3].document, "CrashSignature"), Field(real[2].document, "CrashSignature"));
    // One session for the run: the second crash goes over the first one's connection.
    EXPECT_EQ(HeadField(real[0].head, "Connection"), "Keep-Alive");
}

TEST_F(Uploads, FailWhenTheDumpOrTheEnginesTextIsMissing) {
    struct Case {
        const char* script;
        const char* counters;
    };
    const Case cases[] = {
        {"GetLastEventInformation delete", "1 1 1 0 0 0 1"},
        {"SetOutputCallbacks fail 0x80004005", "1 1 1 0 0 0 1"},
        {"GetLastEventInformation grow 5000", "1 1 1 0 0 1 0"},
    };
    const char* names[] = {"bugcheck"};
    api_.setTargetDrivers(names, 1);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.script);
        const std::filesystem::path dump = AddDump("a.dmp", kOurs, kBase + 1);
        const std::uintmax_t size = std::filesystem::file_size(dump);
        Script(c.script);
        Conditions("text 200\ntext 200\n");
        const std::size_t before = Count();
        EXPECT_EQ(Upload(dump), 0);
        EXPECT_EQ(Counters(), c.counters);
        const std::vector<Request> requests = Requests(before);
        EXPECT_EQ(requests.size(), stats_.uploadsSucceeded + 1);
        if (requests.size() == 2) {
            EXPECT_GT(requests[1].body.size(), (size + 5000) * 4 / 3);
        }
    }
}

TEST_F(Uploads, FinishTheDumpInHandAfterACancel) {
    AddDump("1.dmp", kOurs, kBase + 1);
    AddDump("2.dmp", kOurs2, kBase + 2);
    Conditions("slow 1\nslow 1\n");
    const std::size_t before = Count();
    std::thread other([&] {
        while (Count() == before)
            Sleep(20);
        api_.cancel();
    });
    EXPECT_EQ(api_.run(&stats_), kAborted);
    other.join();
    EXPECT_EQ(Counters(), "2 1 1 0 0 1 0");
    EXPECT_EQ(Record(), kBase + 2);
    EXPECT_EQ(Count(), before + 2);
}

TEST_F(Uploads, LeaveNoHandleBehind) {
    AddDump("1.dmp", kOurs, kBase + 1);
    Conditions("*text 300 known\n");
    const auto run = [this] {
        zotest::RemoveTree(record_.wstring());
        stats_ = {};
        EXPECT_EQ(api_.run(&stats_), 0);
        EXPECT_EQ(Counters(), "1 1 0 1 0 0 0");
    };
    for (int i = 0; i < 5; ++i)
        run();
    const std::uint32_t before = zotest::OpenHandleCount();
    for (int i = 0; i < 100; ++i)
        run();
    EXPECT_LE(zotest::OpenHandleCount(), before);
}

}  // namespace
}  // namespace zocrashtest
