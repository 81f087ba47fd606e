#include "bare_channel.h"

#include <sddl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace zobench {

namespace {

void Append(std::uint16_t*& out, const wchar_t* text) {
    const std::size_t units = std::wcslen(text);
    std::memcpy(out, text, units * 2);
    out += units;
}

}  // namespace

BareChannel::BareChannel(const std::filesystem::path& logFile)
    : device_(CreateFileW(L"\\\\.\\ZoProtector", GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                          FILE_ATTRIBUTE_NORMAL, nullptr)),
      log_(CreateFileW(logFile.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                       nullptr)) {
    if (!device_ || !log_) std::abort();
}

bool BareChannel::Send(std::uint32_t code, const void* record, std::uint32_t size) const {
    DWORD returned = 0;
    return DeviceIoControl(device_.Get(), code, const_cast<void*>(record), size, nullptr, 0, &returned, nullptr) !=
           FALSE;
}

bool BareChannel::SendAndLog(std::uint32_t code, const void* record, std::uint32_t size, const char* format,
                             const wchar_t* name, int number) const {
    if (!Send(code, record, size)) return false;
    char narrow[1024] = {};
    if (name != nullptr) WideCharToMultiByte(CP_UTF8, 0, name, -1, narrow, sizeof narrow, nullptr, nullptr);
    SYSTEMTIME t;
    GetLocalTime(&t);
    char line[2048];
    int length = std::snprintf(line, sizeof line, "[%04d-%02d-%02d %02d:%02d:%02d.%03d][INFO ] ", t.wYear, t.wMonth,
                               t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds);
    length += std::snprintf(line + length, sizeof line - static_cast<std::size_t>(length), format, narrow, number);
    DWORD written = 0;
    WriteFile(log_.Get(), line, static_cast<DWORD>(length), &written, nullptr);
    OutputDebugStringA(line);
    return true;
}

std::uint32_t BareChannel::Fetch(std::uint32_t code, const void* in, std::uint32_t inLength, std::uint32_t countWord,
                                 std::uint32_t recordSize, std::uint32_t capacity, void* records,
                                 std::uint32_t* position) const {
    const std::size_t size = 16 + std::size_t{recordSize} * capacity;
    auto* reply = static_cast<std::uint8_t*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size));
    DWORD returned = 0;
    if (!DeviceIoControl(device_.Get(), code, const_cast<void*>(in), inLength, reply, static_cast<DWORD>(size),
                         &returned, nullptr)) {
        std::abort();
    }
    std::uint32_t words[4];
    std::memcpy(words, reply, sizeof words);
    const std::uint32_t count = std::min(words[countWord], capacity);
    std::memcpy(records, reply + 16, std::size_t{recordSize} * count);
    *position = words[2];
    HeapFree(GetProcessHeap(), 0, reply);
    return count;
}

void BareChannel::ConvertPath(const wchar_t* path, std::uint16_t* out) {
    wchar_t full[260];
    wchar_t target[260];
    GetFullPathNameW(path, 260, full, nullptr);
    const wchar_t drive[] = {full[0], L':', L'\0'};
    QueryDosDeviceW(drive, target, 260);
    Append(out, target);
    Append(out, full + 2);
}

void BareChannel::ConvertMachineKey(const wchar_t* key, std::uint16_t* out) {
    Append(out, L"\\REGISTRY\\MACHINE\\");
    Append(out, key + 5);
}

void BareChannel::ConvertUserKey(const wchar_t* key, std::uint16_t* out) {
    zo::OwnedKernelObject token;
    OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Out());
    DWORD size = 0;
    GetTokenInformation(token.Get(), TokenUser, nullptr, 0, &size);
    const zo::HeapBlock user(size);
    GetTokenInformation(token.Get(), TokenUser, user.Get(), size, &size);
    LPWSTR sid = nullptr;
    ConvertSidToStringSidW(user.As<TOKEN_USER>()->User.Sid, &sid);
    const zo::OwnedLocalMemory owner(sid);
    Append(out, L"\\REGISTRY\\USER\\");
    Append(out, sid);
    Append(out, L"\\");
    Append(out, key + 5);
}

}  // namespace zobench
