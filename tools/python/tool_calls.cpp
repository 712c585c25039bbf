// Every call from the Python module into the merge tool's code lives in this
// file (see tool_calls.h).
#include "tool_calls.h"

#include <string.h>

#include <mutex>

#include "imageio.h"
#include "merge_support.h"

namespace varo_py {

namespace {

// A relative name that starts with '-' would read as an option.
std::string as_operand(const std::string &path) { return !path.empty() && path[0] == '-' ? "./" + path : path; }

} // namespace

bool load_bracket(const BracketRequest &req, LoadedBracket *out, std::string *err) {
    // The tool's own command line, so that its rules (which options go
    // together, --size, --exposure-units) apply unchanged.
    std::vector<std::string> args = {"varo_hdr_merge"};
    if (!req.folder.empty()) args.insert(args.end(), {"--bracket", as_operand(req.folder)});
    static const char *const role_option[3] = {"--he", "--le", "--ae"};
    for (int f = 0; f < 3; ++f)
        if (!req.role_file[f].empty()) args.insert(args.end(), {role_option[f], as_operand(req.role_file[f])});
    if (!req.exposures.empty()) args.insert(args.end(), {"--exposure-units", req.exposures});
    if (req.box_width || req.box_height)
        args.insert(args.end(), {"--size", std::to_string(req.box_width) + "x" + std::to_string(req.box_height)});
    if (!req.files.empty()) {
        args.push_back("--");
        for (const std::string &f : req.files) args.push_back(f);
    }
    std::vector<const char *> argv;
    for (const std::string &a : args) argv.push_back(a.c_str());

    varo_merge::Options opt;
    {
        // getopt keeps its state in globals; the loading itself runs in parallel.
        static std::mutex getopt_state;
        std::lock_guard<std::mutex> lock(getopt_state);
        if (!varo_merge::parse_args((int)argv.size(), argv.data(), &opt, err)) return false;
    }
    varo_merge::Inputs in;
    if (!varo_merge::load_inputs(opt, &in, err)) return false;
    varo_merge::Frames frames;
    varo_merge::make_frames(in, &frames);

    LoadedBracket r;
    r.width = frames.width;
    r.height = frames.height;
    const size_t luma = (size_t)frames.width * frames.height, chroma = luma / 2;
    for (int f = 0; f < 3; ++f) {
        r.nv12[f].resize(luma + chroma);
        memcpy(r.nv12[f].data(), frames.buf[f]->luma(), luma);
        memcpy(r.nv12[f].data() + luma, frames.buf[f]->chroma(), chroma);
        r.units[f] = in.units[f];
        r.file[f] = in.file[f];
        r.exposure_text[f] = in.exposure_text[f];
    }
    r.exposure_source = in.exposure_source;
    r.description = in.description;
    r.notes = in.notes;
    r.orientation = in.orientation;
    r.turned = in.turned;
    r.decode_ms = in.decode_ms;
    *out = std::move(r);
    return true;
}

bool parse_exposures(const std::string &text, uint32_t units[3], std::string *err) {
    return varo_merge::parse_exposures(text, units, err);
}

void rgb_to_nv12(const uint8_t *rgb, int width, int height, uint8_t *luma, uint8_t *chroma) {
    varo_io::RgbImage img;
    img.width = width;
    img.height = height;
    img.rgb.assign(rgb, rgb + (size_t)width * height * 3);
    varo_io::rgb_to_nv12_planes(img, width & ~1, height & ~1, luma, chroma);
}

void nv12_to_rgb(const uint8_t *luma, const uint8_t *chroma, int width, int height, uint8_t *rgb) {
    const varo_io::RgbImage img = varo_io::nv12_planes_to_rgb(luma, chroma, width, width, height);
    memcpy(rgb, img.rgb.data(), img.rgb.size());
}

void upright_rgb(const uint8_t *rgb, int width, int height, bool turned, int orientation,
                 std::vector<uint8_t> *out, int *out_width, int *out_height) {
    // The tool's output rule (upright_rgb in merge_support.cpp, not exported).
    varo_io::RgbImage img;
    img.width = width;
    img.height = height;
    img.rgb.assign(rgb, rgb + (size_t)width * height * 3);
    if (turned) img = varo_io::rotate90(img, false);
    img = varo_io::orient_upright(img, orientation);
    *out_width = img.width;
    *out_height = img.height;
    *out = std::move(img.rgb);
}

bool extract_valid(const HdrInput &desc, std::vector<uint8_t> *luma, std::vector<uint8_t> *chroma,
                   int *width, int *height, std::string *err) {
    varo_io::Nv12Image img;
    if (!varo_merge::extract_output(desc, &img, err)) return false;
    *width = img.width;
    *height = img.height;
    *luma = std::move(img.luma);
    *chroma = std::move(img.chroma);
    return true;
}

} // namespace varo_py
