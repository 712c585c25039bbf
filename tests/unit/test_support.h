// Shared helpers of the stage and pipeline tests.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "common/dsp.h"
#include "varo_hdr.h"

// The kernel tables worth comparing in this build: "c" always, then "neon"
// on Arm or "neon_simde" where the Arm kernels are compiled through SIMDe.
struct DspVariant {
    std::string name;
    HdrDsp table;
};
std::vector<DspVariant> dsp_variants();

// Runs the library's stages with `table` for its lifetime.
class ScopedDsp {
  public:
    explicit ScopedDsp(const HdrDsp &table) { hdr_dsp_override(&table); }
    ~ScopedDsp() { hdr_dsp_override(nullptr); }
};

// One full-capacity context per test process (creation takes ~430 MB).
HdrContext *shared_context();

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
    bool contains(const std::string &text) const;
    int count(const std::string &text) const;

  private:
    int32_t saved_enable_;
};

// Directory of the real bracket sets, or empty when they are not present.
std::string bracket_data_dir();

// FNV-1a over a rectangle, for golden values.
uint64_t hash_plane(const uint8_t *p, int stride, int w, int h, uint64_t seed = 1469598103934665603ull);
