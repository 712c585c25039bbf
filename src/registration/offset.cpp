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

// Errors of the nine candidates (cx0 + dx, cy0 + dy), dy then dx from -1 to
// 1: fixed pixel (r, c) against moving pixel (r - cy, c - cx), summed over
// the fixed level.  Rows and columns outside the moving level land in its
// zero margins and add nothing.  Row by row, all nine at once: the fixed
// row and the three moving rows it meets stay in the first-level cache,
// where candidate after candidate would stream the level nine times.
void candidate_errors(const RegDsp &dsp, const HdrBitmapLevel &fixed, const HdrBitmapLevel &moving,
                      int cx0, int cy0, uint32_t err[9]) {
    ptrdiff_t first_pair[3];
    unsigned shift[3];
    for (int i = 0; i < 3; ++i) {
        const int cx = cx0 + i - 1;
        first_pair[i] = (ptrdiff_t)(-cx) >> 5; // floor(-cx / 32)
        shift[i] = (unsigned)(-cx) & 31;
    }
    const ptrdiff_t mpitch = (ptrdiff_t)moving.stride_words * 2;
    for (int c = 0; c < 9; ++c) err[c] = 0;
    for (uint32_t r = 0; r < fixed.rows; ++r) {
        const uint32_t *frow = fixed.bits + (size_t)r * fixed.stride_words * 2;
        for (int j = 0; j < 3; ++j) {
            const uint32_t *mrow = moving.bits + ((ptrdiff_t)r - (cy0 + j - 1)) * mpitch;
            for (int i = 0; i < 3; ++i)
                err[3 * j + i] += dsp.bitmap_row_error(frow, mrow + 2 * first_pair[i], fixed.width_words,
                                                       shift[i], nullptr);
        }
    }
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
    // The level-0 difference map that the scratch is sized for has no
    // reader, so it is not stored; the block is still taken (and its
    // failure reported) as callers expect.
    const RegDsp &dsp = hdr_dsp()->reg;
    int x = 0, y = 0;
    uint32_t min_err_bits = 0;
    for (int L = VARO_HDR_BITMAP_LEVELS - 1; L >= 0; --L) {
        uint32_t err[9];
        candidate_errors(dsp, fixed_pyramid[L], moving_pyramid[L], 2 * x, 2 * y, err);
        const int x0 = x, y0 = y;
        min_err_bits = UINT32_MAX;
        for (int c = 0; c < 9; ++c)
            if (err[c] < min_err_bits) { // ties keep the earlier candidate
                min_err_bits = err[c];
                x = 2 * x0 + c % 3 - 1;
                y = 2 * y0 + c / 3 - 1;
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
