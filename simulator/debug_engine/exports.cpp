// The functions by which the engine is entered. Their names stand in dbgeng.def.

// clang-format off
#include <windows.h>
#include <initguid.h>
#include <dbgeng.h>
// clang-format on

#include <algorithm>
#include <new>

#include "emergency_pool.h"
#include "engine.h"
#include "engine_host.h"
#include "format.h"

using namespace zoengine;

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID processEnds) {
    if (reason == DLL_PROCESS_DETACH && processEnds == nullptr) zo::FreeEmergencyPool();
    if (reason != DLL_PROCESS_ATTACH) return TRUE;
    for (const ScriptLine& line : ScriptFor("Load", "")) {
        if (line.act == Act::kHang) Sleep(static_cast<DWORD>(line.number));
        if (line.act == Act::kFail) return FALSE;
    }
    return TRUE;
}

namespace {

HRESULT Create(REFIID id, PVOID* object) {
    *object = nullptr;
    for (const ScriptLine& line : ScriptFor("DebugCreate", "")) {
        if (line.act == Act::kHang) Sleep(static_cast<DWORD>(line.number));
        if (line.act == Act::kFail) {
            *object = kJunkPointer;
            return static_cast<HRESULT>(line.number);
        }
        if (line.act == Act::kNull) return S_OK;
    }
    // It counts its references, and the last Release deletes it. NOLINTNEXTLINE(cppcoreguidelines-owning-memory)
    Engine* engine = new (std::nothrow) Engine;
    if (engine == nullptr) return E_OUTOFMEMORY;
    const HRESULT result = engine->Give(id, object);
    engine->Release();
    return result;
}

}  // namespace

STDAPI DebugCreate(REFIID id, PVOID* object) {
    if (object == nullptr) return E_INVALIDARG;
    const HRESULT result = Create(id, object);
    RecordCall("DebugCreate()", result);
    return result;
}

STDAPI DebugConnect(PCSTR, REFIID, PVOID*) {
    return E_NOTIMPL;  // there is no engine elsewhere to connect to
}
