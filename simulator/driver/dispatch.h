#ifndef ZOSIM_DISPATCH_H
#define ZOSIM_DISPATCH_H

/* From a request of either device to the routine of its command: finding it, checking lengths, taking the lock. For
 * the driver's own device also scripted faults and the memory of the last requests. */

#include "kernel.h"

/* A command being carried out. Input and output share one buffer, so a routine with both copies its input first. */
typedef struct SimCall {
    const void* in;
    void* out;
    uint32_t inLength;
    uint32_t outLength;
    uint32_t returned; /* bytes of output that were filled */
} SimCall;

typedef NTSTATUS (*SimRoutine)(SimCall* call);

typedef struct SimCommand {
    uint32_t code;
    uint32_t inLength;  /* exactly */
    uint32_t outLength; /* at least */
    SimRoutine routine; /* called with the lock held, unless it works on files */
    BOOLEAN worksOnFiles;
} SimCommand;

extern const SimCommand kSimDriverCommands[];
extern const uint32_t kSimDriverCommandCount;
extern const SimCommand kSimControlCommands[];
extern const uint32_t kSimControlCommandCount;

/* IRP_MJ_DEVICE_CONTROL of \\.\ZoProtector and of \\.\ZoProtectorSimulator. The request is completed. */
NTSTATUS SimDispatchDriver(IRP* irp);
NTSTATUS SimDispatchControl(IRP* irp);

NTSTATUS SimCompleteRequest(IRP* irp, NTSTATUS status, uint32_t returned);

#endif
