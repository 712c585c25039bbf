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

TEST(Allocation, MergeAllocatesOnlyTheScratchBlocksAndSurvivesEachFailing) {
    HdrContext *ctx = nullptr;
    ASSERT_EQ(hdrCreateContext(&ctx), 0);
    BracketOptions o;
    o.he_dx = 3, o.he_dy = -2, o.le_dx = -5, o.le_dy = 4;
    TestBracket b = make_bracket(336, 200, o);
    printf("merging\n"); // stdout's buffer exists before arming
    fflush(stdout);
    // -1: nothing fails; 0, 1: the first or the second search (LE on the
    // caller, HE on thread 0, in either order) runs without its scratch.
    for (int fail_at : {-1, 0, 1}) {
        HdrInput in = b.input();
        testing::internal::CaptureStdout();
        alloc_hook_arm(fail_at);
        const int rc = hdrThreeFrameCore(ctx, &in);
        const std::vector<AllocRecord> req = alloc_hook_disarm();
        fflush(stdout);
        const std::string out = testing::internal::GetCapturedStdout();
        ASSERT_EQ(rc, 0) << fail_at;
        ASSERT_EQ(req.size(), 2u) << fail_at;
        for (const AllocRecord &r : req) EXPECT_EQ(r.size, scratch_bytes(ctx->bitmap_pyramid[AE_IDX][0]));
        EXPECT_EQ(alloc_hook_live(), 0u) << "scratch blocks freed";
        // The merge goes on without that search (its offset is left as it was).
        EXPECT_EQ(out.rfind("malloc failed\n", 0) == 0, fail_at >= 0) << out;
    }
    HdrOffset off = {41, -17};
    testing::internal::CaptureStdout();
    alloc_hook_arm(0);
    const uint32_t err = OffsetCalc(ctx->bitmap_pyramid[HE_IDX], ctx->bitmap_pyramid[AE_IDX], &off);
    alloc_hook_disarm();
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "malloc failed\n");
    EXPECT_EQ(err, 0u);
    EXPECT_EQ(off.x, 41);
    EXPECT_EQ(off.y, -17);
    hdrDestroyContext(ctx);
}

} // namespace
