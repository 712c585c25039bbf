// BitmapCalc for the library's own merge.  With whole_buffers false only the
// part of each level buffer that the offset search reads at this frame size
// (the level's rows and 64 margin rows above and below, at its stride) is
// cleared; bytes past it keep what an earlier, larger merge left there and
// are never read.  BitmapCalc itself clears whole buffers.
#pragma once
#include <stdint.h>

#include "varo_hdr.h"

int bitmap_calc(const uint8_t *luma, uint32_t width, uint32_t height, HdrBitmapLevel *pyramid,
                bool whole_buffers);
