#pragma once

// For tests that let zoctl itself install the driver; each begins and ends without a service.

#include "zoctl_process.h"

namespace zotest {

class ZoctlServiceTest : public testing::Test {
  protected:
    void SetUp() override { RemoveDriverService(); }
    void TearDown() override { RemoveDriverService(); }

    static void InstallAndStart() {
        ASSERT_EQ(RunZoctl({"driver", "install", File()}).exitCode, 0);
        ASSERT_EQ(Zoctl("driver start").exitCode, 0);
    }

    // A driver file next to the programs.
    static std::string File(const char* name = "ZoProtectorDriver.sys") {
        return zo::Utf8FromWide((ProgramFolder() / name).wstring());
    }
};

}  // namespace zotest
