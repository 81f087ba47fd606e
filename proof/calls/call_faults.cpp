#include "call_faults.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <stdexcept>

#include "import_table.h"

namespace zotest {
namespace {

constexpr DWORD kError = ERROR_NO_SYSTEM_RESOURCES;                  // one that the library maps to nothing of its own
constexpr std::uint64_t kNoResourcesStatus = 0xC000009A;             // STATUS_INSUFFICIENT_RESOURCES
constexpr std::uint64_t kOutOfMemoryResult = 0x8007000E;             // E_OUTOFMEMORY
constexpr std::uint64_t kMinusOne = static_cast<std::uint64_t>(-1);  // INVALID_HANDLE_VALUE
constexpr std::uint64_t kNoAttributes = 0xFFFFFFFF;                  // INVALID_FILE_ATTRIBUTES

// What functions answer when they fail. Where it is 0 (FALSE, null, no characters) the last error says more.
struct Failure {
    std::uint64_t answer;
    std::vector<const char*> functions;
};
const std::vector<Failure>& Failures() {  // NOLINT(readability-function-size): a table
    static const std::vector<Failure> list = {
        {0,
         {"ChangeServiceConfigW",
          "ControlService",
          "ConvertSidToStringSidW",
          "CopyFileW",
          "CreateDirectoryW",
          "CreateServiceW",
          "DeleteFileW",
          "DeleteService",
          "DeviceIoControl",
          "ExpandEnvironmentStringsW",
          "FileTimeToSystemTime",
          "FindNextFileW",
          "FormatMessageW",
          "GetEnvironmentVariableW",
          "GetFileAttributesExW",
          "GetFileInformationByHandle",
          "GetFileInformationByHandleEx",
          "GetFileSizeEx",
          "GetFileVersionInfoSizeW",
          "GetFileVersionInfoW",
          "GetFinalPathNameByHandleW",
          "GetFullPathNameW",
          "GetModuleFileNameW",
          "GetProcAddress",
          "GetSystemDirectoryW",
          "GetSystemFirmwareTable",
          "GetSystemWindowsDirectoryW",
          "GetTempPathW",
          "GetTokenInformation",
          "GetVersionExW",
          "GetVolumePathNameW",
          "GetWindowsDirectoryW",
          "HttpOpenRequestA",
          "HttpSendRequestA",
          "InternetConnectA",
          "InternetOpenA",
          "InternetReadFile",
          "LoadLibraryExW",
          "LoadLibraryW",
          "MoveFileExW",
          "MultiByteToWideChar",
          "OpenProcessToken",
          "OpenThreadToken",
          "OpenSCManagerW",
          "OpenServiceW",
          "QueryDosDeviceW",
          "QueryServiceConfigW",
          "QueryServiceStatusEx",
          "ReadFile",
          "RemoveDirectoryW",
          "SetFileAttributesW",
          "SetFileInformationByHandle",
          "SetKernelObjectSecurity",
          "StartServiceW",
          "VerQueryValueW",
          "WideCharToMultiByte",
          "WriteFile",
          "AddAccessAllowedAce",
          "CopySid",
          "CreateWellKnownSid",
          "InitializeAcl",
          "InitializeSecurityDescriptor",
          "SetSecurityDescriptorControl",
          "SetSecurityDescriptorDacl",
          "SleepConditionVariableCS"}},
        {kMinusOne, {"CreateFileW", "FindFirstFileW", "FindFirstFileExW"}},
        {kNoAttributes, {"GetFileAttributesW"}},
        {kError,  // registry functions answer the error itself
         {"RegCreateKeyExW", "RegDeleteTreeW", "RegOpenKeyExW", "RegQueryValueExW", "RegSetValueExW"}},
        {kNoResourcesStatus,
         {"BCryptCreateHash", "BCryptEncrypt", "BCryptExportKey", "BCryptFinalizeKeyPair", "BCryptFinishHash",
          "BCryptGenRandom", "BCryptGenerateKeyPair", "BCryptGenerateSymmetricKey", "BCryptHashData",
          "BCryptImportKeyPair", "BCryptOpenAlgorithmProvider", "BCryptSetProperty", "BCryptSignHash",
          "BCryptVerifySignature"}},
        {kOutOfMemoryResult, {"SHGetKnownFolderPath"}},
    };
    return list;
}
constexpr const char* kAllocations[] = {"malloc", "calloc", "realloc", "HeapAlloc"};

// Cannot fail, or answer nothing that could be wrong; and what the runtime alone uses to start, throw and end.
constexpr const char* kPassedOn[] = {"AddVectoredExceptionHandler",
                                     "BCryptCloseAlgorithmProvider",
                                     "BCryptDestroyHash",
                                     "BCryptDestroyKey",
                                     "CloseHandle",
                                     "CloseServiceHandle",
                                     "CoTaskMemFree",
                                     "CompareFileTime",
                                     "CompareStringOrdinal",
                                     "CreateEventA",
                                     "CreateSemaphoreA",
                                     "CryptAcquireContextA",
                                     "CryptGenRandom",
                                     "CryptReleaseContext",
                                     "DeleteCriticalSection",
                                     "DisableThreadLibraryCalls",
                                     "DuplicateHandle",
                                     "EnterCriticalSection",
                                     "FindClose",
                                     "FormatMessageA",
                                     "FreeLibrary",
                                     "GetCurrentProcess",
                                     "GetCurrentProcessId",
                                     "GetCurrentThread",
                                     "GetCurrentThreadId",
                                     "GetHandleInformation",
                                     "GetLastError",
                                     "GetLocalTime",
                                     "GetModuleHandleA",
                                     "GetModuleHandleW",
                                     "GetProcessAffinityMask",
                                     "GetProcessHeap",
                                     "GetProcessTimes",
                                     "GetSystemTimeAdjustment",
                                     "GetSystemTimeAsFileTime",
                                     "GetThreadContext",
                                     "GetThreadPriority",
                                     "GetThreadTimes",
                                     "GetTickCount64",
                                     "HeapFree",
                                     "InitOnceBeginInitialize",
                                     "InitOnceComplete",
                                     "InitializeCriticalSection",
                                     "InternetCloseHandle",
                                     "IsDBCSLeadByteEx",
                                     "IsDebuggerPresent",
                                     "LeaveCriticalSection",
                                     "LocalFree",
                                     "OpenProcess",
                                     "OutputDebugStringA",
                                     "QueryPerformanceCounter",
                                     "QueryPerformanceFrequency",
                                     "RaiseException",
                                     "RegCloseKey",
                                     "ReleaseSemaphore",
                                     "RemoveVectoredExceptionHandler",
                                     "ResetEvent",
                                     "ResumeThread",
                                     "RtlCaptureContext",
                                     "RtlLookupFunctionEntry",
                                     "RtlUnwindEx",
                                     "RtlVirtualUnwind",
                                     "SetEvent",
                                     "SetLastError",
                                     "SetProcessAffinityMask",
                                     "SetSystemTime",
                                     "SetThreadContext",
                                     "SetThreadPriority",
                                     "Sleep",
                                     "StrStrIA",
                                     "SuspendThread",
                                     "TlsAlloc",
                                     "TlsGetValue",
                                     "TlsSetValue",
                                     "TryEnterCriticalSection",
                                     "VirtualAlloc",
                                     "VirtualFree",
                                     "VirtualProtect",
                                     "VirtualQuery",
                                     "WaitForMultipleObjects",
                                     "WaitForSingleObject",
                                     "WakeAllConditionVariable",
                                     "__C_specific_handler"};

struct Hook {
    const char* name;
    CallFaults::Kind kind;
    ULONG_PTR* slot;
    ULONG_PTR original;
};
std::vector<Hook> hooks;
BYTE* code;

// Of the armed thread. No library types: the hooks are asked in the middle of an allocation.
DWORD armedThread;
CallFaults::Kind armedKind;
std::size_t failAt;
std::size_t calls;
const char* failedCall;

// Asked before each hooked call: whether this one fails.
int Decide(std::uint32_t index) {
    if (GetCurrentThreadId() != armedThread || hooks[index].kind != armedKind) return 0;
    if (++calls != failAt) return 0;
    failedCall = hooks[index].name;
    SetLastError(kError);
    return 1;
}

constexpr std::size_t kStubSize = 80;

template <typename Value>
void Put(BYTE*& at, Value value) {
    std::memcpy(at, &value, sizeof(value));
    at += sizeof(value);
}
void PutBytes(BYTE*& at, std::initializer_list<int> bytes) {
    for (const int byte : bytes)
        *at++ = static_cast<BYTE>(byte);
}

// The argument registers are kept, Decide(index) is asked, then either the original is jumped to or the answer
// returned.
void WriteStub(BYTE* at, std::uint32_t index, ULONG_PTR original, std::uint64_t answer) {
    PutBytes(at, {0x51, 0x52, 0x41, 0x50, 0x41, 0x51});  // push rcx, rdx, r8, r9
    PutBytes(at, {0x48, 0x83, 0xEC, 0x28});              // sub rsp, 40: the callee's room, and aligned
    PutBytes(at, {0xB9});                                // mov ecx, index
    Put(at, index);
    PutBytes(at, {0x48, 0xB8});  // mov rax, Decide
    Put(at, reinterpret_cast<std::uint64_t>(&Decide));
    PutBytes(at, {0xFF, 0xD0});                          // call rax
    PutBytes(at, {0x48, 0x83, 0xC4, 0x28});              // add rsp, 40
    PutBytes(at, {0x41, 0x59, 0x41, 0x58, 0x5A, 0x59});  // pop r9, r8, rdx, rcx
    PutBytes(at, {0x85, 0xC0, 0x75, 0x0C});              // test eax, eax; jnz +12
    PutBytes(at, {0x48, 0xB8});                          // mov rax, original
    Put(at, static_cast<std::uint64_t>(original));
    PutBytes(at, {0xFF, 0xE0});  // jmp rax
    PutBytes(at, {0x48, 0xB8});  // mov rax, answer
    Put(at, answer);
    PutBytes(at, {0xC3});  // ret
}

template <typename List>
bool Has(const List& list, const char* name) {
    return std::any_of(std::begin(list), std::end(list), [&](const char* one) { return std::strcmp(one, name) == 0; });
}

// Whether the function can fail here, and how.
bool FindFailure(const char* name, CallFaults::Kind& kind, std::uint64_t& answer) {
    kind = CallFaults::Kind::kAllocation;
    answer = 0;
    if (Has(kAllocations, name)) return true;
    kind = CallFaults::Kind::kPlatform;
    for (const Failure& failure : Failures()) {
        answer = failure.answer;
        if (Has(failure.functions, name)) return true;
    }
    return false;
}

}  // namespace

CallFaults::CallFaults() {
    constexpr std::size_t kMostHooks = 200;
    code = static_cast<BYTE*>(
        VirtualAlloc(nullptr, kMostHooks * kStubSize, MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
    if (code == nullptr) throw std::runtime_error("no memory for the hooks");
    hooks.reserve(kMostHooks);
    std::string unknown;
    ForEachImport(TheLibrary(), [&](const char* dll, const char* name, ULONG_PTR* slot) {
        Kind kind{};
        std::uint64_t answer = 0;
        if (!FindFailure(name, kind, answer)) {
            if (_stricmp(dll, "msvcrt.dll") != 0 && !Has(kPassedOn, name)) unknown += std::string(" ") + name;
            return;
        }
        if (hooks.size() == kMostHooks) throw std::runtime_error("more imports than room for hooks");
        BYTE* const stub = code + hooks.size() * kStubSize;
        WriteStub(stub, static_cast<std::uint32_t>(hooks.size()), *slot, answer);
        hooks.push_back({name, kind, slot, *slot});
        SetImport(slot, reinterpret_cast<ULONG_PTR>(stub));
    });
    if (!unknown.empty()) throw std::runtime_error("imports on neither list of call_faults.cpp:" + unknown);
}

CallFaults::~CallFaults() {
    Disarm();
    for (const Hook& hook : hooks)
        SetImport(hook.slot, hook.original);
    hooks.clear();
    VirtualFree(code, 0, MEM_RELEASE);
}

void CallFaults::Arm(Kind kind, std::size_t n) {
    armedKind = kind;
    failAt = n;
    calls = 0;
    failedCall = nullptr;
    armedThread = GetCurrentThreadId();
}

void CallFaults::Disarm() {
    armedThread = 0;
}

std::size_t CallFaults::Calls() const {
    return calls;
}

const char* CallFaults::FailedCall() const {
    return failedCall;
}

}  // namespace zotest
