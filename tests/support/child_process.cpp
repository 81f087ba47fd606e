#include "child_process.h"

#include <list>
#include <stdexcept>
#include <thread>

#include "owned_handles.h"
#include "temp_folder.h"

namespace zotest {
namespace {

// A backslash is only special before a quotation mark, and then it is doubled.
void AppendQuoted(std::wstring& line, const std::wstring& argument) {
    if (!line.empty()) line += L' ';
    line += L'"';
    std::size_t backslashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'"') line.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        line += c;
    }
    line.append(backslashes, L'\\');
    line += L'"';
}

struct Pipe {
    zo::OwnedKernelObject read;
    zo::OwnedKernelObject write;
};

// The child gets one end, ours is kept out of it.
Pipe MakePipe(bool childReads) {
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    Pipe pipe;
    if (!CreatePipe(pipe.read.Out(), pipe.write.Out(), &inheritable, 0)) throw std::runtime_error("no pipe");
    SetHandleInformation(childReads ? pipe.write.Get() : pipe.read.Get(), HANDLE_FLAG_INHERIT, 0);
    return pipe;
}

void ReadAll(HANDLE handle, std::string& text) {
    char block[4096];
    DWORD size = 0;
    while (ReadFile(handle, block, sizeof(block), &size, nullptr) && size != 0)
        text.append(block, size);
}

}  // namespace

ChildResult RunChild(const std::wstring& program, const std::vector<std::wstring>& arguments,
                     const ChildOptions& options) {
    std::wstring line;
    AppendQuoted(line, program);
    for (const std::wstring& argument : arguments)
        AppendQuoted(line, argument);

    Pipe in = MakePipe(true);
    Pipe out = MakePipe(false);
    Pipe err = MakePipe(false);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = in.read.Get();
    startup.hStdOutput = out.write.Get();
    startup.hStdError = err.write.Get();
    PROCESS_INFORMATION information{};
    {
        std::list<ScopedEnvironment> variables;
        for (const auto& [name, value] : options.environment)
            variables.emplace_back(name, value);
        if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                            options.folder.empty() ? nullptr : options.folder.c_str(), &startup, &information)) {
            throw std::runtime_error("CreateProcessW failed, error " + std::to_string(GetLastError()));
        }
    }
    const zo::OwnedKernelObject process(information.hProcess);
    const zo::OwnedKernelObject thread(information.hThread);
    in.read.Reset();
    if (options.deafReader) out.read.Reset();
    out.write.Reset();
    err.write.Reset();

    ChildResult result;
    std::thread readOut([&] {
        if (out.read) ReadAll(out.read.Get(), result.out);
    });
    std::thread readErr([&] { ReadAll(err.read.Get(), result.err); });
    DWORD written = 0;
    if (!options.input.empty()) {
        // A child that does not read its input is no failure of the test.
        WriteFile(in.write.Get(), options.input.data(), static_cast<DWORD>(options.input.size()), &written, nullptr);
    }
    in.write.Reset();
    if (WaitForSingleObject(process.Get(), options.timeoutMs) != WAIT_OBJECT_0) {
        result.timedOut = true;
        TerminateProcess(process.Get(), 0xDEAD);
        WaitForSingleObject(process.Get(), INFINITE);
    }
    readOut.join();
    readErr.join();
    DWORD exitCode = 0;
    GetExitCodeProcess(process.Get(), &exitCode);
    result.exitCode = exitCode;
    return result;
}

}  // namespace zotest
