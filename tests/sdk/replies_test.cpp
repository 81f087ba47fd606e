// What becomes of the driver's replies, the short, over-long and lossy ones included.

#include <algorithm>
#include <cstring>
#include <new>

#include "sdk_fixture.h"

namespace sdktest {
namespace {

using Lists = SdkTest;
using Rings = SdkTest;
using Replies = SdkTest;

constexpr std::uint8_t kUntouched = 0xEE;

struct ListExport {
    int32_t (*list)(void*, uint32_t, uint32_t*, uint32_t*);
    std::uint32_t code;
    std::uint32_t entrySize;
    int32_t (*add)(int number);
};

std::wstring Numbered(const wchar_t* prefix, int number) {
    return prefix + std::to_wstring(number);
}

const ListExport kLists[] = {
    {&ZoProtector_ListProcessProtectRules, 0x8000C010, 1044,
     [](int n) { return ZoProtector_AddProcessProtectByFolder(Numbered(L"C:\\p", n).c_str(), 1); }},
    {&ZoProtector_ListFileProtectRules, 0x8000C060, 2344,
     [](int n) { return ZoProtector_AddFileProtectByFolder(Numbered(L"C:\\f", n).c_str(), 1, L"*.x"); }},
    {&ZoProtector_ListRegistryProtectRules, 0x8000C0A0, 1028,
     [](int n) { return ZoProtector_AddRegistryProtectByKey(Numbered(L"HKLM\\k", n).c_str(), 1); }},
    {&ZoProtector_ListDllWhitelistRules, 0x8000C0D4, 1044,
     [](int n) { return ZoProtector_AddDllWhitelistFolder(Numbered(L"C:\\d", n).c_str(), 1); }},
};

TEST_F(Lists, FillWhatFitsAndTellTheTotal) {
    for (const ListExport& table : kLists) {
        SCOPED_TRACE(zo::Format("code 0x{:08X}", table.code));
        // The entries must be the records that were sent, padded with zeros.
        Bytes sent;
        for (const ZoSimRequest& request : RequestsOf([&] {
                 for (int i = 0; i < 25; ++i)
                     EXPECT_EQ(table.add(i), ZOP_OK);
             })) {
            Bytes entry(request.in, request.in + request.inLength);
            entry.resize(table.entrySize);
            sent.insert(sent.end(), entry.begin(), entry.end());
        }
        static_cast<void>(Log());
        const auto truncated = [&](int left, int returned) {
            return Lines{
                zo::Format("[WARN ] ListRules(ioctl=0x{:08X}): {} rules truncated (total=25, returned={}) -- "
                           "supply a larger buffer",
                           table.code, left, returned)};
        };
        const struct {
            std::uint32_t capacity, count;
            Lines lines;
        } cases[] = {{0, 0, truncated(25, 0)},
                     {1, 1, truncated(24, 1)},
                     {10, 10, truncated(15, 10)},
                     {25, 25, {}},
                     {26, 25, {}}};
        for (const auto& c : cases) {
            Bytes entries((c.capacity + 1) * table.entrySize, kUntouched);
            std::uint32_t count = 99, total = 99;
            EXPECT_EQ(table.list(c.capacity == 0 ? nullptr : entries.data(), c.capacity, &count, &total), ZOP_OK);
            EXPECT_EQ(count, c.count);
            EXPECT_EQ(total, 25u);
            Bytes expected(entries.size(), kUntouched);
            std::copy_n(sent.begin(), c.count * table.entrySize, expected.begin());
            EXPECT_TRUE(entries == expected) << c.capacity;
            EXPECT_EQ(Log(), c.lines) << c.capacity;
        }
        std::uint32_t count = 99;
        Bytes entries(30 * table.entrySize, kUntouched);
        EXPECT_EQ(table.list(entries.data(), 30, &count, nullptr), ZOP_OK);  // the total is not asked for
        EXPECT_EQ(count, 25u);
    }
}

TEST_F(Lists, BelieveNoMoreThanTheBufferHoldsAndRefuseAReplyWithoutHeader) {
    for (const ListExport& table : kLists) {
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(table.add(i), ZOP_OK);
        Bytes entries(5 * table.entrySize, kUntouched);
        std::uint32_t count = 99, total = 99;
        Simulator().OverwriteWord(table.code, 1, 300);
        EXPECT_EQ(table.list(entries.data(), 4, &count, &total), ZOP_OK);
        EXPECT_EQ(count, 4u);
        // Promised and not sent: zeros, and nothing behind the capacity.
        EXPECT_TRUE(std::all_of(entries.end() - 2 * table.entrySize, entries.end() - table.entrySize,
                                [](auto b) { return b == 0; }));
        EXPECT_EQ(entries[4 * table.entrySize], kUntouched);
        static_cast<void>(Log());

        for (const std::uint32_t returned : {0u, 15u}) {
            std::fill(entries.begin(), entries.end(), kUntouched);
            Simulator().ReturnBytes(table.code, returned);
            EXPECT_EQ(table.list(entries.data(), 4, &count, &total), ZOP_E_FAILED);
            EXPECT_EQ(count + total, 0u);
            EXPECT_EQ(entries[0], kUntouched);
        }
        Simulator().ReturnBytes(table.code, 16);
        EXPECT_EQ(table.list(entries.data(), 4, &count, &total), ZOP_OK);
        EXPECT_EQ(total, 3u);
        EXPECT_EQ(Log(), Lines());
    }
}

struct RingExport {
    int32_t (*drain)(uint32_t, void*, uint32_t, uint32_t*, uint32_t*, uint32_t*);
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

std::uint32_t SequenceOf(const Bytes& events, std::size_t index, std::uint32_t recordSize) {
    std::uint32_t sequence = 0;
    std::memcpy(&sequence, events.data() + index * recordSize, sizeof sequence);
    return sequence;
}

TEST_F(Rings, HandOverWhatTheDriverHasAndWhereToGoOn) {
    for (const RingExport& ring : kRings) {
        SCOPED_TRACE(ring.name);
        Bytes events(9 * ring.recordSize, kUntouched);
        std::uint32_t count = 99, dropped = 99, position = 99;
        EXPECT_EQ(ring.drain(0, events.data(), 8, &count, &dropped, &position), ZOP_OK);
        EXPECT_EQ(count + dropped + position, 0u);
        EXPECT_EQ(events[0], kUntouched);

        Simulator().InjectEvents(ring.ring, 10);
        EXPECT_EQ(ring.drain(0, events.data(), 8, &count, &dropped, &position), ZOP_OK);
        EXPECT_EQ(count, 8u);
        EXPECT_EQ(dropped, 0u);
        for (std::uint32_t i = 0; i < 8; ++i)
            EXPECT_EQ(SequenceOf(events, i, ring.recordSize), i);
        EXPECT_EQ(events[8 * ring.recordSize], kUntouched);
        EXPECT_EQ(ring.drain(position, events.data(), 8, &count, nullptr, nullptr), ZOP_OK);
        EXPECT_EQ(count, 2u);
        EXPECT_EQ(SequenceOf(events, 1, ring.recordSize), 9u);
        EXPECT_EQ(Log(), Lines());
    }
}

TEST_F(Rings, ForgiveShortRepliesAndReportLosses) {
    for (const RingExport& ring : kRings) {
        SCOPED_TRACE(ring.name);
        Bytes events(257 * ring.recordSize, kUntouched);
        std::uint32_t count = 99, dropped = 99, position = 99;
        Simulator().InjectEvents(ring.ring, 5);
        for (const std::uint32_t returned : {0u, 15u}) {
            count = dropped = position = 99;
            Simulator().ReturnBytes(ring.code, returned);
            EXPECT_EQ(ring.drain(0, events.data(), 256, &count, &dropped, &position), ZOP_OK);
            EXPECT_EQ(count + dropped + position, 0u);
            EXPECT_EQ(events[0], kUntouched);
        }
        EXPECT_EQ(Log(), Lines());

        ZoSimFault fault{};
        fault.code = ring.code;
        fault.times = 1;
        fault.flags = ZOSIM_FAULT_WORDS;
        fault.wordMask = 0xF;
        const std::uint32_t words[4] = {300, 12, 4321, 5000};
        std::copy(std::begin(words), std::end(words), fault.words);
        Simulator().AddFault(fault);
        EXPECT_EQ(ring.drain(4000, events.data(), 256, &count, &dropped, &position), ZOP_OK);
        EXPECT_EQ(count, 256u);
        EXPECT_EQ(dropped, 12u);
        EXPECT_EQ(position, 4321u);
        EXPECT_EQ(events[256 * ring.recordSize], kUntouched);
        EXPECT_EQ(Log(), Lines{zo::Format("[WARN ] {}: 12 events dropped (writerSeq=5000 lastRead=4000) -- poll faster "
                                          "or raise {}",
                                          ring.name, ring.constant)});
    }
}

// A producer of known counts: what arrives and what is reported as lost is all that there was, at every load, also
// where the sequence numbers wrap, and whichever way the driver goes on after an overrun.
TEST_F(Rings, ReceivedAndLostEventsAreAllThatWereProduced) {
    for (const RingExport& ring : kRings) {
        for (const std::uint32_t resume : {ZOSIM_RESUME_OLDEST, ZOSIM_RESUME_NEWEST}) {
            for (const std::uint32_t perPoll : {1u, 64u, 100u, 500u, 3000u}) {
                SCOPED_TRACE(zo::Format("{} resume {} at {} events a poll", ring.name, resume, perPoll));
                Simulator().Reset();
                ZoSimSettings settings = Simulator().Settings();
                settings.resumeAfterOverrun = resume;
                Simulator().SetSettings(settings);
                constexpr std::uint32_t kStart = 0xFFFFFF00;
                Simulator().SetSequence(ring.ring, kStart);
                Simulator().SetProducer(ring.ring, perPoll);
                constexpr std::uint32_t kCapacity = 100;
                Bytes events(kCapacity * ring.recordSize);
                std::uint64_t received = 0, lost = 0;
                std::uint32_t position = kStart;
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
                        ASSERT_EQ(SequenceOf(events, i, ring.recordSize), next - count + i);
                    }
                    position = next;
                }
                const ZoSimRingState state = Simulator().State().rings[ring.ring];
                EXPECT_EQ(state.produced, 10 * perPoll);
                EXPECT_EQ(received + lost, state.produced);
                EXPECT_EQ(lost > 0, perPoll > kCapacity && (perPoll - kCapacity) * 10 > settings.ringSlots[ring.ring]);
                EXPECT_EQ(Log().size(), warned);
            }
        }
    }
}

// 2^32 records are terabytes: no memory is the normal end of it, and no size may wrap round to a small one.
TEST_F(Replies, TooLargeForTheMemoryRaiseBadAlloc) {
    std::uint8_t oneRecord[2344] = {};
    const auto isSane = [](const std::function<int32_t()>& call) {
        try {
            return call() == ZOP_OK;  // a machine that promises any amount
        } catch (const std::bad_alloc&) {
            return true;
        }
    };
    std::uint32_t count = 9, other = 9;
    for (const RingExport& ring : kRings) {
        EXPECT_TRUE(isSane([&] { return ring.drain(0, oneRecord, 0xFFFFFFFF, &count, &other, nullptr); })) << ring.name;
        EXPECT_EQ(count + other, 0u);
    }
    for (const ListExport& table : kLists) {
        EXPECT_TRUE(isSane([&] { return table.list(oneRecord, 0xFFFFFFFF, &count, &other); })) << table.code;
        EXPECT_EQ(count + other, 0u);
    }
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
    std::uint32_t version[3] = {9, 9, 9};
    Simulator().SetVersion(1, 2, 3);
    Simulator().ReturnBytes(ZOP_IOCTL_GET_VERSION, 8);
    EXPECT_EQ(ZoProtector_GetVersion(version, version + 1, version + 2), ZOP_OK);
    EXPECT_EQ((std::vector<std::uint32_t>(version, version + 3)), (std::vector<std::uint32_t>{1, 2, 0}));
}

TEST_F(Replies, OfSwitchAndVerdictBecomeZeroOrOne) {
    const zo::OwnedFile driver = zotest::OpenDriver();
    for (const int value : {0, 1, 2, 128}) {
        const auto state = static_cast<std::uint8_t>(value);
        ASSERT_EQ(zotest::SendControl(driver.Get(), ZOP_IOCTL_SET_MASTER_ENABLED, &state, 1).error, 0u);
        std::uint32_t enabled = 99;
        EXPECT_EQ(ZoProtector_GetMasterEnabled(&enabled), ZOP_OK);
        EXPECT_EQ(enabled, state == 0 ? 0u : 1u);
        enabled = 99;
        Simulator().ReturnBytes(ZOP_IOCTL_GET_MASTER_ENABLED, 0);
        EXPECT_EQ(ZoProtector_GetMasterEnabled(&enabled), ZOP_OK);
        EXPECT_EQ(enabled, 0u);
    }
    Simulator().SetPidSignature({77, 2, 0, 0, 0x80, 0});
    std::uint32_t first = 99, second = 99;
    EXPECT_EQ(ZoProtector_QueryPidSignature(77, &first, &second), ZOP_OK);
    EXPECT_EQ(first, 1u);
    EXPECT_EQ(second, 0u);
    EXPECT_EQ(ZoProtector_RefreshPidSignature(77, &first, &second), ZOP_OK);
    EXPECT_EQ(first, 0u);
    EXPECT_EQ(second, 1u);
    for (const std::uint32_t returned : {0u, 4u, 7u}) {
        first = second = 99;
        Simulator().ReturnBytes(ZOP_IOCTL_QUERY_PID_SIGNATURE, returned);
        EXPECT_EQ(ZoProtector_QueryPidSignature(77, &first, &second), ZOP_OK);
        EXPECT_EQ(first + second, 0u);
    }
    EXPECT_EQ(ZoProtector_QueryPidSignature(78, &first, &second), ZOP_E_NOT_FOUND);
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
    Simulator().SetCounters(counters);
    ZopStats stats;
    EXPECT_EQ(ZoProtector_GetStats(&stats), ZOP_OK);
    EXPECT_EQ(stats.version, 3u);
    EXPECT_EQ(stats.counters[11], 1011u);
    EXPECT_EQ(stats.unsignedBypassAttempts, 1012u);
    EXPECT_EQ(stats.moreCounters[4], 1017u);
    std::uint32_t attempts = 0;
    EXPECT_EQ(ZoProtector_GetUnsignedBypassAttempts(&attempts), ZOP_OK);
    EXPECT_EQ(attempts, 1012u);
    EXPECT_EQ(Log(), Lines());

    Simulator().SetStatsVersion(2);
    std::memset(&stats, 0xEE, sizeof stats);
    const std::string shortReply = "[WARN ] ZoProtector_GetStats: driver returned 56 bytes, expected 76 (version=2)";
    EXPECT_EQ(ZoProtector_GetStats(&stats), ZOP_OK);
    EXPECT_EQ(stats.moreCounters[0], 0u);
    EXPECT_EQ(stats.counters[11], 1011u);
    EXPECT_EQ(Log(), Lines{shortReply});
    EXPECT_EQ(ZoProtector_GetUnsignedBypassAttempts(&attempts), ZOP_E_VERSION_MISMATCH);
    EXPECT_EQ(attempts, 0u);
    EXPECT_EQ(Log(), (Lines{shortReply,
                            "[WARN ] ZoProtector_GetUnsignedBypassAttempts: driver reports stats v2 (<3); field "
                            "unavailable"}));
    // A short block of a version that has the field: what came counts.
    Simulator().SetStatsVersion(3);
    Simulator().ReturnBytes(ZOP_IOCTL_GET_STATS, 75);
    EXPECT_EQ(ZoProtector_GetUnsignedBypassAttempts(&attempts), ZOP_OK);
    EXPECT_EQ(attempts, 1012u);
    EXPECT_EQ(Log(), Lines{"[WARN ] ZoProtector_GetStats: driver returned 75 bytes, expected 76 (version=3)"});
}

}  // namespace
}  // namespace sdktest
