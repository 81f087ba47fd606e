// Lambdas as callbacks, what becomes of an exception in one, and that the layer allocates nothing of its own.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <stdexcept>

#include "installed_driver.h"
#include "loaded_library.h"
#include "temp_folder.h"
#include "zocrashreport.hpp"
#include "zoprotector.hpp"
#include "zosigner.hpp"

namespace {
std::atomic<int> allocations = 0;  // of this program; the library has a heap of its own
}

void* operator new(std::size_t size) {
    ++allocations;
    if (void* block = std::malloc(size)) return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace layertest {
namespace {

struct Mine : std::runtime_error {
    Mine() : std::runtime_error("mine") {}
};

class Signing : public testing::Test {
  protected:
    Signing() { zotest::WriteFileBytes(temporary_ / "tree/below/file.txt", "contents"); }

    void Sign(zosigner::OnMessage message = {}, zosigner::OnFolder decide = {}) {
        zosigner::SignDirectory({.root = root_, .manifest = manifest_, .keystore = keys_}, message, decide);
    }
    ZoSignerVerifyResult Verify(zosigner::OnMessage message = {}) {
        return zosigner::VerifyDirectory({.root = root_, .manifest = manifest_, .keystore = keys_}, message);
    }

    zotest::TempFolder temporary_;
    std::filesystem::path root_ = temporary_ / "tree", manifest_ = temporary_ / "manifest", keys_ = temporary_ / "keys";
};

TEST_F(Signing, ExceptionInAnAnswerStopsTheSigningAndArrives) {
    EXPECT_THROW(Sign({}, [](std::wstring_view) -> zosigner::SealAnswer { throw Mine(); }), Mine);
    EXPECT_FALSE(std::filesystem::exists(manifest_));
}

TEST_F(Signing, ExceptionInAMessageArrivesAfterTheCall) {
    int messages = 0;
    const auto raise = [&](zosigner::Level, std::wstring_view) {
        ++messages;
        throw Mine();
    };
    EXPECT_THROW(Sign(raise), Mine);
    EXPECT_EQ(messages, 1);
    EXPECT_EQ(Verify().ok, 1u);
    EXPECT_THROW(Verify(raise), Mine);
}

class Crashes : public testing::Test {
  protected:
    Crashes() {
        zotest::WriteFileBytes(dumps_ / "a.dmp", zotest::ReadFileBytes(zotest::ProgramFolder() / "dumps" / "ours.dmp"));
        zocrashreport::NotifyNetworkOk();
    }
    [[nodiscard]] zocrashreport::Config Config() const {
        return {.serverUrl = L"https://127.0.0.1:9/crash", .minidumpDir = dumps_, .compareFilePath = record_};
    }

    zotest::TempFolder temporary_;
    std::filesystem::path dumps_ = temporary_ / "dumps", record_ = temporary_ / "record";
};

TEST_F(Crashes, ExceptionInAMessageArrivesAfterTheRun) {
    int messages = 0;
    zocrashreport::Reporter reporter(Config());
    reporter.SetBodyScrambler([](auto, auto) { return std::size_t{SIZE_MAX}; });
    EXPECT_THROW(reporter.Run([&](auto, auto) {
        ++messages;
        throw Mine();
    }),
                 Mine);
    EXPECT_EQ(messages, 1);
    EXPECT_TRUE(std::filesystem::exists(record_)) << "the run did not finish";
}

TEST_F(Crashes, ExceptionInAScramblerArrivesAndSendsNothing) {
    zocrashreport::Reporter reporter(Config());
    reporter.SetBodyScrambler([](auto, auto) -> std::size_t { throw Mine(); });
    EXPECT_THROW(reporter.Run(), Mine);
    EXPECT_EQ(reporter.Run().dumpsFound, 0u) << "an exception is raised once";
}

TEST_F(Crashes, NothingIsSentOnceTheReporterWithItsScramblerIsGone) {
    int asked = 0;
    {
        zocrashreport::Reporter reporter(Config());
        reporter.SetBodyScrambler([&](auto, auto) {
            ++asked;
            return std::size_t{0};
        });
    }
    std::wstring log;
    const auto stats = zocrashreport::Reporter(Config()).Run([&](auto, std::wstring_view text) { log += text; });
    EXPECT_EQ(stats.queriesFailed, 1u);
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(log.find(L"127.0.0.1"), std::wstring::npos) << "no request was made";
}

TEST(Layer, AllocatesNothingButTheRoomForAList) {
    const zotest::InstalledDriver driver;
    const zoprotector::Session session;
    session.AddFileProtectByPath(L"C:\\a");
    zoprotector::EventReader reader(session, [](std::uint32_t) {});
    const int before = allocations;
    session.AddFileProtectByFolder(L"C:\\b", {.filter = L"*.exe"});
    static_cast<void>(session.GetStats());
    static_cast<void>(reader.Poll());
    static_cast<void>(zoprotector::GetHardwareId());
    static_cast<void>(zoprotector::QueryDriverStatus());
    EXPECT_EQ(allocations, before);
    EXPECT_EQ(session.ListFileProtectRules().size(), 2u);
    EXPECT_EQ(allocations, before + 1);
}

}  // namespace
}  // namespace layertest
