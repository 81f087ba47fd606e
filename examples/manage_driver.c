/* The same as manage_driver.cpp in C: manage_driver install FILE | upgrade FILE | remove. Ends with 0 when it is done,
 * 3 when it is done after the next restart of the system, 1 on a failure. */

#include <stdio.h>
#include <wchar.h>
#include <zoprotector.h>

static int Failed(const char* step, int32_t status) {
    const char* advice = "the diagnostic log may say more";
    if (status == ZOP_E_ACCESS_DENIED) advice = "run this as an administrator";
    if (status == ZOP_E_DRIVER_NOT_FOUND) advice = "check the file's path, and that the driver is installed";
    if (status == ZOP_STATUS_FROM_WIN32(1072)) advice = "restart the system: the old service is going away";
    if (status == ZOP_STATUS_FROM_WIN32(577)) advice = "this system does not accept the driver's signature";
    printf("%s failed with status 0x%08X (%s)\n", step, (unsigned)status, advice);
    return 1;
}

static int Install(const wchar_t* file) {
    int32_t status = ZoProtector_InstallDriver(file, ZOP_START_DEMAND, NULL, 1);
    if (status < 0) return Failed("installing", status);
    status = ZoProtector_StartDriver();
    if (status < 0) return Failed("starting", status);
    printf("installed and started\n");
    return 0;
}

static int Upgrade(const wchar_t* file) {
    uint32_t replaced = 0;
    int32_t status = ZoProtector_UpgradeDriver(file, &replaced, NULL);
    if (status < 0) return Failed("upgrading", status);
    if (!replaced) {
        printf("the installed driver is not older\n");
        return 0;
    }
    status = ZoProtector_StopDriver(); /* a driver that cannot be unloaded goes on until the restart */
    if (status >= 0) status = ZoProtector_StartDriver();
    printf(status < 0 ? "replaced; the old one runs until the restart\n" : "replaced and restarted\n");
    return status < 0 ? 3 : 0;
}

static int Remove(void) {
    ZoProtectorDriverStatus driver;
    int32_t status = ZoProtector_UninstallDriver();
    if (status < 0) return Failed("removing", status);
    status = ZoProtector_QueryDriverStatus(&driver);
    if (status < 0) return Failed("looking at the service", status);
    printf(driver.state == ZOP_DRIVER_NOT_INSTALLED ? "removed\n" : "removed once the driver stops\n");
    return driver.state == ZOP_DRIVER_NOT_INSTALLED ? 0 : 3;
}

int wmain(int argc, wchar_t** argv) {
    if (argc == 3 && wcscmp(argv[1], L"install") == 0) return Install(argv[2]);
    if (argc == 3 && wcscmp(argv[1], L"upgrade") == 0) return Upgrade(argv[2]);
    if (argc == 2 && wcscmp(argv[1], L"remove") == 0) return Remove();
    printf("usage: manage_driver install FILE | upgrade FILE | remove\n");
    return 1;
}
