#pragma once

// The library loaded by hand, so that each load begins with a state of its own.

#define ZO_NO_IMPORT
#include "loaded_library.h"
#include "sdk_fixture.h"

namespace sdktest {

struct LoadedSdk {
    zotest::LoadedLibrary library;
    decltype(&ZoProtector_Initialize) Initialize = ZOTEST_FUNCTION(library, ZoProtector_Initialize);
    decltype(&ZoProtector_Uninitialize) Uninitialize = ZOTEST_FUNCTION(library, ZoProtector_Uninitialize);
    decltype(&ZoProtector_GetVersion) GetVersion = ZOTEST_FUNCTION(library, ZoProtector_GetVersion);
    decltype(&ZoProtector_SetMasterEnabled) SetMasterEnabled = ZOTEST_FUNCTION(library, ZoProtector_SetMasterEnabled);
    decltype(&ZoProtector_GetHardwareId) GetHardwareId = ZOTEST_FUNCTION(library, ZoProtector_GetHardwareId);

    // Writes two lines without needing a channel.
    void WriteLines() const {
        wchar_t text[65];
        GetHardwareId(text, 65);
    }
};

}  // namespace sdktest
