// MotionMask rules and veto; the response tables.
#include <gtest/gtest.h>
#include <float.h>
#include <math.h>
#include <string.h>

#include <vector>

#include "unit/test_support.h"

namespace {

struct Px {
    uint8_t h, l, a;          // HE, LE, AE input values
    uint8_t mh, ml, ma;       // expected masks
    uint8_t h2, l2, a2;       // expected level-0 values afterwards
};
struct ExposureCase {
    const char *what;
    float he_scale, le_scale, ae_scale; // exposure = units x scale
    uint32_t he_units, le_units, ae_units;
    int le_flag, he_flag;
    std::vector<Px> px;
};

using Frames = std::vector<uint8_t>[3];

// Runs MotionMask on the shared context for frames of width x height at pitch `pitch`.
int run(const float scale[3], const uint32_t units[3], int le_flag, int he_flag, Frames &f, int width, int height,
        int pitch = 0) {
    HdrContext *ctx = shared_context();
    HdrInput in;
    memset(&in, 0, sizeof in);
    in.width = pitch ? pitch : width;
    in.height = height;
    for (int i = 0; i < 3; ++i) {
        in.exposure[i].exposure_scale = scale[i];
        in.exposure[i].exposure_units = units[i];
        ctx->aligned[i].luma = f[i].data();
        memset(ctx->motion_mask[i], 1, (size_t)width * height);
    }
    set_geometry(ctx, width, height, 1);
    ctx->le_flag = le_flag;
    ctx->he_flag = he_flag;
    return MotionMask(ctx, &in);
}

TEST(MotionMask, RulesInOrderForEveryExposureCase) {
    const float nan = NAN;
    // Predictions used below (AE->LE: inv_csf[trunc(r x csf[a] + 5)];
    // HE->AE: inv_csf[trunc(csf[h] / r + 5)]):
    //   r 0.25: a 230 -> 132, 221 -> 123, 219 -> 122 (231 ties 229/233, larger wins)
    //   r 0.5:  a 128 -> 86, 250 -> 206;  r 1: a 128 -> 129;  r 2: a 50 -> 96
    //   HE r 4: h 200 -> 104, 220 -> 122, 230 -> 132, 240 -> 142, 245 -> 148
    //   HE r 1.5: h 0 -> 0, 128 -> 104;  HE r 0.5: h 128 -> 178
    const std::vector<ExposureCase> setups = {
        {"LE r 0.25", 1, 1, 1, 16000, 1000, 4000, 1, 0,
         {{9, 132, 230, 1, 1, 1, 9, 132, 230},    // exact prediction
          {9, 100, 230, 1, 0, 1, 9, 132, 230},    // dark LE under bright AE: replaced
          {9, 100, 221, 1, 0, 1, 9, 123, 221},
          {9, 10, 220, 1, 1, 1, 9, 10, 220},      // 220: neither rule
          {9, 127, 219, 1, 1, 1, 9, 127, 219},    // r = 5 / 127 <= 0.04
          {9, 128, 219, 1, 0, 1, 9, 128, 219},    // r = 6 / 128 > 0.04
          {9, 127, 230, 1, 1, 1, 9, 127, 230},    // r = 5 / 127
          {9, 126, 230, 1, 0, 1, 9, 132, 230},    // r = 6 / 126
          {9, 200, 219, 1, 0, 1, 9, 200, 219},    // dropped, not replaced
          {9, 122, 219, 1, 1, 1, 9, 122, 219},
          {9, 200, 230, 1, 1, 1, 9, 200, 230},    // LE above 127: kept
          {9, 128, 250, 1, 1, 1, 9, 128, 250},    // LE 128 under AE 250: kept
          {9, 0, 100, 1, 0, 1, 9, 0, 100}}},      // LE 0: r infinite
        {"LE r 0.5, HE r 2", 1, 1, 1, 8000, 2000, 4000, 1, 0,
         {{9, 86, 128, 1, 1, 1, 9, 86, 128}, // exact: kept
          {9, 87, 128, 1, 0, 255, 9, 87, 128}, {9, 100, 128, 1, 0, 255, 9, 100, 128}}},
        {"LE r 0.5, HE r 3: still the HE r <= 3 rule", 1, 1, 1, 12000, 2000, 4000, 1, 0,
         {{9, 87, 128, 1, 0, 255, 9, 87, 128}}},
        {"LE r 1: threshold 0", 1, 1, 1, 8000, 4000, 4000, 1, 0,
         {{9, 129, 128, 1, 1, 1, 9, 129, 128}, {9, 130, 128, 1, 0, 255, 9, 130, 128}}},
        {"LE r 2: negative threshold", 1, 1, 1, 8000, 8000, 4000, 1, 0, {{9, 96, 50, 1, 0, 255, 9, 96, 50}}},
        {"LE r 0.5, HE r 4", 1, 1, 1, 16000, 2000, 4000, 1, 0,
         {{9, 200, 128, 1, 0, 1, 9, 200, 128},    // AE darker than LE
          {9, 50, 128, 1, 0, 1, 9, 86, 128}, {9, 86, 128, 1, 1, 1, 9, 86, 128},
          {9, 192, 250, 1, 1, 1, 9, 192, 250}, {9, 191, 250, 1, 0, 1, 9, 206, 250}}},
        {"HE r 4", 1, 1, 1, 16000, 2000, 4000, 0, 1,
         {{200, 50, 104, 1, 1, 1, 200, 50, 104}, {200, 50, 150, 1, 0, 0, 200, 50, 104},
          {200, 50, 108, 1, 1, 1, 200, 50, 108}, {200, 50, 109, 1, 0, 0, 200, 50, 104}, // r 4 / 200, 5 / 200
          {240, 50, 127, 1, 0, 0, 240, 50, 142}, {240, 50, 128, 1, 1, 1, 240, 50, 128}, // AE 127 / 128
          {230, 50, 122, 1, 0, 0, 230, 50, 132}, {230, 50, 123, 1, 1, 1, 230, 50, 123}, // r 10 / 230, 9 / 230
          {241, 250, 200, 1, 1, 1, 241, 250, 200}, // 241: LE re-admitted
          {245, 129, 100, 1, 1, 0, 245, 129, 148}, {245, 128, 100, 1, 0, 0, 245, 128, 148}, // LE 129 / 128
          {200, 201, 104, 1, 0, 1, 200, 201, 104}, // LE brighter than HE
          {230, 50, 100, 1, 0, 0, 230, 50, 132}, {230, 50, 128, 1, 1, 1, 230, 50, 128},
          {245, 200, 100, 1, 1, 0, 245, 200, 148}, // dropped then re-admitted
          {245, 250, 148, 1, 1, 1, 245, 250, 148},
          {240, 250, 142, 1, 0, 1, 240, 250, 142}, // 240: no re-admission
          {220, 10, 122, 1, 1, 1, 220, 10, 122}, {220, 10, 130, 1, 0, 0, 220, 10, 122}}},
        {"both, LE replaced then re-admitted", 1, 1, 1, 16000, 2000, 4000, 1, 1, {{245, 100, 250, 1, 1, 1, 245, 206, 250}}},
        {"HE r 1.5", 1, 1, 1, 6000, 2000, 4000, 0, 1,
         {{0, 9, 0, 1, 1, 1, 0, 9, 0},             // 0 / 0: NaN, nothing
          {0, 9, 5, 0, 1, 255, 0, 9, 5},           // 5 / 0: infinite
          {128, 9, 104, 1, 1, 1, 128, 9, 104}, {128, 9, 105, 0, 1, 255, 128, 9, 105}}},
        {"HE r 2: still the short-HE rule", 1, 1, 1, 8000, 2000, 4000, 0, 1, {{128, 9, 200, 0, 1, 255, 128, 9, 200}}},
        {"HE r 0.5: negative threshold", 1, 1, 1, 2000, 2000, 4000, 0, 1, {{128, 9, 178, 0, 1, 255, 128, 9, 178}}},
        {"HE ratio NaN", nan, 1, 1, 16000, 2000, 4000, 1, 1, {{200, 50, 128, 1, 1, 1, 200, 50, 128}}},
        // AE exposure 0: both ratios infinite; AE->LE predicts 255, HE->AE 0.
        {"AE exposure 0", 1, 1, 0, 16000, 2000, 4000, 1, 1, {{100, 50, 128, 1, 0, 0, 100, 255, 0}}},
    };
    for (const ExposureCase &s : setups) {
        const int n = (int)s.px.size();
        Frames f;
        for (const Px &p : s.px) f[HE_IDX].push_back(p.h), f[LE_IDX].push_back(p.l), f[AE_IDX].push_back(p.a);
        const float scale[3] = {s.he_scale, s.le_scale, s.ae_scale};
        const uint32_t units[3] = {s.he_units, s.le_units, s.ae_units};
        EXPECT_EQ(run(scale, units, s.le_flag, s.he_flag, f, n, 1), 0) << s.what;
        const HdrContext *ctx = shared_context();
        for (int x = 0; x < n; ++x) {
            const Px &p = s.px[x];
            // Masks of HE, LE, AE, then their level-0 values afterwards.
            EXPECT_EQ(std::vector<int>({ctx->motion_mask[HE_IDX][x], ctx->motion_mask[LE_IDX][x], ctx->motion_mask[AE_IDX][x],
                                        ctx->img_gaussian_pyramid[HE_IDX][0][x], ctx->img_gaussian_pyramid[LE_IDX][0][x],
                                        ctx->img_gaussian_pyramid[AE_IDX][0][x]}),
                      std::vector<int>({p.mh, p.ml, p.ma, p.h2, p.l2, p.a2}))
                << s.what << ", pixel " << x << " (h " << (int)p.h << ", l " << (int)p.l << ", a " << (int)p.a << ")";
        }
        EXPECT_EQ(f[AE_IDX][0], s.px[0].a) << "inputs are never written";
    }
}

// Veto: more than 840000 replaced pixels with an HE ratio above 2 (r 3 and
// 4 here; below, at r 2, nothing is counted).
TEST(MotionMask, VetoAboveEightHundredFortyThousandPixels) {
    const int w = 1000, h = 841;
    const float scale[3] = {1, 1, 1};
    const int cases[][3] = {{16000, 840000, 0}, {16000, 840001, 1}, {12000, 840001, 1}, {8000, 840001, 0}};
    for (const auto &c : cases) {
        const uint32_t units[3] = {(uint32_t)c[0], 2000, 4000};
        Frames f;
        // Counted: HE 230 over AE 100; the rest predicted exactly (HE 200, AE 104 at r 4).
        f[HE_IDX].assign((size_t)w * h, 200);
        f[LE_IDX].assign((size_t)w * h, 50);
        f[AE_IDX].assign((size_t)w * h, 104);
        for (int i = 0; i < c[1]; ++i) {
            f[HE_IDX][i] = 230;
            f[AE_IDX][i] = 100;
        }
        EXPECT_EQ(run(scale, units, 0, 1, f, w, h), c[2]) << c[0] << " " << c[1];
    }
}

// The bound tables stand for (float)diff / (float)side > t exactly, for every
// diff and side, whatever the threshold: float thresholds compare in single
// precision, double ones against the widened quotient.
template <class T> int cut_mismatches(T t) {
    MotionCut c;
    motion_cut_build(&c, t);
    int wrong = 0;
    for (unsigned side = 0; side < 256; ++side)
        for (unsigned diff = 0; diff < 256; ++diff)
            wrong += motion_cut_passes(&c, diff, side) != ((float)diff / (float)side > t);
    return wrong;
}

TEST(MotionCut, SameDecisionAsTheDivision) {
    std::vector<float> tf = {NAN, INFINITY, -INFINITY, -1.0f, -FLT_MIN, -0.0f, 0.0f, 1e-45f, FLT_MIN, 1e-30f,
                             0.02f, 0.04f, 1.0f, 254.0f, 255.0f, 256.0f};
    std::vector<double> td = {NAN, INFINITY, -INFINITY, -0.5, 0.0, 5e-324, 0.02, 0.04, 1.0, 255.0};
    // Thresholds of real ratios (LE 1/16 .. 2, HE 1/2 .. 8 times AE).
    for (float r : {0.0625f, 0.25f, 0.35f, 0.5f, 0.9f, 1.0f, 1.5f, 2.0f, 4.0f, 8.0f})
        tf.push_back((1 - r) / 50), tf.push_back((r - 1) / 120);
    // On, just below and just above quotients k / s, in both precisions.
    const int ks[][2] = {{1, 25}, {1, 50}, {3, 128}, {5, 127}, {6, 126}, {10, 230}, {1, 255}, {254, 255}, {255, 1}};
    for (auto &q : ks) {
        const float f = (float)q[0] / (float)q[1];
        for (float v : {f, nextafterf(f, -INFINITY), nextafterf(f, INFINITY)}) tf.push_back(v);
        for (double v : {(double)f, nextafter((double)f, -INFINITY), nextafter((double)f, INFINITY),
                         (double)q[0] / q[1]})
            td.push_back(v);
    }
    for (float t : tf) EXPECT_EQ(cut_mismatches(t), 0) << "float " << t;
    for (double t : td) EXPECT_EQ(cut_mismatches(t), 0) << "double " << t;
}

TEST(ResponseTables, EdgesOfTheInverse) {
    // 28 and 30 are equally near 29: the larger wins.
    const int inv[][2] = {{18, 0}, {19, 1}, {28, 10}, {29, 11}, {1608, 254}, {1609, 255}, {1623, 255}};
    for (auto &e : inv) EXPECT_EQ(inv_csf_tab[e[0]], e[1]) << e[0];
    for (int v = 0; v <= 18; ++v) EXPECT_EQ(inv_csf_tab[v], 0) << v;
    for (int v = 1609; v <= 1623; ++v) EXPECT_EQ(inv_csf_tab[v], 255) << v;
    EXPECT_EQ(csf_tab[0], 18);
    EXPECT_EQ(csf_tab[128], 256);
    EXPECT_EQ(csf_tab[255], 1623);
    for (int i = 0; i < 256; ++i) EXPECT_EQ(inv_csf_tab[csf_tab[i]], i) << "round trip " << i;
}

} // namespace
