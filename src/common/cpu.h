#pragma once

// Instruction-set levels.  The x86 levels are cumulative: AVX2 is reported
// only together with SSE4.1, so a mask of SSE41 | AVX2 means "up to AVX2".
enum HdrCpuFlags : unsigned {
    HDR_CPU_NEON = 1u << 0,
    HDR_CPU_AVX2 = 1u << 1,
    HDR_CPU_SSE41 = 1u << 2,
};

// Instruction sets usable on this machine (and built into this library).
// Test builds also apply the VARO_HDR_CPU environment variable (a level
// name: c, neon, sse41, avx2) to force a lower level.
unsigned hdr_cpu_flags();
