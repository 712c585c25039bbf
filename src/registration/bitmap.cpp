// Median-threshold bitmap pyramid of one frame's luma.
#include <string.h>

#include "common/dsp.h"
#include "registration/bitmap.h"
#include "varo_hdr.h"

namespace {

enum { kLevels = VARO_HDR_BITMAP_LEVELS, kMarginRows = 64, kMarginPairs = 2 };

// Levels 0..3 in one pass, one counter increment per crop pixel: pixel
// (y, x) belongs to levels 0 .. min(rank(y), rank(x)), rank(i) being the
// number of trailing zero bits of i capped at 3.  It is counted once, in
// cell 1 + that minimum (cell 0 for odd x), and level L's histogram is the
// sum of cells 1 + L .. 4 (level 0 adds cell 0).  Neighbouring pixels fall
// into different cells, which also keeps runs of equal values from
// serialising on one counter.
enum { kCells = 5 };

// One crop row of rank `rank`: x = 8k goes to cell 1 + rank, x = 8k + 4 to
// cell 1 + min(rank, 2), x = 8k + 2 and 8k + 6 to cell 1 + min(rank, 1), odd
// x to cell 0.  The cells come in as separate pointers so that each counter
// is addressed as base + value * 4 in one instruction.
void count_row(const uint8_t *row, uint32_t cw, uint32_t *odd, uint32_t *c0, uint32_t *c2,
               uint32_t *c4) {
    for (const uint8_t *p = row, *end = row + cw; p < end; p += 8) { // cw is a multiple of 64
        ++c0[p[0]];
        ++odd[p[1]];
        ++c2[p[2]];
        ++odd[p[3]];
        ++c4[p[4]];
        ++odd[p[5]];
        ++c2[p[6]];
        ++odd[p[7]];
    }
}

void count_levels_0_3(const uint8_t *crop, uint32_t stride, uint32_t cw, uint32_t ch,
                      uint32_t hist[kLevels][256]) {
    uint32_t cell[kCells][256];
    memset(cell, 0, sizeof(cell));
    uint32_t *const c[kCells] = {cell[0], cell[1], cell[2], cell[3], cell[4]};
    for (uint32_t y = 0; y < ch; y += 8) { // ch is a multiple of 64
        const uint8_t *row = crop + (size_t)y * stride;
        count_row(row, cw, c[0], c[4], c[2], c[3]);
        count_row(row + stride, cw, c[0], c[1], c[1], c[1]);
        count_row(row + 2 * stride, cw, c[0], c[2], c[2], c[2]);
        count_row(row + 3 * stride, cw, c[0], c[1], c[1], c[1]);
        count_row(row + 4 * stride, cw, c[0], c[3], c[2], c[3]);
        count_row(row + 5 * stride, cw, c[0], c[1], c[1], c[1]);
        count_row(row + 6 * stride, cw, c[0], c[2], c[2], c[2]);
        count_row(row + 7 * stride, cw, c[0], c[1], c[1], c[1]);
    }
    for (int v = 0; v < 256; ++v) {
        hist[3][v] = cell[4][v];
        hist[2][v] = hist[3][v] + cell[3][v];
        hist[1][v] = hist[2][v] + cell[2][v];
        hist[0][v] = hist[1][v] + cell[1][v] + cell[0][v];
    }
}

// Levels 4 and 5: only every sixteenth crop row can hold their samples.
void count_levels_4_5(const uint8_t *crop, uint32_t stride, uint32_t cw, uint32_t ch,
                      uint32_t hist[kLevels][256]) {
    for (uint32_t y = 0; y < ch; y += 16) {
        const uint8_t *row = crop + (size_t)y * stride;
        for (uint32_t x = 0; x < cw; x += 16) ++hist[4][row[x]];
        if (y & 31) continue;
        for (uint32_t x = 0; x < cw; x += 32) ++hist[5][row[x]];
    }
}

uint8_t level_median(const uint32_t hist[256], uint32_t half) {
    uint32_t sum = 0;
    for (int v = 0; v < 256; ++v) {
        sum += hist[v];
        if (sum >= half) return (uint8_t)v;
    }
    return 0;
}

} // namespace

int bitmap_calc(const uint8_t *luma, uint32_t width, uint32_t height, HdrBitmapLevel *pyramid,
                bool whole_buffers) {
    // A centred crop of three quarters of each side, whole multiples of 64
    // so that every level keeps an integer size down to level 5.
    const uint32_t cw = ((3 * width) >> 8) * 64;
    const uint32_t ch = ((3 * height) >> 8) * 64;
    const uint8_t *crop = luma + (size_t)((height - ch) >> 1) * width + ((width - cw) >> 1);

    uint32_t hist[kLevels][256];
    memset(hist, 0, sizeof(hist));
    count_levels_0_3(crop, width, cw, ch, hist);
    count_levels_4_5(crop, width, cw, ch, hist);

    uint8_t median[kLevels], tolerance[kLevels];
    for (int L = kLevels - 1; L >= 0; --L) {
        const uint32_t half = ((cw >> L) * (ch >> L)) >> 1;
        median[L] = level_median(hist[L], half);
        // Near black or white a tolerance of 4 would exclude almost every pixel.
        tolerance[L] = (median[L] <= 4 || median[L] >= 251) ? 1 : 4;
    }

    for (int L = kLevels - 1; L >= 0; --L) {
        HdrBitmapLevel &lv = pyramid[L];
        lv.width_words = ((cw >> L) >> 5) + 1;
        lv.rows = ch >> L;
        lv.stride_words = lv.width_words + 2 * kMarginPairs;
        lv.bits = (uint32_t *)(lv.buffer + (size_t)kMarginRows * lv.stride_words * 8 +
                               kMarginPairs * 8);
        // Zero margins let the offset search read up to 63 pixels outside
        // the level without bounds checks.  Its reads stay within the
        // 64 + rows + 64 rows of this size's stride.
        size_t bytes = lv.buffer_bytes;
        if (!whole_buffers) {
            const size_t used = ((size_t)lv.rows + 2 * kMarginRows) * lv.stride_words * 8;
            if (used < bytes) bytes = used;
        }
        memset(lv.buffer, 0, bytes);
    }
    if (ch == 0) return 0;

    const RegDsp &dsp = hdr_dsp()->reg;
    for (int L = 0; L < kLevels; ++L) {
        const HdrBitmapLevel &lv = pyramid[L];
        for (uint32_t r = 0; r < lv.rows; ++r)
            dsp.bitmap_row[L](crop + ((size_t)r << L) * width, cw >> L, median[L], tolerance[L],
                              lv.bits + (size_t)r * lv.stride_words * 2);
    }
    return 0;
}

extern "C" VARO_HDR_API int BitmapCalc(const uint8_t *luma, uint32_t width, uint32_t height,
                                       HdrBitmapLevel *pyramid) {
    return bitmap_calc(luma, width, height, pyramid, true);
}
