#pragma once

enum HdrCpuFlags : unsigned {
    HDR_CPU_NEON = 1u << 0,
    HDR_CPU_AVX2 = 1u << 1,
};

// Instruction sets usable on this machine (and built into this library).
unsigned hdr_cpu_flags();
