// What becomes of the driver's replies, the short, over-long and lossy ones included.

#include <algorithm>
#include <cstring>
#include <new>

#include "sdk_fixture.h"

namespace sdktest {
namespace {

constexpr std::uint8_t kUntouched = 0xEE;

struct ListExport {
    decltype(&ZoProtector_ListFileProtectRules) list;
    std::uint32_t code;
    std::uint32_t entrySize;
    int32_t (*add)(const std::wstring& number);
};
const ListExport kLists[] = {
    {&ZoProtector_ListProcessProtectRules, 0x8000C010, 1044,
     [](const std::wstring& n) { return ZoProtector_AddProcessProtectByFolder((L"C:\\p" + n).c_str(), 1); }},
    {&ZoProtector_ListFileProtectRules, 0x8000C060, 2344,
     [](const std::wstring& n) { return ZoProtector_AddFileProtectByFolder((L"C:\\f" + n).c_str(), 1, L"*.x"); }},
    {&ZoProtector_ListRegistryProtectRules, 0x8000C0A0, 1028,
     [](const std::wstring& n) { return ZoProtector_AddRegistryProtectByKey((L"HKLM\\k" + n).c_str(), 1); }},
    {&ZoProtector_ListDllWhitelistRules, 0x8000C0D4, 1044,
     [](const std::wstring& n) { return ZoProtector_AddDllWhitelistFolder((L"C:\\d" + n).c_str(), 1); }},
};

struct RingExport {
    decltype(&ZoProtector_DrainEvents) drain;
    std::uint32_t ring;
    std::uint32_t code;
    std::uint32_t recordSize;
    const char* name;
    const char* constant;
};
const RingExport kRings[] = {
    {&ZoProtector_DrainEvents, ZOSIM_RING_EVENTS, 0x8000C3CC, 562, "ZoProtector_DrainEvents", "ZOP_EVENT_RING_SIZE"},
    {&ZoProtector_DrainRegistryEvents, ZOSIM_RING_REGISTRY, 0x8000C09C, 1076, "ZoProtector_DrainRegistryEvents",
     "ZOP_REGISTRY_EVENT_RING_SIZE"},
};

class Replies : public SdkTest {
  protected:
    std::uint32_t count_ = 99, other_ = 99, position_ = 99;
};
using Lists = Replies;
using Rings = Replies;

TEST_F(Lists, FillWhatFitsAndTellTheTotal) {
    for (const ListExport& table : kLists) {
        SCOPED_TRACE(table.entrySize);
        // The entries must be the records that were sent, padded with zeros.
        Bytes sent;
        for (const ZoSimRequest& request : RequestsOf([&] {
                 for (int i = 0; i < 25; ++i)
                     EXPECT_EQ(table.add(std::to_wstring(i)), ZOP_OK);
             })) {
            sent.insert(sent.end(), request.in, request.in + request.inLength);
            sent.resize(sent.size() + table.entrySize - request.inLength);
        }
        static_cast<void>(Log());
        for (const std::uint32_t capacity : {0u, 10u, 25u, 26u}) {
            const std::uint32_t fits = std::min(capacity, 25u);
            Bytes entries((capacity + 1) * table.entrySize, kUntouched);
            Bytes expected = entries;
            std::copy_n(sent.begin(), fits * table.entrySize, expected.begin());
            EXPECT_EQ(table.list(capacity == 0 ? nullptr : entries.data(), capacity, &count_, &other_), ZOP_OK);
            EXPECT_EQ(count_, fits);
            EXPECT_EQ(other_, 25u);
            EXPECT_TRUE(entries == expected) << capacity;
            const std::string truncated = zo::Format(
                "[WARN ] ListRules(ioctl=0x{:08X}): {} rules truncated (total=25, returned={}) -- supply a larger "
                "buffer",
                table.code, 25 - fits, fits);
            EXPECT_EQ(Log(), fits < 25 ? Lines{truncated} : Lines()) << capacity;
        }
    }
}

TEST_F(Lists, BelieveNoMoreThanTheBufferHoldsAndRefuseAReplyWithoutHeader) {
    for (const ListExport& table : kLists) {
        EXPECT_EQ(table.add(L"1"), ZOP_OK);
        Bytes entries(5 * table.entrySize, kUntouched);
        // With the outputs in one place, the warning must not read back what the caller's memory holds.
        ZoSimFault promises{table.code, 0, 1, ZOSIM_FAULT_WORDS, 0, 0, 0, 0xE, {0, 300, 5, 0}};
        Simulator().AddFault(promises);
        static_cast<void>(Log());
        EXPECT_EQ(table.list(entries.data(), 4, &count_, &count_), ZOP_OK);
        EXPECT_EQ(count_, 1u) << "the total, written last";
        EXPECT_EQ(Log(), Lines{zo::Format("[WARN ] ListRules(ioctl=0x{:08X}): 5 rules truncated (total=1, returned=4) "
                                          "-- supply a larger buffer",
                                          table.code)});
        // Promised and not sent: zeros, and nothing behind the capacity.
        EXPECT_EQ(Bytes(entries.begin() + table.entrySize, entries.end() - table.entrySize),
                  Bytes(3 * table.entrySize));
        EXPECT_EQ(entries[4 * table.entrySize], kUntouched);

        std::fill(entries.begin(), entries.end(), kUntouched);
        Simulator().ReturnBytes(table.code, 15);
        EXPECT_EQ(table.list(entries.data(), 4, &count_, &other_), ZOP_E_FAILED);
        EXPECT_EQ(count_ + other_, 0u);
        EXPECT_EQ(entries[0], kUntouched);
        Simulator().ReturnBytes(table.code, 16);
        EXPECT_EQ(table.list(entries.data(), 4, &count_, nullptr), ZOP_OK);
        EXPECT_EQ(count_, 1u);
        EXPECT_EQ(Log(), Lines());
    }
}

TEST_F(Rings, ForgiveShortRepliesReportLossesAndCopyNoMoreThanFits) {
    for (const RingExport& ring : kRings) {
        SCOPED_TRACE(ring.name);
        Bytes events(257 * ring.recordSize, kUntouched);
        Simulator().InjectEvents(ring.ring, 5);
        for (const std::uint32_t returned : {0u, 15u}) {
            count_ = other_ = position_ = 99;
            Simulator().ReturnBytes(ring.code, returned);
            EXPECT_EQ(ring.drain(0, events.data(), 256, &count_, &other_, &position_), ZOP_OK);
            EXPECT_EQ(count_ + other_ + position_, 0u);
            EXPECT_EQ(events[0], kUntouched);
        }
        EXPECT_EQ(ring.drain(0, events.data(), 3, &count_, nullptr, nullptr), ZOP_OK);
        EXPECT_EQ(count_, 3u);
        EXPECT_EQ(events[3 * ring.recordSize], kUntouched);
        EXPECT_EQ(Log(), Lines());

        Simulator().AddFault({ring.code, 0, 1, ZOSIM_FAULT_WORDS, 0, 0, 0, 0xF, {300, 12, 4321, 5000}});
        EXPECT_EQ(ring.drain(4000, events.data(), 256, &count_, &other_, &position_), ZOP_OK);
        EXPECT_EQ(count_, 256u);
        EXPECT_EQ(other_, 12u);
        EXPECT_EQ(position_, 4321u);
        EXPECT_EQ(events[256 * ring.recordSize], kUntouched);
        EXPECT_EQ(Log(), Lines{zo::Format("[WARN ] {}: 12 events dropped (writerSeq=5000 lastRead=4000) -- poll faster "
                                          "or raise {}",
                                          ring.name, ring.constant)});
    }
}

// A producer of known counts: what arrives and what is reported as lost is all that there was, at every load, also
// where the sequence numbers wrap, and whichever way the driver goes on after an overrun.
TEST_F(Rings, ReceivedAndLostEventsAreAllThatWereProduced) {
    constexpr std::uint32_t kCapacity = 100;
    for (const RingExport& ring : kRings) {
        for (const std::uint32_t perPoll : {1u, 100u, 500u, 3000u}) {
            SCOPED_TRACE(zo::Format("{} at {} events a poll", ring.name, perPoll));
            Simulator().Reset();
            ZoSimSettings settings = Simulator().Settings();
            settings.resumeAfterOverrun = perPoll == 500 ? ZOSIM_RESUME_NEWEST : ZOSIM_RESUME_OLDEST;
            Simulator().SetSettings(settings);
            std::uint32_t position = 0xFFFFFF00;
            Simulator().SetSequence(ring.ring, position);
            Simulator().SetProducer(ring.ring, perPoll);
            Bytes events(kCapacity * ring.recordSize);
            std::uint64_t received = 0, lost = 0;
            std::size_t warned = 0;
            for (int poll = 0; poll < 40; ++poll) {
                if (poll == 10) Simulator().SetProducer(ring.ring, 0);
                std::uint32_t count = 0, dropped = 0, next = 0;
                ASSERT_EQ(ring.drain(position, events.data(), kCapacity, &count, &dropped, &next), ZOP_OK);
                received += count;
                lost += dropped;
                warned += dropped > 0 ? 1 : 0;
                // In order, each once, up to where the next poll goes on; a gap only where a loss was told.
                ASSERT_EQ(next, position + dropped + count);
                for (std::uint32_t i = 0; i < count; ++i) {
                    std::uint32_t sequence = 0;
                    std::memcpy(&sequence, events.data() + i * ring.recordSize, sizeof sequence);
                    ASSERT_EQ(sequence, next - count + i);
                }
                position = next;
            }
            EXPECT_EQ(received + lost, 10 * perPoll);
            EXPECT_EQ(lost > 0, perPoll > kCapacity);
            EXPECT_EQ(Log().size(), warned);
        }
    }
}

// 2^32 records are terabytes: no memory is the normal end of it, and no size may wrap round to a small one.
TEST_F(Replies, TooLargeForTheMemoryRaiseBadAlloc) {
    std::uint8_t oneRecord[2344] = {};
    const auto isSane = [&](const auto& call) {
        count_ = other_ = 9;
        try {
            return call() == ZOP_OK;  // a machine that promises any amount
        } catch (const std::bad_alloc&) {
            return count_ + other_ == 0;
        }
    };
    for (const RingExport& ring : kRings)
        EXPECT_TRUE(isSane([&] { return ring.drain(0, oneRecord, 0xFFFFFFFF, &count_, &other_, nullptr); }));
    for (const ListExport& table : kLists)
        EXPECT_TRUE(isSane([&] { return table.list(oneRecord, 0xFFFFFFFF, &count_, &other_); })) << table.code;
}

TEST_F(Replies, OfTheStatusQueryAreWidened) {
    Simulator().SetStatusReply({0, 1, 128, 255}, {0, 0x01020304, 0xFFFFFFFF, 7});
    ZopStatus status{};
    EXPECT_EQ(ZoProtector_GetStatus(&status), ZOP_OK);
    const ZopStatus expected = {0, 0, 1, 0x01020304, 128, 0xFFFFFFFF, 255, 7};
    EXPECT_EQ(std::memcmp(&status, &expected, sizeof status), 0);
    // A short reply leaves zeros: seven bytes end inside the second count.
    Simulator().ReturnBytes(ZOP_IOCTL_GET_STATUS, 7);
    EXPECT_EQ(ZoProtector_GetStatus(&status), ZOP_OK);
    const ZopStatus cut = {0, 0, 1, 0x04, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(&status, &cut, sizeof status), 0);
}

TEST_F(Replies, OfSwitchVerdictAndPolicy) {
    const zo::OwnedFile driver = zotest::OpenDriver();
    for (const std::uint8_t state : {std::uint8_t{0}, std::uint8_t{1}, std::uint8_t{128}}) {
        ASSERT_EQ(zotest::SendControl(driver.Get(), ZOP_IOCTL_SET_MASTER_ENABLED, &state, 1).error, 0u);
        EXPECT_EQ(ZoProtector_GetMasterEnabled(&count_), ZOP_OK);
        EXPECT_EQ(count_, state == 0 ? 0u : 1u);
    }
    Simulator().ReturnBytes(ZOP_IOCTL_GET_MASTER_ENABLED, 0);
    EXPECT_EQ(ZoProtector_GetMasterEnabled(&count_), ZOP_OK);
    EXPECT_EQ(count_, 0u);
    Simulator().SetPidSignature({77, 2, 0, 0, 0x80, 0});
    EXPECT_EQ(ZoProtector_QueryPidSignature(77, &count_, &other_), ZOP_OK);
    EXPECT_EQ(count_, 1u);
    EXPECT_EQ(other_, 0u);
    EXPECT_EQ(ZoProtector_RefreshPidSignature(77, &count_, &other_), ZOP_OK);
    EXPECT_EQ(count_, 0u);
    EXPECT_EQ(other_, 1u);
    Simulator().ReturnBytes(ZOP_IOCTL_QUERY_PID_SIGNATURE, 7);
    EXPECT_EQ(ZoProtector_QueryPidSignature(77, &count_, &other_), ZOP_OK);
    EXPECT_EQ(count_ + other_, 0u);
    const ZopSignaturePolicy set = {3, 9, {}};
    EXPECT_EQ(ZoProtector_SetSignaturePolicy(&set), ZOP_OK);
    ZopSignaturePolicy policy = {1, 1, {1, 1, 1, 1, 1, 1}};
    EXPECT_EQ(ZoProtector_GetSignaturePolicy(&policy), ZOP_OK);
    EXPECT_EQ(std::memcmp(&policy, &set, sizeof set), 0);
}

TEST_F(Replies, OfCountersFollowTheLayoutVersion) {
    ZoSimCounters counters{};
    for (std::uint32_t i = 0; i < ZOSIM_COUNTERS; ++i)
        counters.values[i] = 1000 + i;
    const struct {
        std::uint32_t version, returned, attempts, behind;  // behind: the last counter
        Lines lines;                                        // of the one counter's own call
    } cases[] = {
        {3, 76, 1012, 1017, {}},
        {2,
         56,
         0,
         0,
         {"[WARN ] ZoProtector_GetStats: driver returned 56 bytes, expected 76 (version=2)",
          "[WARN ] ZoProtector_GetUnsignedBypassAttempts: driver reports stats v2 (<3); field "
          "unavailable"}},
        // A short block of a version that has the field: what came counts.
        {3, 75, 1012, 1017, {"[WARN ] ZoProtector_GetStats: driver returned 75 bytes, expected 76 (version=3)"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.returned);
        Simulator().SetCounters(counters);
        Simulator().SetStatsVersion(c.version);
        Simulator().ReturnBytes(ZOP_IOCTL_GET_STATS, c.returned, 2);
        ZopStats stats;
        std::memset(&stats, 0xEE, sizeof stats);
        EXPECT_EQ(ZoProtector_GetStats(&stats), ZOP_OK);
        EXPECT_EQ(stats.version, c.version);
        EXPECT_EQ(stats.counters[11], 1011u);
        EXPECT_EQ(stats.moreCounters[4], c.behind);
        static_cast<void>(Log());
        EXPECT_EQ(ZoProtector_GetUnsignedBypassAttempts(&count_), c.version < 3 ? ZOP_E_VERSION_MISMATCH : ZOP_OK);
        EXPECT_EQ(count_, c.attempts);
        EXPECT_EQ(Log(), c.lines);
    }
}

}  // namespace
}  // namespace sdktest
