// Many calls and many threads: nothing crashes, nothing stays open or allocated, every status is one that may be.

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "process_counts.h"
#include "sdk_fixture.h"

namespace sdktest {
namespace {

using Concurrency = SdkTest;

using zotest::Holdings;

void ExpectNothingLeftSince(const Holdings& before, const std::string& work) {
    // What the platform itself keeps now and then is a handful of blocks; a leak of one in a hundred calls is more.
    constexpr std::size_t kSpareBlocks = 60;
    const Holdings after;
    EXPECT_EQ(after.handles, before.handles);
    EXPECT_LE(after.blocks, before.blocks + kSpareBlocks);
    std::puts(zo::Format("figure: {}: handles {} before and after, heap blocks {} before and {} after", work,
                         after.handles, before.blocks, after.blocks)
                  .c_str());
}

// How long a soak goes on, from the environment; scripts/proof sets it.
std::size_t LengthOf(const char* variable, std::size_t otherwise) {
    const char* const text = std::getenv(variable);
    return text == nullptr ? otherwise : std::strtoul(text, nullptr, 10);
}

TEST_F(Concurrency, TenThousandCallsOverEveryPathLeaveNothingBehind) {
    const auto callAll = [] {
        for (const Request& row : AllRequests())
            static_cast<void>(row.call.make());
        static_cast<void>(ZoProtector_AddFileProtectByPath(L"q:\\x"));
        static_cast<void>(ZoProtector_AddRegistryProtectByKey(L"HKCU\\x", 0));
        static_cast<void>(ZoProtector_AddProcessProtectByPath(nullptr));
    };
    const auto callInEveryState = [&] {
        callAll();
        Simulator().FailNext(ZOSIM_ANY_CODE, 0xC0000225, ZOSIM_FOR_EVER);
        callAll();
        Simulator().ClearFaults();
        Simulator().ReturnBytes(ZOSIM_ANY_CODE, 3, ZOSIM_FOR_EVER);
        callAll();
        Simulator().ClearFaults();
        ZoProtector_Uninitialize();
        callAll();
        Simulator().FailNext(ZOP_IOCTL_GET_VERSION, 0xC0000001);
        EXPECT_EQ(ZoProtector_Initialize(), ZOP_E_FAILED);
        EXPECT_EQ(ZoProtector_Initialize(), ZOP_OK);
    };
    callInEveryState();
    const Holdings before;
    std::size_t calls = 0;
    for (; calls < LengthOf("ZO_SOAK_CALLS", 10000); calls += 4 * (AllRequests().size() + 3))
        callInEveryState();
    ExpectNothingLeftSince(before, zo::Format("{} calls", calls));
}

// What a call may answer while the channel comes and goes: the handle can be closed under a request, and its number may
// be another file's by then.
bool MayBe(int32_t status) {
    const std::uint32_t bits = zo::Bits(status);
    return status == ZOP_OK || (bits >= 0x80000001 && bits <= 0x80000009 && status != ZOP_E_VERSION_MISMATCH);
}

std::atomic<bool> stop;
std::atomic<unsigned> calls;
std::atomic<unsigned> succeeded;
std::atomic<int32_t> unexpected;

// Every thread begins at another place of the same round. They share the outputs, which nobody reads.
DWORD WINAPI CallExports(void* place) {
    for (std::size_t i = *static_cast<const std::size_t*>(place); !stop; ++i) {
        const int32_t answer = AllRequests()[i % AllRequests().size()].call.make();
        ++calls;
        if (answer == ZOP_OK) ++succeeded;
        if (!MayBe(answer)) unexpected = answer;
    }
    return 0;
}

TEST_F(Concurrency, EightThreadsCallWhileANinthOpensAndClosesTheChannel) {
    const std::size_t minutes = LengthOf("ZO_SOAK_MINUTES", std::getenv("ZO_LONG") != nullptr ? 1 : 0);
    const auto duration = static_cast<DWORD>(minutes > 0 ? minutes * 60000 : 3000);
    Simulator().SetPidSignature({0x01020304, 1, 1, 1, 1, 0});
    Simulator().SetProducer(ZOSIM_RING_EVENTS, 3);
    Simulator().SetProducer(ZOSIM_RING_REGISTRY, 3);
    // When several threads make the first calls at once, two semaphores and an event stay, probably those of the
    // platform's locks, on which the threads wait while a module is loaded.
    for (const Request& row : AllRequests())
        static_cast<void>(row.call.make());
    const Holdings before;
    int rounds = 0;
    std::size_t places[] = {0, 7, 14, 21, 28, 35, 42, 49};
    {
        std::vector<zo::OwnedKernelObject> threads;
        for (std::size_t& place : places)
            threads.emplace_back(CreateThread(nullptr, 0, CallExports, &place, 0, nullptr));
        for (const DWORD start = GetTickCount(); GetTickCount() - start < duration; ++rounds) {
            EXPECT_EQ(ZoProtector_Uninitialize(), ZOP_OK);
            if (rounds % 8 == 7) Simulator().FailNext(ZOP_IOCTL_GET_VERSION, 0xC0000225);
            const int32_t status = ZoProtector_Initialize();
            EXPECT_TRUE(status == ZOP_OK || status == ZOP_E_NOT_FOUND) << zo::Bits(status);
            Sleep(static_cast<DWORD>(rounds % 5));
        }
        stop = true;
        for (const auto& thread : threads)
            EXPECT_EQ(WaitForSingleObject(thread.Get(), 20000), WAIT_OBJECT_0);
        EXPECT_GT(rounds, 5);
    }
    Simulator().ClearFaults();
    EXPECT_EQ(zo::Bits(unexpected), 0u);
    EXPECT_GT(succeeded, 20u);
    EXPECT_LT(succeeded, calls.load());
    EXPECT_EQ(ZoProtector_Initialize(), ZOP_OK);
    ExpectNothingLeftSince(before, zo::Format("{} calls by eight threads over {} s, the channel opened {} times",
                                              calls.load(), duration / 1000, rounds));
    EXPECT_EQ(Simulator().State().openNow, 1u);
}

}  // namespace
}  // namespace sdktest
