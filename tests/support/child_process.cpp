#include "child_process.h"

#include <algorithm>
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
    zo::OwnedKernelObject read, write;
};

HANDLE Inherited(const zo::OwnedKernelObject& handle) {
    SetHandleInformation(handle.Get(), HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    return handle.Get();
}

// Adds what has been written by now. Waiting for the end of the pipe is not an option: a process that the child leaves
// behind can inherit it, such as the one that Wine starts for the first program that needs a desktop.
void ReadWritten(const zo::OwnedKernelObject& pipe, std::string& text) {
    char block[4096];
    DWORD size = 0;
    while (PeekNamedPipe(pipe.Get(), nullptr, 0, nullptr, &size, nullptr) && size > 0 &&
           ReadFile(pipe.Get(), block, std::min<DWORD>(size, sizeof(block)), &size, nullptr))
        text.append(block, size);
}

}  // namespace

ChildResult RunChild(const std::wstring& program, const std::vector<std::wstring>& arguments,
                     const ChildOptions& options) {
    std::wstring line = zo::QuotedArgument(program);
    for (const std::wstring& argument : arguments)
        line += L' ' + zo::QuotedArgument(argument);

    Pipe in, out, err;
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
    for (zo::OwnedKernelObject* end : {&in.read, &in.write, &out.write, &err.write})
        end->Reset();
    if (options.deafReader) out.read.Reset();

    ChildResult result;
    const ULONGLONG start = GetTickCount64();
    for (bool ended = false; !ended;) {
        ended = WaitForSingleObject(process.Get(), 2) == WAIT_OBJECT_0;
        if (!ended && GetTickCount64() - start > 60000) TerminateProcess(process.Get(), 0xDEAD);
        ReadWritten(out.read, result.out);
        ReadWritten(err.read, result.err);
    }
    DWORD exitCode = 0;
    GetExitCodeProcess(process.Get(), &exitCode);
    result.exitCode = exitCode;
    return result;
}

}  // namespace zotest
