#pragma once

// Text in driver records. Records hold UTF-16 units as uint16_t, so that their layout does not depend on the compiler;
// the platform's text is wchar_t. Only this header converts between them.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zop {

static_assert(sizeof(wchar_t) == sizeof(std::uint16_t), "the platform's wide text is UTF-16");

// A text field of a record.
template <typename Record, std::size_t units>
using ZopTextField = std::uint16_t (Record::*)[units];

// Fills the whole field, so text must be zero after its terminator.
template <typename Record, std::size_t units>
void ZopStoreText(Record& record, ZopTextField<Record, units> field, const wchar_t (&text)[units]) noexcept {
    std::memcpy(&(record.*field), text, sizeof text);
}

}  // namespace zop
