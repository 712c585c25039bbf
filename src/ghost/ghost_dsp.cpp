#include "ghost/ghost_dsp.h"

#include "varo_hdr.h"

namespace {

inline void mask_chunk(const uint8_t *src, uint8_t *dst, unsigned n, uint8_t threshold) {
    for (unsigned i = 0; i < n; ++i) dst[i] = src[i] >= threshold ? 255 : 0;
}

decl_mask_rows_fn(mask_rows_c) {
    for (int row = 0; row < 2; ++row) {
        const uint8_t *s = src + row * src_stride;
        uint8_t *d = dst + row * dst_stride;
        unsigned x = 0;
        for (; x + 16 <= width; x += 16) mask_chunk(s + x, d + x, 16, threshold);
        if (x + 8 <= width) {
            mask_chunk(s + x, d + x, 8, threshold);
            x += 8;
        }
        if (x + 4 <= width) mask_chunk(s + x, d + x, 4, threshold);
    }
}

// |value - predicted| / side in single precision, the difference taken as an
// 8-bit value.  side 0 gives inf, or NaN when the difference is 0 too (NaN
// compares as not greater than any threshold).
inline float relative_diff(unsigned diff, unsigned side) { return (float)(uint8_t)diff / (float)(uint8_t)side; }

template <class T> void build_cut(MotionCut *c, T t) {
    int least[256]; // smallest passing diff per side, 256: none
    bool every = false;
    for (int side = 0; side < 256; ++side) {
        // The passing diffs are upward closed: bisect instead of trying all
        // 256 (a division each, per side and merge, is felt on a small core).
        int lo = 0, hi = 256;
        while (lo < hi) {
            const int mid = (lo + hi) >> 1;
            if (relative_diff(mid, side) > t) hi = mid;
            else lo = mid + 1;
        }
        least[side] = lo;
        every |= lo == 0;
    }
    c->inclusive = every;
    for (int side = 0; side < 256; ++side)
        c->bound[side] = (uint8_t)(every ? least[side] : least[side] - 1);
}

inline uint8_t absdiff(uint8_t x, uint8_t y) { return x > y ? (uint8_t)(x - y) : (uint8_t)(y - x); }

decl_motion_row_fn(motion_row_c) { return motion_row_tail_c(dst, src, mask, 0, width, rules); }

} // namespace

void motion_cut_build(MotionCut *c, float t) { build_cut(c, t); }
void motion_cut_build(MotionCut *c, double t) { build_cut(c, t); }

uint32_t motion_row_tail_c(uint8_t *const dst[3], const uint8_t *const src[3], uint8_t *const mask[3],
                           unsigned from, unsigned width, const MotionRules *rules) {
    // Local pointers: the stores below could otherwise alias the arrays.
    const uint8_t *const sa = src[AE_IDX], *const sl = src[LE_IDX], *const sh = src[HE_IDX];
    uint8_t *const da = dst[AE_IDX], *const dl = dst[LE_IDX], *const dh = dst[HE_IDX];
    uint8_t *const mka = mask[AE_IDX], *const mkl = mask[LE_IDX], *const mkh = mask[HE_IDX];
    uint32_t counted = 0;
    for (unsigned x = from; x < width; ++x) {
        const uint8_t a = sa[x], h = sh[x];
        uint8_t l = sl[x], ae = a, ma = 1, ml = 1, mh = 1;
        if (rules->le_rule != MOTION_LE_OFF) {
            const uint8_t p = rules->le_predict[a];
            const bool pass = motion_cut_passes(&rules->le_cut, absdiff(l, p), l);
            switch (rules->le_rule) {
            case MOTION_LE_SHORT:
                if (a <= 219 && pass) ml = 0;
                if (l <= 127 && a >= 221 && pass) ml = 0, l = p;
                break;
            case MOTION_LE_MILD:
                if (pass) ml = 0, ma = 255;
                break;
            default: // MOTION_LE_MILD_LONG
                if (a < l) ml = 0;
                else if (l <= 191 && pass) ml = 0, l = p;
            }
        }
        if (rules->he_rule != MOTION_HE_OFF) {
            const uint8_t p = rules->he_predict[h];
            const bool pass = motion_cut_passes(&rules->he_cut, absdiff(a, p), h);
            if (rules->he_rule == MOTION_HE_SHORT) {
                if (pass) mh = 0, ma = 255;
            } else {
                if (h <= 220 && pass) ma = 0, ml = 0, ae = p;
                if (l > h) ml = 0;
                if (h >= 221 && a <= 127 && pass) ma = 0, ml = 0, ae = p, ++counted;
                // A bright LE pixel under a saturated HE pixel is kept, even
                // if the LE rules dropped it.
                if (h >= 241 && l >= 129 && ml == 0) ml = 1;
            }
        }
        da[x] = ae, dl[x] = l, dh[x] = h;
        mka[x] = ma, mkl[x] = ml, mkh[x] = mh;
    }
    return counted;
}

void ghost_dsp_init_c(GhostDsp *dsp) {
    dsp->mask_rows = mask_rows_c;
    dsp->motion_row = motion_row_c;
}
