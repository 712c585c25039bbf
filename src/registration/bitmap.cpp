// Median-threshold bitmap pyramid of one frame's luma.
#include <string.h>

#include "common/dsp.h"
#include "varo_hdr.h"

namespace {

enum { kLevels = VARO_HDR_BITMAP_LEVELS, kMarginRows = 64, kMarginPairs = 2 };

// Levels 0..3: every crop row whose index is a multiple of 2^L feeds level L.
void count_levels_0_3(const uint8_t *crop, uint32_t stride, uint32_t cw, uint32_t ch,
                      uint32_t hist[kLevels][256]) {
    for (uint32_t y = 0; y < ch; ++y) {
        const uint8_t *row = crop + (size_t)y * stride;
        for (int L = 0; L < 4; ++L) {
            if (y & ((1u << L) - 1)) break;
            for (uint32_t x = 0; x < cw; x += 1u << L) ++hist[L][row[x]];
        }
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

extern "C" VARO_HDR_API int BitmapCalc(const uint8_t *luma, uint32_t width, uint32_t height,
                                       HdrBitmapLevel *pyramid) {
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
        // the level without bounds checks.
        memset(lv.buffer, 0, lv.buffer_bytes);
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
