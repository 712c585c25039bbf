// Image input and output for the tools, tests and benchmarks (not the library).
//
// Every function reports failure through its return value and, where given, a
// message in *err; nothing throws and nothing aborts on bad files.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace varo_io {

// 8-bit RGB, rows packed (pitch = 3 * width).
struct RgbImage {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgb;
};

// 8-bit YUV 4:2:0 semi-planar.  Both planes have pitch = width; chroma holds
// height/2 rows of width bytes of interleaved (Cb, Cr) pairs.
struct Nv12Image {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> luma;
    std::vector<uint8_t> chroma;
};

RgbImage make_rgb(int width, int height);
Nv12Image make_nv12(int width, int height); // width and height must be even

// ------------------------------------------------------------ files --
// What loading found besides the pixels: the JPEG's EXIF block (APP1, from
// "Exif\0\0" on) and the silent changes made on the way to 8-bit RGB.
struct ImageMeta {
    std::vector<uint8_t> exif;
    std::vector<std::string> notes; // e.g. "16-bit samples reduced to 8-bit"
};
// Decoder warnings (bad CRC, truncated data, corrupt entropy data) are
// errors: a damaged file is refused, never half-decoded.
// PNG of any bit depth and colour type (alpha is dropped, 16-bit rounded to 8).
bool load_png(const std::string &path, RgbImage *out, std::string *err, ImageMeta *meta = nullptr);
// Baseline and progressive JPEG, grey or colour.
bool load_jpeg(const std::string &path, RgbImage *out, std::string *err, ImageMeta *meta = nullptr);
// Chooses PNG or JPEG by the file's signature, not its name.
bool load_image(const std::string &path, RgbImage *out, std::string *err, ImageMeta *meta = nullptr);
// Baseline JPEG, 4:2:0, quality 1..100, with an EXIF block when one is given.
bool write_jpeg(const std::string &path, const RgbImage &img, int quality,
                const std::vector<uint8_t> &exif, std::string *err);
// 8-bit RGB TIFF, deflate-compressed.
bool write_tiff(const std::string &path, const RgbImage &img, std::string *err);

// ------------------------------------------------------------ EXIF --
struct ExifInfo {
    double exposure_time = 0; // seconds; 0 when absent
    double f_number = 0;      // 0 when absent
    double iso = 0;           // 0 when absent
    int orientation = 1;      // 1..8 as stored
};
bool parse_exif(const std::vector<uint8_t> &app1, ExifInfo *out);
// The block to write beside pixels now shown upright: orientation 1, the new
// pixel size, no thumbnail (it would be the old orientation).
std::vector<uint8_t> exif_for_upright(const std::vector<uint8_t> &app1, int width, int height);
bool write_png(const std::string &path, const RgbImage &img, std::string *err);
// Grey PNG from one plane with the given pitch.
bool write_png_grey(const std::string &path, const uint8_t *plane, int width, int height,
                    int pitch, std::string *err);

// Raw NV12: the luma plane then the chroma plane, no header.  The size is not
// in the file, so it is given; the file length must match exactly.
bool read_nv12(const std::string &path, int width, int height, Nv12Image *out, std::string *err);
bool write_nv12(const std::string &path, const Nv12Image &img, std::string *err);

// ------------------------------------------------------- conversion --
// Integer BT.601 full range.  RGB -> NV12 crops odd sizes to even and averages
// the chroma over each 2x2 block; NV12 -> RGB repeats each chroma pair over
// its block.
Nv12Image rgb_to_nv12(const RgbImage &img);
RgbImage nv12_to_rgb(const Nv12Image &img);
// The same conversions on caller-owned planes of pitch `width` (even sizes).
void rgb_to_nv12_planes(const RgbImage &img, int width, int height, uint8_t *luma,
                        uint8_t *chroma);
RgbImage nv12_planes_to_rgb(const uint8_t *luma, const uint8_t *chroma, int pitch, int width,
                            int height);

// ------------------------------------------------------------ geometry --
// Copies the w x h rectangle at (x, y); the origin is rounded down to even so
// that a later NV12 conversion keeps the chroma siting.  Returns an empty
// image when the rectangle does not fit.
RgbImage crop(const RgbImage &img, int x, int y, int w, int h);
// Resampling through libyuv (box filter when shrinking).
RgbImage resize_bilinear(const RgbImage &img, int width, int height);
// Quarter turn; clockwise or counter-clockwise.
RgbImage rotate90(const RgbImage &img, bool clockwise);
// The stored picture as it is meant to be seen under EXIF orientation 1..8.
RgbImage orient_upright(const RgbImage &img, int orientation);

// --------------------------------------------------------- bracket sets --
enum { BRACKET_HE = 0, BRACKET_LE = 1, BRACKET_AE = 2 }; // same order as the library's frames

struct BayerParams {
    bool present = false;
    int black_level = 0;
    int white_level = 255;
    double wb_gains_bgr[3] = {1.0, 1.0, 1.0};
    bool srgb = false; // tone curve: sRGB when set, linear otherwise
};

struct BracketSet {
    std::string name;
    int width = 0; // image_size of meta.json, which the frames match after loading
    int height = 0;
    RgbImage frame[3];       // indexed BRACKET_HE / _LE / _AE
    uint32_t exposure_units[3] = {0, 0, 0};
    std::string file[3];
    BayerParams bayer;
};

// Reads dir/meta.json and the three frames it names.  Raw Bayer sets are
// developed (demosaic, black level, white balance, tone curve); frames stored
// a quarter turn from image_size are turned to match it.
bool load_bracket_set(const std::string &dir, BracketSet *out, std::string *err);

// Develops one 8-bit Bayer mosaic whose (0,0) site is red and (1,1) blue,
// greens elsewhere.  Bilinear demosaic; deterministic.
RgbImage develop_bayer(const std::vector<uint8_t> &mosaic, int width, int height,
                       const BayerParams &p);

// ------------------------------------------------------ synthetic scene --
// The deterministic three-exposure bracket of tools/synthetic (exposures
// 1:4:16 for LE, AE, HE); the side frames are the AE view shifted by
// synthetic_shift().
struct SyntheticBracket {
    RgbImage frame[3];
    uint32_t exposure_units[3];
};
SyntheticBracket synthetic_bracket(int width = 1280, int height = 720);
// Scene shift of each frame: frame f at (x, y) shows what AE shows at
// (x + dx, y + dy).
void synthetic_shift(int frame, int *dx, int *dy);

} // namespace varo_io
