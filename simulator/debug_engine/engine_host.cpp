#include "engine_host.h"

#include "format.h"
#include "owned_handles.h"

namespace zoengine {
namespace {

constexpr DWORD kMaxScript = 0x10000;

std::string Environment(const char* name) {
    std::string value(GetEnvironmentVariableA(name, nullptr, 0), '\0');
    if (value.empty()) return value;
    value.resize(GetEnvironmentVariableA(name, value.data(), static_cast<DWORD>(value.size())));
    return value;
}

std::string BesideLibrary(const char* fileName) {
    static const char marker = 0;
    HMODULE self = nullptr;
    char path[MAX_PATH] = "";
    if (!GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            &marker, &self) ||
        GetModuleFileNameA(self, path, MAX_PATH) == 0)
        return {};
    std::string folder = path;
    folder.erase(folder.find_last_of('\\') + 1);
    return folder + fileName;
}

// A script that is not there is the ordinary case: nothing goes wrong then.
std::string ReadScript() {
    std::string path = Environment("ZO_DEBUG_ENGINE_SCRIPT");
    if (path.empty()) path = BesideLibrary("dbgeng.script");
    const zo::OwnedFile file(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                         OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return {};
    std::string text(kMaxScript, '\0');
    DWORD read = 0;
    if (!ReadFile(file.Get(), text.data(), kMaxScript, &read, nullptr)) return {};
    text.resize(read);
    return text;
}

}  // namespace

std::vector<ScriptLine> ScriptFor(std::string_view step, std::string_view dumpName) {
    std::vector<ScriptLine> lines;
    std::string error;
    if (!ParseScript(ReadScript(), lines, error))
        RecordCall(zo::Format("script line not understood: {}", error), E_INVALIDARG);
    return LinesFor(lines, step, dumpName);
}

void RecordCall(std::string_view call, std::int32_t result) {
    const std::string path = Environment("ZO_DEBUG_ENGINE_LOG");
    if (path.empty()) return;
    const zo::OwnedFile file(CreateFileA(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                         OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return;  // a record that cannot be kept must not change what the engine does
    const std::string line = zo::Format("{} = 0x{:08x}\r\n", call, zo::Bits(result));
    DWORD written = 0;
    WriteFile(file.Get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

}  // namespace zoengine
