// Kernels of the output normalisation: NEON against the references.
#include <stdio.h>

#include "checkasm/chroma_cases.h"
#include "common/arith.h"

namespace {

bool same_stats(const ToneStats &a, const ToneStats &b) {
    return a.under_count == b.under_count && a.over_count == b.over_count &&
           a.under_sum == b.under_sum && a.under_sq == b.under_sq && a.over_sum == b.over_sum &&
           a.over_sq == b.over_sq;
}

void check_stats(const HdrDsp &ref, const HdrDsp &opt) {
    int ws[64], hs[64];
    const int nw = checkasm_widths(ws, 4160), nh = checkasm_heights(hs, 3120);
    // The full frame with values far over and under range makes every 32-bit
    // partial sum wrap.
    const int extra = 3;
    for (int i = 0; i < nw + extra; ++i) {
        int w16, h;
        int lo = -300, hi = 600;
        if (i < extra) {
            w16 = 4160, h = 3120;
            lo = -32768, hi = 32767;
        } else {
            w16 = ws[i - extra] & ~15;
            h = hs[i % nh];
            while (h > 2 && (long)w16 * h > (1 << 20)) h >>= 1; // keep the suite quick
            if (i & 1) lo = -32768, hi = 32767;
        }
        const int stride = w16 + 8 * checkasm_rand_range(0, 2);
        CheckasmBuf buf;
        buf.alloc(0, (size_t)h * stride * 2, 64);
        CheckasmPattern pat = i < extra ? (i == 0 ? PAT_MAX : i == 1 ? PAT_ZERO : PAT_RANDOM)
                                        : case_pattern(i);
        if (i == 1) lo = -32768, hi = -32768; // all at the bottom: squares wrap
        checkasm_fill_s16(buf.as<int16_t>(), stride, stride, h, lo, hi, pat);
        ToneStats a, b;
        ref.tone.stats(&a, buf.as<int16_t>(), stride, w16, h);
        opt.tone.stats(&b, buf.as<int16_t>(), stride, w16, h);
        if (!same_stats(a, b)) {
            checkasm_fail("stats %dx%d [%d, %d]: ref n %u/%u sum %lld/%lld sq %lld/%lld, "
                          "opt n %u/%u sum %lld/%lld sq %lld/%lld", w16, h, lo, hi,
                          a.under_count, a.over_count, (long long)a.under_sum, (long long)a.over_sum,
                          (long long)a.under_sq, (long long)a.over_sq, b.under_count, b.over_count,
                          (long long)b.under_sum, (long long)b.over_sum, (long long)b.under_sq,
                          (long long)b.over_sq);
            return;
        }
        if (i == 2)
            CHECKASM_BENCH2("stats 4160x3120", ref.tone.stats(&a, buf.as<int16_t>(), stride, w16, h),
                            opt.tone.stats(&b, buf.as<int16_t>(), stride, w16, h));
    }
}

void check_map(const HdrDsp &ref, const HdrDsp &opt) {
    static const int16_t los[] = {-128, -96, -64, -32, 0};
    static const int16_t his[] = {383, 351, 319, 287, 255};
    int ws[64], hs[64];
    const int nw = checkasm_widths(ws, 4160), nh = checkasm_heights(hs, 3120);
    for (int i = 0; i < nw + 1; ++i) {
        const int w8 = i == 0 ? 4160 : ws[i - 1] & ~7;
        int pairs = i == 0 ? 1560 : (hs[i % nh] + 1) >> 1;
        if (w8 == 0) continue;
        while (i > 0 && pairs > 1 && (long)w8 * pairs > (1 << 19)) pairs >>= 1;
        const int lstride = w8 + 8 * checkasm_rand_range(0, 2);
        const int cstride = w8 + 8 * checkasm_rand_range(0, 2);
        const int out_pitch = w8 + checkasm_rand_range(0, 20);
        uint8_t lut[512];
        checkasm_randomize(lut, sizeof(lut));
        ToneCurve curve;
        curve.lut = lut;
        curve.lo = los[checkasm_rand_range(0, 4)];
        curve.hi = his[checkasm_rand_range(0, 4)];
        // Anchors near the range ends (zero divisors, both gain branches) or
        // anywhere in 16 bits.
        if (i % 4 == 3) {
            curve.low_anchor = (int16_t)checkasm_rand(), curve.high_anchor = (int16_t)checkasm_rand();
        } else {
            curve.low_anchor = (int16_t)checkasm_rand_range(-200, 8);
            curve.high_anchor = (int16_t)checkasm_rand_range(250, 500);
        }
        int32_t gain[512];
        tone_gain_table(gain, lut, curve.lo, curve.hi, curve.low_anchor, curve.high_anchor);
        curve.gain = gain;
        const int lo = (i % 4 == 1) ? -32768 : -200, hi = (i % 4 == 1) ? 32767 : 500;
        CheckasmBuf luma, chroma;
        luma.alloc(0, (size_t)2 * pairs * lstride * 2, 64);
        chroma.alloc(0, (size_t)pairs * cstride * 2, 64);
        checkasm_fill_s16(luma.as<int16_t>(), lstride, lstride, 2 * pairs, lo, hi, case_pattern(i));
        checkasm_fill_s16(chroma.as<int16_t>(), cstride, cstride, pairs, i & 1 ? -32768 : -300,
                          i & 1 ? 32767 : 300, case_pattern(i + 1));
        BufPair ol, oc;
        ol.alloc(0, (size_t)(2 * pairs - 1) * out_pitch + w8);
        oc.alloc(0, (size_t)(pairs - 1) * out_pitch + w8);
        run_both(ref, opt, [&](const HdrDsp &d, bool o) {
            d.tone.map(ol.p<uint8_t>(o), oc.p<uint8_t>(o), out_pitch, luma.as<int16_t>(), lstride,
                       chroma.as<int16_t>(), cstride, w8, pairs, &curve);
        }, i == 0 ? "map 4160x3120" : nullptr);
        char name[96];
        snprintf(name, sizeof(name), "map %dx%d L %d U %d", w8, 2 * pairs, curve.low_anchor,
                 curve.high_anchor);
        if (!ol.check(name, out_pitch, 1) || !oc.check(name, out_pitch, 1)) return;
    }
}

} // namespace

CHECKASM_TEST(normalize) {
    const HdrDsp &ref = checkasm_ref();
    const HdrDsp &opt = checkasm_opt();
    if (checkasm_check_func(opt.tone.stats != ref.tone.stats, "tone_stats")) check_stats(ref, opt);
    if (checkasm_check_func(opt.tone.map != ref.tone.map, "tone_map")) check_map(ref, opt);
}
