// read_events COUNT: reads the driver's events until COUNT of them were seen or lost, and says how many were which.
// Every event that the driver saw is in one of the two numbers.

#include <zoprotector.hpp>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <thread>

int wmain(int argc, wchar_t** argv) try {
    const std::uint64_t wanted = argc == 2 ? std::wcstoull(argv[1], nullptr, 10) : 0;
    if (wanted == 0) {
        std::printf("usage: read_events COUNT\n");
        return 1;
    }
    std::uint64_t read = 0;
    std::uint64_t lost = 0;
    const zoprotector::Session session;
    zoprotector::EventReader reader(session, [&](std::uint32_t count) { lost += count; });
    while (read + lost < wanted) {
        std::error_code error;
        for (const ZopEventRecord& event : reader.Poll(error)) {
            static_cast<void>(event);  // a program's own work; hand it to another thread if it takes long
            ++read;
        }
        // A poll that failed moves nothing: the next one gets what it would have got.
        if (error == zostatus::Status::kNotInitialized) throw std::system_error(error, "the channel was closed");
        if (error) std::printf("trying again: %s\n", error.message().c_str());
        // A poll that filled its room left more behind: no pause then, or the ring runs over.
        if (!reader.MayHaveMore()) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    std::printf("%llu read, %llu lost\n", static_cast<unsigned long long>(read), static_cast<unsigned long long>(lost));
    return 0;
} catch (const std::system_error& error) {
    std::printf("%s\n", error.what());
    return 1;
}
