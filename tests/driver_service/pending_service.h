#pragma once

// What the test service program and those who start it agree on.

namespace zotest {

inline constexpr wchar_t kEndPendingService[] = L"Global\\ZoProtectorEndPendingService";

}  // namespace zotest
