// The table of statuses against the headers that define them and the exit codes that scripts rely on.

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <map>
#include <string>

#include "status_table.h"
#include "zoprotector.h"
#include "zosigner.h"

namespace {

// clang-format off
#define ZO_STATUS(name, exitCode) {#name, {static_cast<std::uint32_t>(name), exitCode}}
#define ZO_WIN32(name, exitCode) {#name, {static_cast<std::uint32_t>(HRESULT_FROM_WIN32(name)), exitCode}}
const std::map<std::string, std::pair<std::uint32_t, int>> kValues = {
    {"ERROR_INVALID_IMAGE_HASH", {0x80070241, 1}},  // not in every winerror.h
    ZO_STATUS(S_OK, 0), ZO_STATUS(ZOP_E_NOT_INITIALIZED, 9), ZO_STATUS(ZOP_E_DRIVER_NOT_FOUND, 3),
    ZO_STATUS(ZOP_E_VERSION_MISMATCH, 4), ZO_STATUS(ZOP_E_ACCESS_DENIED, 5), ZO_STATUS(ZOP_E_QUOTA_EXCEEDED, 8),
    ZO_STATUS(ZOP_E_ALREADY_EXISTS, 6), ZO_STATUS(ZOP_E_NOT_FOUND, 7), ZO_STATUS(ZOP_E_INVALID_ARG, 2),
    ZO_STATUS(ZOP_E_FAILED, 1), ZO_STATUS(ZOSIG_E_THUMBPRINT_MISMATCH, 33), ZO_STATUS(ZOSIG_E_VERIFY_FAILED, 16),
    ZO_STATUS(ZOSIG_E_BAD_MANIFEST, 32), ZO_STATUS(ZOSIG_E_NO_KEY, 33), ZO_STATUS(ZOSIG_E_TAMPERED, 32),
    ZO_STATUS(E_ABORT, 130), ZO_STATUS(E_FAIL, 1), ZO_STATUS(E_OUTOFMEMORY, 1), ZO_STATUS(E_INVALIDARG, 2),
    ZO_STATUS(E_NOTIMPL, 1), ZO_WIN32(ERROR_RESOURCE_DATA_NOT_FOUND, 1), ZO_WIN32(ERROR_RESOURCE_TYPE_NOT_FOUND, 1),
    ZO_WIN32(ERROR_NOT_SAME_DEVICE, 1), ZO_WIN32(ERROR_INSUFFICIENT_BUFFER, 1), ZO_WIN32(ERROR_FILE_NOT_FOUND, 3),
    ZO_WIN32(ERROR_PATH_NOT_FOUND, 3), ZO_WIN32(ERROR_ACCESS_DENIED, 5), ZO_WIN32(ERROR_SHARING_VIOLATION, 1),
    ZO_WIN32(ERROR_DEPENDENT_SERVICES_RUNNING, 1), ZO_WIN32(ERROR_INVALID_SERVICE_CONTROL, 1),
    ZO_WIN32(ERROR_SERVICE_REQUEST_TIMEOUT, 1), ZO_WIN32(ERROR_SERVICE_DISABLED, 1),
    ZO_WIN32(ERROR_SERVICE_CANNOT_ACCEPT_CTRL, 1), ZO_WIN32(ERROR_DLL_INIT_FAILED, 1),
    ZO_WIN32(ERROR_SERVICE_MARKED_FOR_DELETE, 1), ZO_WIN32(ERROR_GEN_FAILURE, 1),
    ZO_WIN32(ERROR_SERVICE_DEPENDENCY_FAIL, 1), ZO_WIN32(ERROR_DRIVER_BLOCKED, 1), ZO_WIN32(ERROR_CANCELLED, 130),
    ZO_WIN32(ERROR_MOD_NOT_FOUND, 1), ZO_WIN32(ERROR_PROC_NOT_FOUND, 1), ZO_WIN32(ERROR_BAD_EXE_FORMAT, 1),
    ZO_WIN32(ERROR_FILE_CORRUPT, 1)};
// clang-format on

TEST(StatusTable, GivesEachNameItsValueAndExitCode) {
    for (const zoctl::StatusRow& row : zoctl::StatusTable()) {
        ASSERT_TRUE(kValues.contains(row.name)) << row.name;
        EXPECT_EQ(std::pair(row.value, int{row.exitCode}), kValues.at(row.name)) << row.name;
    }
}

}  // namespace
