// Small exact-arithmetic helpers shared by every reference kernel.
#pragma once
#include <stdint.h>

static inline int clamp_int(int v, int lo, int hi) { return v < lo ? lo : v > hi ? hi : v; }
static inline uint8_t sat_u8(int v) { return (uint8_t)clamp_int(v, 0, 255); }
static inline int16_t sat_s16(int32_t v) { return (int16_t)clamp_int(v, -32768, 32767); }
static inline uint8_t min_u8(unsigned v) { return (uint8_t)(v > 255 ? 255 : v); }
static inline unsigned ceil8(unsigned n) { return (n + 7) & ~7u; }
static inline unsigned ceil16(unsigned n) { return (n + 15) & ~15u; }
static inline unsigned round8_down(unsigned n) { return n & ~7u; }

// Float-to-integer conversions with the semantics of the Arm conversion
// instructions on every host: truncate toward zero, saturate, NaN gives 0.
// x86's cvttss2si would return INT32_MIN for NaN and out-of-range values.
static inline int32_t cvt_f32_s32(float f) {
    if (f != f) return 0;
    if (f >= 2147483648.0f) return INT32_MAX;
    if (f <= -2147483648.0f) return INT32_MIN;
    return (int32_t)f;
}
static inline uint32_t cvt_f32_u32(float f) {
    if (!(f > -1.0f)) return 0; // NaN and anything truncating below 0
    if (f >= 4294967296.0f) return UINT32_MAX;
    return (uint32_t)f;
}
static inline int32_t cvt_f64_s32(double d) {
    if (d != d) return 0;
    if (d >= 2147483648.0) return INT32_MAX;
    if (d <= -2147483649.0) return INT32_MIN;
    return (int32_t)d;
}
