#include "kernel.h"

#define SIM_POOL_TAG 'miSZ'

void* SimAllocate(size_t size) {
    void* const memory = ExAllocatePoolWithTag(NonPagedPool, size, SIM_POOL_TAG);
    if (memory != NULL) memset(memory, 0, size);
    return memory;
}

void SimFree(void* memory) {
    if (memory != NULL) ExFreePoolWithTag(memory, SIM_POOL_TAG);
}
