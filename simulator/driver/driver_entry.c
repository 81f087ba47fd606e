/* Loading and unloading: the two devices with their names, and what is freed in the end. The driver filters nothing and
 * holds back nothing; see zoprotector_simulator.h. */

#include "dispatch.h"
#include "simulator_state.h"

typedef struct DeviceName {
    const WCHAR* device;
    const WCHAR* link;
} DeviceName;

static const DeviceName kDriverName = {L"\\Device\\ZoProtector", L"\\DosDevices\\ZoProtector"};
static const DeviceName kControlName = {L"\\Device\\ZoProtectorSimulator", L"\\DosDevices\\ZoProtectorSimulator"};

static DEVICE_OBJECT* gDriverDevice;
static DEVICE_OBJECT* gControlDevice;

static NTSTATUS MakeDevice(DRIVER_OBJECT* driver, const DeviceName* name, DEVICE_OBJECT** device) {
    UNICODE_STRING deviceName;
    UNICODE_STRING linkName;
    RtlInitUnicodeString(&deviceName, name->device);
    RtlInitUnicodeString(&linkName, name->link);
    NTSTATUS status = IoCreateDevice(driver, 0, &deviceName, ZOP_DEVICE_TYPE, FILE_DEVICE_SECURE_OPEN, FALSE, device);
    if (!NT_SUCCESS(status)) {
        *device = NULL;
        return status;
    }
    status = IoCreateSymbolicLink(&linkName, &deviceName);
    if (!NT_SUCCESS(status)) {
        IoDeleteDevice(*device);
        *device = NULL;
    }
    return status;
}

static void RemoveDevice(const DeviceName* name, DEVICE_OBJECT** device) {
    if (*device == NULL) return;
    UNICODE_STRING linkName;
    RtlInitUnicodeString(&linkName, name->link);
    IoDeleteSymbolicLink(&linkName);
    IoDeleteDevice(*device);
    *device = NULL;
}

static void CountOpens(uint32_t more, uint32_t fewer) {
    ExAcquireFastMutex(&gSim.lock);
    gSim.opensSoFar += more;
    gSim.openNow += more;
    gSim.openNow -= fewer;
    ExReleaseFastMutex(&gSim.lock);
}

static NTSTATUS NTAPI OnCreate(DEVICE_OBJECT* device, IRP* irp) {
    if (device == gDriverDevice) CountOpens(1, 0);
    return SimCompleteRequest(irp, STATUS_SUCCESS, 0);
}

static NTSTATUS NTAPI OnClose(DEVICE_OBJECT* device, IRP* irp) {
    if (device == gDriverDevice) CountOpens(0, 1);
    return SimCompleteRequest(irp, STATUS_SUCCESS, 0);
}

static void NTAPI OnUnload(DRIVER_OBJECT* driver) {
    UNREFERENCED_PARAMETER(driver);
    RemoveDevice(&kControlName, &gControlDevice);
    RemoveDevice(&kDriverName, &gDriverDevice);
    SimStateFree();
}

static NTSTATUS NTAPI OnDeviceControl(DEVICE_OBJECT* device, IRP* irp) {
    if (device == gDriverDevice) return SimDispatchDriver(irp);
    const NTSTATUS status = SimDispatchControl(irp);
    /* The system does not stop a driver that has no routine for it. */
    device->DriverObject->DriverUnload = gSim.settings.refuseStop != 0 ? NULL : OnUnload;
    return status;
}

NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* registryPath);

NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* registryPath) {
    UNREFERENCED_PARAMETER(registryPath);
    NTSTATUS status = SimStateInit();
    if (!NT_SUCCESS(status)) return status;
    driver->MajorFunction[IRP_MJ_CREATE] = OnCreate;
    driver->MajorFunction[IRP_MJ_CLOSE] = OnClose;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = OnDeviceControl;
    driver->DriverUnload = OnUnload;
    status = MakeDevice(driver, &kDriverName, &gDriverDevice);
    if (NT_SUCCESS(status)) status = MakeDevice(driver, &kControlName, &gControlDevice);
    if (!NT_SUCCESS(status)) OnUnload(driver);
    return status;
}
