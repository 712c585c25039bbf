#include "registration/reg_dsp.h"

#include "varo_hdr.h"

namespace {

template <int Level>
decl_bitmap_row_fn(bitmap_row_c) {
    const unsigned pairs = (width + 31) >> 5;
    for (unsigned k = 0; k < pairs; ++k) {
        uint32_t t = 0, e = 0;
        for (unsigned b = 0; b < 32; ++b) {
            const unsigned c = 32 * k + b;
            if (c >= width) break;
            const uint8_t p = src[(size_t)c << Level];
            const uint8_t diff = p > median ? (uint8_t)(p - median) : (uint8_t)(median - p);
            t |= (uint32_t)(p > median) << (31 - b);
            e |= (uint32_t)(diff >= tolerance) << (31 - b);
        }
        dst[2 * k] = t;
        dst[2 * k + 1] = e;
    }
}

inline uint32_t popcount_tab(uint32_t d) {
    return (uint32_t)(bits_num[d >> 24] + bits_num[(d >> 16) & 255] + bits_num[(d >> 8) & 255] +
                      bits_num[d & 255]);
}

template <bool StoreDiff>
uint32_t row_error(const uint32_t *fixed, const uint32_t *moving, unsigned width_words,
                   unsigned shift, uint32_t *diff) {
    uint32_t err = 0;
    if (shift == 0) {
        // Aligned: the moving pair is used as it stands.
        for (unsigned k = 0; k < width_words; ++k) {
            const uint32_t d = (fixed[2 * k] ^ moving[2 * k]) & fixed[2 * k + 1] & moving[2 * k + 1];
            if (StoreDiff) diff[k] = d;
            err += popcount_tab(d);
        }
    } else {
        // Bits taken most-significant first across two neighbouring pairs.
        const unsigned back = 32 - shift;
        for (unsigned k = 0; k < width_words; ++k) {
            const uint32_t mt = (moving[2 * k] << shift) | (moving[2 * k + 2] >> back);
            const uint32_t me = (moving[2 * k + 1] << shift) | (moving[2 * k + 3] >> back);
            const uint32_t d = (fixed[2 * k] ^ mt) & fixed[2 * k + 1] & me;
            if (StoreDiff) diff[k] = d;
            err += popcount_tab(d);
        }
    }
    return err;
}

decl_bitmap_row_error_fn(bitmap_row_error_c) {
    return diff ? row_error<true>(fixed, moving, width_words, shift, diff)
                : row_error<false>(fixed, moving, width_words, shift, nullptr);
}

} // namespace

void reg_dsp_init_c(RegDsp *dsp) {
    dsp->bitmap_row[0] = bitmap_row_c<0>;
    dsp->bitmap_row[1] = bitmap_row_c<1>;
    dsp->bitmap_row[2] = bitmap_row_c<2>;
    dsp->bitmap_row[3] = bitmap_row_c<3>;
    dsp->bitmap_row[4] = bitmap_row_c<4>;
    dsp->bitmap_row[5] = bitmap_row_c<5>;
    dsp->bitmap_row_error = bitmap_row_error_c;
}
