// The debugger engine through the platform's interfaces, as a caller that loads dbgeng.dll has it: what the crash
// reporter's own tests, which go through it as well, do not show.

#include <gtest/gtest.h>

// clang-format off
#include <windows.h>
#include <initguid.h>
#include <dbgeng.h>
// clang-format on

#include <string>
#include <vector>

#include "owned_handles.h"

namespace {

class Capture final : public IDebugOutputCallbacks {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, PVOID* object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE Output(ULONG mask, PCSTR text) override {
        masks |= mask;
        brokenLines += std::string(text).back() != '\n';
        all += text;
        return S_OK;
    }

    ULONG references = 1;
    ULONG masks = 0;
    int brokenLines = 0;
    std::string all;
};

class DebugEngine : public testing::Test {
  protected:
    DebugEngine() : library_(LoadLibraryA("dbgeng.dll")) {
        using Create = HRESULT(STDAPICALLTYPE*)(REFIID, PVOID*);
        const auto create =
            reinterpret_cast<Create>(reinterpret_cast<void*>(GetProcAddress(library_.Get(), "DebugCreate")));
        EXPECT_EQ(create(IID_IDebugClient, reinterpret_cast<void**>(&client_)), S_OK);
        EXPECT_EQ(client_->QueryInterface(IID_IDebugControl, reinterpret_cast<void**>(&control_)), S_OK);
    }
    ~DebugEngine() override {
        control_->Release();
        EXPECT_EQ(client_->Release(), 0u);
    }

    zo::OwnedModule library_;
    IDebugClient* client_ = nullptr;
    IDebugControl* control_ = nullptr;
};

// A caller compiled with the platform's own header finds methods by their place in the table.
TEST_F(DebugEngine, MethodsStandWhereTheyDoOnThePlatform) {
    auto slot = [](void* object, std::size_t index) { return (*static_cast<void***>(object))[index]; };
    using Open = HRESULT(STDMETHODCALLTYPE*)(void*, PCSTR);
    using Wait = HRESULT(STDMETHODCALLTYPE*)(void*, ULONG, ULONG);
    using Read = HRESULT(STDMETHODCALLTYPE*)(void*, PULONG, PULONG64, PULONG64, PULONG64, PULONG64);
    using One = HRESULT(STDMETHODCALLTYPE*)(void*, ULONG);
    using Two = HRESULT(STDMETHODCALLTYPE*)(void*, PULONG, PULONG);
    ULONG mask = 0;
    ULONG code = 0;
    EXPECT_EQ(reinterpret_cast<One>(slot(client_, 36))(client_, 3), S_OK);  // SetOutputMask
    EXPECT_EQ(client_->GetOutputMask(&mask), S_OK);
    EXPECT_EQ(mask, 3u);
    EXPECT_EQ(reinterpret_cast<Open>(slot(client_, 19))(client_, ZO_TEST_DUMPS "plain.dmp"), S_OK);
    EXPECT_EQ(client_->OpenDumpFile(ZO_TEST_DUMPS "storage.dmp"), E_UNEXPECTED) << "one dump at a time";
    EXPECT_EQ(reinterpret_cast<Wait>(slot(control_, 93))(control_, 0, INFINITE), S_OK);
    EXPECT_EQ(reinterpret_cast<Read>(slot(control_, 43))(control_, &code, nullptr, nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(code, 0x1Eu);
    EXPECT_EQ(reinterpret_cast<Two>(slot(control_, 34))(control_, &code, &mask), S_OK);  // GetDebuggeeType
    EXPECT_EQ(mask, static_cast<ULONG>(DEBUG_KERNEL_SMALL_DUMP));
    EXPECT_EQ(reinterpret_cast<One>(slot(client_, 26))(client_, DEBUG_END_ACTIVE_TERMINATE), S_OK);  // EndSession
    EXPECT_EQ(reinterpret_cast<One>(slot(control_, 6))(control_, 1), E_NOTIMPL);  // SetInterruptTimeout
}

TEST_F(DebugEngine, PrintsInPiecesThatBreakLinesAndHonoursTheMask) {
    for (const ULONG mask : {ULONG{DEBUG_OUTPUT_NORMAL}, ULONG{DEBUG_OUTPUT_NORMAL | DEBUG_OUTPUT_SYMBOLS}}) {
        Capture capture;
        EXPECT_EQ(client_->SetOutputCallbacks(&capture), S_OK);
        EXPECT_EQ(client_->SetOutputMask(mask), S_OK);
        EXPECT_EQ(client_->OpenDumpFile(ZO_TEST_DUMPS "plain.dmp"), S_OK);
        EXPECT_EQ(control_->WaitForEvent(0, INFINITE), S_OK);
        EXPECT_EQ(capture.masks, mask);
        EXPECT_GT(capture.brokenLines, 3);
        EXPECT_EQ(capture.all.find("ZoProtector at 0x") != std::string::npos, mask != DEBUG_OUTPUT_NORMAL);
        EXPECT_EQ(client_->SetOutputCallbacks(nullptr), S_OK);
        EXPECT_EQ(capture.references, 1u);
        capture.all.clear();
        EXPECT_EQ(control_->OutputStackTrace(DEBUG_OUTCTL_ALL_CLIENTS, nullptr, 50, 0), S_OK);
        EXPECT_EQ(capture.all, "");
        EXPECT_EQ(client_->EndSession(DEBUG_END_ACTIVE_TERMINATE), S_OK);
    }
}

}  // namespace
