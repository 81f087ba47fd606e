// report_crashes SERVER-URL DUMP-FOLDER RECORD: a host that reports crashes in the background. It stands for a service:
// the line "up" on its input says that the network is up, "stop" that the service has to end.

#include <zocrashreport.hpp>

#include <cstdio>
#include <iostream>
#include <string>
#include <thread>

int wmain(int argc, wchar_t** argv) try {
    if (argc != 4) {
        std::printf("usage: report_crashes SERVER-URL DUMP-FOLDER RECORD\n");
        return 1;
    }
    zocrashreport::Reporter reporter({.serverUrl = argv[1],
                                      .appName = L"Suite",
                                      .appVersion = L"1.2.3",
                                      .minidumpDir = argv[2],
                                      .compareFilePath = argv[3]});
    std::error_code error;
    ZoCrashRunStats stats{};
    // Nothing is thrown on a thread of its own: the error code takes what happened.
    std::thread worker([&] {
        stats = reporter.Run(
            [](zocrashreport::Level level, std::wstring_view text) {
                if (level != zocrashreport::Level::kInfo) std::printf("! %ls\n", text.data());
            },
            error);
    });
    for (std::string line; std::getline(std::cin, line);) {
        if (line.starts_with("up")) zocrashreport::NotifyNetworkOk();
        if (line.starts_with("stop")) zocrashreport::Cancel();  // also ends the wait for the network
    }
    worker.join();
    std::printf("%u found, %u to report, %u sent\n", stats.dumpsFound, stats.dumpsSelected, stats.uploadsSucceeded);
    if (!error) return 0;
    std::printf("%s\n", error.message().c_str());
    // A run that did not get as far as its dumps leaves them for the next one.
    return error == zostatus::Status::kCancelled || error == zostatus::Status::kTimedOut ? 2 : 1;
} catch (const std::system_error& error) {
    std::printf("%s\n", error.what());  // the reporter could not be set up
    return 1;
}
