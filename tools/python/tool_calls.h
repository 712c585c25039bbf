// The Python module's one way into the merge tool's code.  Loading a bracket
// (files, a meta.json folder, EXIF exposures, orientation, --size), the RGB <->
// NV12 converter and the crop of the valid rectangle all go through here, so
// that the module hands the library exactly the bytes varo_hdr_merge does.
// Nothing in this header or its .cpp sees Python; when the tool's code moves,
// only tool_calls.cpp and the link line follow it.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "varo_hdr.h"

namespace varo_py {

// What to load, in the tool's own terms (its command line).
struct BracketRequest {
    std::string folder;            // --bracket DIR (a folder with meta.json)
    std::string role_file[3];      // --he/--le/--ae, indexed HE_IDX / LE_IDX / AE_IDX
    std::vector<std::string> files; // three files, roles from their EXIF exposures
    std::string exposures;         // --exposure-units text; empty: EXIF or meta.json
    int box_width = 0;             // --size WxH; 0: the stored size
    int box_height = 0;
};

// The frames as the tool hands them to the merge, and what loading found.
struct LoadedBracket {
    int width = 0, height = 0;
    std::vector<uint8_t> nv12[3]; // HE, LE, AE: luma then chroma, pitch = width
    uint32_t units[3] = {0, 0, 0};
    std::string file[3];
    std::string exposure_text[3];
    std::string exposure_source;
    std::string description;
    std::vector<std::string> notes;
    int orientation = 1; // EXIF orientation of the AE file
    bool turned = false; // merged a quarter turn clockwise from the stored picture
    double decode_ms = 0;
};

// Safe to call from several threads at once.
bool load_bracket(const BracketRequest &req, LoadedBracket *out, std::string *err);

// --exposure-units text ("16,1,4", "1/30,1/250,1/125", "0.5,0.03,0.12") to
// integer units HE, LE, AE.
bool parse_exposures(const std::string &text, uint32_t units[3], std::string *err);

// Packed RGB rows (pitch 3 * width) to NV12 planes of pitch width; odd sizes
// are cropped to even, so luma and chroma hold (width & ~1) columns.
void rgb_to_nv12(const uint8_t *rgb, int width, int height, uint8_t *luma, uint8_t *chroma);
// NV12 planes of pitch width (even sizes) to packed RGB rows.
void nv12_to_rgb(const uint8_t *luma, const uint8_t *chroma, int width, int height, uint8_t *rgb);

// Packed RGB turned the way the tool turns its picture outputs upright:
// back a quarter when the merge ran turned, then the EXIF orientation.
void upright_rgb(const uint8_t *rgb, int width, int height, bool turned, int orientation,
                 std::vector<uint8_t> *out, int *out_width, int *out_height);

// The valid rectangle of a merged HE frame, cropped to even size as the tool
// writes it.  desc holds the HE planes, the size and out_x..out_height.
bool extract_valid(const HdrInput &desc, std::vector<uint8_t> *luma, std::vector<uint8_t> *chroma,
                   int *width, int *height, std::string *err);

} // namespace varo_py
