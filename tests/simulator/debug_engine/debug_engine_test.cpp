// The debugger engine through the platform's interfaces, as a caller that loads dbgeng.dll has it: what the crash
// reporter's own tests, which go through it as well, do not show.

#include <gtest/gtest.h>

// clang-format off
#include <windows.h>
#include <initguid.h>
#include <dbgeng.h>
// clang-format on

#include <string>

#include "owned_handles.h"

namespace {

struct Capture final : IDebugOutputCallbacks {
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, PVOID*) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE Output(ULONG mask, PCSTR text) override {
        masks |= mask;
        all += text;
        brokenLines += all.back() != '\n';
        return S_OK;
    }

    ULONG references = 1;
    ULONG masks = 0;
    int brokenLines = 0;
    std::string all;
};

TEST(DebugEngine, PrintsInPiecesThatBreakLinesAndHonoursTheMask) {
    const zo::OwnedModule library(LoadLibraryA("dbgeng.dll"));
    using Create = HRESULT(STDAPICALLTYPE*)(REFIID, void*);
    const auto create = reinterpret_cast<Create>(reinterpret_cast<void*>(GetProcAddress(library.Get(), "DebugCreate")));
    IDebugClient* client = nullptr;
    IDebugControl* control = nullptr;
    ASSERT_EQ(create(IID_IDebugClient, &client), S_OK);
    ASSERT_EQ(client->QueryInterface(IID_IDebugControl, reinterpret_cast<void**>(&control)), S_OK);
    for (const ULONG mask : {ULONG{DEBUG_OUTPUT_NORMAL}, ULONG{DEBUG_OUTPUT_NORMAL | DEBUG_OUTPUT_SYMBOLS}}) {
        Capture capture;
        EXPECT_EQ(client->SetOutputCallbacks(&capture), S_OK);
        EXPECT_EQ(client->SetOutputMask(mask), S_OK);
        EXPECT_EQ(client->OpenDumpFile(ZO_TEST_DUMPS "plain.dmp"), S_OK);
        EXPECT_EQ(client->OpenDumpFile(ZO_TEST_DUMPS "storage.dmp"), E_UNEXPECTED) << "one dump at a time";
        EXPECT_EQ(control->WaitForEvent(0, INFINITE), S_OK);
        EXPECT_EQ(capture.masks, mask);
        EXPECT_GT(capture.brokenLines, 3);
        EXPECT_EQ(capture.all.find("ZoProtector at 0x") != std::string::npos, mask != DEBUG_OUTPUT_NORMAL);
        EXPECT_EQ(client->SetOutputCallbacks(nullptr), S_OK);
        EXPECT_EQ(capture.references, 1u);
        EXPECT_EQ(client->EndSession(DEBUG_END_ACTIVE_TERMINATE), S_OK);
    }
    EXPECT_EQ(control->SetInterruptTimeout(1), E_NOTIMPL);
    control->Release();
    EXPECT_EQ(client->Release(), 0u);
}

}  // namespace
