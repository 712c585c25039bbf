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
// table: a change here is a change of the picture.  The sizes run one after
// another on one context, so state left by a merge would show.  The planted shifts are
// found, the frames are cropped to their overlap and really fused, and
// repeated threaded merges give the same bytes.
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
            for (int i = 0; i < (g.w < 2000 ? kRepeats : 2) && !HasFailure(); ++i)
                EXPECT_EQ(merge(ctx, b), r) << what << " run " << i;
        }
    }
}

TEST(Merge, FullCapacityFrames) {
    // The largest frame: 11 levels, every buffer of the pool at its full size,
    // and chroma level 2 of 519 pairs, the one odd expand target of a merge.
    const std::vector<int64_t> r = merge(shared_context(), make_bracket(4160, 3120, shifted(true)));
    EXPECT_EQ(shared_context()->levels, 11);
    EXPECT_EQ(r, (std::vector<int64_t>{0, 0, 0, 4152, 3112, 3, -2, -5, 4, -1809061119770081186, -4170479143214380885}));
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

// The unconditional stdout line, the unmeasured stages' counters, and the
// log lines that carry values: the mode, the offsets and the working size.
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
    EXPECT_GE(total_time_5, total_time_6);
    for (const char *line : {"OffsetCalc 0 end, 3, -2\n", "OffsetCalc 2 end, -5, 4\n", "varo_hdr: HE_IDX end\n",
                             "offset HE (8, 0), LE (0, 6), AE (5, 2), size (392, 248), level 7\n"})
        EXPECT_EQ(log.count(line), 1) << line;
    // Each thread's progress lines, in its order, under the function that runs its part.
    const std::string pyr[] = {"varo_hdr: WeightGaussPyramid ", "varo_hdr: ImageLaplacianPyramid ",
                               "varo_hdr: ImageLaplacianPyramidChroma "};
    auto pyramids = [&](const std::string &f) {
        std::vector<std::string> v;
        for (const std::string &p : pyr) v.insert(v.end(), {p + f + " start\n", p + f + " end\n"});
        return v;
    };
    auto join = [](std::vector<std::string> a, const std::vector<std::string> &b, std::vector<std::string> c) {
        a.insert(a.end(), b.begin(), b.end());
        a.insert(a.end(), c.begin(), c.end());
        return a;
    };
    const std::pair<std::string, std::vector<std::string>> threads[] = {
        {"ImageRegistration", {"BitmapCalc 2 end\n", "OffsetCalc 2 end, -5, 4\n"}},
        {"FusionThreadFunc0", join({"BitmapCalc 0 end\n", "OffsetCalc 0 end, 3, -2\n",
                                    "varo_hdr: WeightWellExposed LE_IDX end\n"},
                                   pyramids("LE_IDX"), {"varo_hdr: LE_IDX end\n", "ImageReconstructChroma Chroma end\n"})},
        {"FusionThreadFunc1", join({"BitmapCalc 1 end\n", "varo_hdr: WeightWellExposed HE_IDX end\n"},
                                   pyramids("HE_IDX"), {"varo_hdr: HE_IDX end\n"})},
        {"ExposureFusion", join({"varo_hdr: WeightWellExposed AE_IDX end\n", "normalize weighting done!\n"},
                                pyramids("AE_IDX"), {"varo_hdr: AE_IDX end\n", "varo_hdr: ImageReconstruct end\n",
                                                     "varo_hdr: ImageNormalize end\n"})},
    };
    for (const auto &t : threads) {
        std::vector<std::string> got;
        for (const LoggedLine &l : log.lines())
            if (l.func == t.first) got.push_back(l.text);
        EXPECT_EQ(got, t.second) << t.first;
    }
    bool mode = false;
    for (const LoggedLine &l : log.lines())
        mode |= l.func == "hdrThreeFrameCore" &&
                l.text.find("hdr_mode: 4000, 1000, 16000, 3000, 12000, 15000, 0, size 400 256") != std::string::npos;
    EXPECT_TRUE(mode) << "hdr_mode line with products and differences";
}

} // namespace
