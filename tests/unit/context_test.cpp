#include <gtest/gtest.h>
#include <stdint.h>

#include "api/pool.h"
#include "varo_hdr.h"

namespace {

// The byte before an aligned block holds its distance from the raw block;
// an already aligned block advances by the full alignment.
TEST(AlignMalloc, DistanceByte) {
    alignas(64) static uint8_t raw[256];
    uint8_t *p = pool_align(raw, 64);
    EXPECT_EQ(p, raw + 64);
    EXPECT_EQ(p[-1], 64);
    EXPECT_EQ(pool_unalign(p), (void *)raw);
    uint8_t *q = pool_align(raw + 63, 64); // the same distance byte, now 1
    EXPECT_EQ(q, raw + 64);
    EXPECT_EQ(q[-1], 1);
    for (size_t alignment : {16u, 256u}) {
        uint8_t *m = (uint8_t *)align_malloc(1000, alignment);
        EXPECT_EQ((uintptr_t)m % alignment, 0u) << alignment;
        align_free(m);
    }
}

} // namespace
