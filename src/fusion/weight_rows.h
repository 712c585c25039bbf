// The level-0 weights of a range of rows, for a merge that shares them
// between threads.
#pragma once
#include <stdint.h>

#include "varo_hdr.h"

// Rows r0 .. r1-1 of the three frames' weight maps, weighed and normalised
// in one pass.  Without ghost masks every mask byte is 1 and none is read.
void weight_rows(HdrContext *ctx, int32_t r0, int32_t r1);
