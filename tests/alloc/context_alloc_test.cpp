#include <gtest/gtest.h>
#include <stdio.h>

#include "alloc/alloc_hook.h"
#include "api/merge_status.h"
#include "api/pool.h"
#include "varo_hdr.h"

namespace {

TEST(ContextAllocation, RequestsInOrderWithTheDesignedSizes) {
    HdrContext *ctx = nullptr;
    alloc_hook_arm();
    ASSERT_EQ(hdrCreateContext(&ctx), 0);
    const std::vector<AllocRecord> req = alloc_hook_disarm();
    std::vector<size_t> want = {sizeof(HdrContextBlock) + 128}; // merge status behind the record
    for (int f = 2; f >= 0; --f)
        for (int l = 5; l >= 0; --l) want.push_back(pool_bitmap_bytes(l) + 80);
    for (int f = 0; f < 3; ++f)
        for (int l = 0; l < 11; ++l) want.push_back(pool_weight_bytes(l));
    for (int f = 0; f < 3; ++f) want.insert(want.end(), {13079120u, 3294800u});
    for (int f = 0; f < 3; ++f)
        for (int l = 0; l < 11; ++l) want.push_back(pool_band_bytes(l));
    for (int f = 0; f < 3; ++f)
        for (int k = 0; k < 10; ++k) want.push_back(pool_chroma_band_bytes(k));
    want.insert(want.end(), 6, 25958480u);
    size_t total = 0;
    for (size_t k = 0; k < req.size(); ++k) total += k ? req[k].size : 0;
    ASSERT_EQ(req.size(), 127u);
    for (size_t k = 0; k < req.size(); ++k) EXPECT_EQ(req[k].size, want[k]) << k;
    // 429,900,112 in all with the 1208-byte record of a 32-bit target (the
    // record's size follows the platform's pthread types).
    EXPECT_EQ(total + 1208 + 128, 429900112u);
    EXPECT_EQ(std::vector<size_t>(want.begin() + 1, want.begin() + 7),
              (std::vector<size_t>{16592, 34224, 88208, 271056, 936272, 3499088})); // AE bitmaps first, levels 5..0
    EXPECT_EQ(hdrDestroyContext(ctx), 0);
    EXPECT_EQ(alloc_hook_live(), 0u);
}

TEST(ContextAllocation, EveryFailurePrintsItsMessageAndReturnsMinusTwo) {
    const std::pair<int, const char *> cases[] = { // 0-based malloc request that fails
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
    for (const auto &c : cases) {
        HdrContext *const sentinel = (HdrContext *)0x1234;
        HdrContext *ctx = sentinel;
        testing::internal::CaptureStdout();
        alloc_hook_arm(c.first);
        const int rc = hdrCreateContext(&ctx);
        const std::vector<AllocRecord> req = alloc_hook_disarm();
        fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.second) << c.first;
        EXPECT_EQ(rc, -2) << c.first;
        EXPECT_EQ(req.size(), (size_t)c.first + 1) << "no request after the failing one";
        if (c.first == 0) {
            EXPECT_EQ(ctx, sentinel) << "*out untouched when the context block fails";
            EXPECT_EQ(alloc_hook_live(), 0u);
            continue;
        }
        // Everything but the record itself was given back; the record holds
        // no pointers and can be destroyed.
        ASSERT_NE(ctx, sentinel);
        EXPECT_EQ(alloc_hook_live(), 1u) << c.first;
        EXPECT_EQ(ctx->w_gaussian_pyramid[0][0], nullptr);
        EXPECT_EQ(ctx->bitmap_pyramid[2][5].buffer, nullptr);
        EXPECT_EQ(hdrDestroyContext(ctx), 0);
        EXPECT_EQ(alloc_hook_live(), 0u) << c.first;
    }
}

} // namespace
