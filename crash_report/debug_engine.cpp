#include "debug_engine.h"

#include <array>
#include <cstring>
#include <filesystem>
#include <utility>

#include "cng.h"
#include "document.h"
#include "errors.h"
#include "files.h"
#include "hex.h"

namespace zocrash {

namespace {

// Spelled out, because those of the header need an import library.
constexpr GUID kUnknownId = {0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
constexpr GUID kOutputCallbacksId = {0x4BF58045, 0xD654, 0x4C40, {0xB0, 0xAF, 0x68, 0x30, 0x90, 0xF3, 0x56, 0xDC}};
constexpr GUID kClientId = {0x27FE5639, 0x8407, 0x4F47, {0x83, 0x64, 0xEE, 0x11, 0x8F, 0xB0, 0x8A, 0xC8}};
constexpr GUID kControlId = {0x5182E668, 0x105E, 0x416E, {0xAD, 0x92, 0x24, 0xEF, 0x80, 0x04, 0x24, 0xBA}};

constexpr ULONG kStackFrames = 50;

using DebugCreateFunction = HRESULT(WINAPI*)(REFIID, PVOID*);

// What GetLastEventInformation gives for an exception event; the engine may give more than the record.
union EventInformation {
    EXCEPTION_RECORD64 exception;
    std::uint8_t bytes[2000];
};

bool Same(const GUID& a, const GUID& b) {
    return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}

std::filesystem::path ExecutableFolder() {
    std::array<wchar_t, MAX_PATH> path{};
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0 || length >= path.size()) return {};
    return std::filesystem::path(path.data()).parent_path();
}

std::filesystem::path SystemFolder() {
    std::array<wchar_t, MAX_PATH> path{};
    const UINT length = GetSystemDirectoryW(path.data(), static_cast<UINT>(path.size()));
    if (length == 0 || length >= path.size()) return {};
    return path.data();
}

// Empty when neither folder has it. Nothing else is ever searched.
std::filesystem::path FindLibrary(const wchar_t* name) {
    for (const auto& folder : {ExecutableFolder(), SystemFolder()}) {
        if (folder.empty()) continue;
        std::filesystem::path path = folder / name;
        if (zo::Exists(path)) return path;
    }
    return {};
}

std::int32_t Load(const std::filesystem::path& path, zo::OwnedModule& library) {
    library.Reset(LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
    return library ? zo::kOk : zo::HresultFromWin32(GetLastError());
}

// Takes the interface that a call handed out. What a failed call left in the pointer is not an interface.
template <typename Interface>
std::int32_t TakeInterface(HRESULT result, void* object, zo::OwnedInterface<Interface>& owner) {
    if (result < 0) return result;
    owner.Reset(static_cast<Interface*>(object));
    return owner ? zo::kOk : zo::kFail;
}

}  // namespace

HRESULT TextCaptureCallbacks::QueryInterface(REFIID interfaceId, PVOID* object) noexcept {
    if (!Same(interfaceId, kUnknownId) && !Same(interfaceId, kOutputCallbacksId)) {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    *object = static_cast<IDebugOutputCallbacks*>(this);
    return S_OK;
}

HRESULT TextCaptureCallbacks::Output(ULONG, PCSTR text) noexcept {
    if (text == nullptr || failure_) return S_OK;
    try {
        captured_ += text;
    } catch (...) {
        failure_ = std::current_exception();
    }
    return S_OK;
}

std::string TextCaptureCallbacks::Take() {
    if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
    return std::exchange(captured_, {});
}

std::int32_t DebugEngine::LoadLibraries() {
    const std::filesystem::path help = FindLibrary(L"dbghelp.dll");
    const std::filesystem::path engine = FindLibrary(L"dbgeng.dll");
    if (help.empty() || engine.empty()) return zo::HresultFromWin32(ERROR_FILE_NOT_FOUND);
    // In this order: the engine's own import of dbghelp.dll then finds the one that was loaded.
    if (const std::int32_t status = Load(help, helpLibrary_); status < 0) return status;
    return Load(engine, engineLibrary_);
}

std::int32_t DebugEngine::Open() {
    if (const std::int32_t status = LoadLibraries(); status < 0) return status;
    const auto address = reinterpret_cast<void*>(GetProcAddress(engineLibrary_.Get(), "DebugCreate"));
    if (address == nullptr) return zo::HresultFromWin32(ERROR_PROC_NOT_FOUND);
    const auto create = reinterpret_cast<DebugCreateFunction>(address);

    void* object = nullptr;
    HRESULT result = create(kClientId, &object);
    if (const std::int32_t status = TakeInterface(result, object, client_); status < 0) return status;
    object = nullptr;
    result = client_.Get()->QueryInterface(kControlId, &object);
    if (const std::int32_t status = TakeInterface(result, object, control_); status < 0) return status;

    // If the engine refuses these, its analyses lack text, which BuildFullDocument notices.
    client_.Get()->SetOutputCallbacks(&output_);
    client_.Get()->SetOutputMask(DEBUG_OUTPUT_NORMAL);
    return zo::kOk;
}

DebugEngine::~DebugEngine() {
    control_.Reset();
    if (client_) {
        client_.Get()->SetOutputCallbacks(nullptr);
        client_.Get()->EndSession(DEBUG_END_ACTIVE_TERMINATE);
        client_.Reset();
    }
    engineLibrary_.Reset();
    helpLibrary_.Reset();
}

std::int32_t DebugEngine::Analyse(const std::string& dumpPath, std::uint64_t dumpStamp, DumpAnalysisResult& result) {
    if (!client_ || !control_) return zo::HresultFromWin32(ERROR_INVALID_STATE);
    if (const HRESULT opened = client_.Get()->OpenDumpFile(dumpPath.c_str()); opened < 0) return opened;
    static_cast<void>(output_.Take());

    // Only this loads the dump. If it fails, the steps that follow fail as well.
    control_.Get()->WaitForEvent(0, INFINITE);
    result.dumpPath = dumpPath;
    result.dumpStamp = dumpStamp;
    result.loadOutput = output_.Take();

    const std::int32_t status = Describe(result);
    // Closed in any case, so that the next dump can be opened.
    client_.Get()->EndSession(DEBUG_END_ACTIVE_TERMINATE);
    return status;
}

std::int32_t DebugEngine::Describe(DumpAnalysisResult& result) {
    ULONG code = 0;
    ULONG64 arguments[4] = {};
    if (const HRESULT read =
            control_.Get()->ReadBugCheckData(&code, &arguments[0], &arguments[1], &arguments[2], &arguments[3]);
        read < 0) {
        return read;
    }
    result.analysisText = BugcheckLine(code);
    control_.Get()->OutputStackTrace(DEBUG_OUTCTL_ALL_CLIENTS, nullptr, kStackFrames, 0);
    result.analysisText += output_.Take();

    zo::Md5Digest digest{};
    const std::span text(reinterpret_cast<const std::uint8_t*>(result.analysisText.data()), result.analysisText.size());
    if (const std::int32_t status = zo::HashOnce(BCRYPT_MD5_ALGORITHM, text, digest); status < 0) {
        return zo::HresultFromNtStatus(status);
    }
    result.signature = zo::ToHex(digest);
    result.exceptionAddress = ExceptionAddress();
    return zo::kOk;
}

std::uint64_t DebugEngine::ExceptionAddress() {
    ULONG type = 0;
    ULONG process = 0;
    ULONG thread = 0;
    ULONG used = 0;
    EventInformation information{};
    const HRESULT read = control_.Get()->GetLastEventInformation(&type, &process, &thread, &information,
                                                                 sizeof(information), &used, nullptr, 0, nullptr);
    return read >= 0 && type == DEBUG_EVENT_EXCEPTION ? information.exception.ExceptionAddress : 0;
}

}  // namespace zocrash
