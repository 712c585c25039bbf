// The whole merge: golden outputs with every kernel table, planted offsets,
// determinism of the threaded hand-offs, context reuse, fallbacks, bad
// input, log lines and counters.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "synthetic_bracket.h"
#include "unit/test_support.h"

namespace {

// Return code, output rectangle, offsets and output hashes (the valid output
// sits at the plane start with the input pitch).
enum { RC, OUT_X, OUT_Y, OUT_W, OUT_H, HE_X, HE_Y, LE_X, LE_Y, LUMA, CHROMA };
std::vector<int64_t> merge(HdrContext *ctx, TestBracket b) { // the output overwrites the HE frame
    HdrInput in = b.input();
    const int rc = hdrThreeFrameCore(ctx, &in);
    return {rc, in.out_x, in.out_y, in.out_width, in.out_height, ctx->he_offset.x, ctx->he_offset.y, ctx->le_offset.x,
            ctx->le_offset.y, (int64_t)hash_plane(in.frame[HE_IDX].luma, in.width, in.out_width, in.out_height),
            (int64_t)hash_plane(in.frame[HE_IDX].chroma, in.width, in.out_width, in.out_height / 2)};
}

// The merge's stages in their order on one thread, as a reference for the
// threaded hand-offs.
std::vector<int64_t> merge_one_thread(HdrContext *c, TestBracket b) {
    HdrInput in = b.input();
    const int W = in.width, H = in.height;
    c->input = &in;
    for (int f : {HE_IDX, LE_IDX, AE_IDX}) BitmapCalc(in.frame[f].luma, W, H, &c->bitmap_pyramid[f][0]);
    c->min_err_bits_he = (int32_t)OffsetCalc(&c->bitmap_pyramid[HE_IDX][0], &c->bitmap_pyramid[AE_IDX][0], &c->he_offset);
    c->min_err_bits_le = (int32_t)OffsetCalc(&c->bitmap_pyramid[LE_IDX][0], &c->bitmap_pyramid[AE_IDX][0], &c->le_offset);
    const int h[2] = {c->he_offset.x, c->he_offset.y}, l[2] = {c->le_offset.x, c->le_offset.y};
    int o[3][2]; // crop origin of each frame: the overlap starts there
    for (int a = 0; a < 2; ++a) {
        const int m = std::min(0, std::min(h[a], l[a]));
        o[HE_IDX][a] = h[a] - m, o[LE_IDX][a] = l[a] - m, o[AE_IDX][a] = -m;
    }
    c->width = (W - std::max({o[0][0], o[1][0], o[2][0]})) & ~7;
    c->height = (H - std::max({o[0][1], o[1][1], o[2][1]})) & ~3;
    for (c->levels = 0; (2 << c->levels) <= std::min(c->width, c->height);) ++c->levels;
    for (int lv = 0; lv < c->levels; ++lv)
        c->row_stride[lv] = ((c->width >> lv) + 10) & ~7, c->chroma_stride[lv] = ((c->width >> lv) + 13) & ~7;
    for (int f = 0; f < 3; ++f) {
        c->aligned[f].luma = in.frame[f].luma + o[f][1] * W + o[f][0];
        c->aligned[f].chroma = in.frame[f].chroma + (o[f][1] >> 1) * W + (o[f][0] & ~1);
        memset(c->motion_mask[f], 1, (size_t)W * H);
    }
    const uint32_t threshold = (uint32_t)((float)W * 0.004f * (float)H * 9.0f * 0.0625f);
    c->le_flag = (uint32_t)c->min_err_bits_le > threshold, c->he_flag = (uint32_t)c->min_err_bits_he > threshold;
    if (c->le_flag || c->he_flag) {
        if (MotionMask(c, &in) != 0) return {}; // no vetoed case here
    } else {
        for (int f = 0; f < 3; ++f)
            for (int r = 0; r < H; ++r) memcpy(c->img_gaussian_pyramid[f][0] + r * c->row_stride[0], c->aligned[f].luma + r * W, W);
    }
    for (int f = 0; f < 3; ++f) WeightWellExposed(c, f);
    WeightNormalize(c->w_gaussian_pyramid, c->width, c->height, c->row_stride[0]);
    for (int f = 0; f < 3; ++f) {
        WeightGaussPyramid(&c->w_gaussian_pyramid[f][0], c->inter_buf[f], c->width, c->height, c->row_stride, c->levels);
        ImageLaplacianPyramid(c, c->levels, f);
        ImageLaplacianPyramidChroma(c, W, c->levels >> 1, f);
    }
    ImageReconstruct(c, c->levels);
    ImageReconstructChroma(c, c->levels >> 1);
    ImageNormalize(c, in.frame[HE_IDX].luma, in.frame[HE_IDX].chroma, W);
    return {0, 0, 0, c->width, c->height, h[0], h[1], l[0], l[1],
            (int64_t)hash_plane(in.frame[HE_IDX].luma, W, c->width, c->height),
            (int64_t)hash_plane(in.frame[HE_IDX].chroma, W, c->width, c->height / 2)};
}

#if defined(__arm__) || defined(__aarch64__)
const int kRepeats = 10; // the Arm test builds run under qemu
#else
const int kRepeats = 100;
#endif

BracketOptions shifted(bool moving = false) {
    BracketOptions o;
    o.he_dx = 3, o.he_dy = -2, o.le_dx = -5, o.le_dy = 4;
    o.moving_object = moving;
    return o;
}

// Output of fixed inputs, the same on every target and with every kernel
// table: a change here is a change of the picture.  The planted shifts are
// found, the frames are cropped to their overlap and really fused, and
// repeated threaded merges give the bytes of a one-thread run.
TEST(Merge, GoldenOutputsPlantedOffsetsAndDeterminism) {
    const struct {
        int w, h;
        BracketOptions opt;
        bool ghost_stage; // registration error high enough for the motion mask
        uint64_t luma, chroma;
    } goldens[] = {
        {256, 192, BracketOptions(), false, 0x3bdd6ee834692f27ull, 0xcb883c73a686588aull},
        // Working width 328, 328 >> 2 = 82: the chroma blend runs into the next row.
        {336, 200, shifted(), false, 0x83fd673ec2cfdc85ull, 0x02d8bb603a861dadull},
        {400, 304, shifted(true), true, 0xc133b2c90ec87b21ull, 0x093aa9e25b3ffc76ull},
        // Working width 1992 >> 2 = 498: the blend runs into the next row.
        {2000, 256, shifted(), false, 0x71b0a218445f957aull, 0x27e0dd808ef04a7full},
    };
    HdrContext *ctx = shared_context();
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.mask);
        for (const auto &g : goldens) {
            const std::string what = v.name + " " + std::to_string(g.w) + "x" + std::to_string(g.h);
            const TestBracket b = make_bracket(g.w, g.h, g.opt);
            const std::vector<int64_t> r = merge(ctx, b);
            EXPECT_EQ((uint64_t)r[LUMA], g.luma) << what << std::hex << " 0x" << r[LUMA];
            EXPECT_EQ((uint64_t)r[CHROMA], g.chroma) << what << std::hex << " 0x" << r[CHROMA];
            EXPECT_EQ(std::vector<int64_t>(r.begin(), r.begin() + OUT_W + 1),
                      (std::vector<int64_t>{0, 0, 0, (g.w - std::max(g.opt.he_dx, 0) - std::max(-g.opt.le_dx, 0)) & ~7}))
                << what;
            EXPECT_EQ(std::vector<int64_t>(r.begin() + HE_X, r.begin() + LUMA),
                      (std::vector<int64_t>{g.opt.he_dx, g.opt.he_dy, g.opt.le_dx, g.opt.le_dy})) << what;
            EXPECT_EQ(ctx->le_flag || ctx->he_flag, g.ghost_stage) << what;
            EXPECT_EQ(merge_one_thread(ctx, b), r) << what << ": one thread";
            for (int i = 0; i < (g.w < 2000 ? kRepeats : 2) && !HasFailure(); ++i)
                EXPECT_EQ(merge(ctx, b), r) << what << " run " << i;
        }
    }
}

TEST(Merge, SequentialMergesOfDifferentSizesMatchFreshContexts) {
    for (const auto &s : {std::make_pair(328, 200), std::make_pair(256, 192),
                        std::make_pair(400, 304), std::make_pair(328, 200)}) {
        const TestBracket b = make_bracket(s.first, s.second, shifted(s.first == 400));
        const std::vector<int64_t> reused = merge(shared_context(), b);
        HdrContext *fresh = nullptr;
        ASSERT_EQ(hdrCreateContext(&fresh), 0);
        EXPECT_EQ(merge(fresh, b), reused) << s.first << "x" << s.second;
        hdrDestroyContext(fresh);
    }
}

TEST(Merge, FullCapacityFrames) {
    // The largest frame: 11 levels, every buffer of the pool at its full size.
    const std::vector<int64_t> r = merge(shared_context(), make_bracket(4160, 3120, shifted(true)));
    EXPECT_EQ(shared_context()->levels, 11);
    EXPECT_EQ(std::vector<int64_t>(r.begin(), r.begin() + LUMA), (std::vector<int64_t>{0, 0, 0, 4152, 3112, 3, -2, -5, 4}));
}

TEST(Merge, UnregistrableFramesGiveTheReferenceFrame) {
    // Uniform frames carry no bitmap bits: the search runs into its limit.
    BracketOptions o;
    o.flat = true;
    TestBracket b = make_bracket(200, 120, o);
    for (int f = 0; f < 3; ++f) memset(b.frame[f].chroma(), 60 + 40 * f, 200 * 60);
    HdrInput in = b.input();
    LogCapture log;
    EXPECT_EQ(hdrThreeFrameCore(shared_context(), &in), 0);
    EXPECT_EQ(shared_context()->le_offset.x, -63);
    EXPECT_EQ(std::vector<int>({in.out_x, in.out_y, in.out_width, in.out_height}), std::vector<int>({0, 0, 200, 120}));
    EXPECT_EQ(memcmp(b.frame[HE_IDX].buf.data(), b.frame[AE_IDX].buf.data(), 200 * 120 * 3 / 2), 0);
    EXPECT_TRUE(log.contains("hdr motion over"));
    EXPECT_FALSE(log.contains("varo_hdr: WeightWellExposed LE_IDX end\n")) << "workers stopped";
}

TEST(Merge, BadDescriptorIsRejectedWithoutSideEffects) {
    TestBracket b = make_bracket(64, 48);
    void (*spoil[])(HdrInput &) = {
        [](HdrInput &in) { in.frame[HE_IDX].luma = nullptr; }, [](HdrInput &in) { in.frame[LE_IDX].chroma = nullptr; },
        [](HdrInput &in) { in.frame[AE_IDX].luma = nullptr; }, [](HdrInput &in) { in.width = 0; },
        [](HdrInput &in) { in.width = -64; },                  [](HdrInput &in) { in.width = 63; },
        [](HdrInput &in) { in.height = 47; },                  [](HdrInput &in) { in.height = 0; },
        [](HdrInput &in) { in.width = 4162; },                 [](HdrInput &in) { in.height = 3122; },
    };
    const std::vector<uint8_t> he_before = b.frame[HE_IDX].buf;
    for (size_t i = 0; i < sizeof spoil / sizeof spoil[0]; ++i) {
        HdrInput in = b.input();
        spoil[i](in);
        in.out_x = in.out_y = in.out_width = in.out_height = 7;
        total_time_1 = 12345;
        EXPECT_EQ(hdrThreeFrameCore(shared_context(), &in), VARO_HDR_ERR_INVALID) << i;
        EXPECT_EQ(in.out_x + in.out_y + in.out_width + in.out_height, 28) << i;
        EXPECT_EQ(total_time_1, 12345) << i << ": the call went on";
        EXPECT_EQ(b.frame[HE_IDX].buf, he_before) << i;
    }
    HdrInput in = b.input();
    EXPECT_EQ(hdrThreeFrameCore(nullptr, &in), VARO_HDR_ERR_INVALID);
    EXPECT_EQ(hdrThreeFrameCore(shared_context(), nullptr), VARO_HDR_ERR_INVALID);
    EXPECT_EQ(hdrAbortProcessing(), 0);
}

TEST(Merge, LogLinesCountersAndStdout) {
    TestBracket b = make_bracket(400, 256, shifted());
    HdrInput in = b.input();
    LogCapture log;
    total_time_2 = total_time_3 = total_time_7 = total_time_8 = 99;
    fflush(stdout);
    testing::internal::CaptureStdout();
    const int rc = hdrThreeFrameCore(shared_context(), &in);
    fflush(stdout);
    ASSERT_EQ(rc, 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ImageNormalize LUMA end\n");
    EXPECT_EQ(total_time_2 | total_time_3 | total_time_7 | total_time_8, 0);
    EXPECT_GE(total_time_1, 0);
    EXPECT_GE(total_time_5, total_time_6);

    const HdrContext *ctx = shared_context();
    char he_line[64], le_line[64];
    snprintf(he_line, sizeof he_line, "OffsetCalc 0 end, %d, %d\n", ctx->he_offset.x, ctx->he_offset.y);
    snprintf(le_line, sizeof le_line, "OffsetCalc 2 end, %d, %d\n", ctx->le_offset.x, ctx->le_offset.y);
    for (const char *line : {"BitmapCalc 0 end\n", "BitmapCalc 1 end\n", "BitmapCalc 2 end\n", (const char *)he_line,
                             (const char *)le_line, "normalize weighting done!\n", "varo_hdr: ImageReconstruct end\n",
                             "ImageReconstructChroma Chroma end\n", "varo_hdr: ImageNormalize end\n",
                             "varo_hdr: LE_IDX end\n", "varo_hdr: AE_IDX end\n",
                             "offset HE (8, 0), LE (0, 6), AE (5, 2), size (392, 248), level 7\n"})
        EXPECT_EQ(log.count(line), 1) << line;
    for (const std::string f : {"HE_IDX", "LE_IDX", "AE_IDX"}) {
        for (const std::string stage : {"WeightGaussPyramid", "ImageLaplacianPyramid", "ImageLaplacianPyramidChroma"})
            for (const char *end : {" start\n", " end\n"})
                EXPECT_TRUE(log.contains("varo_hdr: " + stage + " " + f + end)) << stage << f;
        EXPECT_TRUE(log.contains("varo_hdr: WeightWellExposed " + f + " end\n")) << f;
    }
    // Thread 1's last line comes before its last hand-off, so it is in by now.
    EXPECT_EQ(log.count("varo_hdr: HE_IDX end\n"), 1);
    bool mode = false;
    for (const LoggedLine &l : log.lines())
        mode |= l.func == "hdrThreeFrameCore" &&
                l.text.find("hdr_mode: 4000, 1000, 16000, 3000, 12000, 15000, 0, size 400 256") != std::string::npos;
    EXPECT_TRUE(mode) << "hdr_mode line with products and differences";
}

} // namespace
