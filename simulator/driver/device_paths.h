#ifndef ZOSIM_DEVICE_PATHS_H
#define ZOSIM_DEVICE_PATHS_H

/* Paths as records carry them (\Device\HarddiskVolume3\...) into paths that the driver can open. A kernel opens them as
 * they are; Wine's does not know the device names and needs the drive (\??\C:\...). */

#include "kernel.h"

/* Longer than any record's path: a drive takes the place of a device name. */
#define SIM_PATH_UNITS (ZOP_PATH_UNITS + 8)

typedef struct SimPath {
    UNICODE_STRING text; /* points into units */
    WCHAR units[SIM_PATH_UNITS];
} SimPath;

/* STATUS_INVALID_PARAMETER for an empty or unterminated field; a path of no drive's device is left as it is. */
NTSTATUS SimOpenablePath(const uint16_t* field, SimPath* path);

/* Whether inner is outer or lies below it, ignoring case and separators at the end of either. */
BOOLEAN SimIsSameOrBelow(const UNICODE_STRING* inner, const UNICODE_STRING* outer);

#endif
