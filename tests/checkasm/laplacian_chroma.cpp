// Kernels of the chroma Laplacian pyramid: NEON against the references over
// whole buffers (payload, in-place pads, slack, spill) with canaries.
#include "checkasm/chroma_cases.h"

namespace {

const int kGuard = 16; // the level buffers' guard before row 0

void check_copy_flip(const HdrDsp &ref, const HdrDsp &opt, const ChromaCase *cs, int n) {
    for (int i = 0; i < n; ++i) {
        const ChromaCase &c = cs[i];
        const int bytes = 2 * c.pairs, rows2 = (c.rows + 1) & ~1;
        const int sstride = bytes + 8 * checkasm_rand_range(0, 3), dstride = c.stride();
        const size_t span = (size_t)(rows2 - 1);
        BufPair src, dst;
        src.alloc(0, span * sstride + ceil16(bytes));
        checkasm_fill_u8(src.r<uint8_t>(), sstride, bytes, c.rows, case_pattern(i));
        src.sync();
        dst.alloc(0, span * dstride + ceil16(bytes));
        ref.chroma.copy_flip(dst.r<int8_t>(), dstride, src.r<uint8_t>(), sstride, bytes, c.rows);
        opt.chroma.copy_flip(dst.o<int8_t>(), dstride, src.o<uint8_t>(), sstride, bytes, c.rows);
        char name[96];
        CASE_NAME(name, "copy_flip", c);
        if (!dst.check(name, dstride, 1)) return;
        if (i == 0)
            CHECKASM_BENCH2("copy_flip 2080x1560",
                            ref.chroma.copy_flip(dst.r<int8_t>(), dstride, src.r<uint8_t>(), sstride, bytes, c.rows),
                            opt.chroma.copy_flip(dst.o<int8_t>(), dstride, src.o<uint8_t>(), sstride, bytes, c.rows));
    }
}

void check_reduce(const HdrDsp &ref, const HdrDsp &opt, const ChromaCase *cs, int n) {
    for (int i = 0; i < n; ++i) {
        const ChromaCase &c = cs[i];
        const int stride = c.stride();
        const int out_values = (int)ceil8(2u * (unsigned)(c.pairs >> 1));
        // Source level: guard, rows, and the reads up to 2 * out_values + 3.
        BufPair g, t, coarse;
        const size_t gsize = kGuard + (size_t)(c.rows - 1) * stride + 2 * out_values + 24;
        g.alloc(0, gsize);
        checkasm_fill_u8(g.r<uint8_t>(kGuard), stride, 2 * c.pairs, c.rows, case_pattern(i));
        g.sync();
        t.alloc(0, (size_t)c.rows * out_values * 2);
        char name[96];
        CASE_NAME(name, "reduce_h", c);
        ref.chroma.reduce_h(t.r<int16_t>(), g.r<int8_t>(kGuard), stride, c.pairs, c.rows);
        opt.chroma.reduce_h(t.o<int16_t>(), g.o<int8_t>(kGuard), stride, c.pairs, c.rows);
        if (!g.check(name, stride, 1) || !t.check(name, out_values * 2, 2)) return;
        if (i == 0)
            CHECKASM_BENCH2("reduce_h 2080x1560",
                            ref.chroma.reduce_h(t.r<int16_t>(), g.r<int8_t>(kGuard), stride, c.pairs, c.rows),
                            opt.chroma.reduce_h(t.o<int16_t>(), g.o<int8_t>(kGuard), stride, c.pairs, c.rows));

        // Vertical half on its own inputs: the whole contract range of t.
        const int crows = c.rows >> 1, cw = c.w >> 1, cstride = (cw + 13) & ~7;
        if (crows < 1) continue;
        const int trows = 2 * crows > 3 ? 2 * crows : 3;
        BufPair tv;
        tv.alloc(0, (size_t)trows * out_values * 2);
        checkasm_fill_s16(tv.r<int16_t>(), out_values, out_values, trows, -2048, 2032, case_pattern(i + 1));
        tv.sync();
        coarse.alloc(0, (size_t)(crows - 1) * cstride + out_values);
        CASE_NAME(name, "reduce_v", c);
        ref.chroma.reduce_v(coarse.r<int8_t>(), cstride, tv.r<int16_t>(), 2 * (c.pairs >> 1), crows);
        opt.chroma.reduce_v(coarse.o<int8_t>(), cstride, tv.o<int16_t>(), 2 * (c.pairs >> 1), crows);
        if (!coarse.check(name, cstride, 1)) return;
        if (i == 0)
            CHECKASM_BENCH2("reduce_v 1040x780",
                            ref.chroma.reduce_v(coarse.r<int8_t>(), cstride, tv.r<int16_t>(), 2 * (c.pairs >> 1), crows),
                            opt.chroma.reduce_v(coarse.o<int8_t>(), cstride, tv.o<int16_t>(), 2 * (c.pairs >> 1), crows));
    }
}

// Expand of the coarser level (c.pairs >> 1 pairs, c.rows >> 1 rows) back to
// c.pairs x c.rows, then the band against the finer level.
void check_expand(const HdrDsp &ref, const HdrDsp &opt, const ChromaCase *cs, int n) {
    for (int i = 0; i < n; ++i) {
        const ChromaCase &c = cs[i];
        const int sp = c.pairs >> 1, srows = c.rows >> 1;
        if (sp < 1 || srows < 1) continue;
        const int sw = c.w >> 1, sstride = (sw + 13) & ~7;
        const int pitch = (int)ceil8(2u * (unsigned)c.pairs);
        const int written = 2 * (int)ceil16(2u * (unsigned)sp);
        BufPair q, h;
        q.alloc(0, kGuard + (size_t)(srows - 1) * sstride + ceil16(2u * sp) + 24);
        checkasm_fill_u8(q.r<uint8_t>(kGuard), sstride, 2 * sp, srows, case_pattern(i));
        q.sync();
        const int last = written > 2 * c.pairs ? written : 2 * c.pairs;
        h.alloc(0, ((size_t)(srows - 1) * pitch + last) * 2);
        char name[96];
        CASE_NAME(name, "expand_h", c);
        ref.chroma.expand_h(h.r<int16_t>(), q.r<int8_t>(kGuard), sstride, sp, srows, c.pairs);
        opt.chroma.expand_h(h.o<int16_t>(), q.o<int8_t>(kGuard), sstride, sp, srows, c.pairs);
        if (!q.check(name, sstride, 1) || !h.check(name, pitch * 2, 2)) return;
        if (i == 0)
            CHECKASM_BENCH2("expand_h 1040x780",
                            ref.chroma.expand_h(h.r<int16_t>(), q.r<int8_t>(kGuard), sstride, sp, srows, c.pairs),
                            opt.chroma.expand_h(h.o<int16_t>(), q.o<int8_t>(kGuard), sstride, sp, srows, c.pairs));

        // Band: h rows in the expand's range, the finer level's bytes anything.
        const int stride = c.stride();
        BufPair hv, g, band;
        hv.alloc(0, (size_t)srows * pitch * 2);
        checkasm_fill_s16(hv.r<int16_t>(), pitch, pitch, srows, -1024, 1016, case_pattern(i + 2));
        hv.sync();
        g.alloc(0, (size_t)c.rows * stride);
        checkasm_fill_u8(g.r<uint8_t>(), stride, stride, c.rows, case_pattern(i + 3));
        g.sync();
        band.alloc(0, ((size_t)(c.rows - 1) * stride + pitch) * 2);
        const int zero = i & 1;
        CASE_NAME(name, zero ? "expand_band (zero edges)" : "expand_band", c);
        ref.chroma.expand_band(band.r<int16_t>(), stride, g.r<int8_t>(), stride, hv.r<int16_t>(), 2 * c.pairs, c.rows, zero);
        opt.chroma.expand_band(band.o<int16_t>(), stride, g.o<int8_t>(), stride, hv.o<int16_t>(), 2 * c.pairs, c.rows, zero);
        if (!band.check(name, stride * 2, 2)) return;
        if (i == 0)
            CHECKASM_BENCH2("expand_band 2080x1560",
                            ref.chroma.expand_band(band.r<int16_t>(), stride, g.r<int8_t>(), stride, hv.r<int16_t>(), 2 * c.pairs, c.rows, 1),
                            opt.chroma.expand_band(band.o<int16_t>(), stride, g.o<int8_t>(), stride, hv.o<int16_t>(), 2 * c.pairs, c.rows, 1));
    }
}

void check_residual(const HdrDsp &ref, const HdrDsp &opt, const ChromaCase *cs, int n) {
    for (int i = 0; i < n; ++i) {
        const ChromaCase &c = cs[i];
        const int stride = c.stride();
        BufPair g, r;
        g.alloc(0, (size_t)c.rows * stride);
        checkasm_fill_u8(g.r<uint8_t>(), stride, stride, c.rows, case_pattern(i));
        g.sync();
        r.alloc(0, ((size_t)(c.rows - 1) * stride + 2 * c.pairs) * 2);
        char name[96];
        CASE_NAME(name, "residual", c);
        ref.chroma.residual(r.r<int16_t>(), stride, g.r<int8_t>(), stride, 2 * c.pairs, c.rows);
        opt.chroma.residual(r.o<int16_t>(), stride, g.o<int8_t>(), stride, 2 * c.pairs, c.rows);
        if (!r.check(name, stride * 2, 2)) return;
    }
}

} // namespace

CHECKASM_TEST(laplacian_chroma) {
    const HdrDsp &ref = checkasm_ref();
    const HdrDsp &opt = checkasm_opt();
    static ChromaCase cases[160];
    const int n = chroma_cases(cases, 1);
    static ChromaCase tall[160]; // the reduce and the band need two rows
    const int nt = chroma_cases(tall, 2);
    if (checkasm_check_func(opt.chroma.copy_flip != ref.chroma.copy_flip, "chroma_copy_flip"))
        check_copy_flip(ref, opt, cases, n);
    if (checkasm_check_func(opt.chroma.reduce_h != ref.chroma.reduce_h ||
                                opt.chroma.reduce_v != ref.chroma.reduce_v,
                            "chroma_reduce_h, chroma_reduce_v"))
        check_reduce(ref, opt, tall, nt);
    if (checkasm_check_func(opt.chroma.expand_h != ref.chroma.expand_h ||
                                opt.chroma.expand_band != ref.chroma.expand_band,
                            "chroma_expand_h, chroma_expand_band"))
        check_expand(ref, opt, tall, nt);
    if (checkasm_check_func(opt.chroma.residual != ref.chroma.residual, "chroma_residual"))
        check_residual(ref, opt, cases, n);
}
