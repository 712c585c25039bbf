#include <stdint.h>
#include <stdlib.h>

#include "api/pool.h"
#include "varo_hdr.h"

uint8_t *pool_align(void *raw, size_t alignment) {
    uintptr_t addr = (uintptr_t)raw;
    // Distance to the next boundary, a full `alignment` when already aligned,
    // so the byte below the result always belongs to the block.
    size_t d = ((alignment - 1) & ~addr) + 1;
    uint8_t *p = (uint8_t *)raw + d;
    p[-1] = (uint8_t)d; // 256 is stored as 0 and read back as 256
    return p;
}

void *pool_unalign(void *p) {
    size_t d = ((uint8_t *)p)[-1];
    if (d == 0) d = 256;
    return (uint8_t *)p - d;
}

extern "C" VARO_HDR_API void *align_malloc(size_t size, size_t alignment) {
    void *raw = malloc(size + alignment);
    if (!raw) return nullptr;
    return pool_align(raw, alignment);
}

extern "C" VARO_HDR_API void align_free(void *p) {
    if (!p) return;
    free(pool_unalign(p));
}
