#include "layer_calls.h"

#include <cstdio>
#include <vector>

#include "paired_run.h"
#include "zoprotector.hpp"

namespace zobench {

namespace {

constexpr double kTarget = 1.02;
constexpr std::uint32_t kCalls = 5;
constexpr std::uint32_t kListRoom = 64;  // as the layer takes at first
constexpr std::uint32_t kPollRoom = 256;

struct Through {
    zoprotector::Session session;
    zoprotector::EventReader<void (*)(std::uint32_t)> reader{session, [](std::uint32_t) {}, kPollRoom};
    std::vector<ZopEventRecord> records = std::vector<ZopEventRecord>(kPollRoom);
    std::uint32_t position = 0;
};

struct Pair {
    const char* name;
    void (*layer)(Through& t);
    void (*c)(Through& t);
};

const Pair kPairs[] = {
    {"GetMasterEnabled", [](Through& t) { static_cast<void>(t.session.GetMasterEnabled()); },
     [](Through&) {
         std::uint32_t enabled = 0;
         Must(ZoProtector_GetMasterEnabled(&enabled) == ZOP_OK);
     }},
    {"EnableFileProtect", [](Through& t) { t.session.EnableFileProtect(true); },
     [](Through&) { Must(ZoProtector_EnableFileProtect(1) == ZOP_OK); }},
    {"AddFileProtectByFolder + Remove",
     [](Through& t) {
         t.session.AddFileProtectByFolder(L"C:\\Suite", {.filter = L"*.exe"});
         t.session.RemoveFileProtect(L"C:\\Suite");
     },
     [](Through&) {
         Must(ZoProtector_AddFileProtectByFolder(L"C:\\Suite", 1, L"*.exe") == ZOP_OK);
         Must(ZoProtector_RemoveFileProtect(L"C:\\Suite") == ZOP_OK);
     }},
    {"ListFileProtectRules", [](Through& t) { static_cast<void>(t.session.ListFileProtectRules()); },
     [](Through&) {
         std::vector<ZopFileRuleEntry> entries(kListRoom);
         std::uint32_t count = 0, total = 0;
         Must(ZoProtector_ListFileProtectRules(entries.data(), kListRoom, &count, &total) == ZOP_OK);
         entries.resize(count);
     }},
    {"DrainEvents", [](Through& t) { static_cast<void>(t.reader.Poll()); },
     [](Through& t) {
         std::uint32_t count = 0, lost = 0;
         Must(ZoProtector_DrainEvents(t.position, t.records.data(), kPollRoom, &count, &lost, &t.position) == ZOP_OK);
     }},
    {"failing call, std::error_code",
     [](Through& t) {
         std::error_code error;
         t.session.RemoveFileProtect(L"C:\\none", error);
         Must(static_cast<bool>(error));
     },
     [](Through&) { Must(ZoProtector_RemoveFileProtect(L"C:\\none") == ZOP_E_NOT_FOUND); }},
};

}  // namespace

void CompareLayer() {
    std::printf("\nThe C++ layer, against the same C calls\n");
    std::printf("  target: at most %.2f; %d pairs of %u calls\n\n", kTarget, pairsOfARun, kCalls);
    std::printf("  %-32s %12s %12s %8s\n", "call", "layer us", "C us", "ratio");
    Through through;
    through.session.ClearAllFileProtect();
    for (int i = 0; i < 20; ++i)
        through.session.AddFileProtectByPath(L"C:\\Suite\\item" + std::to_wstring(i));
    for (const Pair& pair : kPairs) {
        const auto batch = [&](void (*call)(Through&)) {
            return Seconds([&] {
                for (std::uint32_t i = 0; i < kCalls; ++i)
                    call(through);
            });
        };
        const Times t = Compare([&] { return batch(pair.layer); }, [&] { return batch(pair.c); });
        std::printf("  %-32s %12.1f %12.1f %8.3f%s\n", pair.name, t.library / kCalls * 1e6, t.bare / kCalls * 1e6,
                    t.ratio, Verdict(t.ratio <= kTarget));
    }
}

}  // namespace zobench
