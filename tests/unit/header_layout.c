/* The public header compiles as C, and on 32-bit Arm every descriptor field
 * sits at its fixed word (1-based word numbers as the host documents them). */
#include <stddef.h>

#include "varo_hdr.h"

#define WORD(field) (offsetof(HdrInput, field) / 4 + 1)

#if defined(__arm__)
_Static_assert(WORD(frame[HE_IDX].luma) == 1, "HE luma");
_Static_assert(WORD(frame[HE_IDX].chroma) == 2, "HE chroma");
_Static_assert(WORD(frame[LE_IDX].luma) == 6, "LE luma");
_Static_assert(WORD(frame[LE_IDX].chroma) == 7, "LE chroma");
_Static_assert(WORD(frame[AE_IDX].luma) == 11, "AE luma");
_Static_assert(WORD(frame[AE_IDX].chroma) == 12, "AE chroma");
_Static_assert(WORD(exposure[HE_IDX].exposure_scale) == 13, "HE scale");
_Static_assert(WORD(exposure[HE_IDX].exposure_units) == 14, "HE units");
_Static_assert(WORD(exposure[LE_IDX].exposure_scale) == 15, "LE scale");
_Static_assert(WORD(exposure[AE_IDX].exposure_units) == 18, "AE units");
_Static_assert(WORD(width) == 24, "width");
_Static_assert(WORD(height) == 25, "height");
_Static_assert(WORD(out_x) == 57, "out_x");
_Static_assert(WORD(out_y) == 58, "out_y");
_Static_assert(WORD(out_width) == 59, "out_width");
_Static_assert(WORD(out_height) == 60, "out_height");
_Static_assert(sizeof(HdrInput) == 60 * 4, "descriptor size");
_Static_assert(sizeof(HdrBitmapLevel) == 6 * 4, "bitmap level record");
#endif
_Static_assert(offsetof(HdrInput, exposure) ==
                   offsetof(HdrInput, frame[AE_IDX].chroma) + sizeof(uint8_t *),
               "exposures follow the AE chroma pointer");

int header_layout_c_width(const HdrInput *in) { return in->width; }
