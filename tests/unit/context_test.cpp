#include <gtest/gtest.h>
#include <stdint.h>

#include "api/pool.h"
#include "unit/test_support.h"

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

TEST(Context, PointersSitAtTheirGuardOffsets) {
    HdrContext *ctx = shared_context();
    for (int f = 0; f < 3; ++f) {
        for (int l = 0; l < 6; ++l) {
            EXPECT_EQ((uintptr_t)ctx->bitmap_pyramid[f][l].buffer % 64, 0u);
            EXPECT_EQ(ctx->bitmap_pyramid[f][l].buffer_bytes, pool_bitmap_bytes(l) + 16);
        }
        // Offsets of each pointer from its 64-aligned block.
        for (int l = 0; l < 11; ++l) {
            EXPECT_EQ(((uintptr_t)ctx->w_gaussian_pyramid[f][l] - 16) % 64, 0u);
            EXPECT_EQ(((uintptr_t)ctx->img_laplacian_pyramid[f][l].IY - 32) % 64, 0u);
            if (l < 10) { EXPECT_EQ(((uintptr_t)ctx->img_laplacian_pyramid[f][l].IC - 32) % 64, 0u); }
        }
        EXPECT_EQ(ctx->img_laplacian_pyramid[f][10].IC, nullptr);
        EXPECT_EQ(((uintptr_t)ctx->img_gaussian_pyramid[f][0] - 16) % 64, 0u);
        EXPECT_EQ(((uintptr_t)ctx->img_gaussian_pyramid[f][1] - 16) % 64, 0u);
        EXPECT_EQ((uintptr_t)ctx->inter_buf[f] % 64, 0u);
        EXPECT_EQ((uintptr_t)ctx->motion_mask[f] % 64, 0u);
    }
    HdrContext *fresh = nullptr;
    ASSERT_EQ(hdrCreateContext(&fresh), 0);
    EXPECT_EQ(fresh->levels, 0);
    EXPECT_EQ(fresh->input, nullptr);
    EXPECT_EQ(hdrDestroyContext(fresh), 0);
}

} // namespace
