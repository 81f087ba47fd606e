// protect_folder FOLDER: asks the driver to shield the programs in FOLDER from tampering, shows what the driver then
// holds, and takes the rule back. Without a running driver it says so and ends with 2.

#include <zoprotector.hpp>

#include <cstdio>

int wmain(int argc, wchar_t** argv) try {
    if (argc != 2) {
        std::printf("usage: protect_folder FOLDER\n");
        return 1;
    }
    std::error_code error;
    const zoprotector::Session session(error);
    if (error == zostatus::Status::kDriverNotFound) {
        std::printf("the driver is not running\n");
        return 2;
    }
    if (error) throw std::system_error(error, "opening the driver");

    session.AddFileProtectByFolder(argv[1], {.filter = L"*.exe"});
    const auto rules = session.ListFileProtectRules();
    for (const ZopFileRuleEntry& rule : rules)
        std::printf("%ls\n", zoprotector::TextOf(zoprotector::RecordOf(rule).path).c_str());
    session.RemoveFileProtect(argv[1]);
    std::printf("the driver held %zu file rule(s)\n", rules.size());
    return 0;
} catch (const std::system_error& error) {
    std::printf("%s\n", error.what());
    return 1;
}
