#include "driver_channel.h"

namespace zotest {
namespace {

struct Ring {
    std::uint32_t ring, code, recordSize, slots;
};
constexpr Ring kRings[] = {
    {ZOSIM_RING_EVENTS, ZOP_IOCTL_DRAIN_EVENTS, 562, ZOP_EVENT_RING_SIZE},
    {ZOSIM_RING_REGISTRY, ZOP_IOCTL_DRAIN_REGISTRY_EVENTS, 1076, ZOP_REGISTRY_EVENT_RING_SIZE},
};

struct Drained {
    ZopDrainReplyHeader header{};
    std::vector<std::uint32_t> sequences;  // the first word of each record
    std::vector<std::uint8_t> last;        // the last record, whole
};

class SimulatorRings : public ChannelTest {
  protected:
    // room: records that the buffer holds, when that is not what the request says.
    [[nodiscard]] Drained Drain(const Ring& ring, std::uint32_t lastRead, std::uint32_t capacity,
                                std::uint32_t room = 0xFFFFFFFF) const {
        if (room == 0xFFFFFFFF) room = capacity;
        std::vector<std::uint8_t> reply(16 + std::size_t{room} * ring.recordSize);
        const ZopDrainRequest request{lastRead, capacity};
        const IoResult result =
            Send(ring.code, &request, sizeof(request), reply.data(), static_cast<std::uint32_t>(reply.size()));
        EXPECT_EQ(result.error, 0u);
        Drained drained;
        memcpy(&drained.header, reply.data(), sizeof(drained.header));
        EXPECT_EQ(result.returned, 16 + drained.header.count * ring.recordSize);
        for (std::uint32_t i = 0; i < drained.header.count; ++i) {
            const std::uint8_t* const record = reply.data() + 16 + std::size_t{i} * ring.recordSize;
            std::uint32_t sequence;
            memcpy(&sequence, record, sizeof(sequence));
            drained.sequences.push_back(sequence);
            drained.last.assign(record, record + ring.recordSize);
        }
        return drained;
    }
};

TEST_F(SimulatorRings, EachStepHandsOutWhatFollowsAndCountsWhatIsLost) {
    for (const Ring& ring : kRings) {
        const std::uint32_t slots = ring.slots;
        // produce, then drain from lastRead with capacity: count, dropped and position that must come back.
        struct {
            std::uint32_t produce, lastRead, capacity, count, dropped, position;
        } const steps[] = {
            {0, 0, 8, 0, 0, 0},
            {5, 0, 8, 5, 0, 5},
            {0, 0, 3, 3, 0, 3},                                            // reading again is allowed
            {slots - 5, 5, slots, slots - 5, 0, slots},                    // full to the last slot
            {1, 0, slots, slots, 1, slots + 1},                            // one too many
            {slots, slots + 1, 4, 4, 0, slots + 5},                        // the wrap of the storage
            {4, slots + 5, slots, slots, 0, 2 * slots + 5},                // to the very end of what is kept
            {10 * slots, 2 * slots + 5, 2, 2, 9 * slots, 11 * slots + 7},  // overrun many times over
            {0, 0xFFFFFF00, 1, 1, 11 * slots + 5, 11 * slots + 6},         // a position of an earlier life
        };
        for (const auto& step : steps) {
            SCOPED_TRACE(testing::Message() << "ring " << ring.ring << " step " << (&step - steps));
            Simulator().InjectEvents(ring.ring, step.produce);
            const Drained drained = Drain(ring, step.lastRead, step.capacity);
            EXPECT_EQ(drained.header.count, step.count);
            EXPECT_EQ(drained.header.dropped, step.dropped);
            EXPECT_EQ(drained.header.position, step.position);
            for (std::size_t i = 0; i < drained.sequences.size(); ++i) {
                ASSERT_EQ(drained.sequences[i], step.position - step.count + i);
            }
        }
    }
}

TEST_F(SimulatorRings, TheSmallerOfRequestAndBufferDecides) {
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 100);
    EXPECT_EQ(Drain(kRings[0], 0, 50, 10).header.count, 10u);
    EXPECT_EQ(Drain(kRings[0], 0, 10, 50).header.count, 10u);
    EXPECT_EQ(Drain(kRings[0], 0, 0xFFFFFFFF, 0).header.position, 0u);
}

TEST_F(SimulatorRings, ADriverMayGiveUpAllThatIsUnread) {
    ZoSimSettings settings = Simulator().Settings();
    settings.resumeAfterOverrun = ZOSIM_RESUME_NEWEST;
    settings.ringSlots[ZOSIM_RING_EVENTS] = 8;
    Simulator().SetSettings(settings);
    Simulator().SetSequence(ZOSIM_RING_EVENTS, 0xFFFFFFFE);  // the 32-bit sequence wraps on the way
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 8);
    EXPECT_EQ(Drain(kRings[0], 0xFFFFFFFE, 8).header.count, 8u);
    Simulator().InjectEvents(ZOSIM_RING_EVENTS, 9);
    const ZopDrainReplyHeader header = Drain(kRings[0], 6, 8).header;
    const ZopDrainReplyHeader expected{0, 9, 15, 15};
    EXPECT_EQ(memcmp(&header, &expected, sizeof(header)), 0);
}

TEST_F(SimulatorRings, AProducerKeepsItsRate) {
    Simulator().SetProducer(ZOSIM_RING_REGISTRY, 0, 1000);
    const ULONGLONG begin = GetTickCount64();
    Sleep(300);
    const std::uint64_t produced = Simulator().State().rings[ZOSIM_RING_REGISTRY].produced;
    const ULONGLONG took = GetTickCount64() - begin;
    EXPECT_GE(produced, 250u);
    EXPECT_LE(produced, took + 50);
    Simulator().SetProducer(ZOSIM_RING_REGISTRY, 0, 0);
    const std::uint64_t ended = Simulator().State().rings[ZOSIM_RING_REGISTRY].produced;
    Sleep(50);
    EXPECT_EQ(Simulator().State().rings[ZOSIM_RING_REGISTRY].produced, ended);

    // What was due before a change is none of the time after it.
    Simulator().SetProducer(ZOSIM_RING_EVENTS, 0, 1000);
    Sleep(200);
    Simulator().SetCounters({});
    std::uint32_t block[19] = {};
    EXPECT_EQ(Send(ZOP_IOCTL_GET_STATS, nullptr, 0, block, 76).error, 0u);
    EXPECT_LT(block[1 + ZOSIM_COUNTER_EVENTS], 150u);
    ZoSimSettings settings = Simulator().Settings();
    settings.ringSlots[ZOSIM_RING_EVENTS] = 150;
    Sleep(200);
    Simulator().SetSettings(settings);
    EXPECT_LT(Simulator().State().rings[ZOSIM_RING_EVENTS].kept, 150u) << "emptied";
}

TEST_F(SimulatorRings, EventsHaveTheDocumentedLayout) {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    const std::uint64_t ticks = (std::uint64_t{now.dwHighDateTime} << 32) | now.dwLowDateTime;
    for (const Ring& ring : kRings) {
        Simulator().SetSequence(ring.ring, 0xABCD);
        Simulator().InjectEvents(ring.ring, 1);
        const Drained drained = Drain(ring, 0xABCD, 1);
        ZoSimRegistryEvent event{};  // begins like the other
        memcpy(&event, drained.last.data(), drained.last.size());
        EXPECT_EQ(event.kind, ring.ring == ZOSIM_RING_EVENTS ? 2u : 3u);
        EXPECT_EQ(event.pid, 1000u + 0xABCDu % 1000u);
        EXPECT_EQ(event.blocked, 0u);
        EXPECT_LT(event.time - ticks + 10'000'000u, 600'000'000u) << "just now";
        const std::size_t name = ring.recordSize - (ring.ring == ZOSIM_RING_EVENTS ? 520 : 1024);
        const std::wstring text = FieldText(reinterpret_cast<const std::uint16_t*>(drained.last.data() + name), 260);
        EXPECT_TRUE(text.starts_with(ring.ring == ZOSIM_RING_EVENTS ? L"\\Device\\" : L"\\REGISTRY\\MACHINE\\"));
        EXPECT_NE(text.find(L"\\event_0000ABCD"), std::wstring::npos);
        EXPECT_EQ(event.keyUnits, text.size());
    }
}

}  // namespace
}  // namespace zotest
