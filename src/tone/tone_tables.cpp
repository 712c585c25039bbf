// Tone curves of the output normalisation.  With E entries, low table
// k (E = 64k) is round(i^2 / 2E) and high table k is round(255 - (E - i)^2 /
// 2E), round(t) = floor(t + 0.5), here in exact integer form.
#include "common/table_gen.h"
#include "varo_hdr.h"

namespace {
template <int E> constexpr uint8_t tone_low(int i) { return (uint8_t)((i * i + E) / (2 * E)); }
template <int E> constexpr uint8_t tone_high(int i) {
    return (uint8_t)((1022 * E - 2 * (E - i) * (E - i)) / (4 * E));
}
} // namespace

extern "C" {
const uint8_t tmap_tab_low1[64] = {TABLE_GEN64(tone_low<64>, 0)};
const uint8_t tmap_tab_low2[128] = {TABLE_GEN64(tone_low<128>, 0), TABLE_GEN64(tone_low<128>, 64)};
const uint8_t tmap_tab_low3[192] = {TABLE_GEN64(tone_low<192>, 0), TABLE_GEN64(tone_low<192>, 64),
                                    TABLE_GEN64(tone_low<192>, 128)};
const uint8_t tmap_tab_low4[256] = {TABLE_GEN256(tone_low<256>, 0)};
const uint8_t tmap_tab_high1[64] = {TABLE_GEN64(tone_high<64>, 0)};
const uint8_t tmap_tab_high2[128] = {TABLE_GEN64(tone_high<128>, 0), TABLE_GEN64(tone_high<128>, 64)};
const uint8_t tmap_tab_high3[192] = {TABLE_GEN64(tone_high<192>, 0), TABLE_GEN64(tone_high<192>, 64),
                                     TABLE_GEN64(tone_high<192>, 128)};
const uint8_t tmap_tab_high4[256] = {TABLE_GEN256(tone_high<256>, 0)};
}
