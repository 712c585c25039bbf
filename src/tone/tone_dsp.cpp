// Reference kernels of the output normalisation.
#include "tone/tone_dsp.h"

namespace {

decl_tone_stats_fn(tone_stats_c) {
    uint32_t nu = 0, no = 0;
    uint32_t su[4] = {0, 0, 0, 0}, so[4] = {0, 0, 0, 0}, qu[4] = {0, 0, 0, 0};
    uint64_t qo = 0;
    for (int y = 0; y < rows; ++y) {
        const int16_t *p = luma + y * stride;
        for (int x = 0; x < width16; ++x) {
            const int v = p[x];
            if (v < 0) {
                nu++;
                su[x & 3] += (uint32_t)v;
                qu[x & 3] += (uint32_t)(v * v);
            } else if (v > 255) {
                no++;
                so[x & 3] += (uint32_t)v;
                qo += (uint32_t)(v * v);
            }
        }
    }
    acc->under_count += nu;
    acc->over_count += no;
    for (int i = 0; i < 4; ++i) {
        acc->under_sum[i] += su[i];
        acc->under_sq[i] += qu[i];
        acc->over_sum[i] += so[i];
    }
    acc->over_sq += qo;
}

decl_tone_map_fn(tone_map_c) {
    for (int r = 0; r < row_pairs; ++r) {
        const int16_t *l0 = luma + 2 * r * luma_stride, *l1 = l0 + luma_stride;
        uint8_t *o0 = out_luma + 2 * r * out_pitch, *o1 = o0 + out_pitch;
        const int16_t *cin = chroma + r * chroma_stride;
        uint8_t *cout = out_chroma + r * out_pitch;
        tone_map_cols(o0, o1, cout, l0, l1, cin, 0, width8, c);
    }
}

} // namespace

void tone_dsp_init_c(ToneDsp *dsp) {
    dsp->stats = tone_stats_c;
    dsp->map = tone_map_c;
}
