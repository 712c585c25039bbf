// The offset search behind OffsetCalc, for the library's own callers: it also
// says whether the search could not get its scratch block, in which case
// *offset_out was left as it was (the previous merge's offset) and 0 returned.
#pragma once
#include "varo_hdr.h"

uint32_t offset_search(const HdrBitmapLevel *fixed_pyramid, const HdrBitmapLevel *moving_pyramid,
                       HdrOffset *offset_out, bool *scratch_failed);
