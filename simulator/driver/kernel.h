#ifndef ZOSIM_KERNEL_H
#define ZOSIM_KERNEL_H

/* The driver kit, the two interfaces that the driver serves, and the few things that every file of it needs: pool
 * memory and reading an unaligned field. The driver uses no runtime library; memcpy, memset and memcmp are the
 * kernel's. */

#include <ntifs.h>

#include <stddef.h>
#include <stdint.h>

#define ZO_NO_IMPORT /* only the records of the public header are wanted */
#include "driver_records.h"
#include "zoprotector.h"
#include "zoprotector_simulator.h"

/* Zeroed; NULL when there is no memory. */
void* SimAllocate(size_t size);
/* NULL is allowed. */
void SimFree(void* memory);

static inline uint32_t SimMin(uint32_t a, uint32_t b) {
    return a < b ? a : b;
}

#endif
