// The fusion stages chained on one thread, on the context's own buffers, for
// three pre-registered frames: properties that follow exactly from the tables.
#include <gtest/gtest.h>
#include <string.h>

#include <vector>

#include "unit/test_support.h"

namespace {

struct Planes {
    int w, h;
    std::vector<uint8_t> luma[3], chroma[3], mask[3];
    std::vector<uint8_t> out_luma, out_chroma;
    Planes(int w_, int h_) : w(w_), h(h_) {
        for (int f = 0; f < 3; ++f) {
            // Readable slack past the chroma plane for the paired-row copy.
            luma[f].assign((size_t)w * h, 0);
            chroma[f].assign((size_t)w * h / 2 + 2 * (size_t)w + 64, 128);
            mask[f].assign((size_t)w * h, 1);
        }
        out_luma.assign((size_t)w * h, 0);
        out_chroma.assign((size_t)w * h / 2, 0);
    }
};

int floor_log2(int v) {
    int l = 0;
    while ((2 << l) <= v) ++l;
    return l;
}

// Working geometry as the driver sets it for frames already registered.
void fuse(HdrContext *ctx, Planes &p) {
    ctx->width = p.w;
    ctx->height = p.h;
    ctx->levels = floor_log2(std::min(p.w, p.h));
    for (int l = 0; l < ctx->levels; ++l) {
        ctx->row_stride[l] = ((p.w >> l) + 10) & ~7;
        ctx->chroma_stride[l] = ((p.w >> l) + 13) & ~7;
    }
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
        WeightGaussPyramid(&ctx->w_gaussian_pyramid[f][0], ctx->inter_buf[f], p.w, p.h, ctx->row_stride,
                           ctx->levels);
        ImageLaplacianPyramid(ctx, ctx->levels, f);
        ImageLaplacianPyramidChroma(ctx, p.w, ctx->levels >> 1, f);
    }
    ImageReconstruct(ctx, ctx->levels);
    ImageReconstructChroma(ctx, ctx->levels >> 1);
    ImageNormalize(ctx, p.out_luma.data(), p.out_chroma.data(), p.w);
}

// Sum of the three normalised weights of a pixel whose frames all read v.
int normalised_sum(int v) {
    int w[3], s = 0, sum = 0;
    for (int f = 0; f < 3; ++f) s += w[f] = well_expose[256 * f + v];
    for (int f = 0; f < 3; ++f) {
        int n = (int)(((uint32_t)w[f] * weight_int_tab[s] + 128) >> 8);
        sum += n > 255 ? 255 : n;
    }
    return sum;
}

void fill_texture(std::vector<uint8_t> &plane, uint32_t seed, int lo, int hi) {
    for (size_t i = 0; i < plane.size(); ++i) {
        seed = seed * 1664525u + 1013904223u;
        plane[i] = (uint8_t)(lo + (seed >> 24) % (uint32_t)(hi - lo + 1));
    }
}

TEST(FusedPicture, ConstantFramesGiveTheWeightedConstant) {
    // 256 x 256 stays even at every level, so no weight-7 edge applies.
    HdrContext *ctx = shared_context();
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        for (int value : {0, 1, 37, 126, 127, 128, 200, 254, 255}) {
            Planes p(256, 256);
            for (int f = 0; f < 3; ++f) {
                memset(p.luma[f].data(), value, p.luma[f].size());
                memset(p.chroma[f].data(), 128 + 30, (size_t)p.w * p.h / 2);
            }
            fuse(ctx, p);
            const int expect_luma = (normalised_sum(value) * value + 128) >> 8;
            // Chroma keeps its blend when the luma is unchanged; at luma 0 the
            // gain's divisor is 0 and the colour goes neutral.
            const int d = (normalised_sum(value) * 30 + 128) >> 8;
            const int expect_chroma = expect_luma == 0 ? 128 : 128 + d;
            for (size_t i = 0; i < p.out_luma.size(); ++i)
                ASSERT_EQ(p.out_luma[i], expect_luma) << v.name << " v=" << value << " at " << i;
            for (size_t i = 0; i < p.out_chroma.size(); ++i)
                ASSERT_EQ(p.out_chroma[i], expect_chroma) << v.name << " v=" << value << " at " << i;
        }
    }
    EXPECT_EQ((normalised_sum(255) * 255 + 128) >> 8, 255) << "white stays white";
}

TEST(FusedPicture, MaskedOutFramesContributeNothing) {
    HdrContext *ctx = shared_context();
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
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
            fuse(ctx, p);
            if (first_luma.empty()) {
                first_luma = p.out_luma;
                first_chroma = p.out_chroma;
            } else {
                EXPECT_EQ(p.out_luma, first_luma) << v.name;
                EXPECT_EQ(p.out_chroma, first_chroma) << v.name;
            }
        }
    }
}

TEST(FusedPicture, VariantsAgreeOnTexturedBracketsAndOverflowWidths) {
    // 2056 >> 2 = 514 = 16 x 32 + 2: the chroma blend's groups run into the
    // next row; 328 has the same property one level down.
    HdrContext *ctx = shared_context();
    const int sizes[][2] = {{328, 200}, {2056, 64}, {408, 312}};
    for (const auto &s : sizes) {
        std::vector<uint8_t> ref_luma, ref_chroma;
        for (const DspVariant &v : dsp_variants()) {
            ScopedDsp use(v.table);
            Planes p(s[0], s[1]);
            const int lo[3] = {90, 0, 30}, hi[3] = {255, 170, 230};
            for (int f = 0; f < 3; ++f) {
                fill_texture(p.luma[f], 5 + f, lo[f], hi[f]);
                fill_texture(p.chroma[f], 50 + f, 0, 255);
            }
            fuse(ctx, p);
            if (ref_luma.empty()) {
                ref_luma = p.out_luma;
                ref_chroma = p.out_chroma;
                continue;
            }
            EXPECT_EQ(p.out_luma, ref_luma) << v.name << " " << s[0] << "x" << s[1];
            EXPECT_EQ(p.out_chroma, ref_chroma) << v.name << " " << s[0] << "x" << s[1];
        }
    }
}

} // namespace
