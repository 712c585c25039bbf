// Merges with every host plane followed by an inaccessible page: the camera
// layout (chroma right after luma, guard after chroma) and separate planes
// (guard after each).  Sizes where a row rounded up to 16 bytes, or a row
// copied from a crop origin, would reach past the last row.
#include <gtest/gtest.h>
#include <string.h>

#include <memory>
#include <string>

#include "unit/guarded.h"
#include "synthetic_bracket.h"
#include "unit/test_support.h"

namespace {

struct GuardCase {
    int w, h;
    int he_dx, he_dy, le_dx, le_dy;
    bool moving;
};

class GuardPages : public ::testing::TestWithParam<GuardCase> {};

uint64_t output_hash(const HdrInput &in) {
    return hash_plane(in.frame[HE_IDX].luma, in.width, in.out_width, in.out_height) ^
           hash_plane(in.frame[HE_IDX].chroma, in.width, in.out_width, in.out_height / 2) * 3;
}

TEST_P(GuardPages, MergeStaysInsideThePlanes) {
    const GuardCase &g = GetParam();
    BracketOptions opt;
    opt.he_dx = g.he_dx, opt.he_dy = g.he_dy, opt.le_dx = g.le_dx, opt.le_dy = g.le_dy;
    opt.moving_object = g.moving;
    TestBracket b = make_bracket(g.w, g.h, opt);
    const size_t luma = (size_t)g.w * g.h, chroma = luma / 2;
    HdrContext *ctx = shared_context();
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.mask);
        TestBracket plain = b; // planes followed by readable slack
        HdrInput want = plain.input();
        ASSERT_EQ(hdrThreeFrameCore(ctx, &want), 0);
        ASSERT_EQ(std::vector<int>({ctx->he_offset.x, ctx->he_offset.y, ctx->le_offset.x, ctx->le_offset.y}),
                  std::vector<int>({g.he_dx, g.he_dy, g.le_dx, g.le_dy})) << "not registered";
        for (bool separate : {false, true}) {
            const std::string what = v.name + (separate ? " separate planes" : " camera layout");
            std::unique_ptr<GuardedBlock> blocks[6];
            HdrInput in = b.input();
            for (int f = 0; f < 3; ++f) {
                if (separate) {
                    blocks[2 * f].reset(new GuardedBlock(luma));
                    blocks[2 * f + 1].reset(new GuardedBlock(chroma));
                    in.frame[f].luma = blocks[2 * f]->data();
                    in.frame[f].chroma = blocks[2 * f + 1]->data();
                } else {
                    blocks[2 * f].reset(new GuardedBlock(luma + chroma));
                    in.frame[f].luma = blocks[2 * f]->data();
                    in.frame[f].chroma = in.frame[f].luma + luma;
                }
                ASSERT_NE(in.frame[f].luma, nullptr);
                ASSERT_NE(in.frame[f].chroma, nullptr);
                memcpy(in.frame[f].luma, b.frame[f].luma(), luma);
                memcpy(in.frame[f].chroma, b.frame[f].chroma(), chroma);
            }
            ASSERT_EQ(hdrThreeFrameCore(ctx, &in), 0) << what;
            EXPECT_EQ(std::vector<int>({in.out_x, in.out_y, in.out_width, in.out_height}),
                      std::vector<int>({want.out_x, want.out_y, want.out_width, want.out_height})) << what;
            EXPECT_EQ(output_hash(in), output_hash(want)) << what;
        }
    }
}

// Widths not a multiple of 16 with heights a multiple of 4 reach the last
// chroma row rounded up; shifted frames put a crop against the bottom and
// right edges (HE here) and copy luma rows from below the top.
INSTANTIATE_TEST_SUITE_P(Sizes, GuardPages,
                         ::testing::Values(GuardCase{296, 200, 0, 0, 0, 0, false},
                                           GuardCase{298, 200, 0, 0, 0, 0, false},
                                           GuardCase{520, 968, 0, 0, 0, 0, false},
                                           GuardCase{336, 198, 3, 4, -5, -2, false},
                                           GuardCase{346, 204, -4, -3, 6, 5, false},
                                           GuardCase{400, 304, 3, -2, -5, 4, true}));

} // namespace
