// manage_driver install FILE | upgrade FILE | remove: the driver's life as an installer has it. Ends with 0 when it is
// done, 3 when it is done after the next restart of the system, 1 on a failure.

#include <zoprotector.hpp>

#include <cstdio>
#include <string_view>

namespace {

using zostatus::Status;

int Install(const wchar_t* file) {
    zoprotector::InstallDriver({.sourcePath = file, .allowUnload = true});
    zoprotector::StartDriver();
    std::printf("installed and started\n");
    return 0;
}

int Upgrade(const wchar_t* file) {
    if (!zoprotector::UpgradeDriver(file).replaced) {
        std::printf("the installed driver is not older\n");
        return 0;
    }
    std::error_code error;
    zoprotector::StopDriver(error);  // a driver that cannot be unloaded goes on until the restart
    if (!error) zoprotector::StartDriver(error);
    std::printf(error ? "replaced; the old one runs until the restart\n" : "replaced and restarted\n");
    return error ? 3 : 0;
}

int Remove() {
    zoprotector::UninstallDriver();
    const bool gone = zoprotector::QueryDriverStatus().state == ZOP_DRIVER_NOT_INSTALLED;
    std::printf(gone ? "removed\n" : "removed once the driver stops\n");
    return gone ? 0 : 3;
}

const char* Advice(const std::error_code& error) {
    if (error == Status::kAccessDenied) return "run this as an administrator";
    if (error == Status::kDriverNotFound) return "check the file's path, and that the driver is installed";
    if (error.value() == ZOP_STATUS_FROM_WIN32(1072)) return "restart the system: the old service is going away";
    if (error.value() == ZOP_STATUS_FROM_WIN32(577)) return "this system does not accept the driver's signature";
    return "the diagnostic log may say more";
}

}  // namespace

int wmain(int argc, wchar_t** argv) try {
    const std::wstring_view verb = argc > 1 ? argv[1] : L"";
    if (verb == L"install" && argc == 3) return Install(argv[2]);
    if (verb == L"upgrade" && argc == 3) return Upgrade(argv[2]);
    if (verb == L"remove" && argc == 2) return Remove();
    std::printf("usage: manage_driver install FILE | upgrade FILE | remove\n");
    return 1;
} catch (const std::system_error& error) {
    std::printf("%s (%s)\n", error.what(), Advice(error.code()));
    return 1;
}
