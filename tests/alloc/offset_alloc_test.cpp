// Allocations of a merge and of the offset search: nothing but the search's
// scratch block, 16 + 8 x width_words x rows of the AE level 0 plus the
// aligner's 64, freed again; a failed scratch block leaves the offset alone.
#include <gtest/gtest.h>
#include <stdio.h>

#include "alloc/alloc_hook.h"
#include "synthetic_bracket.h"
#include "varo_hdr.h"

namespace {

size_t scratch_bytes(const HdrBitmapLevel &l0) { return 16 + 8 * (size_t)l0.width_words * l0.rows + 64; }

TEST(Allocation, MergeAndOffsetSearchOnlyAllocateTheirScratchBlocks) {
    HdrContext *ctx = nullptr;
    ASSERT_EQ(hdrCreateContext(&ctx), 0);
    for (const auto &s : {std::make_pair(320, 240), std::make_pair(512, 384)}) {
        BracketOptions o;
        o.he_dx = 2;
        TestBracket b = make_bracket(s.first, s.second, o);
        HdrInput in = b.input();
        printf("merging %dx%d\n", s.first, s.second); // stdout's buffer exists before arming
        fflush(stdout);
        alloc_hook_arm();
        const int rc = hdrThreeFrameCore(ctx, &in);
        const std::vector<AllocRecord> req = alloc_hook_disarm();
        ASSERT_EQ(rc, 0);
        ASSERT_EQ(req.size(), 2u) << s.first << "x" << s.second;
        EXPECT_EQ(req[0].size, scratch_bytes(ctx->bitmap_pyramid[AE_IDX][0]));
        EXPECT_EQ(req[1].size, scratch_bytes(ctx->bitmap_pyramid[AE_IDX][0]));
        EXPECT_EQ(alloc_hook_live(), 0u) << "scratch blocks freed";
    }
    // The search alone, on identical pyramids: offset and error 0.
    HdrOffset off = {7, 7};
    alloc_hook_arm();
    uint32_t err = OffsetCalc(ctx->bitmap_pyramid[AE_IDX], ctx->bitmap_pyramid[AE_IDX], &off);
    std::vector<AllocRecord> req = alloc_hook_disarm();
    ASSERT_EQ(req.size(), 1u);
    EXPECT_EQ(req[0].size, scratch_bytes(ctx->bitmap_pyramid[AE_IDX][0]));
    EXPECT_EQ(alloc_hook_live(), 0u);
    EXPECT_EQ(err, 0u);
    EXPECT_EQ(off.x, 0);
    EXPECT_EQ(off.y, 0);

    off = {41, -17};
    testing::internal::CaptureStdout();
    alloc_hook_arm(0);
    err = OffsetCalc(ctx->bitmap_pyramid[HE_IDX], ctx->bitmap_pyramid[AE_IDX], &off);
    req = alloc_hook_disarm();
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "malloc failed\n");
    EXPECT_EQ(req.size(), 1u);
    EXPECT_EQ(err, 0u);
    EXPECT_EQ(off.x, 41);
    EXPECT_EQ(off.y, -17);
    hdrDestroyContext(ctx);
}

} // namespace
