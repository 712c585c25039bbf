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

TEST(Context, BufferSizesMatchTheCapacity) {
    const size_t bitmap_s[6] = {3499008, 936192, 270976, 88128, 34144, 16512};
    size_t buffers = 0;
    for (int l = 0; l < 6; ++l) {
        EXPECT_EQ(pool_bitmap_bytes(l), bitmap_s[l]) << l;
        buffers += 3 * (pool_bitmap_bytes(l) + 80);
    }
    for (int l = 0; l < 11; ++l) buffers += 3 * (pool_weight_bytes(l) + pool_band_bytes(l));
    for (int k = 0; k < 10; ++k) buffers += 3 * pool_chroma_band_bytes(k);
    buffers += 3 * (POOL_GAUSS0_BYTES + POOL_GAUSS1_BYTES + 2 * POOL_FRAME16_BYTES);
    // 429,900,112 in all with a 1208-byte context record (+128 of slack);
    // the record's size depends on the platform's pthread types.
    EXPECT_EQ(buffers, 429900112u - (1208u + 128u));
    EXPECT_EQ(pool_weight_bytes(0), (size_t)3144 * 4160 + 80);
    EXPECT_EQ(pool_chroma_band_bytes(0), (size_t)1584 * 2080 * 4 + 80); // rows from h + 25
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
