// The aligned-block layout shared by the context pool and align_malloc: the
// distance from the malloc result is kept in the byte just below the block.
#pragma once
#include <stddef.h>
#include <stdint.h>

uint8_t *pool_align(void *raw, size_t alignment);
void *pool_unalign(void *aligned);

// Sizes of the context's buffers for the fixed capacity, in bytes requested
// from malloc (slack included).
size_t pool_bitmap_bytes(int level);   // s of the level; the request is s + 80
size_t pool_weight_bytes(int level);
size_t pool_band_bytes(int level);
size_t pool_chroma_band_bytes(int level);
enum : size_t {
    POOL_GAUSS0_BYTES = 13079120, // 4160 x 3144 + 80
    POOL_GAUSS1_BYTES = 3294800,  // 2080 x 1584 + 80
    POOL_FRAME16_BYTES = 25958480, // 4160 x 3120 x 2 + 80
};
