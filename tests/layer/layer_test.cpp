// The C++ layer with the library and the driver behind it: sessions, lists, event readers and error codes.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "installed_driver.h"
#include "zoprotector.hpp"

namespace {
std::atomic<int> allocations = 0;  // of this program; the library has a heap of its own
}

// Owning types are built on these. NOLINTBEGIN(cppcoreguidelines-owning-memory)
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
// NOLINTEND(cppcoreguidelines-owning-memory)

namespace layertest {
namespace {

using zostatus::Status;

class ChannelTest : public testing::Test {
  protected:
    zotest::InstalledDriver driver_;
    zotest::SimulatorClient client_;
    zoprotector::Session session_;
};

TEST_F(ChannelTest, SessionEndsTheChannelOnceAndOnlyWhereItIsHeld) {
    const auto devices = [this] { return client_.State().openNow; };
    EXPECT_EQ(devices(), 1u);
    {
        const zoprotector::Session moved = std::move(session_);
        EXPECT_FALSE(session_);
        EXPECT_TRUE(moved);
        session_.Close();
        EXPECT_EQ(devices(), 1u);
    }
    EXPECT_EQ(devices(), 0u);
}

TEST_F(ChannelTest, ListsGiveTheWholeTableOrFail) {
    for (int i = 0; i < 100; ++i)
        session_.AddProcessProtectByPath(L"C:\\item" + std::to_wstring(i));
    const auto entries = session_.ListProcessProtectRules();
    ASSERT_EQ(entries.size(), 100u);
    EXPECT_TRUE(zoprotector::TextOf(zoprotector::RecordOf(entries[99]).path).ends_with(L"\\item99"));

    constexpr std::uint32_t kTotalAlone = 1;  // of the words of the reply's header
    client_.AddFault({ZOP_IOCTL_LIST_PROCESS_RULES, 0, ZOSIM_FOR_EVER, ZOSIM_FAULT_WORDS, 0, 0, 0, kTotalAlone, {200}});
    std::error_code error;
    EXPECT_TRUE(session_.ListProcessProtectRules(error).empty());
    EXPECT_EQ(error, Status::kFailed);
}

TEST_F(ChannelTest, EventReadersGiveEveryEventOrItsLoss) {
    std::uint32_t lost = 0;
    zoprotector::EventReader reader(session_, [&](std::uint32_t count) { lost += count; }, 300);
    std::uint32_t read = 0;
    client_.InjectEvents(ZOSIM_RING_EVENTS, ZOP_EVENT_RING_SIZE + 5);
    do {
        read += static_cast<std::uint32_t>(reader.Poll().size());
    } while (reader.MayHaveMore());
    EXPECT_EQ(read, ZOP_EVENT_RING_SIZE);
    EXPECT_EQ(lost, 5u);

    // Neither a failure nor a reply without a header moves the position.
    client_.FailNext(ZOP_IOCTL_DRAIN_EVENTS, 0xC0000022);
    EXPECT_THROW(static_cast<void>(reader.Poll()), std::system_error);
    client_.ReturnBytes(ZOP_IOCTL_DRAIN_EVENTS, 0);
    EXPECT_TRUE(reader.Poll().empty());
    client_.InjectEvents(ZOSIM_RING_EVENTS, 2);
    EXPECT_EQ(reader.Poll().size(), 2u);
    EXPECT_EQ(lost, 5u);
    reader.StartAgain();
    EXPECT_EQ(reader.Poll().size(), 300u);
}

TEST_F(ChannelTest, ABatchIsReadAgainWhenTheCallbackForLossesThrows) {
    client_.InjectEvents(ZOSIM_RING_EVENTS, ZOP_EVENT_RING_SIZE + 5);
    bool throws = true;
    const auto onLost = [&](std::uint32_t) {
        if (throws) throw std::runtime_error("no room");
    };
    zoprotector::EventReader reader(session_, onLost, 10);
    EXPECT_THROW(static_cast<void>(reader.Poll()), std::runtime_error);
    throws = false;
    const auto events = reader.Poll();
    ASSERT_EQ(events.size(), 10u);
    EXPECT_EQ(events[0].bytes[0], 5u) << "the first event that was not overwritten";
}

TEST_F(ChannelTest, TheLayerAllocatesNothingButTheRoomForAList) {
    session_.AddFileProtectByPath(L"C:\\a");
    zoprotector::EventReader reader(session_, [](std::uint32_t) {});
    const int before = allocations;
    session_.AddFileProtectByFolder(L"C:\\b", {.filter = L"*.exe"});
    static_cast<void>(session_.GetStats());
    static_cast<void>(reader.Poll());
    static_cast<void>(zoprotector::GetHardwareId());
    static_cast<void>(zoprotector::QueryDriverStatus());
    EXPECT_EQ(allocations, before);
    EXPECT_EQ(session_.ListFileProtectRules().size(), 2u);
    EXPECT_EQ(allocations, before + 1);
}

TEST(Codes, SayWhatHappenedAndCompareWithTheStandardConditions) {
    const struct {
        std::int32_t status;
        std::errc condition;
        const char* text;
    } cases[] = {
        {ZOP_E_ACCESS_DENIED, std::errc::permission_denied, "Access was denied."},
        {ZOSIG_E_VERIFY_FAILED, {}, "The folder differs from its manifest."},
        {ZOP_STATUS_FROM_WIN32(ERROR_FILE_NOT_FOUND), std::errc::no_such_file_or_directory, nullptr},
        {static_cast<std::int32_t>(0xD0000001), {}, "The call failed with status 0xD0000001."},
    };
    for (const auto& row : cases) {
        const std::error_code code = zostatus::CodeOf(row.status);
        SCOPED_TRACE(code.message());
        EXPECT_EQ(code.value(), row.status);
        EXPECT_FALSE(code.message().empty());
        EXPECT_TRUE(row.text == nullptr || code.message() == row.text);
        EXPECT_TRUE(row.condition == std::errc{} || code == row.condition);
    }
    EXPECT_EQ(zostatus::CodeOf(ZOSIG_E_TAMPERED), Status::kTampered);
    EXPECT_FALSE(zostatus::CodeOf(1));
}

}  // namespace
}  // namespace layertest
