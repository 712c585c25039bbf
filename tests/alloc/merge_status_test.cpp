// The merge status of each kind of call, read back through hdrGetMergeStatus,
// including the offset search that had to reuse the previous offset.
#include <gtest/gtest.h>
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
            EXPECT_GT(s.weights_us + 1, 0) << c.what;
        } else {
            EXPECT_EQ(std::vector<int>({s.out_x, s.out_y, s.out_width, s.out_height}),
                      std::vector<int>({0, 0, in.width, in.height})) << c.what;
        }
    }
    hdrDestroyContext(ctx);
}

TEST(MergeStatus, OffsetSearchWithoutScratchReusesThePreviousOffset) {
    HdrContext *ctx = nullptr;
    ASSERT_EQ(hdrCreateContext(&ctx), 0);
    TestBracket first = make_bracket(336, 200, shifted(3, 4));
    HdrInput in = first.input();
    ASSERT_EQ(hdrThreeFrameCore(ctx, &in), 0);
    HdrMergeStatus s;
    s.struct_size = sizeof s;
    hdrGetMergeStatus(ctx, &s);
    EXPECT_EQ(s.le_offset_reused + s.he_offset_reused, 0);

    // Each call asks for exactly two blocks (the two scratch blocks, in
    // either order); failing one of them reuses that side's previous offset.
    for (int fail = 0; fail < 2; ++fail) {
        TestBracket b = make_bracket(336, 200, BracketOptions());
        in = b.input();
        alloc_hook_arm(fail);
        ASSERT_EQ(hdrThreeFrameCore(ctx, &in), 0);
        alloc_hook_disarm();
        hdrGetMergeStatus(ctx, &s);
        EXPECT_EQ(s.le_offset_reused + s.he_offset_reused, 1) << fail;
        const HdrOffset kept = s.le_offset_reused ? s.le_offset : s.he_offset;
        const uint32_t err = s.le_offset_reused ? s.le_error_bits : s.he_error_bits;
        EXPECT_EQ(std::vector<int>({kept.x, kept.y, (int)err}),
                  s.le_offset_reused ? std::vector<int>({-5, 4, 0}) : std::vector<int>({3, -2, 0}))
            << fail;
        // The next call (on a fresh copy: the merge wrote over HE) gets its
        // scratch again and finds this bracket's offsets.
        TestBracket fresh = make_bracket(336, 200, BracketOptions());
        in = fresh.input();
        ASSERT_EQ(hdrThreeFrameCore(ctx, &in), 0);
        hdrGetMergeStatus(ctx, &s);
        EXPECT_EQ(s.le_offset_reused + s.he_offset_reused, 0);
        EXPECT_EQ(std::vector<int>({s.he_offset.x, s.he_offset.y, s.le_offset.x, s.le_offset.y}),
                  std::vector<int>({0, 0, 0, 0}));
        TestBracket again = make_bracket(336, 200, shifted(3, 4)); // back to the first offsets
        in = again.input();
        hdrThreeFrameCore(ctx, &in);
    }
    EXPECT_STREQ(hdrGetVersion(), VARO_HDR_VERSION_STRING);
    EXPECT_EQ(hdrGetVersionNumber(), VARO_HDR_VERSION_NUMBER);
    hdrDestroyContext(ctx);
}

} // namespace
