// Shared helpers of the stage and pipeline tests.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "common/dsp.h"
#include "varo_hdr.h"

// The kernel tables of this build, as instruction-set masks: "c" always, then
// "neon" on Arm or "neon_simde" where the Arm kernels run through SIMDe,
// then "sse41" and "avx2" (cumulative) where the CPU has them.
struct DspVariant {
    std::string name;
    unsigned mask;
};
std::vector<DspVariant> dsp_variants();

// Runs the library's stages with the table of `mask` for its lifetime.
class ScopedDsp {
  public:
    explicit ScopedDsp(unsigned mask) { hdr_set_cpu_flags_mask(mask); }
    ~ScopedDsp() { hdr_set_cpu_flags_mask(~0u); }
};

// One full-capacity context per test process (creation takes ~430 MB).
HdrContext *shared_context();

// Working size as the driver sets it: levels (floor(log2) of the smaller
// side unless given) and the pitches of every level.
void set_geometry(HdrContext *ctx, int width, int height, int levels = -1);

// Captures the lines logged through the host log, with logging enabled.
struct LoggedLine {
    std::string func;
    int line;
    std::string text;
};
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    std::vector<LoggedLine> lines() const;
    int count(const std::string &text) const;
    bool contains(const std::string &text) const { return count(text) > 0; }

  private:
    int32_t saved_enable_;
};

// Directory of the real bracket sets, or empty when they are not present.
std::string bracket_data_dir();

// FNV-1a over a rectangle, for golden values.
uint64_t hash_plane(const uint8_t *p, int stride, int w, int h, uint64_t seed = 1469598103934665603ull);
