#ifndef ZOPROTECTOR_HPP
#define ZOPROTECTOR_HPP

/* ZoProtectorLib for C++20: the driver SDK.
 *
 * Each function has the name of its C function without "ZoProtector_", and zoprotector.h says what it does. What needs
 * an open channel is a member of Session, all else is free. docs/cpp.md has the rules of the whole layer.
 *
 *     zoprotector::Session session;
 *     session.AddFileProtectByFolder(L"C:\\Suite", {.filter = L"*.exe"});
 *     for (const auto& entry : session.ListFileProtectRules())
 *         Show(zoprotector::TextOf(zoprotector::RecordOf(entry).path));
 */

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "driver_records.h"
#include "zoprotector.h"
#include "zostatus.hpp"

namespace zoprotector {

using zostatus::ErrorTo;
using zostatus::Status;
using zostatus::Text;

/* ---- Values and options ---- */

/* For a folder: its own files alone, or those of its sub-folders too. For a registry key likewise. */
enum class Depth : std::uint8_t { kThisOnly = 0, kWithChildren = 1 };

enum class StartType : std::uint32_t {
    kBoot = ZOP_START_BOOT,
    kSystem = ZOP_START_SYSTEM,
    kAuto = ZOP_START_AUTO,
    kDemand = ZOP_START_DEMAND,
    kDisabled = ZOP_START_DISABLED,
};

struct Version {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::uint32_t patch = 0;
};

struct FileVersion {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::uint32_t build = 0;
    std::uint32_t revision = 0;
};

struct FolderOptions {
    Depth depth = Depth::kWithChildren;
    Text filter = {}; /* file names; none: every file */
};

/* What the rule protects, and whose actions it concerns. */
struct ScopedOptions {
    bool isFolder = true;
    Depth depth = Depth::kWithChildren;
    Text filter = {};
    bool scopeIsFolder = false;
    Depth scopeDepth = Depth::kThisOnly;
    bool exclusive = false;
};

struct ProcessOptions {
    bool isFolder = false;
    Depth depth = Depth::kThisOnly;
};

struct InstallOptions {
    Text sourcePath = {}; /* none: ZoProtectorDriver.sys beside this program */
    StartType startType = StartType::kDemand;
    Text altitude = {}; /* none: "385100" */
    bool allowUnload = false;
};

struct CopyOptions {
    bool option1 = false;
    bool option2 = false;
};

struct Copied {
    std::uint32_t files = 0;
    std::uint32_t directories = 0;
    std::uint32_t skipped = 0;
};

struct Upgraded {
    bool replaced = false; /* false: the file in place was not older */
    bool byDriver = false;
};

struct SignatureVerdict {
    bool first = false;
    bool second = false;
};

/* 64 hexadecimal digits. */
struct HardwareId {
    std::array<wchar_t, 65> digits{};
    [[nodiscard]] std::wstring_view View() const noexcept { return {digits.data()}; }
};

/* ---- Entries of rule lists, read ---- */

namespace detail {

template <typename Record, typename Entry>
[[nodiscard]] Record RecordIn(const Entry& entry) noexcept {
    static_assert(sizeof(Record) <= sizeof(Entry));
    Record record;
    std::memcpy(&record, entry.bytes, sizeof record);
    return record;
}

}  // namespace detail

/* The rule that an entry of a list holds. Process rules and whitelisted folders have entries of different types. */
[[nodiscard]] inline ZopRuleRecord RecordOf(const ZopProcessRuleEntry& entry) noexcept {
    return detail::RecordIn<ZopRuleRecord>(entry);
}
[[nodiscard]] inline ZopFileRuleRecord RecordOf(const ZopFileRuleEntry& entry) noexcept {
    return detail::RecordIn<ZopFileRuleRecord>(entry);
}
[[nodiscard]] inline ZopRegistryRuleRecord RecordOf(const ZopRegistryRuleEntry& entry) noexcept {
    return detail::RecordIn<ZopRegistryRuleRecord>(entry);
}
[[nodiscard]] inline ZopDllFolderRecord RecordOf(const ZopDllWhitelistEntry& entry) noexcept {
    return detail::RecordIn<ZopDllFolderRecord>(entry);
}

/* The text of a record's field up to its terminator. */
template <std::size_t N>
[[nodiscard]] std::wstring TextOf(const std::uint16_t (&field)[N]) {
    return {field, std::find(field, field + N, std::uint16_t{0})};
}

/* ---- The channel to the driver ---- */

/* Open from its construction to its end. The library has one channel for the process and does not count its users, so
 * have one Session at a time and share it: its functions may be called from any thread. One that was moved from, and
 * one that could not be opened, leaves the channel alone at its end. */
class [[nodiscard]] Session {
  public:
    explicit Session(ErrorTo error = {}) : open_(error.Take(ZoProtector_Initialize(), "ZoProtector_Initialize")) {}
    ~Session() {
        if (open_) ZoProtector_Uninitialize();
    }
    Session(Session&& other) noexcept : open_(std::exchange(other.open_, false)) {}
    Session& operator=(Session&& other) noexcept {
        std::swap(open_, other.open_);
        return *this;
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /* Whether it was opened. */
    explicit operator bool() const noexcept { return open_; }

    /* Ends it early. */
    void Close() noexcept {
        if (std::exchange(open_, false)) ZoProtector_Uninitialize();
    }

    [[nodiscard]] Version GetVersion(ErrorTo error = {}) const {
        Version version;
        error.Take(ZoProtector_GetVersion(&version.major, &version.minor, &version.patch), "ZoProtector_GetVersion");
        return version;
    }
    [[nodiscard]] ZopStatus GetStatus(ErrorTo error = {}) const {
        ZopStatus status{};
        error.Take(ZoProtector_GetStatus(&status), "ZoProtector_GetStatus");
        return status;
    }
    void SetMasterEnabled(bool enable, ErrorTo error = {}) const {
        error.Take(ZoProtector_SetMasterEnabled(enable), "ZoProtector_SetMasterEnabled");
    }
    [[nodiscard]] bool GetMasterEnabled(ErrorTo error = {}) const {
        std::uint32_t enabled = 0;
        error.Take(ZoProtector_GetMasterEnabled(&enabled), "ZoProtector_GetMasterEnabled");
        return enabled != 0;
    }
    /* CRASHES THE SYSTEM on purpose. */
    void ForceCrash(ErrorTo error = {}) const { error.Take(ZoProtector_ForceCrash(), "ZoProtector_ForceCrash"); }

    /* Process rules */
    void AddProcessProtectByPath(Text path, ErrorTo error = {}) const {
        error.Take(ZoProtector_AddProcessProtectByPath(path.Get()), "ZoProtector_AddProcessProtectByPath");
    }
    void AddProcessProtectByFolder(Text folder, Depth depth = Depth::kWithChildren, ErrorTo error = {}) const {
        error.Take(ZoProtector_AddProcessProtectByFolder(folder.Get(), Number(depth)),
                   "ZoProtector_AddProcessProtectByFolder");
    }
    void RemoveProcessProtect(Text path, ErrorTo error = {}) const {
        error.Take(ZoProtector_RemoveProcessProtect(path.Get()), "ZoProtector_RemoveProcessProtect");
    }
    void ClearAllProcessProtect(ErrorTo error = {}) const {
        error.Take(ZoProtector_ClearAllProcessProtect(), "ZoProtector_ClearAllProcessProtect");
    }
    [[nodiscard]] std::vector<ZopProcessRuleEntry> ListProcessProtectRules(ErrorTo error = {}) const {
        return List<ZopProcessRuleEntry>(&ZoProtector_ListProcessProtectRules, "ZoProtector_ListProcessProtectRules",
                                         error);
    }

    /* File rules */
    void AddFileProtectByPath(Text path, ErrorTo error = {}) const {
        error.Take(ZoProtector_AddFileProtectByPath(path.Get()), "ZoProtector_AddFileProtectByPath");
    }
    void AddFileProtectByFolder(Text folder, const FolderOptions& options = {}, ErrorTo error = {}) const {
        error.Take(ZoProtector_AddFileProtectByFolder(folder.Get(), static_cast<std::uint8_t>(options.depth),
                                                      options.filter.Get()),
                   "ZoProtector_AddFileProtectByFolder");
    }
    void AddFileProtectScoped(Text path, Text scope, const ScopedOptions& options = {}, ErrorTo error = {}) const {
        error.Take(ZoProtector_AddFileProtectScoped(path.Get(), options.isFolder, Switch(options.depth),
                                                    options.filter.Get(), scope.Get(), options.scopeIsFolder,
                                                    Number(options.scopeDepth), options.exclusive),
                   "ZoProtector_AddFileProtectScoped");
    }
    void RemoveFileProtect(Text path, ErrorTo error = {}) const {
        error.Take(ZoProtector_RemoveFileProtect(path.Get()), "ZoProtector_RemoveFileProtect");
    }
    void ClearAllFileProtect(ErrorTo error = {}) const {
        error.Take(ZoProtector_ClearAllFileProtect(), "ZoProtector_ClearAllFileProtect");
    }
    void EnableFileProtect(bool enable, ErrorTo error = {}) const {
        error.Take(ZoProtector_EnableFileProtect(enable), "ZoProtector_EnableFileProtect");
    }
    void AddFileIgnoreProcess(Text path, const ProcessOptions& options = {}, ErrorTo error = {}) const {
        error.Take(ZoProtector_AddFileIgnoreProcess(path.Get(), options.isFolder, Switch(options.depth)),
                   "ZoProtector_AddFileIgnoreProcess");
    }
    void RemoveFileIgnoreProcess(Text path, ErrorTo error = {}) const {
        error.Take(ZoProtector_RemoveFileIgnoreProcess(path.Get()), "ZoProtector_RemoveFileIgnoreProcess");
    }
    void ClearAllFileIgnoreProcesses(ErrorTo error = {}) const {
        error.Take(ZoProtector_ClearAllFileIgnoreProcesses(), "ZoProtector_ClearAllFileIgnoreProcesses");
    }
    [[nodiscard]] std::vector<ZopFileRuleEntry> ListFileProtectRules(ErrorTo error = {}) const {
        return List<ZopFileRuleEntry>(&ZoProtector_ListFileProtectRules, "ZoProtector_ListFileProtectRules", error);
    }

    /* Registry rules */
    void AddRegistryProtectByKey(Text key, Depth depth = Depth::kWithChildren, ErrorTo error = {}) const {
        error.Take(ZoProtector_AddRegistryProtectByKey(key.Get(), Number(depth)),
                   "ZoProtector_AddRegistryProtectByKey");
    }
    void RemoveRegistryProtect(Text key, ErrorTo error = {}) const {
        error.Take(ZoProtector_RemoveRegistryProtect(key.Get()), "ZoProtector_RemoveRegistryProtect");
    }
    void ClearAllRegistryProtect(ErrorTo error = {}) const {
        error.Take(ZoProtector_ClearAllRegistryProtect(), "ZoProtector_ClearAllRegistryProtect");
    }
    void AddRegistryIgnoreProcess(Text path, const ProcessOptions& options = {}, ErrorTo error = {}) const {
        error.Take(ZoProtector_AddRegistryIgnoreProcess(path.Get(), options.isFolder, Switch(options.depth)),
                   "ZoProtector_AddRegistryIgnoreProcess");
    }
    void RemoveRegistryIgnoreProcess(Text path, ErrorTo error = {}) const {
        error.Take(ZoProtector_RemoveRegistryIgnoreProcess(path.Get()), "ZoProtector_RemoveRegistryIgnoreProcess");
    }
    void ClearAllRegistryIgnoreProcesses(ErrorTo error = {}) const {
        error.Take(ZoProtector_ClearAllRegistryIgnoreProcesses(), "ZoProtector_ClearAllRegistryIgnoreProcesses");
    }
    [[nodiscard]] std::vector<ZopRegistryRuleEntry> ListRegistryProtectRules(ErrorTo error = {}) const {
        return List<ZopRegistryRuleEntry>(&ZoProtector_ListRegistryProtectRules, "ZoProtector_ListRegistryProtectRules",
                                          error);
    }

    /* Signatures and the DLL load filter */
    void SetSignaturePolicy(const ZopSignaturePolicy& policy, ErrorTo error = {}) const {
        error.Take(ZoProtector_SetSignaturePolicy(&policy), "ZoProtector_SetSignaturePolicy");
    }
    [[nodiscard]] ZopSignaturePolicy GetSignaturePolicy(ErrorTo error = {}) const {
        ZopSignaturePolicy policy{};
        error.Take(ZoProtector_GetSignaturePolicy(&policy), "ZoProtector_GetSignaturePolicy");
        return policy;
    }
    [[nodiscard]] SignatureVerdict QueryPidSignature(std::uint32_t pid, ErrorTo error = {}) const {
        return Verdict(&ZoProtector_QueryPidSignature, "ZoProtector_QueryPidSignature", pid, error);
    }
    SignatureVerdict RefreshPidSignature(std::uint32_t pid, ErrorTo error = {}) const {
        return Verdict(&ZoProtector_RefreshPidSignature, "ZoProtector_RefreshPidSignature", pid, error);
    }
    void AddSignatureOverride(std::uint32_t pid, ErrorTo error = {}) const {
        error.Take(ZoProtector_AddSignatureOverride(pid), "ZoProtector_AddSignatureOverride");
    }
    void RemoveSignatureOverride(std::uint32_t pid, ErrorTo error = {}) const {
        error.Take(ZoProtector_RemoveSignatureOverride(pid), "ZoProtector_RemoveSignatureOverride");
    }
    void ClearAllSignatureOverrides(ErrorTo error = {}) const {
        error.Take(ZoProtector_ClearAllSignatureOverrides(), "ZoProtector_ClearAllSignatureOverrides");
    }
    void EnableDllLoadFilter(bool enable, ErrorTo error = {}) const {
        error.Take(ZoProtector_EnableDllLoadFilter(enable), "ZoProtector_EnableDllLoadFilter");
    }
    void AddDllWhitelistFolder(Text folder, Depth depth = Depth::kWithChildren, ErrorTo error = {}) const {
        error.Take(ZoProtector_AddDllWhitelistFolder(folder.Get(), Number(depth)), "ZoProtector_AddDllWhitelistFolder");
    }
    void RemoveDllWhitelistFolder(Text folder, ErrorTo error = {}) const {
        error.Take(ZoProtector_RemoveDllWhitelistFolder(folder.Get()), "ZoProtector_RemoveDllWhitelistFolder");
    }
    void ClearAllDllWhitelist(ErrorTo error = {}) const {
        error.Take(ZoProtector_ClearAllDllWhitelist(), "ZoProtector_ClearAllDllWhitelist");
    }
    [[nodiscard]] std::vector<ZopDllWhitelistEntry> ListDllWhitelistRules(ErrorTo error = {}) const {
        return List<ZopDllWhitelistEntry>(&ZoProtector_ListDllWhitelistRules, "ZoProtector_ListDllWhitelistRules",
                                          error);
    }

    /* Counters; events have readers of their own, below */
    [[nodiscard]] ZopStats GetStats(ErrorTo error = {}) const {
        ZopStats stats{};
        error.Take(ZoProtector_GetStats(&stats), "ZoProtector_GetStats");
        return stats;
    }
    [[nodiscard]] std::uint32_t GetUnsignedBypassAttempts(ErrorTo error = {}) const {
        std::uint32_t attempts = 0;
        error.Take(ZoProtector_GetUnsignedBypassAttempts(&attempts), "ZoProtector_GetUnsignedBypassAttempts");
        return attempts;
    }

    /* What the driver does with files. The counts are filled as far as the driver tells, also on failure. */
    Copied CopyDirectory(Text source, Text destination, const CopyOptions& options = {}, ErrorTo error = {}) const {
        Copied copied;
        error.Take(ZoProtector_CopyDirectory(source.Get(), destination.Get(), options.option1, options.option2,
                                             &copied.files, &copied.directories, &copied.skipped),
                   "ZoProtector_CopyDirectory");
        return copied;
    }
    void AddDriverSelfProtect(ErrorTo error = {}) const {
        error.Take(ZoProtector_AddDriverSelfProtect(), "ZoProtector_AddDriverSelfProtect");
    }

  private:
    static std::uint32_t Number(Depth depth) noexcept { return static_cast<std::uint32_t>(depth); }
    static std::int32_t Switch(Depth depth) noexcept { return static_cast<std::int32_t>(depth); }

    static SignatureVerdict Verdict(ZoProtector_QueryPidSignatureFn ask, const char* what, std::uint32_t pid,
                                    ErrorTo error) {
        std::uint32_t first = 0;
        std::uint32_t second = 0;
        error.Take(ask(pid, &first, &second), what);
        return {first != 0, second != 0};
    }

    /* The whole table. Most fit into the first room, so that they are asked for once; one that grows meanwhile is asked
     * for again. A driver that holds entries back, or counts more than any table has, gives no list at all. */
    template <typename Entry>
    static std::vector<Entry> List(ZoProtector_ListFileProtectRulesFn list, const char* what, ErrorTo error) {
        constexpr std::uint32_t kFirstRoom = 64;
        constexpr std::uint32_t kMost = 1u << 20;
        std::vector<Entry> entries(kFirstRoom);
        for (;;) {
            const auto room = static_cast<std::uint32_t>(entries.size());
            std::uint32_t count = 0;
            std::uint32_t total = 0;
            if (!error.Take(list(entries.data(), room, &count, &total), what)) return {};
            if (count == total) {
                entries.resize(count);
                return entries;
            }
            if (count < room || total < count || total > kMost) {
                error.Take(ZOP_E_FAILED, what);
                return {};
            }
            entries.resize(std::size_t{total} + kFirstRoom);
        }
    }

    bool open_;
};

/* ---- Events ---- */

/* Fetches what one of the driver's rings saw since the last poll. It cannot be made without a function that is told how
 * many events were lost: overwritten before this poll came. The position, and the room for capacity records, are kept
 * here; one reader for a ring is the sensible number.
 *
 *     zoprotector::EventReader reader(session, [&](std::uint32_t lost) { gaps += lost; });
 *     do {
 *         for (const ZopEventRecord& event : reader.Poll()) Use(event);
 *     } while (reader.MayHaveMore());
 */
template <typename Ring, typename OnLost>
class BasicEventReader {
    static_assert(std::is_invocable_v<OnLost&, std::uint32_t>, "OnLost takes the number of lost events");

  public:
    using Record = typename Ring::Record;

    /* The session only has to be open while the reader polls. */
    BasicEventReader(const Session&, OnLost onLost, std::uint32_t capacity = 256)
        : onLost_(std::move(onLost)), records_(std::max(capacity, 1u)) {}

    /* The records stay valid until the next poll. On failure there are none and the position stays. */
    [[nodiscard]] std::span<const Record> Poll(ErrorTo error = {}) {
        std::uint32_t count = 0;
        std::uint32_t lost = 0;
        std::uint32_t next = 0;
        const auto capacity = static_cast<std::uint32_t>(records_.size());
        mayHaveMore_ = false;
        const std::int32_t status = Ring::Drain(position_, records_.data(), capacity, &count, &lost, &next);
        if (!error.Take(status, Ring::kFunction)) return {};
        if (lost != 0) onLost_(lost); /* when it throws, the next poll gets the same events again */
        if (count != 0 || lost != 0 || next != 0) position_ = next; /* all 0: the reply was too short to say */
        mayHaveMore_ = count == capacity;
        return {records_.data(), count};
    }

    /* The last poll filled all the room, so the next one need not wait. */
    [[nodiscard]] bool MayHaveMore() const noexcept { return mayHaveMore_; }

    /* After the driver was restarted or upgraded, its rings count from 0 again. */
    void StartAgain() noexcept { position_ = 0; }

  private:
    OnLost onLost_;
    std::vector<Record> records_;
    std::uint32_t position_ = 0;
    bool mayHaveMore_ = false;
};

namespace detail {

/* Functions that call the C ones: the address of an imported function is no constant for every compiler. */
struct EventRing {
    using Record = ZopEventRecord;
    static constexpr const char* kFunction = "ZoProtector_DrainEvents";
    static std::int32_t Drain(std::uint32_t from, Record* records, std::uint32_t capacity, std::uint32_t* count,
                              std::uint32_t* lost, std::uint32_t* next) {
        return ZoProtector_DrainEvents(from, records, capacity, count, lost, next);
    }
};

struct RegistryEventRing {
    using Record = ZopRegistryEventRecord;
    static constexpr const char* kFunction = "ZoProtector_DrainRegistryEvents";
    static std::int32_t Drain(std::uint32_t from, Record* records, std::uint32_t capacity, std::uint32_t* count,
                              std::uint32_t* lost, std::uint32_t* next) {
        return ZoProtector_DrainRegistryEvents(from, records, capacity, count, lost, next);
    }
};

}  // namespace detail

template <typename OnLost>
class EventReader : public BasicEventReader<detail::EventRing, OnLost> {
    using BasicEventReader<detail::EventRing, OnLost>::BasicEventReader;
};
template <typename OnLost>
EventReader(const Session&, OnLost, std::uint32_t = 256) -> EventReader<OnLost>;

template <typename OnLost>
class RegistryEventReader : public BasicEventReader<detail::RegistryEventRing, OnLost> {
    using BasicEventReader<detail::RegistryEventRing, OnLost>::BasicEventReader;
};
template <typename OnLost>
RegistryEventReader(const Session&, OnLost, std::uint32_t = 256) -> RegistryEventReader<OnLost>;

/* ---- The driver as a service ---- */

inline void InstallDriver(const InstallOptions& options = {}, ErrorTo error = {}) {
    error.Take(ZoProtector_InstallDriver(options.sourcePath.Get(), static_cast<std::uint32_t>(options.startType),
                                         options.altitude.Get(), options.allowUnload),
               "ZoProtector_InstallDriver");
}
inline void StartDriver(ErrorTo error = {}) {
    error.Take(ZoProtector_StartDriver(), "ZoProtector_StartDriver");
}
inline void StopDriver(ErrorTo error = {}) {
    error.Take(ZoProtector_StopDriver(), "ZoProtector_StopDriver");
}
/* Closes the channel: a Session that is still open gets Status::kNotInitialized from then on. */
inline void UninstallDriver(ErrorTo error = {}) {
    error.Take(ZoProtector_UninstallDriver(), "ZoProtector_UninstallDriver");
}
inline void ChangeDriverStartType(StartType startType, ErrorTo error = {}) {
    error.Take(ZoProtector_ChangeDriverStartType(static_cast<std::uint32_t>(startType)),
               "ZoProtector_ChangeDriverStartType");
}
[[nodiscard]] inline ZoProtectorDriverStatus QueryDriverStatus(ErrorTo error = {}) {
    ZoProtectorDriverStatus status{};
    error.Take(ZoProtector_QueryDriverStatus(&status), "ZoProtector_QueryDriverStatus");
    return status;
}
[[nodiscard]] inline FileVersion GetDriverFileVersion(ErrorTo error = {}) {
    FileVersion version;
    error.Take(ZoProtector_GetDriverFileVersion(&version.major, &version.minor, &version.build, &version.revision),
               "ZoProtector_GetDriverFileVersion");
    return version;
}
inline Upgraded UpgradeDriver(Text newDriverPath, ErrorTo error = {}) {
    std::uint32_t replaced = 0;
    std::uint32_t byDriver = 0;
    error.Take(ZoProtector_UpgradeDriver(newDriverPath.Get(), &replaced, &byDriver), "ZoProtector_UpgradeDriver");
    return {replaced != 0, byDriver != 0};
}

/* ---- Machine identity ---- */

[[nodiscard]] inline HardwareId GetHardwareId(ErrorTo error = {}) {
    HardwareId id;
    error.Take(ZoProtector_GetHardwareId(id.digits.data(), static_cast<std::uint32_t>(id.digits.size())),
               "ZoProtector_GetHardwareId");
    return id;
}
[[nodiscard]] inline std::array<std::uint8_t, 32> GetHardwareIdBytes(ErrorTo error = {}) {
    std::array<std::uint8_t, 32> bytes{};
    std::uint32_t written = 0;
    error.Take(ZoProtector_GetHardwareIdBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &written),
               "ZoProtector_GetHardwareIdBytes");
    return bytes;
}

}  // namespace zoprotector

#endif
