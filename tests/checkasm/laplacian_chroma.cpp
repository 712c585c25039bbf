// Kernels of the chroma Laplacian pyramid: NEON against the references over
// whole buffers (payload, in-place pads, slack, spill) with canaries.
#include "checkasm/chroma_cases.h"

namespace {

const int kGuard = 16; // the level buffers' guard before row 0

void check_copy_flip(const HdrDsp &ref, const HdrDsp &opt, const ChromaCase *cs, int n) {
    for (int i = 0; i < n; ++i) {
        const ChromaCase &c = cs[i];
        const int bytes = 2 * c.pairs, span = ((c.rows + 1) & ~1) - 1;
        const int sstride = bytes + 8 * checkasm_rand_range(0, 3), dstride = c.stride();
        BufPair src, dst;
        src.alloc(0, (size_t)span * sstride + ceil16(bytes));
        checkasm_fill_u8(src.r<uint8_t>(), sstride, bytes, c.rows, case_pattern(i));
        src.sync();
        dst.alloc(0, (size_t)span * dstride + ceil16(bytes));
        run_both(ref, opt, [&](const HdrDsp &d, bool o) {
            d.chroma.copy_flip(dst.p<int8_t>(o), dstride, src.p<uint8_t>(o), sstride, bytes, c.rows);
        }, i == 0 ? "copy_flip 2080x1560" : nullptr);
        char name[96];
        CASE_NAME(name, "copy_flip", c);
        if (!dst.check(name, dstride, 1)) return;
    }
}

void check_reduce(const HdrDsp &ref, const HdrDsp &opt, const ChromaCase *cs, int n) {
    for (int i = 0; i < n; ++i) {
        const ChromaCase &c = cs[i];
        const int stride = c.stride(), cpairs = c.pairs >> 1, crows = c.rows >> 1;
        const int out_values = (int)ceil8(2u * (unsigned)cpairs);
        // Source level: guard, rows, and the reads up to 2 * out_values + 3.
        BufPair g, t, tv, coarse;
        g.alloc(0, kGuard + (size_t)(c.rows - 1) * stride + 2 * out_values + 24);
        checkasm_fill_u8(g.r<uint8_t>(kGuard), stride, 2 * c.pairs, c.rows, case_pattern(i));
        g.sync();
        t.alloc(0, (size_t)c.rows * out_values * 2);
        run_both(ref, opt, [&](const HdrDsp &d, bool o) {
            d.chroma.reduce_h(t.p<int16_t>(o), g.p<int8_t>(o, kGuard), stride, c.pairs, c.rows);
        }, i == 0 ? "reduce_h 2080x1560" : nullptr);
        char name[96];
        CASE_NAME(name, "reduce_h", c);
        if (!g.check(name, stride, 1) || !t.check(name, out_values * 2, 2)) return;

        // Vertical half on its own inputs: the whole contract range of t.
        const int cstride = ((c.w >> 1) + 13) & ~7, trows = 2 * crows > 3 ? 2 * crows : 3;
        tv.alloc(0, (size_t)trows * out_values * 2);
        checkasm_fill_s16(tv.r<int16_t>(), out_values, out_values, trows, -2048, 2032, case_pattern(i + 1));
        tv.sync();
        coarse.alloc(0, (size_t)(crows - 1) * cstride + out_values);
        run_both(ref, opt, [&](const HdrDsp &d, bool o) {
            d.chroma.reduce_v(coarse.p<int8_t>(o), cstride, tv.p<int16_t>(o), 2 * cpairs, crows);
        }, i == 0 ? "reduce_v 2080x1560" : nullptr);
        CASE_NAME(name, "reduce_v", c);
        if (!coarse.check(name, cstride, 1)) return;
    }
}

// Expand of the coarser level (c.pairs >> 1 pairs, c.rows >> 1 rows) back to
// c.pairs x c.rows, then the band against the finer level.
void check_expand(const HdrDsp &ref, const HdrDsp &opt, const ChromaCase *cs, int n) {
    for (int i = 0; i < n; ++i) {
        const ChromaCase &c = cs[i];
        const int sp = c.pairs >> 1, srows = c.rows >> 1;
        if (sp < 1) continue;
        const int sstride = ((c.w >> 1) + 13) & ~7, stride = c.stride();
        const int pitch = (int)ceil8(2u * (unsigned)c.pairs);
        const int written = 2 * (int)ceil16(2u * (unsigned)sp);
        BufPair q, h, hv, g, band;
        q.alloc(0, kGuard + (size_t)(srows - 1) * sstride + ceil16(2u * sp) + 24);
        checkasm_fill_u8(q.r<uint8_t>(kGuard), sstride, 2 * sp, srows, case_pattern(i));
        q.sync();
        h.alloc(0, ((size_t)(srows - 1) * pitch + (written > 2 * c.pairs ? written : 2 * c.pairs)) * 2);
        run_both(ref, opt, [&](const HdrDsp &d, bool o) {
            d.chroma.expand_h(h.p<int16_t>(o), q.p<int8_t>(o, kGuard), sstride, sp, srows, c.pairs);
        }, i == 0 ? "expand_h 2080x1560" : nullptr);
        char name[96];
        CASE_NAME(name, "expand_h", c);
        if (!q.check(name, sstride, 1) || !h.check(name, pitch * 2, 2)) return;

        // Band: h rows in the expand's range, the finer level's bytes anything.
        hv.alloc(0, (size_t)srows * pitch * 2);
        checkasm_fill_s16(hv.r<int16_t>(), pitch, pitch, srows, -1024, 1016, case_pattern(i + 2));
        hv.sync();
        g.alloc(0, (size_t)c.rows * stride);
        checkasm_fill_u8(g.r<uint8_t>(), stride, stride, c.rows, case_pattern(i + 3));
        g.sync();
        band.alloc(0, ((size_t)(c.rows - 1) * stride + pitch) * 2);
        const int zero = i & 1;
        run_both(ref, opt, [&](const HdrDsp &d, bool o) {
            d.chroma.expand_band(band.p<int16_t>(o), stride, g.p<int8_t>(o), stride, hv.p<int16_t>(o),
                                 2 * c.pairs, c.rows, zero);
        }, i == 0 ? "expand_band 2080x1560" : nullptr);
        CASE_NAME(name, zero ? "expand_band (zero edges)" : "expand_band", c);
        if (!band.check(name, stride * 2, 2)) return;
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
        run_both(ref, opt, [&](const HdrDsp &d, bool o) {
            d.chroma.residual(r.p<int16_t>(o), stride, g.p<int8_t>(o), stride, 2 * c.pairs, c.rows);
        });
        char name[96];
        CASE_NAME(name, "residual", c);
        if (!r.check(name, stride * 2, 2)) return;
    }
}

} // namespace

CHECKASM_TEST(laplacian_chroma) {
    const HdrDsp &ref = checkasm_ref();
    const HdrDsp &opt = checkasm_opt();
    static ChromaCase cases[160], tall[160]; // the reduce and the expand need two rows
    const int n = chroma_cases(cases, 1), nt = chroma_cases(tall, 2);
    const ChromaDsp &r = ref.chroma, &o = opt.chroma;
    if (checkasm_check_func(o.copy_flip != r.copy_flip, "chroma_copy_flip"))
        check_copy_flip(ref, opt, cases, n);
    if (checkasm_check_func(o.reduce_h != r.reduce_h || o.reduce_v != r.reduce_v, "chroma_reduce"))
        check_reduce(ref, opt, tall, nt);
    if (checkasm_check_func(o.expand_h != r.expand_h || o.expand_band != r.expand_band, "chroma_expand"))
        check_expand(ref, opt, tall, nt);
    if (checkasm_check_func(o.residual != r.residual, "chroma_residual"))
        check_residual(ref, opt, cases, n);
}
