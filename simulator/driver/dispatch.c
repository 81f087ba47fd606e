#include "dispatch.h"

#include "simulator_state.h"

static const SimCommand* FindCommand(const SimCommand* commands, uint32_t count, uint32_t code) {
    for (uint32_t i = 0; i < count; ++i) {
        if (commands[i].code == code) return &commands[i];
    }
    return NULL;
}

static NTSTATUS CarryOut(const SimCommand* command, SimCall* call) {
    if (command == NULL) return STATUS_INVALID_DEVICE_REQUEST;
    if (call->inLength != command->inLength) return STATUS_INVALID_PARAMETER;
    if (call->outLength < command->outLength) return STATUS_BUFFER_TOO_SMALL;
    if (command->worksOnFiles) return command->routine(call);
    ExAcquireFastMutex(&gSim.lock);
    const NTSTATUS status = command->routine(call);
    ExReleaseFastMutex(&gSim.lock);
    return status;
}

static SimCall CallOf(IRP* irp) {
    const IO_STACK_LOCATION* const stack = IoGetCurrentIrpStackLocation(irp);
    SimCall call;
    call.in = irp->AssociatedIrp.SystemBuffer;
    call.out = irp->AssociatedIrp.SystemBuffer;
    call.inLength = stack->Parameters.DeviceIoControl.InputBufferLength;
    call.outLength = stack->Parameters.DeviceIoControl.OutputBufferLength;
    call.returned = 0;
    return call;
}

static uint32_t CodeOf(IRP* irp) {
    return IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.IoControlCode;
}

static void Sleep(uint32_t milliseconds) {
    LARGE_INTEGER wait;
    wait.QuadPart = -10000ll * milliseconds;
    KeDelayExecutionThread(KernelMode, FALSE, &wait);
}

static void OverwriteWords(const ZoSimFault* fault, SimCall* call) {
    uint8_t* const out = call->out;
    for (uint32_t i = 0; i < 4; ++i) {
        if ((fault->wordMask & (1u << i)) != 0 && 4 * i + 4 <= call->outLength) {
            memcpy(out + 4 * (size_t)i, &fault->words[i], 4);
        }
    }
}

/* What the caller gets is never memory that nobody wrote. */
static void OverrideReturned(uint32_t returned, SimCall* call) {
    const uint32_t delivered = SimMin(returned, call->outLength);
    if (delivered > call->returned) {
        memset((uint8_t*)call->out + call->returned, 0, delivered - call->returned);
    }
    call->returned = returned;
}

static NTSTATUS CarryOutFaulted(const ZoSimFault* fault, const SimCommand* command, SimCall* call) {
    if ((fault->flags & ZOSIM_FAULT_DELAY) != 0) Sleep(fault->delayMs);
    NTSTATUS status = STATUS_SUCCESS;
    if ((fault->flags & ZOSIM_FAULT_STATUS) == 0 || (fault->flags & ZOSIM_FAULT_PERFORM) != 0) {
        status = CarryOut(command, call);
    }
    if ((fault->flags & ZOSIM_FAULT_STATUS) != 0) status = (NTSTATUS)fault->status;
    /* In this order: the byte count may clear memory that the words then go to. */
    if ((fault->flags & ZOSIM_FAULT_RETURNED) != 0) OverrideReturned(fault->returned, call);
    if ((fault->flags & ZOSIM_FAULT_WORDS) != 0) OverwriteWords(fault, call);
    return status;
}

static ZoSimRequest* BeginRecord(IRP* irp, const SimCall* call) {
    ZoSimRequest* const request = SimAllocate(sizeof(*request));
    if (request == NULL) return NULL;
    request->code = CodeOf(irp);
    request->inLength = call->inLength;
    request->outLength = call->outLength;
    request->pid = HandleToULong(PsGetCurrentProcessId()); /* a request arrives in its sender's context */
    const uint32_t kept = SimMin(call->inLength, ZOSIM_REQUEST_BYTES);
    if (kept != 0) memcpy(request->in, call->in, kept);
    return request;
}

NTSTATUS SimCompleteRequest(IRP* irp, NTSTATUS status, uint32_t returned) {
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = returned;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

NTSTATUS SimDispatchDriver(IRP* irp) {
    const uint32_t code = CodeOf(irp);
    const SimCommand* const command = FindCommand(kSimDriverCommands, kSimDriverCommandCount, code);
    SimCall call = CallOf(irp);
    ZoSimRequest* const request = BeginRecord(irp, &call);
    if (request == NULL) return SimCompleteRequest(irp, STATUS_INSUFFICIENT_RESOURCES, 0);

    ZoSimFault fault;
    ExAcquireFastMutex(&gSim.lock);
    ++gSim.counters[ZOSIM_COUNTER_REQUESTS];
    const BOOLEAN faulted = SimTakeFault(code, &fault);
    ExReleaseFastMutex(&gSim.lock);

    const NTSTATUS status = faulted ? CarryOutFaulted(&fault, command, &call) : CarryOut(command, &call);
    const BOOLEAN scripted = faulted && (fault.flags & ZOSIM_FAULT_STATUS) != 0;
    if (NT_ERROR(status)) call.returned = 0; /* the platform delivers nothing either */

    request->status = (uint32_t)status;
    request->returned = call.returned;
    ExAcquireFastMutex(&gSim.lock);
    if (!scripted && NT_ERROR(status)) ++gSim.counters[ZOSIM_COUNTER_REFUSED];
    SimRecordRequest(request);
    ExReleaseFastMutex(&gSim.lock);
    SimFree(request);
    return SimCompleteRequest(irp, status, call.returned);
}

NTSTATUS SimDispatchControl(IRP* irp) {
    SimCall call = CallOf(irp);
    const NTSTATUS status = CarryOut(FindCommand(kSimControlCommands, kSimControlCommandCount, CodeOf(irp)), &call);
    return SimCompleteRequest(irp, status, NT_ERROR(status) ? 0 : call.returned);
}
