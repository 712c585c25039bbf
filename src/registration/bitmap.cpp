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

template <int Rank>
void count_row(const uint8_t *row, uint32_t cw, uint32_t cell[kCells][256]) {
    constexpr int c0 = 1 + Rank, c2 = 1 + (Rank < 1 ? Rank : 1), c4 = 1 + (Rank < 2 ? Rank : 2);
    for (uint32_t x = 0; x < cw; x += 8) { // cw is a multiple of 64
        const uint8_t *p = row + x;
        ++cell[c0][p[0]];
        ++cell[0][p[1]];
        ++cell[c2][p[2]];
        ++cell[0][p[3]];
        ++cell[c4][p[4]];
        ++cell[0][p[5]];
        ++cell[c2][p[6]];
        ++cell[0][p[7]];
    }
}

void count_levels_0_3(const uint8_t *crop, uint32_t stride, uint32_t cw, uint32_t ch,
                      uint32_t hist[kLevels][256]) {
    uint32_t cell[kCells][256];
    memset(cell, 0, sizeof(cell));
    for (uint32_t y = 0; y < ch; y += 8) { // ch is a multiple of 64
        const uint8_t *row = crop + (size_t)y * stride;
        count_row<3>(row, cw, cell);
        count_row<0>(row + stride, cw, cell);
        count_row<1>(row + 2 * stride, cw, cell);
        count_row<0>(row + 3 * stride, cw, cell);
        count_row<2>(row + 4 * stride, cw, cell);
        count_row<0>(row + 5 * stride, cw, cell);
        count_row<1>(row + 6 * stride, cw, cell);
        count_row<0>(row + 7 * stride, cw, cell);
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
