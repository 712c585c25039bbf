// Level geometries for the luma fusion kernels: every level of 4160x3120,
// every width residue mod 16 with small heights (odd ones included), and a
// few random sizes.  Areas stay small apart from the large levels so the
// checks stay quick under emulation.
#pragma once
#include "checkasm/checkasm.h"

struct FusionSize {
    int w, h;
};

// Sizes with w >= min_w and h >= min_h; returns the count (<= 96).
static inline int fusion_sizes(FusionSize *out, int min_w, int min_h) {
    int n = 0;
    for (int l = 0; l < 11; ++l) {
        FusionSize s{4160 >> l, 3120 >> l};
        if (s.w >= min_w && s.h >= min_h) out[n++] = s;
    }
    int widths[64];
    int nw = checkasm_widths(widths, 300);
    for (int i = 0; i < nw; ++i)
        if (widths[i] >= min_w) out[n++] = FusionSize{widths[i], checkasm_rand_range(min_h, min_h + 9)};
    for (int i = 0; i < 8; ++i)
        out[n++] = FusionSize{checkasm_rand_range(min_w, 700) | 1, checkasm_rand_range(min_h, 60) | 1};
    return n;
}

// The context's pitch for a level of width w, now and then a wider one.
static inline int fusion_pitch(int w) {
    int p = (w + 10) & ~7;
    return checkasm_rand() % 4 ? p : p + 8 * checkasm_rand_range(1, 3);
}

static inline CheckasmPattern fusion_pattern(int i) { return (CheckasmPattern)(i % PAT_COUNT); }

// A level of w x h 8-bit pixels at `pitch`, payload starting `lead` bytes
// before row 0 (the pads a kernel may write there) and ending with the last
// row's pitch; the canaries after it also serve the reads past the last row.
static inline void fusion_level_u8(CheckasmBuf &b, int lead, int w, int h, int pitch, int pat) {
    b.alloc(32, (size_t)lead + (size_t)h * pitch, 64);
    checkasm_fill_u8(b.data() + lead, pitch, w, h, fusion_pattern(pat));
}

// Decimating horizontal pass: pads written into the level, sums into rows
// of ceil8(w >> 1) elements.
static inline void check_reduce_h(const char *name, reduce_h_fn ref_fn, reduce_h_fn opt_fn) {
    FusionSize sizes[96];
    int count = fusion_sizes(sizes, 3, 1);
    for (int i = 0; i < count && !checkasm_failed_current(); ++i) {
        const int w = sizes[i].w, h = sizes[i].h, pitch = fusion_pitch(w);
        const int n = ((w >> 1) + 7) & ~7;
        CheckasmBuf s_ref, s_opt, d_ref, d_opt;
        fusion_level_u8(s_ref, 2, w, h, pitch, i);
        s_opt.copy_from(s_ref);
        d_ref.alloc(32, (size_t)h * n * 2, 32);
        d_opt.copy_from(d_ref);
        ref_fn(d_ref.as<uint16_t>(), s_ref.data() + 2, pitch, w, h);
        opt_fn(d_opt.as<uint16_t>(), s_opt.data() + 2, pitch, w, h);
        if (checkasm_compare_blocks("padded level", s_ref, s_opt, pitch, 1)) s_opt.canaries_intact("padded level");
        if (checkasm_compare_blocks("sums", d_ref, d_opt, (size_t)n * 2, 2)) d_opt.canaries_intact("sums");
        if (i == 2)
            CHECKASM_BENCH2(name, ref_fn(d_ref.as<uint16_t>(), s_ref.data() + 2, pitch, w, h),
                            opt_fn(d_opt.as<uint16_t>(), s_opt.data() + 2, pitch, w, h));
    }
}

// Decimating vertical pass over 2 out_h rows of sums in 0 .. max_sum.
static inline void check_reduce_v(const char *name, reduce_v_fn ref_fn, reduce_v_fn opt_fn,
                                  int max_sum) {
    FusionSize sizes[96];
    int count = fusion_sizes(sizes, 1, 2);
    for (int i = 0; i < count && !checkasm_failed_current(); ++i) {
        const int out_w = (sizes[i].w + 7) & ~7, out_h = sizes[i].h;
        const int stride = fusion_pitch(sizes[i].w);
        CheckasmBuf t, d_ref, d_opt;
        t.alloc(32, (size_t)2 * out_h * out_w * 2, 32);
        checkasm_fill_s16(t.as<int16_t>(), out_w, out_w, 2 * out_h, 0, max_sum, fusion_pattern(i));
        d_ref.alloc(32, (size_t)(out_h - 1) * stride + out_w, 32);
        d_opt.copy_from(d_ref);
        ref_fn(d_ref.data(), stride, t.as<uint16_t>(), out_w, out_h);
        opt_fn(d_opt.data(), stride, t.as<uint16_t>(), out_w, out_h);
        if (checkasm_compare_blocks("level", d_ref, d_opt, stride, 1)) d_opt.canaries_intact("level");
        if (i == 2)
            CHECKASM_BENCH2(name, ref_fn(d_ref.data(), stride, t.as<uint16_t>(), out_w, out_h),
                            opt_fn(d_opt.data(), stride, t.as<uint16_t>(), out_w, out_h));
    }
}
