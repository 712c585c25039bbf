// The fusion stages chained on one thread, on the context's own buffers, for
// three pre-registered frames: properties that follow exactly from the
// tables.
#include <gtest/gtest.h>
#include <string.h>

#include <vector>

#include "unit/test_support.h"

namespace {

struct Planes {
    int w, h;
    std::vector<uint8_t> luma[3], chroma[3], mask[3], out_luma, out_chroma;
    Planes(int w_, int h_) : w(w_), h(h_), out_luma((size_t)w * h), out_chroma((size_t)w * h / 2) {
        for (int f = 0; f < 3; ++f) {
            luma[f].assign((size_t)w * h, 0);
            // Readable slack past the chroma plane for the paired-row copy.
            chroma[f].assign((size_t)w * h / 2 + 2 * (size_t)w + 64, 128);
            mask[f].assign((size_t)w * h, 1);
        }
    }
};

// Working geometry as the driver sets it for frames already registered.
void fuse(HdrContext *ctx, Planes &p) {
    set_geometry(ctx, p.w, p.h);
    for (int f = 0; f < 3; ++f) {
        ctx->aligned[f].luma = p.luma[f].data();
        ctx->aligned[f].chroma = p.chroma[f].data();
        memcpy(ctx->motion_mask[f], p.mask[f].data(), p.mask[f].size());
        for (int r = 0; r < p.h; ++r)
            memcpy(ctx->img_gaussian_pyramid[f][0] + r * ctx->row_stride[0], p.luma[f].data() + r * p.w, p.w);
    }
    for (int f = 0; f < 3; ++f) WeightWellExposed(ctx, f);
    WeightNormalize(ctx->w_gaussian_pyramid, p.w, p.h, ctx->row_stride[0]);
    for (int f = 0; f < 3; ++f) {
        WeightGaussPyramid(ctx->w_gaussian_pyramid[f], ctx->inter_buf[f], p.w, p.h, ctx->row_stride, ctx->levels);
        ImageLaplacianPyramid(ctx, ctx->levels, f);
        ImageLaplacianPyramidChroma(ctx, p.w, ctx->levels >> 1, f);
    }
    ImageReconstruct(ctx, ctx->levels);
    ImageReconstructChroma(ctx, ctx->levels >> 1);
    ImageNormalize(ctx, p.out_luma.data(), p.out_chroma.data(), p.w);
}

// Sum of the three normalised weights of a pixel whose frames all read v.
int normalised_sum(int v) {
    int s = 0, sum = 0;
    for (int f = 0; f < 3; ++f) s += well_expose[256 * f + v];
    for (int f = 0; f < 3; ++f) sum += std::min(255, (int)((well_expose[256 * f + v] * weight_int_tab[s] + 128) >> 8));
    return sum;
}

void fill_texture(std::vector<uint8_t> &plane, uint32_t seed, int lo, int hi) {
    for (uint8_t &b : plane) {
        seed = seed * 1664525u + 1013904223u;
        b = (uint8_t)(lo + (seed >> 24) % (uint32_t)(hi - lo + 1));
    }
}

TEST(FusedPicture, ConstantFramesGiveTheWeightedConstant) {
    // 256 x 256 stays even at every level, so no weight-7 edge applies.
    for (int value : {0, 1, 37, 126, 127, 128, 200, 254, 255}) {
        Planes p(256, 256);
        for (int f = 0; f < 3; ++f) {
            memset(p.luma[f].data(), value, p.luma[f].size());
            memset(p.chroma[f].data(), 128 + 30, (size_t)p.w * p.h / 2);
        }
        fuse(shared_context(), p);
        const int expect_luma = (normalised_sum(value) * value + 128) >> 8;
        // Chroma keeps its blend when the luma is unchanged; at luma 0 the
        // gain's divisor is 0 and the colour goes neutral.
        const int expect_chroma = expect_luma == 0 ? 128 : 128 + ((normalised_sum(value) * 30 + 128) >> 8);
        EXPECT_EQ(p.out_luma, std::vector<uint8_t>(p.out_luma.size(), (uint8_t)expect_luma)) << value;
        EXPECT_EQ(p.out_chroma, std::vector<uint8_t>(p.out_chroma.size(), (uint8_t)expect_chroma)) << value;
    }
    EXPECT_EQ((normalised_sum(255) * 255 + 128) >> 8, 255) << "white stays white";
}

TEST(FusedPicture, MaskedOutFramesContributeNothing) {
    std::vector<uint8_t> first_luma, first_chroma;
    for (uint32_t seed : {1u, 2u}) {
        Planes p(320, 200);
        fill_texture(p.luma[AE_IDX], 99, 20, 235);
        fill_texture(p.chroma[AE_IDX], 98, 60, 200);
        // Only AE may contribute: the side frames' content must not matter.
        for (int f : {HE_IDX, LE_IDX}) {
            fill_texture(p.luma[f], seed * 7 + f, 0, 255);
            fill_texture(p.chroma[f], seed * 11 + f, 0, 255);
            memset(p.mask[f].data(), 0, p.mask[f].size());
        }
        fuse(shared_context(), p);
        if (seed == 1) {
            first_luma = p.out_luma, first_chroma = p.out_chroma;
            continue;
        }
        EXPECT_EQ(p.out_luma, first_luma);
        EXPECT_EQ(p.out_chroma, first_chroma);
    }
}

} // namespace
