#include "child_process.h"

#include <algorithm>
#include <future>
#include <list>
#include <stdexcept>

#include "command_line.h"
#include "owned_handles.h"
#include "temp_folder.h"

namespace zotest {
namespace {

struct Pipe {
    Pipe() {
        if (!CreatePipe(read.Out(), write.Out(), nullptr, 0)) throw std::runtime_error("no pipe");
    }
    zo::OwnedKernelObject read;
    zo::OwnedKernelObject write;
};

HANDLE Inherited(const zo::OwnedKernelObject& handle) {
    SetHandleInformation(handle.Get(), HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    return handle.Get();
}

// What the child writes until it ends. Not until the pipe is closed: a process that the child leaves behind can inherit
// it, such as the one that Wine starts for the first program that needs a desktop.
std::string ReadUntilEnd(HANDLE pipe, HANDLE process) {
    std::string text;
    char block[4096];
    for (bool ended = false;;) {
        DWORD size = 0;
        if (!PeekNamedPipe(pipe, nullptr, 0, nullptr, &size, nullptr)) return text;
        if (size == 0) {
            if (ended) return text;
            ended = WaitForSingleObject(process, 2) == WAIT_OBJECT_0;  // then one last look
        } else if (ReadFile(pipe, block, std::min<DWORD>(size, sizeof(block)), &size, nullptr)) {
            text.append(block, size);
        }
    }
}

}  // namespace

ChildResult RunChild(const std::wstring& program, const std::vector<std::wstring>& arguments,
                     const ChildOptions& options) {
    std::wstring line = zo::QuotedArgument(program);
    for (const std::wstring& argument : arguments)
        line += L' ' + zo::QuotedArgument(argument);

    Pipe in;
    Pipe out;
    Pipe err;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = Inherited(in.read);
    startup.hStdOutput = Inherited(out.write);
    startup.hStdError = Inherited(err.write);
    PROCESS_INFORMATION information{};
    {
        std::list<ScopedEnvironment> variables;
        for (const auto& [name, value] : options.environment)
            variables.emplace_back(name, value);
        if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                            &information)) {
            throw std::runtime_error("CreateProcessW failed, error " + std::to_string(GetLastError()));
        }
    }
    const zo::OwnedKernelObject process(information.hProcess);
    const zo::OwnedKernelObject thread(information.hThread);
    in.read.Reset();
    in.write.Reset();
    out.write.Reset();
    err.write.Reset();
    if (options.deafReader) out.read.Reset();

    ChildResult result;
    auto readOut = std::async(std::launch::async, ReadUntilEnd, out.read.Get(), process.Get());
    auto readErr = std::async(std::launch::async, ReadUntilEnd, err.read.Get(), process.Get());
    if (WaitForSingleObject(process.Get(), options.timeoutMs) != WAIT_OBJECT_0) {
        result.timedOut = true;
        TerminateProcess(process.Get(), 0xDEAD);
        WaitForSingleObject(process.Get(), INFINITE);
    }
    result.out = readOut.get();
    result.err = readErr.get();
    DWORD exitCode = 0;
    GetExitCodeProcess(process.Get(), &exitCode);
    result.exitCode = exitCode;
    return result;
}

}  // namespace zotest
