// Kernel table of the ghost-detection subsystem.  Every member has a
// reference version (ghost_dsp_init_c) and may be replaced by an
// instruction-set version.
#pragma once
#include <stddef.h>
#include <stdint.h>

// Threshold mask of a pair of rows: for rows src and src + src_stride,
// dst[x] = 255 when src[x] >= threshold (unsigned), else 0.  A row goes in
// chunks of 16, then one chunk of 8 if at least 8 remain, then one of 4 if at
// least 4 remain: exactly width & ~3 columns of both rows are read and
// written; the last 1..3 columns are left alone.  Any width >= 0.
#define decl_mask_rows_fn(name) void (name)(const uint8_t *src, ptrdiff_t src_stride, \
    uint8_t *dst, ptrdiff_t dst_stride, unsigned width, uint8_t threshold)
typedef decl_mask_rows_fn(*mask_rows_fn);

struct GhostDsp {
    mask_rows_fn mask_rows;
};

void ghost_dsp_init_c(GhostDsp *dsp);
void ghost_dsp_init_neon(GhostDsp *dsp); // Arm builds and SIMDe test builds only
