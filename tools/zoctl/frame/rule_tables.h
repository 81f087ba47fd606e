#pragma once

// The driver's four rule tables by name. Pure.

#include <array>
#include <cstddef>

namespace zoctl {

enum class Table { kProcess, kFile, kRegistry, kDll };
inline constexpr std::size_t kTables = 4;
inline constexpr std::array<Table, kTables> kAllTables = {Table::kProcess, Table::kFile, Table::kRegistry, Table::kDll};

[[nodiscard]] constexpr std::size_t Index(Table table) {
    return static_cast<std::size_t>(table);
}

[[nodiscard]] constexpr const char* TableName(Table table) {
    constexpr std::array<const char*, kTables> kNames = {"process", "file", "registry", "dll"};
    return kNames[Index(table)];
}

}  // namespace zoctl
