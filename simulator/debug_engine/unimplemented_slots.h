#pragma once

// The methods of the two interfaces that this engine does not implement. They keep their places in the tables, so that
// a caller compiled against the platform's header reaches the right one, and answer E_NOTIMPL.

// clang-format off
#include <windows.h>
#include <dbgeng.h>
// clang-format on

namespace zoengine {

#define ZO_SLOT(name, ...)                                 \
    HRESULT STDMETHODCALLTYPE name(__VA_ARGS__) override { \
        return E_NOTIMPL;                                  \
    }
#define ZO_VARIADIC_SLOT(name, ...)                         \
    HRESULT STDMETHODVCALLTYPE name(__VA_ARGS__) override { \
        return E_NOTIMPL;                                   \
    }

// clang-format off
struct ClientSlots : IDebugClient {
    ZO_SLOT(AttachKernel, ULONG, PCSTR)
    ZO_SLOT(GetKernelConnectionOptions, PSTR, ULONG, PULONG)
    ZO_SLOT(SetKernelConnectionOptions, PCSTR)
    ZO_SLOT(StartProcessServer, ULONG, PCSTR, PVOID)
    ZO_SLOT(ConnectProcessServer, PCSTR, PULONG64)
    ZO_SLOT(DisconnectProcessServer, ULONG64)
    ZO_SLOT(GetRunningProcessSystemIds, ULONG64, PULONG, ULONG, PULONG)
    ZO_SLOT(GetRunningProcessSystemIdByExecutableName, ULONG64, PCSTR, ULONG, PULONG)
    ZO_SLOT(GetRunningProcessDescription, ULONG64, ULONG, ULONG, PSTR, ULONG, PULONG, PSTR, ULONG, PULONG)
    ZO_SLOT(AttachProcess, ULONG64, ULONG, ULONG)
    ZO_SLOT(CreateProcess, ULONG64, PSTR, ULONG)
    ZO_SLOT(CreateProcessAndAttach, ULONG64, PSTR, ULONG, ULONG, ULONG)
    ZO_SLOT(GetProcessOptions, PULONG)
    ZO_SLOT(AddProcessOptions, ULONG)
    ZO_SLOT(RemoveProcessOptions, ULONG)
    ZO_SLOT(SetProcessOptions, ULONG)
    ZO_SLOT(WriteDumpFile, PCSTR, ULONG)
    ZO_SLOT(ConnectSession, ULONG, ULONG)
    ZO_SLOT(StartServer, PCSTR)
    ZO_SLOT(OutputServers, ULONG, PCSTR, ULONG)
    ZO_SLOT(TerminateProcesses)
    ZO_SLOT(DetachProcesses)
    ZO_SLOT(GetExitCode, PULONG)
    ZO_SLOT(DispatchCallbacks, ULONG)
    ZO_SLOT(ExitDispatch, PDEBUG_CLIENT)
    ZO_SLOT(CreateClient, PDEBUG_CLIENT*)
    ZO_SLOT(GetInputCallbacks, PDEBUG_INPUT_CALLBACKS*)
    ZO_SLOT(SetInputCallbacks, PDEBUG_INPUT_CALLBACKS)
    ZO_SLOT(GetOtherOutputMask, PDEBUG_CLIENT, PULONG)
    ZO_SLOT(SetOtherOutputMask, PDEBUG_CLIENT, ULONG)
    ZO_SLOT(GetOutputWidth, PULONG)
    ZO_SLOT(SetOutputWidth, ULONG)
    ZO_SLOT(GetOutputLinePrefix, PSTR, ULONG, PULONG)
    ZO_SLOT(SetOutputLinePrefix, PCSTR)
    ZO_SLOT(GetIdentity, PSTR, ULONG, PULONG)
    ZO_SLOT(OutputIdentity, ULONG, ULONG, PCSTR)
    ZO_SLOT(GetEventCallbacks, PDEBUG_EVENT_CALLBACKS*)
    ZO_SLOT(SetEventCallbacks, PDEBUG_EVENT_CALLBACKS)
};

struct ControlSlots : IDebugControl {
    ZO_SLOT(GetInterrupt)
    ZO_SLOT(SetInterrupt, ULONG)
    ZO_SLOT(GetInterruptTimeout, PULONG)
    ZO_SLOT(SetInterruptTimeout, ULONG)
    ZO_SLOT(GetLogFile, PSTR, ULONG, PULONG, PBOOL)
    ZO_SLOT(OpenLogFile, PCSTR, BOOL)
    ZO_SLOT(CloseLogFile)
    ZO_SLOT(GetLogMask, PULONG)
    ZO_SLOT(SetLogMask, ULONG)
    ZO_SLOT(Input, PSTR, ULONG, PULONG)
    ZO_SLOT(ReturnInput, PCSTR)
    ZO_VARIADIC_SLOT(Output, ULONG, PCSTR, ...)
    ZO_SLOT(OutputVaList, ULONG, PCSTR, va_list)
    ZO_VARIADIC_SLOT(ControlledOutput, ULONG, ULONG, PCSTR, ...)
    ZO_SLOT(ControlledOutputVaList, ULONG, ULONG, PCSTR, va_list)
    ZO_VARIADIC_SLOT(OutputPrompt, ULONG, PCSTR, ...)
    ZO_SLOT(OutputPromptVaList, ULONG, PCSTR, va_list)
    ZO_SLOT(GetPromptText, PSTR, ULONG, PULONG)
    ZO_SLOT(OutputCurrentState, ULONG, ULONG)
    ZO_SLOT(OutputVersionInformation, ULONG)
    ZO_SLOT(GetNotifyEventHandle, PULONG64)
    ZO_SLOT(SetNotifyEventHandle, ULONG64)
    ZO_SLOT(Assemble, ULONG64, PCSTR, PULONG64)
    ZO_SLOT(Disassemble, ULONG64, ULONG, PSTR, ULONG, PULONG, PULONG64)
    ZO_SLOT(GetDisassembleEffectiveOffset, PULONG64)
    ZO_SLOT(OutputDisassembly, ULONG, ULONG64, ULONG, PULONG64)
    ZO_SLOT(OutputDisassemblyLines, ULONG, ULONG, ULONG, ULONG64, ULONG, PULONG, PULONG64, PULONG64, PULONG64)
    ZO_SLOT(GetNearInstruction, ULONG64, LONG, PULONG64)
    ZO_SLOT(GetStackTrace, ULONG64, ULONG64, ULONG64, PDEBUG_STACK_FRAME, ULONG, PULONG)
    ZO_SLOT(GetReturnOffset, PULONG64)
    ZO_SLOT(GetActualProcessorType, PULONG)
    ZO_SLOT(GetExecutingProcessorType, PULONG)
    ZO_SLOT(GetNumberPossibleExecutingProcessorTypes, PULONG)
    ZO_SLOT(GetPossibleExecutingProcessorTypes, ULONG, ULONG, PULONG)
    ZO_SLOT(GetNumberProcessors, PULONG)
    ZO_SLOT(GetSystemVersion, PULONG, PULONG, PULONG, PSTR, ULONG, PULONG, PULONG, PSTR, ULONG, PULONG)
    ZO_SLOT(GetPageSize, PULONG)
    ZO_SLOT(GetNumberSupportedProcessorTypes, PULONG)
    ZO_SLOT(GetSupportedProcessorTypes, ULONG, ULONG, PULONG)
    ZO_SLOT(GetProcessorTypeNames, ULONG, PSTR, ULONG, PULONG, PSTR, ULONG, PULONG)
    ZO_SLOT(GetEffectiveProcessorType, PULONG)
    ZO_SLOT(SetEffectiveProcessorType, ULONG)
    ZO_SLOT(SetExecutionStatus, ULONG)
    ZO_SLOT(GetCodeLevel, PULONG)
    ZO_SLOT(SetCodeLevel, ULONG)
    ZO_SLOT(GetEngineOptions, PULONG)
    ZO_SLOT(AddEngineOptions, ULONG)
    ZO_SLOT(RemoveEngineOptions, ULONG)
    ZO_SLOT(SetEngineOptions, ULONG)
    ZO_SLOT(GetSystemErrorControl, PULONG, PULONG)
    ZO_SLOT(SetSystemErrorControl, ULONG, ULONG)
    ZO_SLOT(GetTextMacro, ULONG, PSTR, ULONG, PULONG)
    ZO_SLOT(SetTextMacro, ULONG, PCSTR)
    ZO_SLOT(GetRadix, PULONG)
    ZO_SLOT(SetRadix, ULONG)
    ZO_SLOT(Evaluate, PCSTR, ULONG, PDEBUG_VALUE, PULONG)
    ZO_SLOT(CoerceValue, PDEBUG_VALUE, ULONG, PDEBUG_VALUE)
    ZO_SLOT(CoerceValues, ULONG, PDEBUG_VALUE, PULONG, PDEBUG_VALUE)
    ZO_SLOT(Execute, ULONG, PCSTR, ULONG)
    ZO_SLOT(ExecuteCommandFile, ULONG, PCSTR, ULONG)
    ZO_SLOT(GetNumberBreakpoints, PULONG)
    ZO_SLOT(GetBreakpointByIndex, ULONG, PDEBUG_BREAKPOINT*)
    ZO_SLOT(GetBreakpointById, ULONG, PDEBUG_BREAKPOINT*)
    ZO_SLOT(GetBreakpointParameters, ULONG, PULONG, ULONG, PDEBUG_BREAKPOINT_PARAMETERS)
    ZO_SLOT(AddBreakpoint, ULONG, ULONG, PDEBUG_BREAKPOINT*)
    ZO_SLOT(RemoveBreakpoint, PDEBUG_BREAKPOINT)
    ZO_SLOT(AddExtension, PCSTR, ULONG, PULONG64)
    ZO_SLOT(RemoveExtension, ULONG64)
    ZO_SLOT(GetExtensionByPath, PCSTR, PULONG64)
    ZO_SLOT(CallExtension, ULONG64, PCSTR, PCSTR)
    ZO_SLOT(GetExtensionFunction, ULONG64, PCSTR, FARPROC*)
    ZO_SLOT(GetWindbgExtensionApis32, PWINDBG_EXTENSION_APIS32)
    ZO_SLOT(GetWindbgExtensionApis64, PWINDBG_EXTENSION_APIS64)
    ZO_SLOT(GetNumberEventFilters, PULONG, PULONG, PULONG)
    ZO_SLOT(GetEventFilterText, ULONG, PSTR, ULONG, PULONG)
    ZO_SLOT(GetEventFilterCommand, ULONG, PSTR, ULONG, PULONG)
    ZO_SLOT(SetEventFilterCommand, ULONG, PCSTR)
    ZO_SLOT(GetSpecificFilterParameters, ULONG, ULONG, PDEBUG_SPECIFIC_FILTER_PARAMETERS)
    ZO_SLOT(SetSpecificFilterParameters, ULONG, ULONG, PDEBUG_SPECIFIC_FILTER_PARAMETERS)
    ZO_SLOT(GetSpecificFilterArgument, ULONG, PSTR, ULONG, PULONG)
    ZO_SLOT(SetSpecificFilterArgument, ULONG, PCSTR)
    ZO_SLOT(GetExceptionFilterParameters, ULONG, PULONG, ULONG, PDEBUG_EXCEPTION_FILTER_PARAMETERS)
    ZO_SLOT(SetExceptionFilterParameters, ULONG, PDEBUG_EXCEPTION_FILTER_PARAMETERS)
    ZO_SLOT(GetExceptionFilterSecondCommand, ULONG, PSTR, ULONG, PULONG)
    ZO_SLOT(SetExceptionFilterSecondCommand, ULONG, PCSTR)
};
// clang-format on

#undef ZO_SLOT
#undef ZO_VARIADIC_SLOT

}  // namespace zoengine
