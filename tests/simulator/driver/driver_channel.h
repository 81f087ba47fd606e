#pragma once

// The simulator tests' way to the driver: an open handle, one line for each command, records from text.

#include <cstring>

#include "installed_driver.h"

namespace zotest {

class ChannelTest : public DriverTest {
  protected:
    [[nodiscard]] IoResult Send(std::uint32_t code, const void* in, std::size_t inLength, void* out = nullptr,
                                std::size_t outLength = 0) const {
        return SendControl(driver_.Get(), code, in, static_cast<std::uint32_t>(inLength), out,
                           static_cast<std::uint32_t>(outLength));
    }
    // The Win32 error of a command that gives nothing back.
    template <typename Record>
    [[nodiscard]] std::uint32_t Give(std::uint32_t code, const Record& record) const {
        return Send(code, &record, sizeof(record)).error;
    }
    [[nodiscard]] std::uint32_t Give(std::uint32_t code) const { return Send(code, nullptr, 0).error; }

    zo::OwnedFile driver_ = OpenDriver();
};

// A record that is its first text field, the other bytes zero.
template <typename Record>
[[nodiscard]] Record Named(const std::wstring& text) {
    Record record{};
    memcpy(reinterpret_cast<std::uint8_t*>(&record), text.data(), text.size() * sizeof(wchar_t));
    return record;
}

}  // namespace zotest
