// Kernels of the output normalisation: the wrapping statistics and the tone
// mapping with its chroma gain.
#include <algorithm>

#include "checkasm/checkasm.h"

CHECKASM_TEST(tone) {
    const ToneDsp &ref = checkasm_ref().tone, &opt = checkasm_opt().tone;
    if (checkasm_check_func(opt.stats != ref.stats, "tone_stats"))
        for (const CheckasmSize c : CheckasmSizes(4160, 3120, 16, 1)) {
            // The full frame at 32767 and a level all at -32768 make every 32-bit
            // partial sum and square wrap; smaller sizes are kept quick.
            const int w16 = c.w & ~15, stride = w16 + 8 * checkasm_rand_range(0, 2);
            int h = c.h;
            while (c.i > 0 && h > 2 && (long)w16 * h > (1 << 20)) h >>= 1;
            const bool full = c.i < 3 || (c.i & 1);
            const int lo = full ? -32768 : -300, hi = c.i == 1 ? -32768 : full ? 32767 : 600;
            CheckasmBufs b;
            const int luma = b.s16((size_t)h * stride, stride, stride, h, lo, hi, c.i == 0 ? PAT_MAX : c.i);
            // Random partials to add into; the reference scans the plane in one call, the
            // variant in random row ranges (some empty), which must wrap to the same partials.
            const int out = b.u8(sizeof(ToneAcc), 8);
            std::vector<int> cut{0};
            while (cut.back() < h) cut.push_back(std::min(h, cut.back() + checkasm_rand_range(0, h / 3 + 1)));
            b.run([&](const HdrDsp &d, bool o) {
                for (size_t k = 1; k < (o ? cut.size() : 2); ++k) {
                    const int y0 = o ? cut[k - 1] : 0, y1 = o ? cut[k] : h;
                    d.tone.stats(b.p<ToneAcc>(out, o), b.p<int16_t>(luma, o, (size_t)y0 * stride), stride, w16, y1 - y0);
                }
            }, c.i == 0, "stats %dx%d [%d, %d] in %d ranges", w16, h, lo, hi, (int)cut.size() - 1);
        }
    if (checkasm_check_func(opt.map != ref.map, "tone_map"))
        for (const CheckasmSize c : CheckasmSizes(4160, 3120, 8, 2)) {
            const int w8 = c.w & ~7, lstride = w8 + 8 * checkasm_rand_range(0, 2);
            const int cstride = w8 + 8 * checkasm_rand_range(0, 2), out_pitch = w8 + checkasm_rand_range(0, 20);
            int pairs = c.h >> 1;
            while (c.i > 0 && pairs > 1 && (long)w8 * pairs > (1 << 19)) pairs >>= 1;
            static const int16_t los[] = {-128, -96, -64, -32, 0}, his[] = {383, 351, 319, 287, 255};
            uint8_t lut[512];
            int32_t gain[512];
            for (uint8_t &v : lut) v = (uint8_t)checkasm_rand();
            ToneCurve curve;
            curve.lut = lut;
            curve.gain = gain;
            curve.lo = los[checkasm_rand_range(0, 4)];
            curve.hi = his[checkasm_rand_range(0, 4)];
            // Anchors near the range ends (zero divisors, both gain branches) or anywhere in 16 bits.
            const bool any = c.i % 4 == 3 || c.i % 8 == 4;
            curve.low_anchor = (int16_t)(any ? (int)checkasm_rand() : checkasm_rand_range(-200, 8));
            curve.high_anchor = (int16_t)(any ? (int)checkasm_rand() : checkasm_rand_range(250, 500));
            // A run the curve keeps (as between the real curves' knees) with the luma around it,
            // or the luma within the curve's range.
            const int ka = checkasm_rand_range(0, 100), kb = ka + checkasm_rand_range(0, 150);
            for (int v = ka; c.i % 4 == 2 && v <= kb && v <= curve.hi; ++v) lut[v - curve.lo] = (uint8_t)v;
            tone_gain_table(gain, lut, curve.lo, curve.hi, curve.low_anchor, curve.high_anchor);
            const int vlo[4] = {curve.lo, -32768, ka - 2, -200}, vhi[4] = {curve.hi, 32767, kb + 2, 500};
            CheckasmBufs b;
            const int luma = b.s16((size_t)2 * pairs * lstride, lstride, lstride, 2 * pairs, vlo[c.i % 4],
                                   vhi[c.i % 4], c.i);
            const int chroma = b.s16((size_t)pairs * cstride, cstride, cstride, pairs,
                                     c.i & 1 ? -32768 : -300, c.i & 1 ? 32767 : 300, c.i + 1);
            const int ol = b.u8((size_t)(2 * pairs - 1) * out_pitch + w8, out_pitch);
            const int oc = b.u8((size_t)(pairs - 1) * out_pitch + w8, out_pitch);
            b.run([&](const HdrDsp &d, bool o) {
                d.tone.map(b.p<uint8_t>(ol, o), b.p<uint8_t>(oc, o), out_pitch, b.p<int16_t>(luma, o), lstride,
                           b.p<int16_t>(chroma, o), cstride, w8, pairs, &curve);
            }, c.i == 0, "map %dx%d L %d U %d", w8, 2 * pairs, curve.low_anchor, curve.high_anchor);
        }
}
