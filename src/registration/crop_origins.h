// Where each frame's part of the common overlap starts, from the two offsets.
#pragma once
#include <stdint.h>

#include "varo_hdr.h"

// HE x, HE y, LE x, LE y, AE x, AE y from ctx->he_offset and ctx->le_offset.
void crop_origins(const HdrContext *ctx, int32_t origins[6]);
