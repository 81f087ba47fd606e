#pragma once

// The simulator tests' way to the driver: an open handle, one line for each command, records from text.

#include <cstring>
#include <initializer_list>

#include "installed_driver.h"

namespace zotest {

class ChannelTest : public DriverTest {
  protected:
    void SetUp() override {
        DriverTest::SetUp();
        driver_ = OpenDriver();
        ASSERT_TRUE(driver_) << "error " << GetLastError();
    }

    [[nodiscard]] IoResult Send(std::uint32_t code, const void* in, std::uint32_t inLength, void* out = nullptr,
                                std::uint32_t outLength = 0) const {
        return SendControl(driver_.Get(), code, in, inLength, out, outLength);
    }
    // The Win32 error of a command that gives nothing back.
    template <typename Record>
    [[nodiscard]] std::uint32_t Give(std::uint32_t code, const Record& record) const {
        return Send(code, &record, sizeof(record)).error;
    }
    [[nodiscard]] std::uint32_t Give(std::uint32_t code) const { return Send(code, nullptr, 0).error; }

    zo::OwnedFile driver_;
};

// A record that is its first text field, the other bytes zero.
template <typename Record>
[[nodiscard]] Record Named(const std::wstring& text) {
    Record record{};
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto unit = static_cast<std::uint16_t>(text[i]);
        memcpy(reinterpret_cast<std::uint8_t*>(&record) + 2 * i, &unit, sizeof(unit));
    }
    return record;
}

}  // namespace zotest
