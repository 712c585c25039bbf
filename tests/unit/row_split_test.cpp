// Motion stage and weights shared by rows at 4, 8 and 12 overlap rows (shares from 1 row), crops that make a copied
// row longer than the base pitch and reach past the plane: shares out of order give the single-threaded bytes.
#include <gtest/gtest.h>
#include <string.h>

#include "fusion/weight_rows.h"
#include "ghost/motion_mask.h"
#include "synthetic_bracket.h"
#include "unit/test_support.h"

TEST(RowSplit, SharesOutOfOrderMatchTheSinglePass) {
    HdrContext *ctx = shared_context();
    for (int h : {4, 8, 12}) {
        const int W = 40, H = h + 2, crop[3] = {2 * W + 20, 2 * W, W + 5}; // HE, LE, AE origins
        TestBracket b = make_bracket(W, H);
        HdrInput in = b.input();
        ctx->input = &in;
        set_geometry(ctx, 16, h);
        const size_t pitch = ctx->row_stride[0], base = H * pitch + W;
        for (int f = 0; f < 3; ++f) ctx->aligned[f].luma = in.frame[f].luma + crop[f];
        for (bool ghost : {false, true}) {
            ctx->le_flag = ctx->he_flag = ghost;
            MotionRules rules;
            if (ghost) motion_rules(&rules, ctx, &in);
            std::vector<uint8_t> got[2];
            for (int split = 0; split < 2; ++split) {
                for (int f = 0; f < 3; ++f) {
                    memset(ctx->img_gaussian_pyramid[f][0], 0xa5, base);
                    memset(ctx->motion_mask[f], split ? 0xa5 : 1, W * H);
                    for (int r = 0; !split && !ghost && r < H && crop[f] + r * W < W * H; ++r)
                        memcpy(ctx->img_gaussian_pyramid[f][0] + r * pitch, ctx->aligned[f].luma + r * W,
                               std::min(W, W * H - crop[f] - r * W));
                }
                if (split) {
                    // thirds as the merge's shares: masks, rows, weights
                    const size_t filled = ghost ? 16 * h : 0, bytes = W * H - filled;
                    for (int part : {2, 0, 1}) {
                        motion_mask_fill(ctx, filled + bytes * part / 3, filled + bytes * (part + 1) / 3);
                        const int n = ghost ? h : H, r0 = n * part / 3, r1 = n * (part + 1) / 3;
                        if (ghost) motion_rows(ctx, &in, &rules, r0, r1);
                        for (int f = 0; !ghost && f < 3; ++f) copy_base_rows(ctx, f, r0, r1, part == 2);
                    }
                    for (int part : {1, 2, 0}) weight_rows(ctx, h * part / 3, h * (part + 1) / 3);
                } else {
                    if (ghost) MotionMask(ctx, &in);
                    for (int f = 0; f < 3; ++f) WeightWellExposed(ctx, f);
                    WeightNormalize(ctx->w_gaussian_pyramid, 16, h, ctx->row_stride[0]);
                }
                for (int f = 0; f < 3; ++f) // bases, masks, weights; untouched bytes past them are equal too
                    for (uint8_t *p : {ctx->img_gaussian_pyramid[f][0], ctx->motion_mask[f], ctx->w_gaussian_pyramid[f][0]})
                        got[split].insert(got[split].end(), p, p + W * H + base);
            }
            EXPECT_TRUE(got[0] == got[1]) << h << " rows, ghost " << ghost;
        }
    }
}
