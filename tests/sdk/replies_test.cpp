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

const struct {
    decltype(&ZoProtector_ListFileProtectRules) list;
    std::uint32_t code;
    std::uint32_t entrySize;
    int32_t (*add)(const wchar_t* name, uint32_t recursive);
} kLists[] = {
    {&ZoProtector_ListProcessProtectRules, 0x8000C010, 1044, &ZoProtector_AddProcessProtectByFolder},
    {&ZoProtector_ListFileProtectRules, 0x8000C060, 2344,
     [](const wchar_t* name, uint32_t) { return ZoProtector_AddFileProtectByPath(name); }},
    {&ZoProtector_ListRegistryProtectRules, 0x8000C0A0, 1028, &ZoProtector_AddRegistryProtectByKey},
    {&ZoProtector_ListDllWhitelistRules, 0x8000C0D4, 1044, &ZoProtector_AddDllWhitelistFolder},
};

const struct {
    decltype(&ZoProtector_DrainEvents) drain;
    std::uint32_t ring;
    std::uint32_t code;
    std::uint32_t recordSize;
    const char* name;
    const char* constant;
} kRings[] = {
    {&ZoProtector_DrainEvents, ZOSIM_RING_EVENTS, 0x8000C3CC, 562, "ZoProtector_DrainEvents", "ZOP_EVENT_RING_SIZE"},
    {&ZoProtector_DrainRegistryEvents, ZOSIM_RING_REGISTRY, 0x8000C09C, 1076, "ZoProtector_DrainRegistryEvents",
     "ZOP_REGISTRY_EVENT_RING_SIZE"},
};

class Replies : public SdkTest {
  protected:
    std::uint32_t count_ = 99, other_ = 99, position_ = 99;
};

// Every list with 25 rules in its table.
class Lists : public Replies {
  protected:
    static constexpr std::uint32_t kRules = 25;

    template <typename Check>
    void ForEachList(const Check& check) {
        for (const auto& table : kLists) {
            SCOPED_TRACE(table.code);
            // A name that is a path as well as a key.
            const auto requests = RequestsOf([&] {
                for (std::uint32_t i = 0; i < kRules; ++i)
                    EXPECT_EQ(table.add((L"\\REGISTRY\\" + std::to_wstring(i)).c_str(), 1), ZOP_OK);
            });
            // An entry is the record that was sent, padded with zeros.
            sent_.clear();
            for (const ZoSimRequest& request : requests) {
                sent_.insert(sent_.end(), request.in, request.in + request.inLength);
                sent_.resize(sent_.size() + table.entrySize - request.inLength);
            }
            static_cast<void>(Log());
            check(table);
        }
    }

    // The entries that a call with this capacity must write, and one untouched entry after the array.
    [[nodiscard]] Bytes Expected(std::uint32_t entrySize, std::uint32_t copied, std::uint32_t capacity) const {
        Bytes entries(copied * entrySize);
        std::copy_n(sent_.begin(), std::min(sent_.size(), entries.size()), entries.begin());
        entries.resize((capacity + 1) * entrySize, kUntouched);
        return entries;
    }

    static Lines Truncated(std::uint32_t code, std::uint32_t left, std::uint32_t returned) {
        return {zo::Format(
            "[WARN ] ListRules(ioctl=0x{:08X}): {} rules truncated (total=25, returned={}) -- supply a larger buffer",
            code, left, returned)};
    }

    Bytes sent_;
};

TEST_F(Lists, FillTheArrayAndWarnOfWhatDoesNotFit) {
    ForEachList([&](const auto& table) {
        for (const std::uint32_t capacity : {0u, 10u, 25u, 26u}) {
            SCOPED_TRACE(capacity);
            const std::uint32_t copied = std::min(capacity, kRules);
            Bytes entries((capacity + 1) * table.entrySize, kUntouched);
            EXPECT_EQ(table.list(capacity == 0 ? nullptr : entries.data(), capacity, &count_, &other_), ZOP_OK);
            EXPECT_EQ(count_, copied);
            EXPECT_EQ(other_, kRules);
            EXPECT_TRUE(entries == Expected(table.entrySize, copied, capacity));
            EXPECT_EQ(Log(), copied < kRules ? Truncated(table.code, kRules - copied, copied) : Lines());
        }
    });
}

TEST_F(Lists, CopyNoMoreThanFitsWhenTheDriverPromisesMore) {
    ForEachList([&](const auto& table) {
        constexpr std::uint32_t kCapacity = 30;
        Simulator().AddFault({table.code, 0, 1, ZOSIM_FAULT_WORDS, 0, 0, 0, 0xE, {0, 300, 5, 0}});
        Bytes entries((kCapacity + 1) * table.entrySize, kUntouched);
        EXPECT_EQ(table.list(entries.data(), kCapacity, &count_, &other_), ZOP_OK);
        EXPECT_EQ(count_, kCapacity);
        EXPECT_TRUE(entries == Expected(table.entrySize, kCapacity, kCapacity)) << "zeros for what was not sent";
        EXPECT_EQ(Log(), Truncated(table.code, 5, kCapacity));
    });
}

TEST_F(Lists, TakeOneVariableForBothOutputs) {
    ForEachList([&](const auto& table) {
        EXPECT_EQ(table.list(nullptr, 0, &count_, &count_), ZOP_OK);
        EXPECT_EQ(count_, kRules) << "the total is written last";
        EXPECT_EQ(Log(), Truncated(table.code, kRules, 0)) << "the caller's memory must not be read back";
    });
}

TEST_F(Lists, RefuseAReplyWithoutAHeader) {
    ForEachList([&](const auto& table) {
        for (const std::uint32_t returned : {15u, 16u}) {
            Simulator().ReturnBytes(table.code, returned);
            EXPECT_EQ(table.list(Bytes(30 * table.entrySize).data(), 30, &count_, nullptr),
                      returned == 16 ? ZOP_OK : ZOP_E_FAILED);
            EXPECT_EQ(count_, returned == 16 ? kRules : 0u);
        }
        EXPECT_EQ(Log(), Lines());
    });
}

class Drains : public Replies {
  protected:
    template <typename Check>
    void ForEachRing(const Check& check) {
        for (const auto& ring : kRings) {
            SCOPED_TRACE(ring.name);
            Bytes events(257 * ring.recordSize, kUntouched);
            check(ring, events);
        }
    }
};

TEST_F(Drains, TakeAReplyWithoutAHeaderForNothingNew) {
    ForEachRing([&](const auto& ring, Bytes& events) {
        Simulator().InjectEvents(ring.ring, 5);
        Simulator().ReturnBytes(ring.code, 15);
        EXPECT_EQ(ring.drain(0, events.data(), 256, &count_, &other_, &position_), ZOP_OK);
        EXPECT_EQ(count_ + other_ + position_, 0u);
        EXPECT_EQ(events[0], kUntouched);
        EXPECT_EQ(Log(), Lines());
    });
}

TEST_F(Drains, CopyNoMoreThanTheCapacity) {
    ForEachRing([&](const auto& ring, Bytes& events) {
        Simulator().InjectEvents(ring.ring, 5);
        EXPECT_EQ(ring.drain(0, events.data(), 3, &count_, nullptr, nullptr), ZOP_OK);
        EXPECT_EQ(count_, 3u);
        EXPECT_EQ(events[3 * ring.recordSize], kUntouched);
    });
}

TEST_F(Drains, ReportLostEventsAndWarn) {
    ForEachRing([&](const auto& ring, Bytes& events) {
        Simulator().AddFault({ring.code, 0, 1, ZOSIM_FAULT_WORDS, 0, 0, 0, 0xF, {300, 12, 4321, 5000}});
        EXPECT_EQ(ring.drain(4000, events.data(), 256, &count_, &other_, &position_), ZOP_OK);
        EXPECT_EQ((std::array{count_, other_, position_}), (std::array{256u, 12u, 4321u}));
        EXPECT_EQ(events[256 * ring.recordSize], kUntouched);
        EXPECT_EQ(Log(), Lines{zo::Format("[WARN ] {}: 12 events dropped (writerSeq=5000 lastRead=4000) -- poll faster "
                                          "or raise {}",
                                          ring.name, ring.constant)});
    });
}

// Polls a producer of known speed 40 times; it stops after ten.
struct Polled {
    std::uint32_t received = 0;
    std::uint32_t lost = 0;
    std::size_t warnings = 0;
};

class Producer : public Drains {
  protected:
    static constexpr std::uint32_t kCapacity = 100;

    template <typename Ring>
    void Poll(const Ring& ring, std::uint32_t perPoll, Polled& polled) {
        std::uint32_t position = 0xFFFFFF00;  // the sequence numbers wrap
        Simulator().SetSequence(ring.ring, position);
        Simulator().SetProducer(ring.ring, perPoll);
        Bytes events(kCapacity * ring.recordSize);
        for (int poll = 0; poll < 40; ++poll) {
            if (poll == 10) Simulator().SetProducer(ring.ring, 0);
            std::uint32_t next = 0;
            ASSERT_EQ(ring.drain(position, events.data(), kCapacity, &count_, &other_, &next), ZOP_OK);
            polled.received += count_;
            polled.lost += other_;
            polled.warnings += other_ > 0 ? 1 : 0;
            // In order, each event once; a gap only where a loss was reported.
            ASSERT_EQ(next, position + other_ + count_);
            position += other_;
            for (const std::uint8_t* event = events.data(); position != next; ++position, event += ring.recordSize)
                ASSERT_EQ(std::memcmp(event, &position, sizeof position), 0);
        }
    }
};

TEST_F(Producer, ReceivedAndLostEventsAreAllThatWereProduced) {
    for (const auto& ring : kRings) {
        for (const std::uint32_t perPoll : {1u, 100u, 500u, 3000u}) {
            SCOPED_TRACE(zo::Format("{} at {} events a poll", ring.name, perPoll));
            Simulator().Reset();
            ZoSimSettings settings = Simulator().Settings();
            settings.resumeAfterOverrun = perPoll == 500 ? ZOSIM_RESUME_NEWEST : ZOSIM_RESUME_OLDEST;
            Simulator().SetSettings(settings);
            Polled polled;
            Poll(ring, perPoll, polled);
            EXPECT_EQ(polled.received + polled.lost, 10 * perPoll);
            EXPECT_EQ(polled.lost > 0, perPoll > kCapacity);
            EXPECT_EQ(Log().size(), polled.warnings);
        }
    }
}

// 2^32 records are terabytes.
TEST_F(Lists, RaiseBadAllocWhenTheMemoryIsTooSmall) {
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
    // A short reply leaves zeros: seven bytes end inside the second count.
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
        Simulator().ReturnBytes(ZOP_IOCTL_GET_STATS, returned, 2);
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
