// The kernel tables.  hdr_dsp() is the only place that decides which
// instruction-set variant each stage runs; stages call through it and know
// nothing of the variants.
#pragma once
#include "fusion/chroma_dsp.h"
#include "fusion/fusion_dsp.h"
#include "ghost/ghost_dsp.h"
#include "registration/reg_dsp.h"
#include "tone/tone_dsp.h"

struct HdrDsp {
    FusionDsp fusion;
    ChromaDsp chroma;
    ToneDsp tone;
    RegDsp reg;
    GhostDsp ghost;
};

// Fills every table with the reference kernels, then overlays the variants of
// each instruction set in `flags` that this build contains.
void hdr_dsp_init(HdrDsp *dsp, unsigned flags);

// Overlays the NEON kernels (Arm builds; SIMDe test builds on other hosts).
void hdr_dsp_init_neon(HdrDsp *dsp);

// The active table: filled once, on first use, for the running CPU.
const HdrDsp *hdr_dsp();

// Test hook: replaces the active table (null: back to the running CPU's).
// Only while no merge is running.
void hdr_dsp_override(const HdrDsp *table);
