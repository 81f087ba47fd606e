#pragma once

// One owner for each kind of platform handle. A resource lives in one of these from the line that obtains it; nothing
// is closed by hand. This header is about ownership only; what a handle is for is known to the room that opens it.

// clang-format off
#include <windows.h>
#include <bcrypt.h>
// clang-format on

#include <atomic>
#include <cstddef>
#include <utility>

namespace zo {

// Kind names the handle's type, the value that means "none" and how it is closed. Closing keeps the last error, so that
// a caller can still report why the call before it failed.
template <typename Kind>
class Owned {
  public:
    using Handle = typename Kind::Handle;

    Owned() noexcept = default;
    explicit Owned(Handle handle) noexcept : handle_(handle) {}
    Owned(Owned&& other) noexcept : handle_(other.Release()) {}
    Owned& operator=(Owned&& other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() { Reset(); }

    [[nodiscard]] Handle Get() const noexcept { return handle_; }
    explicit operator bool() const noexcept { return handle_ != Kind::None(); }

    [[nodiscard]] Handle Release() noexcept { return std::exchange(handle_, Kind::None()); }

    void Reset(Handle handle = Kind::None()) noexcept {
        const Handle old = std::exchange(handle_, handle);
        if (old == Kind::None() || old == handle) return;
        const DWORD lastError = GetLastError();
        Kind::Close(old);
        SetLastError(lastError);
    }

    // For calls that hand a handle out through a pointer: closes what is held, then gives the address to fill.
    [[nodiscard]] Handle* Out() noexcept {
        Reset();
        return &handle_;
    }

  private:
    Handle handle_ = Kind::None();
};

// A handle that any thread may read without a lock while another one replaces or closes it. Whoever replaces it takes
// the old value out before closing it, so that no handle is closed twice; a reader that still holds the old value sees
// its next call fail.
template <typename Kind>
class AtomicOwned {
  public:
    using Handle = typename Kind::Handle;

    AtomicOwned() noexcept = default;
    AtomicOwned(const AtomicOwned&) = delete;
    AtomicOwned& operator=(const AtomicOwned&) = delete;
    ~AtomicOwned() { Reset(); }

    // Kind::None() while there is none.
    [[nodiscard]] Handle Get() const noexcept { return handle_.load(); }
    explicit operator bool() const noexcept { return Get() != Kind::None(); }

    void Reset(Owned<Kind> next = Owned<Kind>()) noexcept { Owned<Kind>(handle_.exchange(next.Release())).Reset(); }

  private:
    std::atomic<Handle> handle_{Kind::None()};
};

// CreateFileW: failure is INVALID_HANDLE_VALUE.
struct FileKind {
    using Handle = HANDLE;
    static Handle None() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(Handle handle) noexcept { CloseHandle(handle); }
};

// Tokens, processes, events, mappings: failure is null.
struct KernelObjectKind {
    using Handle = HANDLE;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { CloseHandle(handle); }
};

// FindFirstFileW: failure is INVALID_HANDLE_VALUE, but it is not a kernel handle.
struct FindKind {
    using Handle = HANDLE;
    static Handle None() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(Handle handle) noexcept { FindClose(handle); }
};

struct ServiceKind {
    using Handle = SC_HANDLE;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { CloseServiceHandle(handle); }
};

struct RegistryKeyKind {
    using Handle = HKEY;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { RegCloseKey(handle); }
};

struct ModuleKind {
    using Handle = HMODULE;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { FreeLibrary(handle); }
};

struct LocalMemoryKind {
    using Handle = void*;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { LocalFree(handle); }
};

struct HeapKind {
    using Handle = void*;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { HeapFree(GetProcessHeap(), 0, handle); }
};

struct AlgorithmKind {
    using Handle = BCRYPT_ALG_HANDLE;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { BCryptCloseAlgorithmProvider(handle, 0); }
};

struct CryptoKeyKind {
    using Handle = BCRYPT_KEY_HANDLE;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { BCryptDestroyKey(handle); }
};

struct HashKind {
    using Handle = BCRYPT_HASH_HANDLE;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { BCryptDestroyHash(handle); }
};

// A COM interface, for the one reference that was handed out.
template <typename Interface>
struct InterfaceKind {
    using Handle = Interface*;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { handle->Release(); }
};

template <typename Interface>
using OwnedInterface = Owned<InterfaceKind<Interface>>;
using OwnedFile = Owned<FileKind>;
using OwnedKernelObject = Owned<KernelObjectKind>;
using OwnedFind = Owned<FindKind>;
using OwnedService = Owned<ServiceKind>;
using OwnedRegistryKey = Owned<RegistryKeyKind>;
using OwnedModule = Owned<ModuleKind>;
using OwnedLocalMemory = Owned<LocalMemoryKind>;
using OwnedAlgorithm = Owned<AlgorithmKind>;
using OwnedCryptoKey = Owned<CryptoKeyKind>;
using OwnedHash = Owned<HashKind>;

// A block of the process heap for the platform's variable-size answers. Unlike operator new it reports a failure by
// being empty, which its callers turn into a status.
class HeapBlock {
  public:
    HeapBlock() noexcept = default;
    explicit HeapBlock(std::size_t size) noexcept : block_(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size)) {}

    explicit operator bool() const noexcept { return static_cast<bool>(block_); }
    [[nodiscard]] void* Get() const noexcept { return block_.Get(); }
    template <typename T>
    [[nodiscard]] T* As() const noexcept {
        return static_cast<T*>(block_.Get());
    }

  private:
    Owned<HeapKind> block_;
};

}  // namespace zo
