#ifndef ZOPROTECTOR_STATUS_H
#define ZOPROTECTOR_STATUS_H

/* The status codes that the driver SDK (every ZoProtector_ function) returns.
 *
 * A status is a 32-bit HRESULT-style number: 0 is success, a negative value is failure. Where a function works on the
 * driver's service, its registry entries or files, a Win32 error that has no code of its own here comes as
 * ZOP_STATUS_FROM_WIN32(error), that is 0x80070000 or'ed with the low 16 bits of the error. A command that the driver
 * fails with such an error gives ZOP_E_FAILED instead. */

#include <stdint.h>

#define ZOP_OK ((int32_t)0)

/* The library is not initialised: there is no handle to the driver. */
#define ZOP_E_NOT_INITIALIZED ((int32_t)0x80000001)
/* The control device cannot be opened, or the driver, its service or its file is not found. */
#define ZOP_E_DRIVER_NOT_FOUND ((int32_t)0x80000002)
/* The driver's major version is not 1, or a statistics field needs a newer layout than the driver has. */
#define ZOP_E_VERSION_MISMATCH ((int32_t)0x80000003)
#define ZOP_E_ACCESS_DENIED ((int32_t)0x80000004)
/* The driver's table is full. */
#define ZOP_E_QUOTA_EXCEEDED ((int32_t)0x80000005)
/* The driver has this rule already. */
#define ZOP_E_ALREADY_EXISTS ((int32_t)0x80000006)
/* The driver has no such rule, or knows no such process. */
#define ZOP_E_NOT_FOUND ((int32_t)0x80000007)
/* A bad argument, or a name that cannot be converted or does not fit its field. */
#define ZOP_E_INVALID_ARG ((int32_t)0x80000008)
/* Any other failure. */
#define ZOP_E_FAILED ((int32_t)0x80000009)

/* The standard code, which ZoProtector_GetMasterEnabled alone returns for a null pointer. */
#define ZOP_E_STANDARD_INVALID_ARG ((int32_t)0x80070057)

#define ZOP_STATUS_FROM_WIN32(error) ((int32_t)(0x80070000u | ((uint32_t)(error) & 0xFFFFu)))

#endif
