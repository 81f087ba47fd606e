#pragma once

// Text in driver records. The records spell a UTF-16 unit as uint16_t, so that their layout is the same for everybody;
// the platform's text is wchar_t. This is the one place where the one becomes the other.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zop {

static_assert(sizeof(wchar_t) == sizeof(std::uint16_t), "the platform's wide text is UTF-16");

// A text field of a record.
template <typename Record, std::size_t units>
using TextField = std::uint16_t (Record::*)[units];

// Fills the whole field, so text must be zero behind its terminator.
template <typename Record, std::size_t units>
void ZopStoreText(Record& record, TextField<Record, units> field, const wchar_t (&text)[units]) noexcept {
    std::memcpy(&(record.*field), text, sizeof text);
}

}  // namespace zop
