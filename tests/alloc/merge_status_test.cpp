// The merge status of each kind of call, read back through hdrGetMergeStatus,
// including the offset search that had to reuse the previous offset.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include "alloc/alloc_hook.h"
#include "synthetic_bracket.h"
#include "varo_hdr.h"

namespace {

struct Case {
    const char *what;
    int w, h;
    BracketOptions opt;
    void (*spoil)(TestBracket &, HdrInput &);
    int rc, outcome, reason;
};

BracketOptions shifted(int he_dx, int le_dy, bool moving = false, bool flat = false) {
    BracketOptions o;
    o.he_dx = he_dx, o.he_dy = -2, o.le_dx = -5, o.le_dy = le_dy;
    o.moving_object = moving;
    o.flat = flat;
    return o;
}

TEST(MergeStatus, OutcomeReasonOffsetsAndRectangleOfEveryKindOfCall) {
    HdrContext *ctx = nullptr;
    ASSERT_EQ(hdrCreateContext(&ctx), 0);
    HdrMergeStatus s;
    memset(&s, 0xab, sizeof s);
    s.struct_size = 12; // a caller that knows only result and outcome
    ASSERT_EQ(hdrGetMergeStatus(ctx, &s), 0);
    EXPECT_EQ(std::vector<int>({(int)s.struct_size, s.outcome, s.reason}),
              std::vector<int>({12, HDR_OUTCOME_NONE, (int)0xabababab}));
    s.struct_size = 4;
    EXPECT_EQ(hdrGetMergeStatus(ctx, &s), VARO_HDR_ERR_INVALID);
    s.struct_size = sizeof s;
    EXPECT_EQ(hdrGetMergeStatus(nullptr, &s), VARO_HDR_ERR_INVALID);
    EXPECT_EQ(hdrGetMergeStatus(ctx, nullptr), VARO_HDR_ERR_INVALID);

    const Case cases[] = {
        {"merged", 336, 200, shifted(3, 4), nullptr, 0, HDR_OUTCOME_MERGED, HDR_FALLBACK_NONE},
        {"ghost masks", 400, 304, shifted(3, 4, true), nullptr, 0, HDR_OUTCOME_MERGED_GHOST,
         HDR_FALLBACK_NONE},
        {"flat frames", 200, 120, shifted(0, 0, false, true), nullptr, 0, HDR_OUTCOME_FALLBACK,
         HDR_FALLBACK_REGISTRATION},
        {"ghosting", 1280, 720, BracketOptions(),
         [](TestBracket &b, HdrInput &) { // a dark reference, HE nearly white with one block that disagrees
             uint8_t *ae = b.frame[AE_IDX].luma(), *he = b.frame[HE_IDX].luma();
             for (size_t i = 0; i < 1280 * 720; ++i) ae[i] /= 2, he[i] = (uint8_t)(221 + he[i] / 8);
             for (int r = 100; r < 300; ++r)
                 for (int c = 100; c < 500; ++c) he[r * 1280 + c] = (uint8_t)(473 - he[r * 1280 + c]);
         },
         0, HDR_OUTCOME_FALLBACK, HDR_FALLBACK_GHOSTING},
        {"odd width", 64, 48, shifted(0, 0), [](TestBracket &, HdrInput &in) { in.width = 63; },
         VARO_HDR_ERR_INVALID, HDR_OUTCOME_REJECTED, HDR_FALLBACK_NONE},
    };
    for (const Case &c : cases) {
        TestBracket b = make_bracket(c.w, c.h, c.opt);
        HdrInput in = b.input();
        if (c.spoil) c.spoil(b, in);
        ASSERT_EQ(hdrThreeFrameCore(ctx, &in), c.rc) << c.what;
        ASSERT_EQ(hdrGetMergeStatus(ctx, &s), 0);
        EXPECT_EQ(s.result, c.rc) << c.what;
        EXPECT_EQ(s.outcome, c.outcome) << c.what << ": " << hdrOutcomeName(s.outcome);
        EXPECT_EQ(s.reason, c.reason) << c.what << ": " << hdrFallbackReasonName(s.reason);
        if (c.rc != 0) continue;
        EXPECT_EQ(std::vector<int>({s.out_x, s.out_y, s.out_width, s.out_height}),
                  std::vector<int>({in.out_x, in.out_y, in.out_width, in.out_height})) << c.what;
        EXPECT_EQ(std::vector<int>({s.le_offset.x, s.le_offset.y, s.he_offset.x, s.he_offset.y}),
                  std::vector<int>({ctx->le_offset.x, ctx->le_offset.y, ctx->he_offset.x, ctx->he_offset.y}))
            << c.what;
        EXPECT_EQ(s.le_flag || s.he_flag, c.outcome == HDR_OUTCOME_MERGED_GHOST || c.reason == HDR_FALLBACK_GHOSTING)
            << c.what;
        EXPECT_GE(s.total_us, s.registration_us + s.motion_us + s.fusion_us) << c.what;
        if (c.reason == HDR_FALLBACK_NONE) {
            EXPECT_EQ(std::vector<int>({s.he_offset.x, s.he_offset.y, s.le_offset.x, s.le_offset.y}),
                      std::vector<int>({3, -2, -5, 4})) << c.what;
            EXPECT_EQ(s.width, in.out_width) << c.what;
            EXPECT_EQ(s.levels, ctx->levels) << c.what;
            EXPECT_EQ(s.le_error_bits, (uint32_t)ctx->min_err_bits_le) << c.what;
        } else { // the whole reference frame is the output
            EXPECT_EQ(std::vector<int>({s.out_x, s.out_y, s.out_width, s.out_height}),
                      std::vector<int>({0, 0, in.width, in.height})) << c.what;
            EXPECT_EQ(memcmp(b.frame[HE_IDX].buf.data(), b.frame[AE_IDX].buf.data(), c.w * c.h * 3 / 2), 0);
            // Uniform frames carry no bitmap bits: the search ends at its limit.
            if (c.reason == HDR_FALLBACK_REGISTRATION) {
                EXPECT_EQ(s.le_offset.x, -63);
            }
        }
    }
    hdrDestroyContext(ctx);
}

// A merge allocates nothing but the two offset searches' scratch blocks (16 +
// 8 x words x rows of the AE level 0, plus the aligner's 64) and frees them.
// Without its block a search prints "malloc failed", keeps the previous
// merge's offset with error 0, and the merge goes on.
TEST(MergeStatus, OffsetSearchWithoutScratchReusesThePreviousOffset) {
    HdrContext *ctx = nullptr;
    ASSERT_EQ(hdrCreateContext(&ctx), 0);
    HdrMergeStatus s;
    s.struct_size = sizeof s;
    printf("merging\n"); // stdout's buffer exists before arming
    fflush(stdout);
    // -1: nothing fails; 0, 1: the first or the second search (LE on the
    // caller, HE on thread 0, in either order) runs without its scratch.
    for (int fail : {-1, 0, 1}) {
        TestBracket first = make_bracket(336, 200, shifted(3, 4));
        HdrInput in = first.input();
        ASSERT_EQ(hdrThreeFrameCore(ctx, &in), 0);
        TestBracket b = make_bracket(336, 200, BracketOptions()); // registers at (0, 0)
        in = b.input();
        testing::internal::CaptureStdout();
        alloc_hook_arm(fail);
        ASSERT_EQ(hdrThreeFrameCore(ctx, &in), 0);
        const std::vector<AllocRecord> req = alloc_hook_disarm();
        fflush(stdout);
        const std::string out = testing::internal::GetCapturedStdout();
        const HdrBitmapLevel &l0 = ctx->bitmap_pyramid[AE_IDX][0];
        ASSERT_EQ(req.size(), 2u);
        for (const AllocRecord &r : req) EXPECT_EQ(r.size, 16 + 8 * (size_t)l0.width_words * l0.rows + 64);
        EXPECT_EQ(alloc_hook_live(), 0u);
        EXPECT_EQ(out.rfind("malloc failed\n", 0) == 0, fail >= 0) << out;
        hdrGetMergeStatus(ctx, &s);
        EXPECT_EQ(s.le_offset_reused + s.he_offset_reused, fail >= 0 ? 1 : 0) << fail;
        const int he = s.he_offset_reused, le = s.le_offset_reused;
        EXPECT_EQ(std::vector<int>({s.he_offset.x, s.he_offset.y, s.le_offset.x, s.le_offset.y}),
                  std::vector<int>({3 * he, -2 * he, -5 * le, 4 * le})) << fail;
        EXPECT_EQ((he ? s.he_error_bits : 0u) + (le ? s.le_error_bits : 0u), 0u);
    }
    EXPECT_STREQ(hdrGetVersion(), VARO_HDR_VERSION_STRING);
    EXPECT_EQ(hdrGetVersionNumber(), VARO_HDR_VERSION_NUMBER);
    hdrDestroyContext(ctx);
}

} // namespace
