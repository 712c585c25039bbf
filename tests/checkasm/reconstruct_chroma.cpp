// Kernels of the chroma reconstruction: NEON against the references over
// whole buffers, including the blend's spill onto the next row and the
// collapse's in-place pads.
#include "checkasm/chroma_cases.h"

namespace {

void check_blend(const HdrDsp &ref, const HdrDsp &opt, const ChromaCase *cs, int n) {
    for (int i = 0; i < n; ++i) {
        ChromaCase c = cs[i];
        // Every third case at a level width of residue 2 mod 16, where a
        // row's last step lands on the next row.
        if (i % 3 == 2 && c.pairs > 8) c.w = (c.w & ~15) + 2, c.pairs = c.w >> 1;
        const int stride = c.stride(), wstride = (c.pairs + 10) & ~7;
        const int values = 2 * (int)ceil8((unsigned)c.pairs);
        BufPair b[3], w[3];
        for (int f = 0; f < 3; ++f) {
            b[f].alloc(0, ((size_t)(c.rows - 1) * stride + values) * 2);
            // Full 16-bit range: the low 16 bits of the result are the contract.
            checkasm_fill_s16(b[f].r<int16_t>(), stride, values < stride ? values : stride, c.rows,
                              -32768, 32767, case_pattern(i + f));
            b[f].sync();
            w[f].alloc(0, (size_t)(c.rows - 1) * wstride + ceil8(c.pairs));
            checkasm_fill_u8(w[f].r<uint8_t>(), wstride, (int)ceil8(c.pairs), c.rows, case_pattern(i + 3 + f));
            w[f].sync();
        }
        run_both(ref, opt, [&](const HdrDsp &d, bool o) {
            d.chroma.blend(b[0].p<int16_t>(o), b[1].p<int16_t>(o), b[2].p<int16_t>(o), stride,
                           w[0].p<uint8_t>(o), w[1].p<uint8_t>(o), w[2].p<uint8_t>(o), wstride,
                           c.pairs, c.rows);
        }, i == 0 ? "blend 2080x1560" : nullptr);
        char name[96];
        CASE_NAME(name, "blend", c);
        if (!b[0].check(name, stride * 2, 2) || !b[1].check(name, stride * 2, 2)) return;
    }
}

// Collapse of the coarser level (c.pairs >> 1, c.rows >> 1) into c.
void check_collapse(const HdrDsp &ref, const HdrDsp &opt, const ChromaCase *cs, int n) {
    for (int i = 0; i < n; ++i) {
        const ChromaCase &c = cs[i];
        const int sp = c.pairs >> 1, srows = c.rows >> 1;
        if (sp < 1) continue;
        const int sstride = ((c.w >> 1) + 13) & ~7, stride = c.stride();
        const int pitch = (int)ceil8(2u * (unsigned)c.pairs);
        const int svalues = (int)ceil8(2u * (unsigned)sp);
        const int guard = 8; // elements
        // Values anywhere in 16 bits: the sums wrap by contract.
        const int lo = (i & 1) ? -32768 : -600, hi = (i & 1) ? 32767 : 600;
        BufPair q, h, hv, d;
        q.alloc(0, (guard + (size_t)(srows - 1) * sstride + svalues + 16) * 2);
        checkasm_fill_s16(q.r<int16_t>(2 * guard), sstride, sstride, srows, lo, hi, case_pattern(i));
        q.sync();
        h.alloc(0, ((size_t)(srows - 1) * pitch + (svalues > c.pairs ? 2 * svalues : 2 * c.pairs)) * 2);
        run_both(ref, opt, [&](const HdrDsp &t, bool o) {
            t.chroma.collapse_h(h.p<int16_t>(o), q.p<int16_t>(o, 2 * guard), sstride, sp, srows, c.pairs);
        }, i == 0 ? "collapse_h 2080x1560" : nullptr);
        char name[96];
        CASE_NAME(name, "collapse_h", c);
        if (!q.check(name, sstride * 2, 2) || !h.check(name, pitch * 2, 2)) return;

        hv.alloc(0, (size_t)srows * pitch * 2);
        checkasm_fill_s16(hv.r<int16_t>(), pitch, pitch, srows, lo, hi, case_pattern(i + 1));
        hv.sync();
        d.alloc(0, ((size_t)(c.rows - 1) * stride + pitch) * 2);
        checkasm_fill_s16(d.r<int16_t>(), stride, pitch, c.rows, lo, hi, case_pattern(i + 2));
        d.sync();
        run_both(ref, opt, [&](const HdrDsp &t, bool o) {
            t.chroma.collapse_v(d.p<int16_t>(o), stride, hv.p<int16_t>(o), 2 * c.pairs, c.rows);
        }, i == 0 ? "collapse_v 2080x1560" : nullptr);
        CASE_NAME(name, "collapse_v", c);
        if (!d.check(name, stride * 2, 2)) return;
    }
}

} // namespace

CHECKASM_TEST(reconstruct_chroma) {
    const HdrDsp &ref = checkasm_ref();
    const HdrDsp &opt = checkasm_opt();
    static ChromaCase cases[160];
    const int n = chroma_cases(cases, 2);
    const ChromaDsp &r = ref.chroma, &o = opt.chroma;
    if (checkasm_check_func(o.blend != r.blend, "chroma_blend")) check_blend(ref, opt, cases, n);
    if (checkasm_check_func(o.collapse_h != r.collapse_h || o.collapse_v != r.collapse_v, "chroma_collapse"))
        check_collapse(ref, opt, cases, n);
}
