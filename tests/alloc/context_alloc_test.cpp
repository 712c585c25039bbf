#include <gtest/gtest.h>
#include <stdio.h>

#include "alloc/alloc_hook.h"
#include "api/pool.h"
#include "varo_hdr.h"

namespace {

TEST(ContextAllocation, RequestsInOrderWithTheDesignedSizes) {
    HdrContext *ctx = nullptr;
    alloc_hook_arm();
    ASSERT_EQ(hdrCreateContext(&ctx), 0);
    std::vector<AllocRecord> req = alloc_hook_disarm();
    ASSERT_EQ(req.size(), 127u);
    EXPECT_EQ(req[0].size, sizeof(HdrContext) + 128);
    size_t i = 1, total = 0;
    for (int f = 2; f >= 0; --f)
        for (int l = 5; l >= 0; --l) EXPECT_EQ(req[i++].size, pool_bitmap_bytes(l) + 80) << f << l;
    for (int f = 0; f < 3; ++f)
        for (int l = 0; l < 11; ++l) EXPECT_EQ(req[i++].size, pool_weight_bytes(l));
    for (int f = 0; f < 3; ++f) {
        EXPECT_EQ(req[i++].size, 13079120u);
        EXPECT_EQ(req[i++].size, 3294800u);
    }
    for (int f = 0; f < 3; ++f)
        for (int l = 0; l < 11; ++l) EXPECT_EQ(req[i++].size, pool_band_bytes(l));
    for (int f = 0; f < 3; ++f)
        for (int k = 0; k < 10; ++k) EXPECT_EQ(req[i++].size, pool_chroma_band_bytes(k));
    for (int n = 0; n < 6; ++n) EXPECT_EQ(req[i++].size, 25958480u);
    for (size_t k = 1; k < req.size(); ++k) total += req[k].size;
    EXPECT_EQ(total + 1208 + 128, 429900112u);
    EXPECT_EQ(hdrDestroyContext(ctx), 0);
    EXPECT_EQ(alloc_hook_live(), 0u);
}

struct FailCase {
    int index; // 0-based malloc request that fails
    const char *message;
};

TEST(ContextAllocation, EveryFailurePrintsItsMessageAndReturnsMinusTwo) {
    const FailCase cases[] = {
        {0, "hrd_creat malloc failed 0\n"},
        {1, "hrd_creat malloc failed 3\n"},
        {18, "hrd_creat malloc failed 3\n"},
        {19, "malloc w_gaussian_pyramid [0, 0] failed\n"},
        {28, "malloc w_gaussian_pyramid [0, 9] failed\n"}, // the tenth weight level
        {51, "malloc w_gaussian_pyramid [2, 10] failed\n"},
        {52, "malloc img_gaussian_pyramid 0 failed\n"},
        {55, "malloc img_gaussian_pyramid 1 failed\n"},
        {58, "malloc img_laplacian_pyramid [0, 0, IY] failed\n"},
        {90, "malloc img_laplacian_pyramid [2, 10, IY] failed\n"},
        {91, "malloc img_laplacian_pyramid [0, 0, IC] failed\n"},
        {115, "malloc img_laplacian_pyramid [2, 4, IC] failed\n"},
        {121, "malloc inter_buf failed\n"},
        {124, "hrd_creat malloc failed 9\n"},
        {126, "hrd_creat malloc failed 9\n"},
    };
    for (const FailCase &c : cases) {
        HdrContext *sentinel = (HdrContext *)0x1234;
        HdrContext *ctx = sentinel;
        testing::internal::CaptureStdout();
        alloc_hook_arm(c.index);
        int rc = hdrCreateContext(&ctx);
        std::vector<AllocRecord> req = alloc_hook_disarm();
        fflush(stdout);
        std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(rc, -2) << c.index;
        EXPECT_EQ(out, c.message) << c.index;
        EXPECT_EQ(req.size(), (size_t)c.index + 1) << "no request after the failing one";
        if (c.index == 0) {
            EXPECT_EQ(ctx, sentinel) << "*out untouched when the context block fails";
            EXPECT_EQ(alloc_hook_live(), 0u);
        } else {
            ASSERT_NE(ctx, sentinel);
            // Everything but the record itself was given back; the record
            // holds no pointers and can be destroyed.
            EXPECT_EQ(alloc_hook_live(), 1u) << c.index;
            EXPECT_EQ(ctx->w_gaussian_pyramid[0][0], nullptr);
            EXPECT_EQ(ctx->bitmap_pyramid[2][5].buffer, nullptr);
            EXPECT_EQ(hdrDestroyContext(ctx), 0);
            EXPECT_EQ(alloc_hook_live(), 0u) << c.index;
        }
    }
}

} // namespace
