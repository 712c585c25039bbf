// ImageLaplacianPyramidChroma and ImageReconstructChroma on the shared
// context: designed values, the blend's spill onto the next row, and every
// kernel variant leaving identical bytes in every buffer the stages touch.
#include <gtest/gtest.h>

#include "unit/chroma_stage_util.h"

namespace {

// Host chroma planes of the three frames (pitch `width`, one spare row for
// the paired copy and the 16-byte groups).
struct ChromaPlanes {
    std::vector<uint8_t> plane[3];
    void attach(HdrContext *ctx, int width, int height) {
        for (int f = 0; f < 3; ++f) {
            plane[f].assign((size_t)width * (height / 2 + 2) + 64, 128);
            ctx->aligned[f].chroma = plane[f].data();
        }
    }
    void fill(uint32_t seed) {
        for (auto &p : plane)
            for (auto &b : p) {
                seed ^= seed << 13, seed ^= seed >> 17, seed ^= seed << 5;
                b = (uint8_t)(seed >> 9);
            }
    }
};

int16_t band_at(HdrContext *ctx, int f, int k, int y, int i) {
    return ctx->img_laplacian_pyramid[f][k].IC[y * ctx->chroma_stride[k] + i];
}

// A constant plane: neutral gives zero everywhere; 228 (signed 100) gives
// zero bands except the weight-7 last pair of a level with an odd pair count
// (1992 x 1024: level 2 has 249 pairs), where e = (56 * 100 + 32) >> 6 = 88.
TEST(LaplacianChroma, ConstantPlanes) {
    HdrContext *ctx = shared_context();
    const int W = 1992, H = 1024;
    set_geometry(ctx, W, H);
    const int n = ctx->levels >> 1;
    ASSERT_EQ(n, 5);
    ChromaPlanes planes;
    planes.attach(ctx, W, H);
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        for (int value : {128, 228}) {
            for (auto &p : planes.plane) std::fill(p.begin(), p.end(), (uint8_t)value);
            ImageLaplacianPyramidChroma(ctx, W, n, HE_IDX);
            int bad = 0;
            for (int k = 0; k <= n - 2; ++k) {
                const int pairs = (W >> 1) >> k, rows = (H >> 1) >> k;
                for (int y = 0; y < rows; ++y)
                    for (int i = 0; i < 2 * pairs; ++i) {
                        int want = 0;
                        if (k == n - 2)
                            want = value - 128; // residual
                        else if (value == 228 && (pairs & 1) && i >= 2 * pairs - 2)
                            want = 12;
                        bad += band_at(ctx, HE_IDX, k, y, i) != want;
                    }
            }
            EXPECT_EQ(bad, 0) << v.name << " value " << value;
        }
    }
}

// n < 3: only the signed level-0 plane, in residual slot 0; 0 -> -128, 255 -> 127.
TEST(LaplacianChroma, ResidualOnlyBelowThreeLevels) {
    HdrContext *ctx = shared_context();
    const int W = 40, H = 12;
    set_geometry(ctx, W, H);
    ChromaPlanes planes;
    planes.attach(ctx, W, H);
    for (size_t i = 0; i < planes.plane[LE_IDX].size(); ++i) planes.plane[LE_IDX][i] = (i % 3) ? 255 : 0;
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        for (int n : {1, 2}) {
            int16_t *slot0 = ctx->img_laplacian_pyramid[LE_IDX][0].IC;
            memset(slot0, 0x55, (size_t)(H / 2) * ctx->chroma_stride[0] * 2);
            ImageLaplacianPyramidChroma(ctx, W, n, LE_IDX);
            for (int y = 0; y < H / 2; ++y)
                for (int x = 0; x < ctx->chroma_stride[0]; ++x) {
                    const int16_t want = x < W ? ((y * W + x) % 3 ? 127 : -128) : 0x5555;
                    ASSERT_EQ(slot0[y * ctx->chroma_stride[0] + x], want) << v.name << " n " << n << " at " << x << "," << y;
                }
        }
    }
}

// Every variant leaves the same bytes in the Gaussian buffers, the bands, the
// scratch and the fused result, for sizes with odd pair and row counts and
// widths whose blend spills onto the next row (1992 >> 2 and 2056 >> 2 are
// 2 mod 16), for every chroma level argument.
TEST(ChromaStages, VariantsLeaveIdenticalBuffers) {
    HdrContext *ctx = shared_context();
    struct Case {
        int w, h, n;
    } cases[] = {{1992, 1020, 5}, {2056, 1004, 5}, {3984, 36, 4}, {328, 204, 3},
                 {296, 300, 2},   {200, 132, 1},   {4160, 3120, 5}};
    const std::vector<DspVariant> variants = dsp_variants();
    for (const Case &c : cases) {
        set_geometry(ctx, c.w, c.h);
        ChromaPlanes planes;
        planes.attach(ctx, c.w, c.h);
        const std::vector<Region> regions = chroma_regions(ctx, c.n);
        std::vector<uint64_t> first;
        for (const DspVariant &v : variants) {
            ScopedDsp use(v.table);
            planes.fill(7u + c.w);
            fill_regions(regions, 99u + c.h);
            for (int f : {AE_IDX, LE_IDX, HE_IDX}) ImageLaplacianPyramidChroma(ctx, c.w, c.n, f);
            ImageReconstructChroma(ctx, c.n);
            std::vector<uint64_t> h = hash_regions(regions);
            for (auto &p : planes.plane) h.push_back(hash_plane(p.data(), (int)p.size(), (int)p.size(), 1));
            if (first.empty())
                first = h;
            else
                EXPECT_EQ(h, first) << v.name << " " << c.w << "x" << c.h << " n " << c.n;
        }
    }
}

// Blend with weights 255 / 0 / 0: -128 -> (255 * -128 + 128) >> 8 = -127,
// 127 stays 127; three neutral pyramids stay 0.
TEST(ReconstructChroma, BlendSingleFrameAndNeutral) {
    HdrContext *ctx = shared_context();
    const int W = 64, H = 32;
    set_geometry(ctx, W, H);
    const int pairs = W / 2, rows = H / 2, cs = ctx->chroma_stride[0];
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        for (int f = 0; f < 3; ++f) {
            memset(ctx->w_gaussian_pyramid[f][1], f == 0 ? 255 : 0, (size_t)rows * ctx->row_stride[1]);
            int16_t *b = ctx->img_laplacian_pyramid[f][0].IC;
            for (int y = 0; y < rows; ++y)
                for (int i = 0; i < cs; ++i) b[y * cs + i] = (i & 1) ? 127 : -128;
        }
        ImageReconstructChroma(ctx, 2);
        for (int y = 0; y < rows; ++y)
            for (int i = 0; i < 2 * pairs; ++i)
                ASSERT_EQ(band_at(ctx, HE_IDX, 0, y, i), (i & 1) ? 127 : -127) << v.name;

        for (int f = 0; f < 3; ++f) {
            memset(ctx->w_gaussian_pyramid[f][1], 85, (size_t)rows * ctx->row_stride[1]);
            memset(ctx->img_laplacian_pyramid[f][0].IC, 0, (size_t)rows * cs * 2);
        }
        ImageReconstructChroma(ctx, 2);
        for (int y = 0; y < rows; ++y)
            for (int i = 0; i < 2 * pairs; ++i) ASSERT_EQ(band_at(ctx, HE_IDX, 0, y, i), 0) << v.name;
    }
}

int blend1(int w0, int b0, int w1, int b1, int w2, int b2) {
    return (int16_t)((w0 * b0 + w1 * b1 + w2 * b2 + 128) >> 8);
}

// Working width 1992: chroma level 2 has 249 pairs and pitch 504, the blend
// writes 256 pairs per row, so each row's last step (pairs 252..255, weights
// from the weight row's slack) lands on the next row's first four pairs,
// which that row then blends again.  Level 2 is only read by the collapse
// (n = 4), apart from its pads, so the double blend is visible afterwards.
TEST(ReconstructChroma, BlendSpillOntoNextRow) {
    HdrContext *ctx = shared_context();
    const int W = 1992, H = 1000, k = 2, n = 4;
    set_geometry(ctx, W, H);
    const int pairs = (W >> 1) >> k, rows = (H >> 1) >> k, cs = ctx->chroma_stride[k];
    const int ws = ctx->row_stride[k + 1];
    ASSERT_EQ(pairs, 249);
    ASSERT_EQ(cs, 504);
    ASSERT_EQ(ws, 256);
    std::vector<int16_t> b[3];
    std::vector<uint8_t> w[3];
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        fill_regions(chroma_regions(ctx, n), 1234);
        for (int f = 0; f < 3; ++f) {
            uint8_t *wp = ctx->w_gaussian_pyramid[f][k + 1];
            for (int i = 0; i < (rows + 1) * ws; ++i) wp[i] = (uint8_t)(1 + (i * 37 + f * 11) % 255);
            w[f].assign(wp, wp + (rows + 1) * ws);
            int16_t *bp = ctx->img_laplacian_pyramid[f][k].IC;
            for (int i = 0; i < (rows + 1) * cs; ++i) bp[i] = (int16_t)((i * 7919 + f * 13) % 511 - 255);
            b[f].assign(bp, bp + (rows + 1) * cs);
        }
        ImageReconstructChroma(ctx, n);
        int bad = 0;
        for (int y = 0; y < rows; ++y)
            for (int j = 0; j < 8; ++j) {
                const size_t at = (size_t)(y + 1) * cs + j;
                const int wx = 252 + j / 2, wy = y * ws + wx;
                int want = blend1(w[0][wy], b[0][at], w[1][wy], b[1][at], w[2][wy], b[2][at]);
                if (y + 1 < rows) {
                    const int wz = (y + 1) * ws + j / 2;
                    want = blend1(w[0][wz], want, w[1][wz], b[1][at], w[2][wz], b[2][at]);
                }
                bad += ctx->img_laplacian_pyramid[0][k].IC[at] != want;
            }
        EXPECT_EQ(bad, 0) << v.name;
    }
}

} // namespace
