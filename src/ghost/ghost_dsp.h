// Kernel table of the ghost-detection subsystem.  Every member has a
// reference version (ghost_dsp_init_c) and may be replaced by an
// instruction-set version.
#pragma once
#include <stddef.h>
#include <stdint.h>

// Threshold mask of a pair of rows: for rows src and src + src_stride,
// dst[x] = 255 when src[x] >= threshold (unsigned), else 0.  A row goes in
// chunks of 16, then one chunk of 8 if at least 8 remain, then one of 4 if at
// least 4 remain: exactly width & ~3 columns of both rows are read and
// written; the last 1..3 columns are left alone.  Any width >= 0.
#define decl_mask_rows_fn(name) void (name)(const uint8_t *src, ptrdiff_t src_stride, \
    uint8_t *dst, ptrdiff_t dst_stride, unsigned width, uint8_t threshold)
typedef decl_mask_rows_fn(*mask_rows_fn);

// A comparison "(float)diff / (float)side > threshold" of 8-bit diff and side
// as a table: for a fixed threshold the set of passing diffs at each side is
// upward closed (correctly rounded division is monotone in diff; 0 / 0 is NaN
// and never passes), so it is one bound per side.  Passes when
// diff >= bound[side] (inclusive) or diff > bound[side] (otherwise).  The
// inclusive form expresses "every diff passes" (a negative threshold), the
// strict one "no diff passes" (bound 255; NaN or huge thresholds); no
// threshold needs both.
struct MotionCut {
    uint8_t bound[256];
    uint8_t inclusive;
};

static inline bool motion_cut_passes(const MotionCut *c, unsigned diff, unsigned side) {
    return c->inclusive ? diff >= c->bound[side] : diff > c->bound[side];
}

// The cut of the threshold t, found by evaluating the comparison itself
// (float t: compared in single precision; double t: the float quotient
// widened to double).
void motion_cut_build(MotionCut *c, float t);
void motion_cut_build(MotionCut *c, double t);

// Which comparisons a merge applies (chosen from the exposure ratios).
enum MotionLeRule : uint8_t {
    MOTION_LE_OFF,
    MOTION_LE_SHORT,     // very short LE: drop mismatches, replace dark LE under bright AE
    MOTION_LE_MILD,      // HE at most 3x AE: drop LE, AE at full weight
    MOTION_LE_MILD_LONG, // HE above 3x AE: drop LE where AE is darker, else replace
};
enum MotionHeRule : uint8_t {
    MOTION_HE_OFF,
    MOTION_HE_LONG,  // HE above 2x AE: settle for HE, count dark AE replaced
    MOTION_HE_SHORT, // HE at most 2x AE: drop HE, AE at full weight
};

struct MotionRules {
    uint8_t le_predict[256]; // AE value -> expected LE value
    uint8_t he_predict[256]; // HE value -> expected AE value
    MotionCut le_cut;        // |LE - le_predict[AE]| against the LE value
    // |AE - he_predict[HE]| against the HE value; with MOTION_HE_LONG the
    // bound of HE values <= 220 is the one of the first rule, above it the
    // one of the dark-AE rule (the two rules never see the same HE value).
    MotionCut he_cut;
    uint8_t le_rule, he_rule;
};

// One row of the motion stage, per column x < width (any width >= 0;
// nothing outside the width columns is read or written):
//   a, l, h = src[AE_IDX][x], src[LE_IDX][x], src[HE_IDX][x]; all masks 1;
//   LE rules on (a, l) with p = le_predict[a], pass = cut(le_cut, |l - p|, l):
//     SHORT:     a <= 219 and pass: LE mask 0;
//                l <= 127 and a >= 221 and pass: LE mask 0, l = p;
//     MILD:      pass: LE mask 0, AE mask 255;
//     MILD_LONG: a < l: LE mask 0; else l <= 191 and pass: LE mask 0, l = p;
//   HE rules on (h, a, l) with the l left by the LE rules,
//   p = he_predict[h], pass = cut(he_cut, |a - p|, h), a as read:
//     SHORT:     pass: HE mask 0, AE mask 255;
//     LONG:      h <= 220 and pass: AE mask 0, LE mask 0, AE value p;
//                l > h: LE mask 0;
//                h >= 221 and a <= 127 and pass: AE mask 0, LE mask 0,
//                  AE value p, counted;
//                h >= 241 and l >= 129 and LE mask 0: LE mask 1;
//   dst[f][x] = the frame's value, mask[f][x] = its mask.
// Returns the number of columns counted.  Indices are HE_IDX, LE_IDX, AE_IDX.
#define decl_motion_row_fn(name) uint32_t (name)(uint8_t *const dst[3], const uint8_t *const src[3], \
    uint8_t *const mask[3], unsigned width, const MotionRules *rules)
typedef decl_motion_row_fn(*motion_row_fn);

// The reference of one column range, for the kernels' last columns.
uint32_t motion_row_tail_c(uint8_t *const dst[3], const uint8_t *const src[3], uint8_t *const mask[3],
                           unsigned from, unsigned width, const MotionRules *rules);

struct GhostDsp {
    mask_rows_fn mask_rows;
    motion_row_fn motion_row;
};

void ghost_dsp_init_c(GhostDsp *dsp);
void ghost_dsp_init_neon(GhostDsp *dsp);  // Arm builds and SIMDe test builds only
void ghost_dsp_init_sse41(GhostDsp *dsp); // x86-64 builds only
void ghost_dsp_init_avx2(GhostDsp *dsp);  // x86-64 builds only
