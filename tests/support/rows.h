#pragma once

// A test's table: each row begins with its name, which shows when it fails; the loop over the table names the columns.

#include <initializer_list>
#include <tuple>

namespace zotest {

template <typename... Columns>
using Rows = std::initializer_list<std::tuple<const char*, Columns...>>;

}  // namespace zotest
