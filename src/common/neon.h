// NEON intrinsics: native on Arm; through SIMDe when the Arm kernels are
// compiled into x86 test binaries.  Only intrinsics that exist on both armv7
// and AArch64 may be used.
#pragma once
#if defined(__ARM_NEON) || defined(__ARM_NEON__)
#include <arm_neon.h>
#else
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
#endif
