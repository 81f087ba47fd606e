// The debugger engine through the platform's interfaces, as a caller that loads dbgeng.dll has it.

#include <gtest/gtest.h>

// clang-format off
#include <windows.h>
#include <initguid.h>
#include <dbgeng.h>
// clang-format on

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "owned_handles.h"

namespace {

constexpr HRESULT kNoSession = E_UNEXPECTED;

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
        pieces.emplace_back(text);
        return S_OK;
    }

    std::string Take() {
        std::string all;
        for (const std::string& piece : pieces)
            all += piece;
        pieces.clear();
        masks = 0;
        return all;
    }

    ULONG references = 1;
    ULONG masks = 0;
    std::vector<std::string> pieces;
};

std::string Dump(const std::string& name) {
    return ZO_TEST_DUMPS + name;
}

std::string ReadText(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class DebugEngine : public testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::create_directories(folder_);
        SetEnvironmentVariableA("ZO_DEBUG_ENGINE_SCRIPT", script_.string().c_str());
        SetEnvironmentVariableA("ZO_DEBUG_ENGINE_LOG", log_.string().c_str());
        library_.Reset(LoadLibraryA("dbgeng.dll"));
        ASSERT_TRUE(library_);
        create_ = reinterpret_cast<HRESULT(STDAPICALLTYPE*)(REFIID, PVOID*)>(
            reinterpret_cast<void*>(GetProcAddress(library_.Get(), "DebugCreate")));
        ASSERT_NE(create_, nullptr) << "is WINEDLLOVERRIDES set to dbgeng=n,b?";
        ASSERT_EQ(create_(IID_IDebugClient, reinterpret_cast<void**>(&client_)), S_OK);
        ASSERT_EQ(client_->QueryInterface(IID_IDebugControl, reinterpret_cast<void**>(&control_)), S_OK);
        ASSERT_EQ(client_->SetOutputCallbacks(&capture_), S_OK);
        ASSERT_EQ(client_->SetOutputMask(DEBUG_OUTPUT_NORMAL), S_OK);
    }

    void TearDown() override {
        if (control_ != nullptr) control_->Release();
        if (client_ != nullptr) {
            EXPECT_EQ(client_->Release(), 0u);
        }
        EXPECT_EQ(capture_.references, 1u);
        library_.Reset();
        std::filesystem::remove_all(folder_);
    }

    void Script(const std::string& text) { std::ofstream(script_, std::ios::binary) << text; }

    // The steps of an analysis; the first one that fails ends it.
    HRESULT Analyse(const std::string& path) {
        if (const HRESULT result = client_->OpenDumpFile(path.c_str()); FAILED(result)) return result;
        HRESULT result = control_->WaitForEvent(0, INFINITE);
        ULONG code = 0;
        if (SUCCEEDED(result)) result = control_->ReadBugCheckData(&code, nullptr, nullptr, nullptr, nullptr);
        if (SUCCEEDED(result)) result = control_->OutputStackTrace(DEBUG_OUTCTL_ALL_CLIENTS, nullptr, 50, 0);
        const HRESULT ended = client_->EndSession(DEBUG_END_ACTIVE_TERMINATE);
        return FAILED(result) ? result : ended;
    }

    std::filesystem::path folder_ = std::filesystem::temp_directory_path() / "debug_engine_test";
    std::filesystem::path script_ = folder_ / "script.txt";
    std::filesystem::path log_ = folder_ / "calls.txt";
    zo::OwnedModule library_;
    HRESULT(STDAPICALLTYPE* create_)(REFIID, PVOID*) = nullptr;
    IDebugClient* client_ = nullptr;
    IDebugControl* control_ = nullptr;
    Capture capture_;
};

TEST_F(DebugEngine, HoldsADumpOnlyFromWaitForEventToEndSession) {
    ULONG code = 0;
    ULONG64 parameters[4] = {};
    auto read = [&] {
        return control_->ReadBugCheckData(&code, &parameters[0], &parameters[1], &parameters[2], &parameters[3]);
    };
    EXPECT_EQ(read(), kNoSession);
    ASSERT_EQ(client_->OpenDumpFile(Dump("storage.dmp").c_str()), S_OK);
    EXPECT_NE(capture_.Take().find("storage.dmp]"), std::string::npos);
    EXPECT_EQ(read(), kNoSession);
    EXPECT_EQ(control_->OutputStackTrace(DEBUG_OUTCTL_ALL_CLIENTS, nullptr, 50, 0), kNoSession);
    ASSERT_EQ(control_->WaitForEvent(0, INFINITE), S_OK);
    EXPECT_NE(capture_.Take().find("BugCheck D1, {1, 2, 3, fffff80604001200}\n"), std::string::npos);
    ASSERT_EQ(read(), S_OK);
    EXPECT_EQ(code, 0xD1u);
    EXPECT_EQ(parameters[3], 0xfffff80604001200u);
    ASSERT_EQ(control_->OutputStackTrace(DEBUG_OUTCTL_ALL_CLIENTS, nullptr, 50, 0), S_OK);
    EXPECT_EQ(capture_.Take(), "nt+0x10\nstorage+0x1200\nnt+0x20\n");
    ASSERT_EQ(control_->OutputStackTrace(DEBUG_OUTCTL_IGNORE, nullptr, 50, 0), S_OK);
    EXPECT_EQ(capture_.Take(), "");
    EXPECT_EQ(client_->OpenDumpFile(Dump("plain.dmp").c_str()), kNoSession) << "one dump at a time";
    ASSERT_EQ(client_->EndSession(DEBUG_END_ACTIVE_TERMINATE), S_OK);
    EXPECT_EQ(read(), kNoSession);
    EXPECT_EQ(Analyse(Dump("plain.dmp")), S_OK) << "the next dump can be opened";
}

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
    ASSERT_EQ(client_->GetOutputMask(&mask), S_OK);
    EXPECT_EQ(mask, 3u);
    EXPECT_EQ(reinterpret_cast<Open>(slot(client_, 19))(client_, Dump("plain.dmp").c_str()), S_OK);
    EXPECT_EQ(reinterpret_cast<Wait>(slot(control_, 93))(control_, 0, INFINITE), S_OK);
    EXPECT_EQ(reinterpret_cast<Read>(slot(control_, 43))(control_, &code, nullptr, nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(code, 0x1Eu);
    EXPECT_EQ(reinterpret_cast<Two>(slot(control_, 34))(control_, &code, &mask), S_OK);  // GetDebuggeeType
    EXPECT_EQ(mask, static_cast<ULONG>(DEBUG_KERNEL_SMALL_DUMP));
    EXPECT_EQ(reinterpret_cast<One>(slot(client_, 26))(client_, DEBUG_END_ACTIVE_TERMINATE), S_OK);  // EndSession
    EXPECT_EQ(reinterpret_cast<One>(slot(control_, 6))(control_, 1), E_NOTIMPL);  // SetInterruptTimeout
}

TEST_F(DebugEngine, PrintsInPiecesThatBreakLinesAndHonoursTheMask) {
    ASSERT_EQ(client_->SetOutputMask(DEBUG_OUTPUT_NORMAL | DEBUG_OUTPUT_SYMBOLS), S_OK);
    ASSERT_EQ(client_->OpenDumpFile(Dump("plain.dmp").c_str()), S_OK);
    ASSERT_EQ(control_->WaitForEvent(0, INFINITE), S_OK);
    EXPECT_EQ(capture_.masks, static_cast<ULONG>(DEBUG_OUTPUT_NORMAL | DEBUG_OUTPUT_SYMBOLS));
    std::size_t brokenLines = 0;
    for (const std::string& piece : capture_.pieces)
        brokenLines += piece.back() != '\n';
    EXPECT_GT(brokenLines, 3u);
    EXPECT_NE(capture_.Take().find("ZoProtector at 0x"), std::string::npos);

    ASSERT_EQ(client_->EndSession(DEBUG_END_ACTIVE_TERMINATE), S_OK);
    ASSERT_EQ(client_->SetOutputMask(DEBUG_OUTPUT_NORMAL), S_OK);
    ASSERT_EQ(Analyse(Dump("plain.dmp")), S_OK);
    EXPECT_EQ(capture_.masks, static_cast<ULONG>(DEBUG_OUTPUT_NORMAL));
    EXPECT_EQ(capture_.Take().find("ZoProtector at 0x"), std::string::npos);
    ASSERT_EQ(client_->SetOutputCallbacks(nullptr), S_OK);
    ASSERT_EQ(Analyse(Dump("plain.dmp")), S_OK);
    EXPECT_EQ(capture_.Take(), "");
}

TEST_F(DebugEngine, TellsTheLastEvent) {
    struct Row {
        const char* dump;
        ULONG type;
        ULONG64 address;
    };
    for (const Row& row : {Row{"plain.dmp", DEBUG_EVENT_EXCEPTION, 0xfffff80604001a2b},
                           Row{"no_exception.dmp", DEBUG_EVENT_BREAKPOINT, 0}}) {
        ASSERT_EQ(client_->OpenDumpFile(Dump(row.dump).c_str()), S_OK);
        ASSERT_EQ(control_->WaitForEvent(0, INFINITE), S_OK);
        ULONG type = 0, process = 9, thread = 9, used = 0;
        union {
            unsigned char bytes[2000];
            EXCEPTION_RECORD64 record;
        } extra{};
        ASSERT_EQ(control_->GetLastEventInformation(&type, &process, &thread, &extra, sizeof(extra), &used, nullptr, 0,
                                                    nullptr),
                  S_OK);
        EXPECT_EQ(type, row.type) << row.dump;
        EXPECT_EQ(extra.record.ExceptionAddress, row.address) << row.dump;
        ASSERT_EQ(client_->EndSession(DEBUG_END_ACTIVE_TERMINATE), S_OK);
    }
}

TEST_F(DebugEngine, RefusesOtherFiles) {
    const std::string good = ReadText(Dump("plain.dmp"));
    ASSERT_GT(good.size(), 0x2000u);
    const std::pair<const char*, std::string> files[] = {
        {"empty", ""},
        {"text", "PAGE"},
        {"user", "MDMP" + good.substr(4)},
        {"narrow", "PAGEDUMP" + good.substr(8)},
        {"header cut", good.substr(0, 0x1FFF)},
        {"end cut", good.substr(0, good.size() - 1)},
    };
    for (const auto& [name, bytes] : files) {
        const std::filesystem::path path = folder_ / "other.dmp";
        std::ofstream(path, std::ios::binary) << bytes;
        EXPECT_EQ(static_cast<ULONG>(Analyse(path.string())), 0x80070570u) << name;
    }
    EXPECT_EQ(static_cast<ULONG>(Analyse((folder_ / "missing.dmp").string())), 0x80070002u);
}

TEST_F(DebugEngine, FailsAtTheStepThatTheScriptNames) {
    for (const char* step : {"OpenDumpFile", "WaitForEvent", "ReadBugCheckData", "OutputStackTrace", "EndSession"}) {
        Script(std::string("[plain.dmp]\n") + step + " fail 0x80070017\n");
        EXPECT_EQ(static_cast<ULONG>(Analyse(Dump("plain.dmp"))), 0x80070017u) << step;
        Script("");
        client_->EndSession(DEBUG_END_ACTIVE_TERMINATE);
    }
    Script("[storage.dmp]\nOpenDumpFile fail 0x80070017\n");
    EXPECT_EQ(Analyse(Dump("plain.dmp")), S_OK) << "the script is for another dump";

    void* object = &object;
    Script("DebugCreate fail 0x80004005\nQueryInterface null");
    EXPECT_EQ(create_(IID_IDebugClient, &object), E_FAIL);
    EXPECT_EQ(object, nullptr);
    object = &object;
    EXPECT_EQ(client_->QueryInterface(IID_IDebugControl, &object), S_OK);
    EXPECT_EQ(object, nullptr);
}

TEST_F(DebugEngine, DoesWhatElseTheScriptSays) {
    const std::filesystem::path path = folder_ / "victim.dmp";
    std::filesystem::copy_file(Dump("plain.dmp"), path);
    const auto size = std::filesystem::file_size(path);
    Script(
        "WaitForEvent hang 120\nWaitForEvent babble 5000\nReadBugCheckData grow 77\nOutputStackTrace say odd\\ttext\n");
    const ULONGLONG before = GetTickCount64();
    ASSERT_EQ(Analyse(path.string()), S_OK);
    EXPECT_GE(GetTickCount64() - before, 100u);
    const std::string text = capture_.Take();
    EXPECT_GT(text.size(), 5000u);
    EXPECT_NE(text.find("odd\ttext"), std::string::npos);
    EXPECT_EQ(std::filesystem::file_size(path), size + 77);
    Script("EndSession delete");
    ASSERT_EQ(Analyse(path.string()), S_OK);
    EXPECT_FALSE(std::filesystem::exists(path));

    const std::string calls = ReadText(log_);
    EXPECT_NE(calls.find("SetOutputMask(0x1) = 0x00000000\r\n"), std::string::npos) << calls;
    EXPECT_NE(calls.find("WaitForEvent(0, ffffffff) = 0x00000000\r\n"), std::string::npos) << calls;
    EXPECT_NE(calls.find("OutputStackTrace(1, none, 50, 0x0) = 0x00000000\r\n"), std::string::npos) << calls;
}

TEST(DebugEngineLoading, FailsWhereTheScriptSaysSo) {
    const std::filesystem::path script = std::filesystem::temp_directory_path() / "debug_engine_load.txt";
    std::ofstream(script) << "Load fail 1";
    SetEnvironmentVariableA("ZO_DEBUG_ENGINE_SCRIPT", script.string().c_str());
    EXPECT_FALSE(zo::OwnedModule(LoadLibraryA("dbgeng.dll")));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DLL_INIT_FAILED));
    SetEnvironmentVariableA("ZO_DEBUG_ENGINE_SCRIPT", nullptr);
    std::filesystem::remove(script);
    const zo::OwnedModule help(LoadLibraryA("dbghelp.dll"));
    ASSERT_TRUE(help);
    EXPECT_EQ(GetProcAddress(help.Get(), "SymInitialize"), nullptr) << "the one beside the executable";
}

}  // namespace
