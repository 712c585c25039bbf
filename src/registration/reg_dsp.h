// Kernel table of the registration subsystem.  Every member has a reference
// version (reg_dsp_init_c) and may be replaced by an instruction-set version.
#pragma once
#include <stddef.h>
#include <stdint.h>

// One row of a threshold/exclusion bitmap level.
// Samples src[c << level] for 0 <= c < width (level is the table index,
// 0..5); may read any byte of src[0 .. (width << level) - 1], nothing beyond.  Writes exactly (width + 31) >> 5 word pairs at dst:
// pair k = {threshold word, exclusion word} of samples 32k .. 32k + 31,
// sample 32k in bit 31.  Threshold bit: sample > median; exclusion bit:
// |sample - median| >= tolerance (unsigned 8-bit).  Bits of the last pair
// past `width` are written as 0.  Any width >= 0.
#define decl_bitmap_row_fn(name) void (name)(const uint8_t *src, unsigned width, uint8_t median, \
    uint8_t tolerance, uint32_t *dst)
typedef decl_bitmap_row_fn(*bitmap_row_fn);

// Masked disagreement count of one bitmap row against a shifted moving row.
// fixed: width_words pairs.  moving: the pair that holds the first moving
// pixel, so the 32 moving pixels of step k start `shift` bits (0..31) into
// pair k; reads moving pairs 0 .. width_words - 1, plus pair width_words when
// shift != 0.  For each k: d = (Ft ^ Mt) & Fe & Me; returns the sum of the
// set bits of every d (wrapping 32-bit).  When diff is non-null, d of pair k
// is stored at diff[k] (width_words words).
#define decl_bitmap_row_error_fn(name) uint32_t (name)(const uint32_t *fixed, \
    const uint32_t *moving, unsigned width_words, unsigned shift, uint32_t *diff)
typedef decl_bitmap_row_error_fn(*bitmap_row_error_fn);

struct RegDsp {
    bitmap_row_fn bitmap_row[6]; // indexed by pyramid level (sampling step 1 << level)
    bitmap_row_error_fn bitmap_row_error;
};

void reg_dsp_init_c(RegDsp *dsp);
void reg_dsp_init_neon(RegDsp *dsp); // Arm builds and SIMDe test builds only
void reg_dsp_init_sse41(RegDsp *dsp); // x86-64 builds only
void reg_dsp_init_avx2(RegDsp *dsp);  // x86-64 builds only
