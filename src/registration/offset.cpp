// Coarse-to-fine search for the whole-pixel shift between two bitmap pyramids.
#include <stdio.h>

#include "common/dsp.h"
#include "common/log.h"
#include "registration/offset_search.h"
#include "varo_hdr.h"

#define B2(n) n, n + 1, n + 1, n + 2
#define B4(n) B2(n), B2(n + 1), B2(n + 1), B2(n + 2)
#define B6(n) B4(n), B4(n + 1), B4(n + 1), B4(n + 2)
extern "C" VARO_HDR_API const int32_t bits_num[256] = {B6(0), B6(1), B6(1), B6(2)};
#undef B2
#undef B4
#undef B6

namespace {

// Error of candidate (cx, cy): fixed pixel (r, c) against moving pixel
// (r - cy, c - cx), summed over the fixed level.  Rows and columns outside the
// moving level land in its zero margins and add nothing.
uint32_t candidate_error(const RegDsp &dsp, const HdrBitmapLevel &fixed,
                         const HdrBitmapLevel &moving, int cx, int cy, uint32_t *diff) {
    const ptrdiff_t first_pair = (ptrdiff_t)(-cx) >> 5; // floor(-cx / 32)
    const unsigned shift = (unsigned)(-cx) & 31;
    uint32_t err = 0;
    for (uint32_t r = 0; r < fixed.rows; ++r) {
        const uint32_t *frow = fixed.bits + (size_t)r * fixed.stride_words * 2;
        const uint32_t *mrow =
            moving.bits + ((ptrdiff_t)r - cy) * (ptrdiff_t)moving.stride_words * 2 + 2 * first_pair;
        err += dsp.bitmap_row_error(frow, mrow, fixed.width_words, shift,
                                    diff ? diff + (size_t)r * fixed.width_words : nullptr);
    }
    return err;
}

} // namespace

uint32_t offset_search(const HdrBitmapLevel *fixed_pyramid, const HdrBitmapLevel *moving_pyramid,
                       HdrOffset *offset_out, bool *scratch_failed) {
    *scratch_failed = false;
    const size_t map_words = (size_t)moving_pyramid[0].width_words * moving_pyramid[0].rows;
    uint32_t *scratch = (uint32_t *)align_malloc(16 + 8 * map_words, 64);
    if (!scratch) {
        puts("malloc failed");
        *scratch_failed = true;
        return 0;
    }
    const RegDsp &dsp = hdr_dsp()->reg;
    int x = 0, y = 0;
    uint32_t min_err_bits = 0;
    for (int L = VARO_HDR_BITMAP_LEVELS - 1; L >= 0; --L) {
        const int x0 = x, y0 = y;
        min_err_bits = UINT32_MAX;
        // Level 0 keeps the best candidate's difference map in one half while
        // the next candidate writes the other.
        unsigned half = 0;
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                const int cx = 2 * x0 + dx, cy = 2 * y0 + dy;
                uint32_t *diff = L == 0 ? scratch + half * map_words : nullptr;
                const uint32_t err =
                    candidate_error(dsp, fixed_pyramid[L], moving_pyramid[L], cx, cy, diff);
                if (err < min_err_bits) { // ties keep the earlier candidate
                    min_err_bits = err;
                    x = cx;
                    y = cy;
                    half ^= 1;
                }
            }
        HDR_LOG_AS("OffsetCalc", "offset: (%d, %d) , min_err_bits %d\n", x, y, min_err_bits);
    }
    offset_out->x = x;
    offset_out->y = y;
    align_free(scratch);
    return min_err_bits;
}

extern "C" VARO_HDR_API uint32_t OffsetCalc(const HdrBitmapLevel *fixed_pyramid,
                                            const HdrBitmapLevel *moving_pyramid,
                                            HdrOffset *offset_out) {
    bool scratch_failed;
    return offset_search(fixed_pyramid, moving_pyramid, offset_out, &scratch_failed);
}
