// The whole merge: threads and hand-offs against a one-thread run of the same
// stages, determinism, context reuse, fallbacks, bad input, log lines,
// counters and golden outputs.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "unit/synthetic.h"
#include "unit/test_support.h"

namespace {

// Return code, output rectangle, offsets and output hashes.
std::vector<int64_t> summarize(int rc, const HdrContext *ctx, const HdrInput &in) {
    // The valid output sits at the plane start with the input pitch.
    return {rc, in.out_x, in.out_y, in.out_width, in.out_height, ctx->he_offset.x, ctx->he_offset.y,
            ctx->le_offset.x, ctx->le_offset.y,
            (int64_t)hash_plane(in.frame[HE_IDX].luma, in.width, in.out_width, in.out_height),
            (int64_t)hash_plane(in.frame[HE_IDX].chroma, in.width, in.out_width, in.out_height / 2)};
}
enum { RC, OUT_X, OUT_Y, OUT_W, OUT_H, HE_X, HE_Y, LE_X, LE_Y, LUMA, CHROMA };

std::vector<int64_t> merge(HdrContext *ctx, TestBracket b) { // the output overwrites the HE frame
    HdrInput in = b.input();
    const int rc = hdrThreeFrameCore(ctx, &in);
    return summarize(rc, ctx, in);
}

std::vector<int64_t> copy_reference(const HdrContext *ctx, HdrInput *in) {
    const size_t n = (size_t)in->width * in->height;
    memmove(in->frame[HE_IDX].luma, in->frame[AE_IDX].luma, n);
    memmove(in->frame[HE_IDX].chroma, in->frame[AE_IDX].chroma, n / 2);
    in->out_x = in->out_y = 0;
    in->out_width = in->width;
    in->out_height = in->height;
    return summarize(0, ctx, *in);
}

// The merge's stages in their order on one thread, derived independently
// of the driver (crop origins from the four written-out cases per axis).
std::vector<int64_t> merge_single_threaded(HdrContext *ctx, TestBracket b) {
    HdrInput in = b.input();
    const int W = in.width, H = in.height;
    ctx->input = &in;
    ctx->reg_mode = 0;
    for (int f : {HE_IDX, LE_IDX, AE_IDX}) BitmapCalc(in.frame[f].luma, W, H, &ctx->bitmap_pyramid[f][0]);
    ctx->min_err_bits_he = (int32_t)OffsetCalc(ctx->bitmap_pyramid[HE_IDX], ctx->bitmap_pyramid[AE_IDX], &ctx->he_offset);
    ctx->min_err_bits_le = (int32_t)OffsetCalc(ctx->bitmap_pyramid[LE_IDX], ctx->bitmap_pyramid[AE_IDX], &ctx->le_offset);
    const HdrOffset he = ctx->he_offset, le = ctx->le_offset;
    if (abs(le.x) == 63 || abs(le.y) == 63 || abs(he.x) == 63 || abs(he.y) == 63) return copy_reference(ctx, &in);
    auto origins = [](int h, int l, int out[3]) { // HE, LE, AE
        if (l >= 0 && h >= 1) out[0] = h, out[1] = l, out[2] = 0;
        else if (l >= 0) out[0] = 0, out[1] = l - h, out[2] = -h;
        else if (h >= l) out[0] = h - l, out[1] = 0, out[2] = -l;
        else out[0] = 0, out[1] = l - h, out[2] = -h;
    };
    int ox[3], oy[3];
    origins(he.x, le.x, ox);
    origins(he.y, le.y, oy);
    set_geometry(ctx, (W - *std::max_element(ox, ox + 3)) & ~7, (H - *std::max_element(oy, oy + 3)) & ~3);
    for (int f = 0; f < 3; ++f) {
        ctx->aligned[f].luma = in.frame[f].luma + oy[f] * W + ox[f];
        ctx->aligned[f].chroma = in.frame[f].chroma + (oy[f] >> 1) * W + (ox[f] & ~1);
        memset(ctx->motion_mask[f], 1, (size_t)W * H);
    }
    const uint32_t threshold = (uint32_t)((float)W * 0.004f * (float)H * 9.0f * 0.0625f);
    ctx->le_flag = (uint32_t)ctx->min_err_bits_le > threshold;
    ctx->he_flag = (uint32_t)ctx->min_err_bits_he > threshold;
    if (ctx->le_flag || ctx->he_flag) {
        if (MotionMask(ctx, &in) == 1) return copy_reference(ctx, &in);
    } else {
        for (int f = 0; f < 3; ++f)
            for (int r = 0; r < H; ++r)
                memcpy(ctx->img_gaussian_pyramid[f][0] + r * ctx->row_stride[0], ctx->aligned[f].luma + r * W, W);
    }
    for (int f = 0; f < 3; ++f) WeightWellExposed(ctx, f);
    WeightNormalize(ctx->w_gaussian_pyramid, ctx->width, ctx->height, ctx->row_stride[0]);
    for (int f = 0; f < 3; ++f) {
        WeightGaussPyramid(ctx->w_gaussian_pyramid[f], ctx->inter_buf[f], ctx->width, ctx->height, ctx->row_stride,
                           ctx->levels);
        ImageLaplacianPyramid(ctx, ctx->levels, f);
        ImageLaplacianPyramidChroma(ctx, W, ctx->levels >> 1, f);
    }
    ImageReconstruct(ctx, ctx->levels);
    ImageReconstructChroma(ctx, ctx->levels >> 1);
    ImageNormalize(ctx, in.frame[HE_IDX].luma, in.frame[HE_IDX].chroma, W);
    in.out_x = in.out_y = 0;
    in.out_width = ctx->width;
    in.out_height = ctx->height;
    return summarize(0, ctx, in);
}

#if defined(__arm__) || defined(__aarch64__)
const bool kEmulated = true; // the Arm test builds run under qemu
#else
const bool kEmulated = false;
#endif

BracketOptions shifted(bool moving = false) {
    BracketOptions o;
    o.he_dx = 3, o.he_dy = -2, o.le_dx = -5, o.le_dy = 4;
    o.moving_object = moving;
    return o;
}

TEST(Merge, ThreadedMergeIsDeterministicAndEqualsOneThreadRun) {
    struct Case {
        int w, h;
        BracketOptions opt;
        bool ghost_stage; // registration error high enough for the motion mask
    } cases[] = {
        {256, 192, BracketOptions(), false},
        {336, 200, shifted(), false}, // working width 328, 328 >> 2 = 82: the chroma blend runs into the next row
        {400, 304, shifted(true), true},
    };
    HdrContext *ctx = shared_context();
    for (const Case &c : cases) {
        TestBracket b = make_bracket(c.w, c.h, c.opt);
        const std::string what = std::to_string(c.w) + "x" + std::to_string(c.h);
        const std::vector<int64_t> single = merge_single_threaded(ctx, b);
        // The planted shifts are found and the frames really are fused.
        EXPECT_EQ(single[RC], 0) << what;
        EXPECT_EQ(single[OUT_W], (c.w - std::max(c.opt.he_dx, 0) - std::max(-c.opt.le_dx, 0)) & ~7) << what;
        EXPECT_EQ(std::vector<int64_t>(single.begin() + HE_X, single.begin() + LUMA),
                  (std::vector<int64_t>{c.opt.he_dx, c.opt.he_dy, c.opt.le_dx, c.opt.le_dy})) << what;
        EXPECT_EQ(ctx->le_flag || ctx->he_flag, c.ghost_stage) << what;
        for (int i = 0; i < (kEmulated ? 10 : 100) && !HasFailure(); ++i)
            EXPECT_EQ(merge(ctx, b), single) << what << " run " << i;
    }
}

TEST(Merge, SequentialMergesOfDifferentSizesMatchFreshContexts) {
    const std::pair<int, int> sizes[] = {{328, 200}, {256, 192}, {400, 304}, {328, 200}};
    for (const auto &s : sizes) {
        const TestBracket b = make_bracket(s.first, s.second, shifted(s.first == 400));
        const std::vector<int64_t> reused = merge(shared_context(), b);
        HdrContext *fresh = nullptr;
        ASSERT_EQ(hdrCreateContext(&fresh), 0);
        EXPECT_EQ(merge(fresh, b), reused) << s.first << "x" << s.second;
        hdrDestroyContext(fresh);
    }
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
                             "varo_hdr: LE_IDX end\n", "varo_hdr: AE_IDX end\n"})
        EXPECT_EQ(log.count(line), 1) << line;
    for (const std::string f : {"HE_IDX", "LE_IDX", "AE_IDX"}) {
        for (const std::string stage : {"WeightGaussPyramid", "ImageLaplacianPyramid", "ImageLaplacianPyramidChroma"})
            for (const char *end : {" start\n", " end\n"})
                EXPECT_TRUE(log.contains("varo_hdr: " + stage + " " + f + end)) << stage << f << end;
        EXPECT_TRUE(log.contains("varo_hdr: WeightWellExposed " + f + " end\n")) << f;
    }
    // Thread 1 may still be writing its last line when the merge returns.
    for (int i = 0; i < 200 && !log.contains("varo_hdr: HE_IDX end\n"); ++i) usleep(5000);
    EXPECT_TRUE(log.contains("varo_hdr: HE_IDX end\n"));
    bool mode = false;
    for (const LoggedLine &l : log.lines())
        mode |= l.func == "hdrThreeFrameCore" &&
                l.text.find("hdr_mode: 4000, 1000, 16000, 3000, 12000, 15000, 0, size 400 256") != std::string::npos;
    EXPECT_TRUE(mode) << "hdr_mode line with products and differences";
    EXPECT_TRUE(log.contains("offset HE (8, 0), LE (0, 6), AE (5, 2), size (392, 248), level 7\n"));
}

// Output of fixed inputs, the same on every target and with every kernel
// table: a change here is a change of the picture.
TEST(Merge, GoldenOutputs) {
    struct Golden {
        int w, h;
        BracketOptions opt;
        uint64_t luma, chroma;
    } goldens[] = {
        {256, 192, BracketOptions(), 0x3bdd6ee834692f27ull, 0xcb883c73a686588aull},
        {336, 200, shifted(), 0x83fd673ec2cfdc85ull, 0x02d8bb603a861dadull},
        {400, 304, shifted(true), 0xc133b2c90ec87b21ull, 0x093aa9e25b3ffc76ull},
        {2000, 256, shifted(), 0x71b0a218445f957aull, 0x27e0dd808ef04a7full}, // working width 1992 >> 2 = 498: blend runs into the next row
    };
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        for (const Golden &g : goldens) {
            const std::vector<int64_t> r = merge(shared_context(), make_bracket(g.w, g.h, g.opt));
            EXPECT_EQ((uint64_t)r[LUMA], g.luma) << v.name << " " << g.w << "x" << g.h << std::hex << " 0x" << r[LUMA];
            EXPECT_EQ((uint64_t)r[CHROMA], g.chroma) << v.name << " " << g.w << "x" << g.h << std::hex << " 0x" << r[CHROMA];
        }
    }
}

TEST(Merge, FullCapacityFramesAndRepeatedMerges) {
    // The largest frame: 11 levels, every buffer of the pool at its full size.
    const std::vector<int64_t> full = merge(shared_context(), make_bracket(4160, 3120, shifted(true)));
    EXPECT_EQ(shared_context()->levels, 11);
    EXPECT_EQ(std::vector<int64_t>(full.begin(), full.begin() + LE_Y + 1),
              (std::vector<int64_t>{0, 0, 0, 4152, 3112, 3, -2, -5, 4}));
    // Run under the sanitizer builds: hand-offs, detached workers, reuse.
    const TestBracket b = make_bracket(400, 304, shifted(true));
    const std::vector<int64_t> first = merge(shared_context(), b);
    for (int i = 0; i < (kEmulated ? 5 : 30); ++i) EXPECT_EQ(merge(shared_context(), b), first) << "repeat " << i;
}

} // namespace
