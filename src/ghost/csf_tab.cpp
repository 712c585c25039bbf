// Camera response: pixel value to linear value and back.
#include "varo_hdr.h"

#define CSF_VALUES                                                                              \
    18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 30, 31, 32, 33, 34, 35, 37, 38, 39, 40, 41, 43,   \
        44, 45, 46, 47, 48, 50, 51, 52, 53, 54, 56, 57, 58, 59, 60, 61, 63, 64, 65, 66, 67, 69,   \
        70, 71, 72, 74, 75, 76, 77, 79, 80, 81, 83, 84, 85, 87, 88, 90, 91, 92, 94, 95, 97, 98,   \
        100, 101, 103, 104, 106, 108, 109, 111, 113, 114, 116, 118, 120, 121, 123, 125, 127, 129, \
        131, 133, 135, 137, 139, 141, 144, 146, 148, 150, 153, 155, 158, 160, 163, 165, 168, 170, \
        173, 176, 178, 181, 184, 187, 190, 193, 196, 199, 202, 205, 209, 212, 215, 219, 222, 226, \
        229, 233, 237, 240, 244, 248, 252, 256, 260, 264, 268, 272, 277, 281, 285, 290, 294, 299, \
        303, 308, 312, 317, 322, 327, 332, 336, 341, 346, 351, 357, 362, 367, 372, 377, 382, 388, \
        393, 399, 404, 410, 415, 421, 426, 432, 438, 443, 449, 455, 461, 467, 473, 479, 485, 491, \
        497, 503, 509, 515, 522, 528, 535, 541, 548, 555, 562, 569, 577, 584, 592, 600, 607, 616, \
        624, 632, 641, 650, 659, 668, 677, 687, 697, 707, 717, 727, 737, 748, 759, 770, 781, 793, \
        804, 816, 828, 840, 853, 865, 878, 891, 905, 918, 932, 946, 960, 975, 990, 1005, 1021,    \
        1036, 1053, 1069, 1086, 1103, 1121, 1139, 1158, 1177, 1196, 1216, 1236, 1256, 1278, 1299, \
        1321, 1343, 1366, 1390, 1414, 1438, 1463, 1488, 1514, 1541, 1568, 1595, 1623

extern "C" VARO_HDR_API const int16_t csf_tab[256] = {CSF_VALUES};

namespace {

constexpr int16_t kCsf[256] = {CSF_VALUES};

// The pixel value whose linear value is nearest to v; the larger value wins
// a tie.  Evaluated by the compiler, so the table below is plain constant data.
constexpr uint8_t inverse_csf(int v) {
    int best = 0, best_dist = 1 << 30;
    for (int i = 0; i < 256; ++i) {
        const int dist = kCsf[i] > v ? kCsf[i] - v : v - kCsf[i];
        if (dist <= best_dist) {
            best = i;
            best_dist = dist;
        }
    }
    return (uint8_t)best;
}

} // namespace

#define INV1(i) inverse_csf(i)
#define INV8(i) INV1(i), INV1(i + 1), INV1(i + 2), INV1(i + 3), INV1(i + 4), INV1(i + 5), \
                INV1(i + 6), INV1(i + 7)
#define INV64(i) INV8(i), INV8(i + 8), INV8(i + 16), INV8(i + 24), INV8(i + 32), INV8(i + 40), \
                 INV8(i + 48), INV8(i + 56)
#define INV512(i) INV64(i), INV64(i + 64), INV64(i + 128), INV64(i + 192), INV64(i + 256), \
                  INV64(i + 320), INV64(i + 384), INV64(i + 448)

extern "C" VARO_HDR_API const uint8_t inv_csf_tab[1624] = {
    INV512(0), INV512(512), INV512(1024), INV64(1536), INV8(1600), INV8(1608), INV8(1616)};

static_assert(inverse_csf(29) == 11 && inverse_csf(1609) == 255 && inverse_csf(18) == 0,
              "nearest-value rule");
