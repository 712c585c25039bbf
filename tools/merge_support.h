// Everything varo_hdr_merge does around the merge call: options, inputs and
// their exposures, frame buffers, the descriptor, outputs and the report.
// Kept out of main so that tests can drive it without a merge.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "imageio.h"
#include "varo_hdr.h"

namespace varo_merge {

// Exit codes of the tool (also listed by --help).
enum ExitCode {
    EXIT_MERGED = 0,   // merged, or fell back to the reference frame without --strict
    EXIT_FAILED = 1,   // an input, output or merge error; in a batch: any set failed
    EXIT_USAGE = 2,    // bad command line
    EXIT_FALLBACK = 3, // --strict and the result is the reference frame
};

enum class OutFormat { PNG, JPEG, TIFF, NV12, NV21 };
// By the file name's extension; false with a message for anything else.
bool format_from_path(const std::string &path, OutFormat *out, std::string *err);

struct Options {
    std::string file[3];                 // --he, --le, --ae, indexed HE_IDX / LE_IDX / AE_IDX
    std::vector<std::string> positional; // three files whose exposures give the roles
    std::string bracket_dir;
    bool have_units = false;
    uint32_t units[3] = {0, 0, 0}; // HE, LE, AE, in proportion
    std::string units_text;        // as typed
    int width = 0;                 // --size: box the frames are fitted into (aspect kept),
    int height = 0;                // or the size of raw .nv12 inputs; 0 keeps the input size
    std::string out = "varo_hdr_out.png";
    int quality = 92;
    std::string json_path;
    std::string dump_dir;
    std::string batch_dir;
    std::string out_dir;
    std::string batch_format = "jpg";
    int jobs = 1;
    bool strict = false;
    bool log = false;
    bool help = false;
    bool version = false;
    std::string write_default_dir;
};

const char *usage();

// Returns false with a message for anything it cannot use.
bool parse_args(int argc, const char *const *argv, Options *opt, std::string *err);

// Parses "16,1,4", "1/30,1/4,2" or "0.033,0.25,2" (HE,LE,AE) into integers in
// the same proportion (plain integers are kept as they are).
bool parse_exposures(const std::string &text, uint32_t units[3], std::string *err);

// The three frames, the same size, with their exposure units and where those
// came from, in the orientation the merge runs in.
struct Inputs {
    std::string description;
    varo_io::RgbImage frame[3]; // HE_IDX, LE_IDX, AE_IDX
    bool raw = false;           // NV12 files: nv12[] holds the frames instead
    varo_io::Nv12Image nv12[3];
    uint32_t units[3] = {0, 0, 0};
    std::string file[3];
    std::string exposure_source;  // "EXIF", "--exposure-units", "meta.json", "built-in"
    std::string exposure_text[3]; // what each exposure was made of
    int orientation = 1;          // EXIF orientation of the AE file
    bool turned = false;          // frames turned a quarter clockwise to fit the library
    std::vector<uint8_t> exif;    // the AE file's EXIF block
    std::vector<std::string> notes; // silent changes, stated in the report
    double decode_ms = 0;
};

// Loads what the options name (files, a bracket folder or the built-in
// scene), takes the exposures from --exposure-units, meta.json or EXIF,
// checks that they agree with the roles, crops odd sizes to even, turns or
// resamples (--size) the frames and checks them against the library's limits.
bool load_inputs(const Options &opt, Inputs *in, std::string *err);

// Writes the built-in bracket as he.png, le.png and ae.png into dir.
bool write_default_bracket(const std::string &dir, std::string *err);

// One frame as the library wants it: luma then chroma in one block (the
// library reads nothing past the planes).
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

// Writes through a temporary file beside the target, synced and renamed over
// it at the end, so that a failure (a full disk) leaves no partial file.
bool write_output(const std::string &path, OutFormat format, const varo_io::Nv12Image &merged,
                  const Inputs &in, int quality, std::string *err);

// True when path names the same file as one of the inputs (or the same name).
bool names_an_input(const std::string &path, const Options &opt, const Inputs *in);

// What one merge did, for the printed summary and the JSON report.
struct Report {
    std::string name;
    std::string error;  // non-empty: the set failed before or after the merge
    std::string description;
    std::string file[3];
    uint32_t units[3] = {0, 0, 0};
    std::string exposure_source;
    std::string exposure_text[3];
    std::vector<std::string> notes;
    int width = 0, height = 0; // merged frame size
    double decode_ms = 0;
    int rc = 0;
    HdrMergeStatus status{};
    std::string out_path;
    double convert_ms = 0, encode_ms = 0, dump_ms = 0;
    bool fallback() const { return status.outcome == HDR_OUTCOME_FALLBACK; }
};

std::string report_text(const Report &r);
std::string report_json(const Report &r); // one JSON object
std::string reports_json(const std::vector<Report> &r); // {"sets": [...]}

// One whole run on one set: load, merge with ctx, write out (and dump).
// Fills *rep; returns an ExitCode.
int merge_one(const Options &opt, HdrContext *ctx, Report *rep, Inputs *in);

// --batch: every bracket folder under opt.batch_dir.
int run_batch(const Options &opt);

} // namespace varo_merge
