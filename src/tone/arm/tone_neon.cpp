// NEON kernels of the output normalisation.
#include "common/neon.h"
#include "tone/tone_dsp.h"

namespace {

inline bool any_lane(uint16x8_t m) {
    const uint16x4_t r = vorr_u16(vget_low_u16(m), vget_high_u16(m));
    return vget_lane_u64(vreinterpret_u64_u16(r), 0) != 0;
}

// 16 values per step as two vectors a (values 0..7) and b (8..15).  Lane p of
// each 4-lane half holds a value whose index is p mod 4, so widening-adding
// the four halves into one 32-bit vector keeps partial sum p = values with
// index p mod 4, wrapping as the reference's uint32 partials do.
decl_tone_stats_fn(tone_stats_neon) {
    uint32x4_t nu = vdupq_n_u32(0), no = vdupq_n_u32(0);
    int32x4_t su = vdupq_n_s32(0), so = vdupq_n_s32(0), qu = vdupq_n_s32(0);
    int64x2_t qo = vdupq_n_s64(0);
    const int16x8_t zero = vdupq_n_s16(0), top = vdupq_n_s16(255);
    const uint16x8_t utop = vdupq_n_u16(255);
    for (int y = 0; y < rows; ++y) {
        const int16_t *p = luma + y * stride;
        uint16x8_t cu = vdupq_n_u16(0), co = vdupq_n_u16(0); // at most 2 per lane per block
        for (int x = 0; x < width16; x += 16) {
            const int16x8_t a = vld1q_s16(p + x), b = vld1q_s16(p + x + 8);
            // Read as unsigned, values below 0 and above 255 both exceed 255.
            if (!any_lane(vorrq_u16(vcgtq_u16(vreinterpretq_u16_s16(a), utop),
                                    vcgtq_u16(vreinterpretq_u16_s16(b), utop))))
                continue;
            const uint16x8_t ua = vcltq_s16(a, zero), ub = vcltq_s16(b, zero);
            const uint16x8_t oa = vcgtq_s16(a, top), ob = vcgtq_s16(b, top);
            if (any_lane(vorrq_u16(ua, ub))) {
                cu = vsubq_u16(vsubq_u16(cu, ua), ub);
                const int16x8_t ma = vandq_s16(a, vreinterpretq_s16_u16(ua));
                const int16x8_t mb = vandq_s16(b, vreinterpretq_s16_u16(ub));
                su = vaddw_s16(su, vget_low_s16(ma));
                su = vaddw_s16(su, vget_high_s16(ma));
                su = vaddw_s16(su, vget_low_s16(mb));
                su = vaddw_s16(su, vget_high_s16(mb));
                qu = vmlal_s16(qu, vget_low_s16(ma), vget_low_s16(ma));
                qu = vmlal_s16(qu, vget_high_s16(ma), vget_high_s16(ma));
                qu = vmlal_s16(qu, vget_low_s16(mb), vget_low_s16(mb));
                qu = vmlal_s16(qu, vget_high_s16(mb), vget_high_s16(mb));
            }
            if (any_lane(vorrq_u16(oa, ob))) {
                co = vsubq_u16(vsubq_u16(co, oa), ob);
                const int16x8_t ma = vandq_s16(a, vreinterpretq_s16_u16(oa));
                const int16x8_t mb = vandq_s16(b, vreinterpretq_s16_u16(ob));
                so = vaddw_s16(so, vget_low_s16(ma));
                so = vaddw_s16(so, vget_high_s16(ma));
                so = vaddw_s16(so, vget_low_s16(mb));
                so = vaddw_s16(so, vget_high_s16(mb));
                qo = vpadalq_s32(qo, vmull_s16(vget_low_s16(ma), vget_low_s16(ma)));
                qo = vpadalq_s32(qo, vmull_s16(vget_high_s16(ma), vget_high_s16(ma)));
                qo = vpadalq_s32(qo, vmull_s16(vget_low_s16(mb), vget_low_s16(mb)));
                qo = vpadalq_s32(qo, vmull_s16(vget_high_s16(mb), vget_high_s16(mb)));
            }
        }
        // Per-row lane counts stay below 2 * 4160 / 16, far from 16-bit overflow.
        nu = vpadalq_u16(nu, cu);
        no = vpadalq_u16(no, co);
    }
    uint32_t cnt[4], cnt2[4], a[4], b[4], c[4];
    uint64_t q[2];
    vst1q_u32(cnt, nu);
    vst1q_u32(cnt2, no);
    vst1q_u32(a, vreinterpretq_u32_s32(su));
    vst1q_u32(b, vreinterpretq_u32_s32(qu));
    vst1q_u32(c, vreinterpretq_u32_s32(so));
    vst1q_u64(q, vreinterpretq_u64_s64(qo));
    acc->under_count += cnt[0] + cnt[1] + cnt[2] + cnt[3];
    acc->over_count += cnt2[0] + cnt2[1] + cnt2[2] + cnt2[3];
    for (int i = 0; i < 4; ++i) {
        acc->under_sum[i] += a[i];
        acc->under_sq[i] += b[i];
        acc->over_sum[i] += c[i];
    }
    acc->over_sq += q[0] + q[1];
}

// Chroma of four pairs from their blocks' gain sums S:
// vmulq_s32 wraps like the reference's 32-bit product, vmovn keeps the low
// 16 bits of the >> 13, the + 256 wraps in 16 bits and vqmovun saturates.
inline void chroma_out(uint8_t *cout, const int16_t *cin, int32x4_t S) {
    const int32x4x2_t Sd = vzipq_s32(S, S);
    const int16x8_t d = vld1q_s16(cin);
    const int32x4_t pl = vmulq_s32(vmovl_s16(vget_low_s16(d)), Sd.val[0]);
    const int32x4_t ph = vmulq_s32(vmovl_s16(vget_high_s16(d)), Sd.val[1]);
    const int16x8_t t = vcombine_s16(vmovn_s32(vshrq_n_s32(pl, 13)), vmovn_s32(vshrq_n_s32(ph, 13)));
    const int16x8_t u = vshrq_n_s16(vaddq_s16(t, vdupq_n_s16(256)), 1);
    vst1_u8(cout, vqmovun_s16(u));
}

inline bool all_lanes(uint16x8_t m) {
    const uint16x4_t r = vand_u16(vget_low_u16(m), vget_high_u16(m));
    return vget_lane_u64(vreinterpret_u64_u16(r), 0) == ~(uint64_t)0;
}

// The longest run of inputs v (within 0..255 and the curve's range) that the
// curve keeps (lut v, gain exactly 4096); empty when lo > hi.
void identity_run(const ToneCurve *c, int *lo, int *hi) {
    *lo = 1, *hi = 0;
    int start = -1;
    for (int v = c->lo < 0 ? 0 : c->lo; v <= 256; ++v) {
        const bool keep = v <= 255 && v <= c->hi && c->lut[v - c->lo] == v && c->gain[v - c->lo] == 4096;
        if (keep && start < 0) start = v;
        if (!keep && start >= 0) {
            if (v - 1 - start > *hi - *lo) *lo = start, *hi = v - 1;
            start = -1;
        }
    }
}

// Eight columns of two rows per step, by the cheapest rule that holds for
// all sixteen values: inside the curve's identity run, y = v and every gain
// is 4096, so S = 16384 and (d * 16384) >> 13 kept to 16 bits is d << 1;
// inside the curve's range, y and the gain come from the tables, one lane at
// a time (there is no vector gather); otherwise each lane is clamped and,
// when outside the range, its gain divided out.
decl_tone_map_fn(tone_map_neon) {
    const int16x8_t lo = vdupq_n_s16(c->lo), hi = vdupq_n_s16(c->hi);
    const uint16x8_t span = vdupq_n_u16((uint16_t)(c->hi - c->lo));
    int id_lo, id_hi;
    identity_run(c, &id_lo, &id_hi);
    const int16x8_t ilo = vdupq_n_s16((int16_t)id_lo), ihi = vdupq_n_s16((int16_t)id_hi);
    const uint8_t *lut = c->lut;
    const int32_t *gain = c->gain;
    for (int r = 0; r < row_pairs; ++r) {
        const int16_t *lrow[2] = {luma + 2 * r * luma_stride, luma + (2 * r + 1) * luma_stride};
        uint8_t *orow[2] = {out_luma + 2 * r * out_pitch, out_luma + (2 * r + 1) * out_pitch};
        const int16_t *cin = chroma + r * chroma_stride;
        uint8_t *cout = out_chroma + r * out_pitch;
        for (int x = 0; x < width8; x += 8) {
            const int16x8_t v0 = vld1q_s16(lrow[0] + x), v1 = vld1q_s16(lrow[1] + x);
            const uint16x8_t id = vandq_u16(vandq_u16(vcgeq_s16(v0, ilo), vcleq_s16(v0, ihi)),
                                            vandq_u16(vcgeq_s16(v1, ilo), vcleq_s16(v1, ihi)));
            if (all_lanes(id)) {
                vst1_u8(orow[0] + x, vmovn_u16(vreinterpretq_u16_s16(v0)));
                vst1_u8(orow[1] + x, vmovn_u16(vreinterpretq_u16_s16(v1)));
                const int16x8_t t = vshlq_n_s16(vld1q_s16(cin + x), 1);
                vst1_u8(cout + x, vqmovun_s16(vshrq_n_s16(vaddq_s16(t, vdupq_n_s16(256)), 1)));
                continue;
            }
            const uint16x8_t i0 = vreinterpretq_u16_s16(vsubq_s16(v0, lo));
            const uint16x8_t i1 = vreinterpretq_u16_s16(vsubq_s16(v1, lo));
            if (all_lanes(vandq_u16(vcleq_u16(i0, span), vcleq_u16(i1, span)))) {
                uint16_t ix[2][8];
                vst1q_u16(ix[0], i0);
                vst1q_u16(ix[1], i1);
                int32_t S[4];
                for (int j = 0; j < 4; ++j) {
                    const unsigned a = ix[0][2 * j], b = ix[0][2 * j + 1];
                    const unsigned e = ix[1][2 * j], f = ix[1][2 * j + 1];
                    orow[0][x + 2 * j] = lut[a];
                    orow[0][x + 2 * j + 1] = lut[b];
                    orow[1][x + 2 * j] = lut[e];
                    orow[1][x + 2 * j + 1] = lut[f];
                    S[j] = gain[a] + gain[b] + gain[e] + gain[f];
                }
                chroma_out(cout + x, cin + x, vld1q_s32(S));
                continue;
            }
            int32_t g[2][8];
            for (int k = 0; k < 2; ++k) {
                const int16x8_t v = k ? v1 : v0;
                const int16x8_t idx = vsubq_s16(vminq_s16(vmaxq_s16(v, lo), hi), lo);
                int16_t ix[8];
                uint8_t yb[8];
                vst1q_s16(ix, idx);
                for (int i = 0; i < 8; ++i) yb[i] = lut[ix[i]];
                vst1_u8(orow[k] + x, vld1_u8(yb));
                int16_t vv[8];
                vst1q_s16(vv, v);
                for (int i = 0; i < 8; ++i)
                    g[k][i] = vv[i] == ix[i] + c->lo ? gain[ix[i]]
                                                     : tone_gain(vv[i], yb[i], c->low_anchor, c->high_anchor);
            }
            const int32x4_t c0 = vaddq_s32(vld1q_s32(g[0]), vld1q_s32(g[1]));
            const int32x4_t c1 = vaddq_s32(vld1q_s32(g[0] + 4), vld1q_s32(g[1] + 4));
            chroma_out(cout + x, cin + x, vcombine_s32(vpadd_s32(vget_low_s32(c0), vget_high_s32(c0)),
                                                       vpadd_s32(vget_low_s32(c1), vget_high_s32(c1))));
        }
    }
}

} // namespace

void tone_dsp_init_neon(ToneDsp *dsp) {
    dsp->stats = tone_stats_neon;
    dsp->map = tone_map_neon;
}
