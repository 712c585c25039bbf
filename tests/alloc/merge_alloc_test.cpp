#include <gtest/gtest.h>
#include <stdio.h>

#include "alloc/alloc_hook.h"
#include "unit/synthetic.h"
#include "varo_hdr.h"

namespace {

// A merge allocates nothing but the scratch block of each offset search:
// 16 + 8 x width_words x rows of the AE level 0, plus the alignment slack.
TEST(MergeAllocation, OnlyTheTwoOffsetScratchBlocks) {
    HdrContext *ctx = nullptr;
    ASSERT_EQ(hdrCreateContext(&ctx), 0);
    const int sizes[][2] = {{320, 240}, {512, 384}};
    for (const auto &s : sizes) {
        BracketOptions o;
        o.he_dx = 2;
        TestBracket b = make_bracket(s[0], s[1], o);
        HdrInput in = b.input();
        printf("merging %dx%d\n", s[0], s[1]); // stdout's buffer exists before arming
        fflush(stdout);
        alloc_hook_arm();
        int rc = hdrThreeFrameCore(ctx, &in);
        std::vector<AllocRecord> req = alloc_hook_disarm();
        ASSERT_EQ(rc, 0);
        const HdrBitmapLevel &ae0 = ctx->bitmap_pyramid[AE_IDX][0];
        const size_t scratch = 16 + 8 * (size_t)ae0.width_words * ae0.rows + 64;
        ASSERT_EQ(req.size(), 2u) << s[0] << "x" << s[1];
        EXPECT_EQ(req[0].size, scratch);
        EXPECT_EQ(req[1].size, scratch);
        EXPECT_EQ(alloc_hook_live(), 0u) << "scratch blocks freed";
    }
    hdrDestroyContext(ctx);
}

} // namespace
