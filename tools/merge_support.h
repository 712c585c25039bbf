// Everything varo_hdr_merge does around the merge call: options, inputs,
// frame buffers, the descriptor and the output.  Kept out of main so that the
// tests can drive it without a merge.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>

#include "imageio.h"
#include "varo_hdr.h"

namespace varo_merge {

struct Options {
    std::string file[3]; // --he, --le, --ae, indexed HE_IDX / LE_IDX / AE_IDX
    std::string bracket_dir;
    bool have_units = false;
    uint32_t units[3] = {0, 0, 0}; // HE, LE, AE
    int width = 0;                 // --size; 0 keeps the input size
    int height = 0;
    std::string out_png = "varo_hdr_out.png";
    std::string out_nv12;
    std::string write_default_dir;
    bool log = false;
    bool help = false;
};

const char *usage();

// Returns false with a message for anything it cannot use.
bool parse_args(int argc, const char *const *argv, Options *opt, std::string *err);

// The three frames, the same size, with their exposure units.
struct Inputs {
    std::string description;
    varo_io::RgbImage frame[3]; // HE_IDX, LE_IDX, AE_IDX
    uint32_t units[3] = {0, 0, 0};
};

// Loads what the options name (files, a bracket folder or the built-in
// scene), applies --exposure-units and --size, crops odd sizes to even and
// checks the result against the library's limits.
bool load_inputs(const Options &opt, Inputs *in, std::string *err);

// Writes the built-in bracket as he.png, le.png and ae.png into dir.
bool write_default_bracket(const std::string &dir, std::string *err);

// Bytes the merge may read beyond the end of a frame's planes: its filters
// and the registered copies run up to 126 rows and 126 bytes past a plane.
size_t frame_slack_bytes(int width);

// One frame as the library wants it: luma then chroma in one block, followed
// by frame_slack_bytes() of zeroed, readable slack.
class FrameBuffer {
  public:
    FrameBuffer(int width, int height);
    uint8_t *luma() { return mem_.get(); }
    uint8_t *chroma() { return mem_.get() + (size_t)width_ * height_; }
    const uint8_t *luma() const { return mem_.get(); }
    const uint8_t *chroma() const { return mem_.get() + (size_t)width_ * height_; }
    size_t bytes() const { return bytes_; }

  private:
    struct Free {
        void operator()(uint8_t *p) const;
    };
    int width_, height_;
    size_t bytes_;
    std::unique_ptr<uint8_t, Free> mem_;
};

struct Frames {
    int width = 0, height = 0;
    std::unique_ptr<FrameBuffer> buf[3];
};

// Converts the inputs to NV12 into fresh frame buffers.
void make_frames(const Inputs &in, Frames *frames);

// Fills the descriptor: planes, size, exposure (scale 1.0, the given units),
// everything else zero.
void fill_descriptor(Frames *frames, const uint32_t units[3], HdrInput *desc);

// The valid output rectangle out of the HE planes, cropped to even size;
// false when the rectangle the merge wrote does not lie inside the frame.
bool extract_output(const HdrInput &desc, varo_io::Nv12Image *out, std::string *err);

} // namespace varo_merge
