#pragma once

// Shared by the commands that change the driver's state: the checks of the arguments and of the
// initialised flag in their fixed order, the caller's name into a record's field, sending, and the log line that
// follows a success. The export adds its command, its fields and its words.

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "channel.h"
#include "diagnostic_log.h"
#include "name_conversion.h"
#include "record_text.h"

namespace zop {

// ZOP_E_INVALID_ARG when one of the names is null or empty, then ZOP_E_NOT_INITIALIZED.
[[nodiscard]] std::int32_t ZopCheckNames(std::initializer_list<const wchar_t*> names) noexcept;

template <typename Record>
[[nodiscard]] std::int32_t ZopConvertPath(const wchar_t* path, Record& record,
                                          ZopTextField<Record, ZOP_PATH_UNITS> field) {
    ZopNtPath ntPath = {};
    const std::int32_t status = ZopConvertWin32PathToNtPath(path, ntPath);
    if (status >= 0) ZopStoreText(record, field, ntPath);
    return status;
}

template <typename Record>
[[nodiscard]] std::int32_t ZopConvertKey(const wchar_t* key, Record& record) {
    ZopNtKeyName ntName = {};
    const std::int32_t status = ZopRegistryKeyToNtName(key, ntName);
    if (status >= 0) ZopStoreText(record, &Record::key, ntName);
    return status;
}

// Checks and converts: all that most path records need before their flags are set.
template <typename Record>
[[nodiscard]] std::int32_t ZopPreparePath(const wchar_t* path, Record& record) {
    const std::int32_t status = ZopCheckNames({path});
    return status < 0 ? status : ZopConvertPath(path, record, &Record::path);
}

// line is written at INFO when the command has succeeded.
template <typename Record, typename... Args>
[[nodiscard]] std::int32_t ZopSendAndLog(std::uint32_t code, const Record& record, zo::FormatString<Args...> line,
                                         Args&&... args) {
    const std::int32_t status = ZopSendIoctl(code, &record, sizeof record, nullptr, 0, nullptr);
    if (status >= 0) ZopLogFormat(kLogInfo, line, std::forward<Args>(args)...);
    return status;
}

// Removes one path from a table.
[[nodiscard]] std::int32_t ZopRemovePath(std::uint32_t code, const wchar_t* path, std::string_view exportName);

// Empties a table; line is the whole line.
[[nodiscard]] std::int32_t ZopClear(std::uint32_t code, std::string_view line);

// Exempts a process, or the processes of a folder, from the file or the registry filter.
[[nodiscard]] std::int32_t ZopAddIgnoreProcess(std::uint32_t code, const wchar_t* path, std::int32_t isFolder,
                                               std::int32_t recursive, std::string_view exportName);

[[nodiscard]] constexpr std::uint8_t ZopFlag(std::int64_t value) noexcept {
    return value != 0 ? 1 : 0;
}

// Some flags reach the driver as the low byte of what the caller gave, so that 2 is sent as 2 and 256 as 0.
[[nodiscard]] constexpr std::uint8_t ZopLowByte(std::uint32_t value) noexcept {
    return static_cast<std::uint8_t>(value & 0xFFu);
}

[[nodiscard]] constexpr std::string_view ZopStateWord(std::int32_t enable) noexcept {
    return enable != 0 ? "Enabled" : "Disabled";
}

// Log lines show such flags in full, as signed numbers.
[[nodiscard]] constexpr std::int32_t ZopSigned(std::uint32_t value) noexcept {
    return static_cast<std::int32_t>(value);
}

}  // namespace zop
