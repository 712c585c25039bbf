// The whole merge: threads and hand-offs against a one-thread run of the same
// stages, determinism, fallbacks, bad input, log lines and counters.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "unit/synthetic.h"
#include "unit/test_support.h"

namespace {

struct MergeResult {
    int rc = 0;
    int32_t rect[4] = {0, 0, 0, 0};
    HdrOffset he{0, 0}, le{0, 0};
    uint64_t luma_hash = 0, chroma_hash = 0;
};

MergeResult summarize(int rc, const HdrContext *ctx, const HdrInput &in) {
    MergeResult r;
    r.rc = rc;
    r.rect[0] = in.out_x;
    r.rect[1] = in.out_y;
    r.rect[2] = in.out_width;
    r.rect[3] = in.out_height;
    r.he = ctx->he_offset;
    r.le = ctx->le_offset;
    // The valid output sits at the plane start with the input pitch.
    r.luma_hash = hash_plane(in.frame[HE_IDX].luma, in.width, in.out_width, in.out_height);
    r.chroma_hash = hash_plane(in.frame[HE_IDX].chroma, in.width, in.out_width, in.out_height / 2);
    return r;
}

void expect_same(const MergeResult &a, const MergeResult &b, const std::string &what) {
    EXPECT_EQ(a.rc, b.rc) << what;
    for (int i = 0; i < 4; ++i) EXPECT_EQ(a.rect[i], b.rect[i]) << what << " rect " << i;
    EXPECT_EQ(a.he.x, b.he.x) << what;
    EXPECT_EQ(a.he.y, b.he.y) << what;
    EXPECT_EQ(a.le.x, b.le.x) << what;
    EXPECT_EQ(a.le.y, b.le.y) << what;
    EXPECT_EQ(a.luma_hash, b.luma_hash) << what;
    EXPECT_EQ(a.chroma_hash, b.chroma_hash) << what;
}

MergeResult merge(HdrContext *ctx, const TestBracket &src) {
    TestBracket b = src; // the output overwrites the HE frame
    HdrInput in = b.input();
    int rc = hdrThreeFrameCore(ctx, &in);
    return summarize(rc, ctx, in);
}

void copy_reference(HdrInput *in) {
    size_t n = (size_t)in->width * in->height;
    memmove(in->frame[HE_IDX].luma, in->frame[AE_IDX].luma, n);
    memmove(in->frame[HE_IDX].chroma, in->frame[AE_IDX].chroma, n / 2);
    in->out_x = in->out_y = 0;
    in->out_width = in->width;
    in->out_height = in->height;
}

// The merge's stages in their order on one thread, derived independently
// of the driver (crop origins from the four written-out cases per axis).
MergeResult merge_single_threaded(HdrContext *ctx, const TestBracket &src) {
    TestBracket b = src;
    HdrInput in = b.input();
    const int W = in.width, H = in.height;
    ctx->input = &in;
    ctx->reg_mode = 0;
    BitmapCalc(in.frame[HE_IDX].luma, W, H, &ctx->bitmap_pyramid[HE_IDX][0]);
    BitmapCalc(in.frame[LE_IDX].luma, W, H, &ctx->bitmap_pyramid[LE_IDX][0]);
    BitmapCalc(in.frame[AE_IDX].luma, W, H, &ctx->bitmap_pyramid[AE_IDX][0]);
    ctx->min_err_bits_he = (int32_t)OffsetCalc(&ctx->bitmap_pyramid[HE_IDX][0],
                                               &ctx->bitmap_pyramid[AE_IDX][0], &ctx->he_offset);
    ctx->min_err_bits_le = (int32_t)OffsetCalc(&ctx->bitmap_pyramid[LE_IDX][0],
                                               &ctx->bitmap_pyramid[AE_IDX][0], &ctx->le_offset);
    const HdrOffset he = ctx->he_offset, le = ctx->le_offset;
    if (abs(le.x) == 63 || abs(le.y) == 63 || abs(he.x) == 63 || abs(he.y) == 63) {
        copy_reference(&in);
        return summarize(0, ctx, in);
    }
    auto origins = [](int h, int l, int out[3]) { // HE, LE, AE
        if (l >= 0 && h >= 1) { out[0] = h; out[1] = l; out[2] = 0; }
        else if (l >= 0) { out[0] = 0; out[1] = l - h; out[2] = -h; }
        else if (h >= l) { out[0] = h - l; out[1] = 0; out[2] = -l; }
        else { out[0] = 0; out[1] = l - h; out[2] = -h; }
    };
    int ox[3], oy[3];
    origins(he.x, le.x, ox);
    origins(he.y, le.y, oy);
    int xs = std::max(ox[0], std::max(ox[1], ox[2])), ys = std::max(oy[0], std::max(oy[1], oy[2]));
    ctx->width = (W - xs) & ~7;
    ctx->height = (H - ys) & ~3;
    int smaller = std::min(ctx->width, ctx->height), levels = 0;
    while ((2 << levels) <= smaller) ++levels; // floor(log2)
    ctx->levels = levels;
    for (int l = 0; l < levels; ++l) {
        ctx->row_stride[l] = ((ctx->width >> l) + 10) & ~7;
        ctx->chroma_stride[l] = ((ctx->width >> l) + 13) & ~7;
    }
    for (int f = 0; f < 3; ++f) {
        ctx->aligned[f].luma = in.frame[f].luma + oy[f] * W + ox[f];
        ctx->aligned[f].chroma = in.frame[f].chroma + (oy[f] >> 1) * W + (ox[f] & ~1);
    }
    const uint32_t threshold = (uint32_t)((float)W * 0.004f * (float)H * 9.0f * 0.0625f);
    ctx->le_flag = (uint32_t)ctx->min_err_bits_le > threshold;
    ctx->he_flag = (uint32_t)ctx->min_err_bits_he > threshold;
    for (int f = 0; f < 3; ++f) memset(ctx->motion_mask[f], 1, (size_t)W * H);
    int m = 0;
    if (ctx->le_flag || ctx->he_flag) {
        m = MotionMask(ctx, &in);
    } else {
        for (int f = 0; f < 3; ++f)
            for (int r = 0; r < H; ++r)
                memcpy(ctx->img_gaussian_pyramid[f][0] + r * ctx->row_stride[0], ctx->aligned[f].luma + r * W, W);
    }
    if (m == 1) {
        copy_reference(&in);
        return summarize(0, ctx, in);
    }
    for (int f = 0; f < 3; ++f) WeightWellExposed(ctx, f);
    WeightNormalize(ctx->w_gaussian_pyramid, ctx->width, ctx->height, ctx->row_stride[0]);
    for (int f = 0; f < 3; ++f) {
        WeightGaussPyramid(&ctx->w_gaussian_pyramid[f][0], ctx->inter_buf[f], ctx->width, ctx->height,
                           ctx->row_stride, levels);
        ImageLaplacianPyramid(ctx, levels, f);
        ImageLaplacianPyramidChroma(ctx, W, levels >> 1, f);
    }
    ImageReconstruct(ctx, levels);
    ImageReconstructChroma(ctx, levels >> 1);
    ImageNormalize(ctx, in.frame[HE_IDX].luma, in.frame[HE_IDX].chroma, W);
    in.out_x = in.out_y = 0;
    in.out_width = ctx->width;
    in.out_height = ctx->height;
    return summarize(0, ctx, in);
}

bool emulated() {
#if defined(__arm__) || defined(__aarch64__)
    return true; // the Arm test builds run under qemu
#else
    return false;
#endif
}

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
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        for (const Case &c : cases) {
            TestBracket b = make_bracket(c.w, c.h, c.opt);
            const std::string what = v.name + " " + std::to_string(c.w) + "x" + std::to_string(c.h);
            MergeResult single = merge_single_threaded(ctx, b);
            ASSERT_EQ(single.rc, 0) << what;
            // The planted shifts are found and the frames really are fused.
            EXPECT_EQ(single.he.x, c.opt.he_dx) << what;
            EXPECT_EQ(single.he.y, c.opt.he_dy) << what;
            EXPECT_EQ(single.le.x, c.opt.le_dx) << what;
            EXPECT_EQ(single.le.y, c.opt.le_dy) << what;
            EXPECT_EQ(single.rect[2], (c.w - std::max(c.opt.he_dx, 0) - std::max(-c.opt.le_dx, 0)) & ~7) << what;
            EXPECT_EQ(ctx->le_flag || ctx->he_flag, c.ghost_stage) << what;
            const int runs = emulated() ? 10 : 100;
            for (int i = 0; i < runs; ++i) {
                MergeResult r = merge(ctx, b);
                expect_same(single, r, what + " run " + std::to_string(i));
                if (HasFailure()) return;
            }
        }
    }
}

TEST(Merge, SequentialMergesOfDifferentSizesMatchFreshContexts) {
    const int sizes[][2] = {{328, 200}, {256, 192}, {400, 304}, {328, 200}};
    HdrContext *shared = shared_context();
    for (const auto &s : sizes) {
        BracketOptions o = shifted(s[0] == 400);
        TestBracket b = make_bracket(s[0], s[1], o);
        MergeResult reused = merge(shared, b);
        HdrContext *fresh = nullptr;
        ASSERT_EQ(hdrCreateContext(&fresh), 0);
        MergeResult first = merge(fresh, b);
        hdrDestroyContext(fresh);
        expect_same(first, reused, std::to_string(s[0]) + "x" + std::to_string(s[1]));
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
    EXPECT_EQ(in.out_x, 0);
    EXPECT_EQ(in.out_y, 0);
    EXPECT_EQ(in.out_width, 200);
    EXPECT_EQ(in.out_height, 120);
    EXPECT_EQ(memcmp(b.frame[HE_IDX].buf.data(), b.frame[AE_IDX].buf.data(), 200 * 120 * 3 / 2), 0);
    EXPECT_TRUE(log.contains("hdr motion over"));
    EXPECT_FALSE(log.contains("varo_hdr: WeightWellExposed LE_IDX end\n")) << "workers stopped";
}

TEST(Merge, BadDescriptorIsRejectedWithoutSideEffects) {
    TestBracket b = make_bracket(64, 48);
    struct Case {
        const char *what;
        void (*spoil)(HdrInput &);
    } cases[] = {
        {"HE luma null", [](HdrInput &in) { in.frame[HE_IDX].luma = nullptr; }},
        {"LE chroma null", [](HdrInput &in) { in.frame[LE_IDX].chroma = nullptr; }},
        {"AE luma null", [](HdrInput &in) { in.frame[AE_IDX].luma = nullptr; }},
        {"width 0", [](HdrInput &in) { in.width = 0; }},
        {"width negative", [](HdrInput &in) { in.width = -64; }},
        {"width odd", [](HdrInput &in) { in.width = 63; }},
        {"height odd", [](HdrInput &in) { in.height = 47; }},
        {"height 0", [](HdrInput &in) { in.height = 0; }},
        {"width over capacity", [](HdrInput &in) { in.width = 4162; }},
        {"height over capacity", [](HdrInput &in) { in.height = 3122; }},
    };
    HdrContext *ctx = shared_context();
    const std::vector<uint8_t> he_before = b.frame[HE_IDX].buf;
    for (const Case &c : cases) {
        HdrInput in = b.input();
        c.spoil(in);
        in.out_x = in.out_y = in.out_width = in.out_height = 7;
        total_time_1 = 12345;
        EXPECT_EQ(hdrThreeFrameCore(ctx, &in), VARO_HDR_ERR_INVALID) << c.what;
        EXPECT_EQ(in.out_x + in.out_y + in.out_width + in.out_height, 28) << c.what;
        EXPECT_EQ(total_time_1, 12345) << c.what << ": the call went on";
        EXPECT_EQ(b.frame[HE_IDX].buf, he_before) << c.what;
    }
    HdrInput in = b.input();
    EXPECT_EQ(hdrThreeFrameCore(nullptr, &in), VARO_HDR_ERR_INVALID);
    EXPECT_EQ(hdrThreeFrameCore(ctx, nullptr), VARO_HDR_ERR_INVALID);
    EXPECT_EQ(hdrAbortProcessing(), 0);
}

bool wait_for_line(const LogCapture &log, const std::string &text) {
    // Thread 1 may still be writing its last line when the merge returns.
    for (int i = 0; i < 200 && !log.contains(text); ++i) usleep(5000);
    return log.contains(text);
}

TEST(Merge, LogLinesCountersAndStdout) {
    TestBracket b = make_bracket(400, 256, shifted());
    HdrInput in = b.input();
    LogCapture log;
    total_time_2 = total_time_3 = total_time_7 = total_time_8 = 99;
    fflush(stdout);
    testing::internal::CaptureStdout();
    int rc = hdrThreeFrameCore(shared_context(), &in);
    fflush(stdout);
    std::string out = testing::internal::GetCapturedStdout();
    ASSERT_EQ(rc, 0);
    EXPECT_EQ(out, "ImageNormalize LUMA end\n");
    EXPECT_EQ(total_time_2 | total_time_3 | total_time_7 | total_time_8, 0);
    EXPECT_GE(total_time_1, 0);
    EXPECT_GE(total_time_5, total_time_6);

    const HdrContext *ctx = shared_context();
    char he_line[64], le_line[64];
    snprintf(he_line, sizeof he_line, "OffsetCalc 0 end, %d, %d\n", ctx->he_offset.x, ctx->he_offset.y);
    snprintf(le_line, sizeof le_line, "OffsetCalc 2 end, %d, %d\n", ctx->le_offset.x, ctx->le_offset.y);
    const char *once[] = {"BitmapCalc 0 end\n", "BitmapCalc 1 end\n", "BitmapCalc 2 end\n", he_line, le_line,
                          "normalize weighting done!\n", "varo_hdr: ImageReconstruct end\n",
                          "ImageReconstructChroma Chroma end\n", "varo_hdr: ImageNormalize end\n",
                          "varo_hdr: LE_IDX end\n", "varo_hdr: AE_IDX end\n"};
    for (const char *line : once) EXPECT_EQ(log.count(line), 1) << line;
    for (const char *f : {"HE_IDX", "LE_IDX", "AE_IDX"}) {
        for (const char *stage : {"WeightGaussPyramid", "ImageLaplacianPyramid", "ImageLaplacianPyramidChroma"}) {
            EXPECT_TRUE(log.contains(std::string("varo_hdr: ") + stage + " " + f + " start\n")) << stage << f;
            EXPECT_TRUE(log.contains(std::string("varo_hdr: ") + stage + " " + f + " end\n")) << stage << f;
        }
        EXPECT_TRUE(log.contains(std::string("varo_hdr: WeightWellExposed ") + f + " end\n")) << f;
    }
    EXPECT_TRUE(wait_for_line(log, "varo_hdr: HE_IDX end\n"));
    bool mode = false, sizes = false;
    for (const LoggedLine &l : log.lines()) {
        mode |= l.func == "hdrThreeFrameCore" && l.text.find("hdr_mode: 4000, 1000, 16000, 3000, 12000, "
                                                             "15000, 0, size 400 256") != std::string::npos;
        sizes |= l.text == "offset HE (8, 0), LE (0, 6), AE (5, 2), size (392, 248), level 7\n";
    }
    EXPECT_TRUE(mode) << "hdr_mode line with products and differences";
    EXPECT_TRUE(sizes) << "offset/size/level line";
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
    HdrContext *ctx = shared_context();
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        for (const Golden &g : goldens) {
            MergeResult r = merge(ctx, make_bracket(g.w, g.h, g.opt));
            EXPECT_EQ(r.luma_hash, g.luma) << v.name << " " << g.w << "x" << g.h << std::hex << " 0x" << r.luma_hash;
            EXPECT_EQ(r.chroma_hash, g.chroma) << v.name << " " << g.w << "x" << g.h << std::hex << " 0x" << r.chroma_hash;
        }
    }
}

TEST(Merge, FullCapacityFrames) {
    // The largest frame: 11 levels, every buffer of the pool at its full size.
    TestBracket b = make_bracket(4160, 3120, shifted(true));
    HdrContext *ctx = shared_context();
    const std::vector<DspVariant> variants = dsp_variants();
    MergeResult first;
    for (size_t i = 0; i < variants.size(); ++i) {
        const DspVariant &v = variants[i];
        ScopedDsp use(v.table);
        MergeResult r = merge(ctx, b);
        EXPECT_EQ(ctx->levels, 11) << v.name;
        EXPECT_EQ(r.rect[2], 4152) << v.name;
        EXPECT_EQ(r.rect[3], 3112) << v.name;
        EXPECT_EQ(r.he.x, 3) << v.name;
        EXPECT_EQ(r.le.y, 4) << v.name;
        if (i == 0)
            first = r;
        else
            expect_same(first, r, v.name);
    }
}

TEST(Merge, RepeatedMergesStayClean) {
    // Run under the sanitizer builds: hand-offs, detached workers, reuse.
    TestBracket b = make_bracket(400, 304, shifted(true));
    MergeResult first = merge(shared_context(), b);
    const int runs = emulated() ? 5 : 30;
    for (int i = 0; i < runs; ++i) expect_same(first, merge(shared_context(), b), "repeat");
}

} // namespace
