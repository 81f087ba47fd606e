// What the exports make of the driver's replies, also of those that are too short, too long or report losses.

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "rows.h"
#include "sdk_fixture.h"

namespace sdktest {
namespace {

constexpr std::uint8_t kUntouched = 0xEE;

class Replies : public SdkTest {
  protected:
    std::uint32_t count_ = 99, other_ = 99, position_ = 99;
};

// A list of 25 rules. What the four lists share is tried with one of them; all their requests are in requests_test.cpp.
class Lists : public Replies {
  protected:
    static constexpr std::uint32_t kRules = 25;
    static constexpr std::size_t kEntrySize = 1044;

    void SetUp() override {
        Replies::SetUp();
        const auto requests = RequestsOf([] {
            for (std::uint32_t i = 0; i < kRules; ++i)
                EXPECT_EQ(ZoProtector_AddProcessProtectByFolder((L"C:\\" + std::to_wstring(i)).c_str(), 1), ZOP_OK);
        });
        // An entry is the record that was sent, padded with zeros.
        for (const ZoSimRequest& request : requests) {
            sent_.insert(sent_.end(), request.in, request.in + request.inLength);
            sent_.resize(sent_.size() + kEntrySize - request.inLength);
        }
        static_cast<void>(Log());
    }

    // The entries that a call with this capacity must write, and one untouched entry after the array.
    [[nodiscard]] Bytes Expected(std::uint32_t copied, std::uint32_t capacity) const {
        Bytes entries(copied * kEntrySize);
        std::copy_n(sent_.begin(), std::min(sent_.size(), entries.size()), entries.begin());
        entries.resize((capacity + 1) * kEntrySize, kUntouched);
        return entries;
    }

    static Lines Truncated(std::uint32_t left, std::uint32_t returned) {
        return {
            zo::Format("[WARN ] ListRules(ioctl=0x8000C010): {} rules truncated (total=25, returned={}) -- supply a "
                       "larger buffer",
                       left, returned)};
    }

    Bytes sent_;
};

TEST_F(Lists, FillTheArrayAndWarnOfWhatDoesNotFit) {
    for (const std::uint32_t capacity : {0u, 10u, 25u, 26u}) {
        SCOPED_TRACE(capacity);
        const std::uint32_t copied = std::min(capacity, kRules);
        Bytes entries((capacity + 1) * kEntrySize, kUntouched);
        void* const array = capacity == 0 ? nullptr : entries.data();
        EXPECT_EQ(ZoProtector_ListProcessProtectRules(array, capacity, &count_, &other_), ZOP_OK);
        EXPECT_EQ(count_, copied);
        EXPECT_EQ(other_, kRules);
        EXPECT_TRUE(entries == Expected(copied, capacity));
        EXPECT_EQ(Log(), copied < kRules ? Truncated(kRules - copied, copied) : Lines());
    }
}

TEST_F(Lists, CopyNoMoreThanFitsWhenTheDriverPromisesMore) {
    constexpr std::uint32_t kCapacity = 30;
    Simulator().AddFault({ZOP_IOCTL_LIST_PROCESS_RULES, 0, 1, ZOSIM_FAULT_WORDS, 0, 0, 0, 0xE, {0, 300, 5, 0}});
    Bytes entries((kCapacity + 1) * kEntrySize, kUntouched);
    EXPECT_EQ(ZoProtector_ListProcessProtectRules(entries.data(), kCapacity, &count_, &other_), ZOP_OK);
    EXPECT_EQ(count_, kCapacity);
    EXPECT_TRUE(entries == Expected(kCapacity, kCapacity)) << "zeros for what was not sent";
    EXPECT_EQ(Log(), Truncated(5, kCapacity));
}

TEST_F(Lists, TakeOneVariableForBothOutputs) {
    EXPECT_EQ(ZoProtector_ListProcessProtectRules(nullptr, 0, &count_, &count_), ZOP_OK);
    EXPECT_EQ(count_, kRules) << "the total is written last";
    EXPECT_EQ(Log(), Truncated(kRules, 0)) << "the caller's memory must not be read back";
}

TEST_F(Lists, RefuseAReplyWithoutAHeader) {
    Bytes entries(30 * kEntrySize);
    for (const std::uint32_t returned : {15u, 16u}) {
        Simulator().ReturnBytes(ZOP_IOCTL_LIST_PROCESS_RULES, returned);
        EXPECT_EQ(ZoProtector_ListProcessProtectRules(entries.data(), 30, &count_, nullptr),
                  returned == 16 ? ZOP_OK : ZOP_E_FAILED);
        EXPECT_EQ(count_, returned == 16 ? kRules : 0u);
    }
    EXPECT_EQ(Log(), Lines());
}

class Drains : public Replies {
  protected:
    static constexpr std::size_t kRecordSize = 1076;

    std::int32_t Drain(std::uint32_t position, std::uint32_t capacity) {
        return ZoProtector_DrainRegistryEvents(position, events_.data(), capacity, &count_, &other_, &position_);
    }

    Bytes events_ = Bytes(257 * kRecordSize, kUntouched);
};

TEST_F(Drains, TakeAReplyWithoutAHeaderForNothingNew) {
    Simulator().InjectEvents(ZOSIM_RING_REGISTRY, 5);
    Simulator().ReturnBytes(ZOP_IOCTL_DRAIN_REGISTRY_EVENTS, 15);
    EXPECT_EQ(Drain(0, 256), ZOP_OK);
    EXPECT_EQ(count_ + other_ + position_, 0u);
    EXPECT_EQ(events_[0], kUntouched);
    EXPECT_EQ(Log(), Lines());
}

TEST_F(Drains, CopyNoMoreThanTheCapacity) {
    Simulator().InjectEvents(ZOSIM_RING_REGISTRY, 5);
    EXPECT_EQ(ZoProtector_DrainRegistryEvents(0, events_.data(), 3, &count_, nullptr, nullptr), ZOP_OK);
    EXPECT_EQ(count_, 3u);
    EXPECT_EQ(events_[3 * kRecordSize], kUntouched);
}

TEST_F(Drains, ReportLostEventsAndWarn) {
    const struct {
        decltype(&ZoProtector_DrainEvents) drain;
        std::uint32_t code;
        const char *name, *constant;
    } rings[] = {
        {&ZoProtector_DrainEvents, ZOP_IOCTL_DRAIN_EVENTS, "DrainEvents", "ZOP_EVENT_RING_SIZE"},
        {&ZoProtector_DrainRegistryEvents, ZOP_IOCTL_DRAIN_REGISTRY_EVENTS, "DrainRegistryEvents",
         "ZOP_REGISTRY_EVENT_RING_SIZE"},
    };
    for (const auto& ring : rings) {
        Simulator().AddFault({ring.code, 0, 1, ZOSIM_FAULT_WORDS, 0, 0, 0, 0xF, {300, 12, 4321, 5000}});
        EXPECT_EQ(ring.drain(4000, events_.data(), 256, &count_, &other_, &position_), ZOP_OK);
        EXPECT_EQ((std::array{count_, other_, position_}), (std::array{256u, 12u, 4321u}));
        EXPECT_EQ(events_[256 * kRecordSize], kUntouched);
        EXPECT_EQ(Log(), Lines{zo::Format("[WARN ] ZoProtector_{}: 12 events dropped (writerSeq=5000 lastRead=4000) -- "
                                          "poll faster or raise {}",
                                          ring.name, ring.constant)});
    }
}

// Polls a producer of known speed 40 times; it stops after ten.
TEST_F(Drains, ReceivedAndLostEventsAreAllThatWereProduced) {
    for (const std::uint32_t perPoll : {1u, 100u, 500u, 3000u}) {
        SCOPED_TRACE(perPoll);
        Simulator().Reset();
        Simulator().ChangeSettings([&](ZoSimSettings& settings) {
            settings.resumeAfterOverrun = perPoll == 500 ? ZOSIM_RESUME_NEWEST : ZOSIM_RESUME_OLDEST;
        });
        std::uint32_t position = 0xFFFFFF00;  // the sequence numbers wrap
        Simulator().SetSequence(ZOSIM_RING_REGISTRY, position);
        Simulator().SetProducer(ZOSIM_RING_REGISTRY, perPoll);
        std::uint32_t received = 0, lost = 0;
        for (int poll = 0; poll < 40; ++poll) {
            if (poll == 10) Simulator().SetProducer(ZOSIM_RING_REGISTRY, 0);
            ASSERT_EQ(Drain(position, 100), ZOP_OK);
            received += count_;
            lost += other_;
            // In order, each event once; a gap only where a loss was reported.
            ASSERT_EQ(position_, position + other_ + count_);
            position += other_;
            for (const std::uint8_t* event = events_.data(); position != position_; ++position, event += kRecordSize)
                ASSERT_EQ(std::memcmp(event, &position, sizeof position), 0);
        }
        EXPECT_EQ(received + lost, 10 * perPoll);
        EXPECT_EQ(lost > 0, perPoll > 100);
    }
}

// 2^32 records are terabytes.
TEST_F(Replies, RaiseBadAllocWhenTheMemoryIsTooSmall) {
    std::uint8_t oneRecord[2344] = {};
    try {
        ZoProtector_ListFileProtectRules(oneRecord, 0xFFFFFFFF, &count_, &other_);
    } catch (const std::bad_alloc&) {
        count_ += 100;
    }
    EXPECT_TRUE(count_ == 0 || count_ == 100) << count_;
    EXPECT_EQ(other_, 0u);
}

TEST_F(Replies, AShortStatusLeavesZeros) {
    Simulator().SetStatusReply({0, 1, 128, 255}, {0, 0x01020304, 0xFFFFFFFF, 7});
    // Seven bytes end inside the second count.
    Simulator().ReturnBytes(ZOP_IOCTL_GET_STATUS, 7);
    for (const ZopStatus& expected :
         {ZopStatus{0, 0, 1, 0x04, 0, 0, 0, 0}, ZopStatus{0, 0, 1, 0x01020304, 128, 0xFFFFFFFF, 255, 7}}) {
        ZopStatus status{};
        EXPECT_EQ(ZoProtector_GetStatus(&status), ZOP_OK);
        EXPECT_EQ(std::memcmp(&status, &expected, sizeof status), 0);
    }
}

TEST_F(Replies, AnyStateOfTheMasterSwitchButZeroIsOn) {
    const zo::OwnedFile driver = zotest::OpenDriver();
    const std::uint8_t enabled = 128;
    EXPECT_EQ(zotest::SendControl(driver.Get(), ZOP_IOCTL_SET_MASTER_ENABLED, &enabled, 1).error, 0u);
    EXPECT_EQ(ZoProtector_GetMasterEnabled(&count_), ZOP_OK);
    EXPECT_EQ(count_, 1u);
}

TEST_F(Replies, AMissingStateOfTheMasterSwitchIsOff) {
    Simulator().ReturnBytes(ZOP_IOCTL_GET_MASTER_ENABLED, 0);
    EXPECT_EQ(ZoProtector_GetMasterEnabled(&count_), ZOP_OK);
    EXPECT_EQ(count_, 0u);
}

TEST_F(Replies, VerdictsAreFlagsAndZeroWhenTheReplyIsShort) {
    Simulator().SetPidSignature({77, 2, 0, 0, 0x80, 0});
    const auto verdict = [&](decltype(&ZoProtector_QueryPidSignature) ask) {
        EXPECT_EQ(ask(77, &count_, &other_), ZOP_OK);
        return std::pair(count_, other_);
    };
    EXPECT_EQ(verdict(&ZoProtector_QueryPidSignature), std::pair(1u, 0u));
    EXPECT_EQ(verdict(&ZoProtector_RefreshPidSignature), std::pair(0u, 1u));
    Simulator().ReturnBytes(ZOP_IOCTL_QUERY_PID_SIGNATURE, 7);
    EXPECT_EQ(verdict(&ZoProtector_QueryPidSignature), std::pair(0u, 0u));
}

TEST_F(Replies, ThePolicyIsReadAsItWasSet) {
    const ZopSignaturePolicy set = {3, 9, {}};
    EXPECT_EQ(ZoProtector_SetSignaturePolicy(&set), ZOP_OK);
    ZopSignaturePolicy policy = {1, 1, {1, 1, 1, 1, 1, 1}};
    EXPECT_EQ(ZoProtector_GetSignaturePolicy(&policy), ZOP_OK);
    EXPECT_EQ(std::memcmp(&policy, &set, sizeof set), 0);
}

TEST_F(Replies, CountersFollowTheLayoutVersion) {
    ZoSimCounters counters{};
    for (std::uint32_t i = 0; i < ZOSIM_COUNTERS; ++i)
        counters.values[i] = 1000 + i;
    const std::string kShort = "[WARN ] ZoProtector_GetStats: driver returned ";
    const std::string kUnavailable =
        "[WARN ] ZoProtector_GetUnsignedBypassAttempts: driver reports stats v2 (<3); field unavailable";
    const zotest::Rows<std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, Lines> cases = {
        {"whole block", 3, 76, 1012, 1017, {}},
        {"older block", 2, 56, 0, 0, {kShort + "56 bytes, expected 76 (version=2)", kUnavailable}},
        {"one byte short", 3, 75, 1012, 1017, {kShort + "75 bytes, expected 76 (version=3)"}},
    };
    for (const auto& [name, version, returned, attempts, last, lines] : cases) {
        SCOPED_TRACE(name);
        Simulator().SetCounters(counters);
        Simulator().SetStatsVersion(version);
        if (returned == 75) Simulator().ReturnBytes(ZOP_IOCTL_GET_STATS, returned, 2);
        ZopStats stats;
        std::memset(&stats, 0xEE, sizeof stats);
        EXPECT_EQ(ZoProtector_GetStats(&stats), ZOP_OK);
        EXPECT_EQ(stats.version, version);
        EXPECT_EQ(stats.counters[11], 1011u);
        EXPECT_EQ(stats.moreCounters[4], last);
        static_cast<void>(Log());
        EXPECT_EQ(ZoProtector_GetUnsignedBypassAttempts(&count_), version < 3 ? ZOP_E_VERSION_MISMATCH : ZOP_OK);
        EXPECT_EQ(count_, attempts);
        EXPECT_EQ(Log(), lines);
    }
}

}  // namespace
}  // namespace sdktest
