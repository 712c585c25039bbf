#include "imageio.h"

#include <errno.h>
#include <setjmp.h>
#include <stdio.h>
#include <string.h>

#include <jpeglib.h>
#include <png.h>
#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/scale_argb.h>

namespace varo_io {

namespace {

void set_err(std::string *err, const std::string &msg) {
    if (err) *err = msg;
}

struct File {
    FILE *f = nullptr;
    File(const std::string &path, const char *mode) : f(fopen(path.c_str(), mode)) {}
    ~File() {
        if (f) fclose(f);
    }
};

uint8_t clamp8(int v) { return (uint8_t)(v < 0 ? 0 : v > 255 ? 255 : v); }

// ------------------------------------------------------------------ PNG --
// libpng reports errors by longjmp.  All state the jump must survive lives in
// this struct (memory, not registers), and no C++ object with a destructor is
// created between setjmp and the jump.
struct PngState {
    jmp_buf jump;
    char message[256];
};

void png_error_cb(png_structp png, png_const_charp msg) {
    PngState *s = (PngState *)png_get_error_ptr(png);
    snprintf(s->message, sizeof s->message, "%s", msg);
    longjmp(s->jump, 1);
}
void png_warning_cb(png_structp, png_const_charp) {}
// Reading, a warning means the file is not what it claims (a bad CRC, data
// past the end, a broken chunk): refused like an error.
void png_read_warning_cb(png_structp png, png_const_charp msg) { png_error_cb(png, msg); }

bool read_png_file(FILE *f, RgbImage *out, std::vector<png_bytep> *rows, PngState *s, ImageMeta *meta) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, s, png_error_cb, png_read_warning_cb);
    if (!png) return false;
    png_infop info = png_create_info_struct(png);
    if (!info || setjmp(s->jump)) {
        png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
        return false;
    }
    png_init_io(png, f);
    png_read_info(png, info);
    const png_uint_32 w = png_get_image_width(png, info);
    const png_uint_32 h = png_get_image_height(png, info);
    const int color = png_get_color_type(png, info);
    const int depth = png_get_bit_depth(png, info);
    if (w > 30000 || h > 30000) png_error(png, "image too large");
    if (color == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
    if (color == PNG_COLOR_TYPE_GRAY && depth < 8) png_set_expand_gray_1_2_4_to_8(png);
    if (depth == 16) png_set_scale_16(png);
    if (meta && depth == 16) meta->notes.push_back("16-bit samples reduced to 8-bit");
    if (meta && (color & PNG_COLOR_MASK_ALPHA || png_get_valid(png, info, PNG_INFO_tRNS)))
        meta->notes.push_back("alpha channel dropped");
    if (color == PNG_COLOR_TYPE_GRAY || color == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(png);
    // Transparency is dropped, not composited: the colour samples are kept.
    png_set_strip_alpha(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    if (png_get_rowbytes(png, info) != (size_t)w * 3) png_error(png, "unexpected row layout");
    out->width = (int)w;
    out->height = (int)h;
    out->rgb.resize((size_t)w * h * 3);
    rows->resize(h);
    for (png_uint_32 y = 0; y < h; ++y) (*rows)[y] = out->rgb.data() + (size_t)y * w * 3;
    png_read_image(png, rows->data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

bool write_png_file(FILE *f, const uint8_t *data, int w, int h, int pitch, bool grey,
                    std::vector<png_bytep> *rows, PngState *s) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, s, png_error_cb, png_warning_cb);
    if (!png) return false;
    png_infop info = png_create_info_struct(png);
    if (!info || setjmp(s->jump)) {
        png_destroy_write_struct(&png, info ? &info : nullptr);
        return false;
    }
    png_init_io(png, f);
    // Fast settings: these files are for looking at, not for archiving.
    png_set_compression_level(png, 3);
    png_set_IHDR(png, info, (png_uint_32)w, (png_uint_32)h, 8,
                 grey ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    rows->resize((size_t)h);
    for (int y = 0; y < h; ++y) (*rows)[y] = (png_bytep)(data + (size_t)y * pitch);
    png_set_rows(png, info, rows->data());
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

// ----------------------------------------------------------------- JPEG --
struct JpegError {
    jpeg_error_mgr mgr;
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void jpeg_error_cb(j_common_ptr cinfo) {
    JpegError *e = (JpegError *)cinfo->err;
    (*cinfo->err->format_message)(cinfo, e->message);
    longjmp(e->jump, 1);
}
void jpeg_message_cb(j_common_ptr) {}
// Level -1 is a warning: corrupt data, a premature end of file.  libjpeg
// would carry on and fill the rest with grey; refuse the file instead.
void jpeg_emit_cb(j_common_ptr cinfo, int level) {
    if (level < 0) jpeg_error_cb(cinfo);
}

bool read_jpeg_file(FILE *f, RgbImage *out, jpeg_decompress_struct *cinfo, JpegError *e,
                    ImageMeta *meta) {
    cinfo->err = jpeg_std_error(&e->mgr);
    e->mgr.error_exit = jpeg_error_cb;
    e->mgr.output_message = jpeg_message_cb;
    e->mgr.emit_message = jpeg_emit_cb;
    if (setjmp(e->jump)) {
        jpeg_destroy_decompress(cinfo);
        return false;
    }
    jpeg_create_decompress(cinfo);
    jpeg_stdio_src(cinfo, f);
    if (meta) jpeg_save_markers(cinfo, JPEG_APP0 + 1, 0xffff);
    jpeg_read_header(cinfo, TRUE);
    if (meta)
        for (jpeg_saved_marker_ptr m = cinfo->marker_list; m; m = m->next)
            if (m->marker == JPEG_APP0 + 1 && m->data_length > 6 && !memcmp(m->data, "Exif\0\0", 6))
                meta->exif.assign(m->data, m->data + m->data_length);
    if (cinfo->num_components != 1 && cinfo->num_components != 3) {
        snprintf(e->message, sizeof e->message, "unsupported JPEG with %d components",
                 cinfo->num_components);
        jpeg_destroy_decompress(cinfo);
        return false;
    }
    cinfo->out_color_space = JCS_RGB;
    cinfo->dct_method = JDCT_ISLOW; // the exact method, identical on every host
    jpeg_start_decompress(cinfo);
    const int w = (int)cinfo->output_width, h = (int)cinfo->output_height;
    out->width = w;
    out->height = h;
    out->rgb.resize((size_t)w * h * 3);
    while (cinfo->output_scanline < cinfo->output_height) {
        JSAMPROW row = out->rgb.data() + (size_t)cinfo->output_scanline * w * 3;
        jpeg_read_scanlines(cinfo, &row, 1);
    }
    jpeg_finish_decompress(cinfo);
    jpeg_destroy_decompress(cinfo);
    return true;
}

} // namespace

RgbImage make_rgb(int width, int height) {
    RgbImage img;
    img.width = width;
    img.height = height;
    img.rgb.assign((size_t)width * height * 3, 0);
    return img;
}

Nv12Image make_nv12(int width, int height) {
    Nv12Image img;
    img.width = width;
    img.height = height;
    img.luma.assign((size_t)width * height, 0);
    img.chroma.assign((size_t)width * (height / 2), 128);
    return img;
}

bool load_png(const std::string &path, RgbImage *out, std::string *err, ImageMeta *meta) {
    File f(path, "rb");
    if (!f.f) {
        set_err(err, path + ": cannot open: " + strerror(errno));
        return false;
    }
    PngState s;
    s.message[0] = 0;
    std::vector<png_bytep> rows;
    RgbImage img;
    if (!read_png_file(f.f, &img, &rows, &s, meta)) {
        set_err(err, path + ": bad PNG: " + (s.message[0] ? s.message : "out of memory"));
        return false;
    }
    *out = std::move(img);
    return true;
}

bool load_jpeg(const std::string &path, RgbImage *out, std::string *err, ImageMeta *meta) {
    File f(path, "rb");
    if (!f.f) {
        set_err(err, path + ": cannot open: " + strerror(errno));
        return false;
    }
    jpeg_decompress_struct cinfo;
    JpegError e;
    e.message[0] = 0;
    RgbImage img;
    if (!read_jpeg_file(f.f, &img, &cinfo, &e, meta)) {
        set_err(err, path + ": bad JPEG: " + e.message);
        return false;
    }
    *out = std::move(img);
    return true;
}

bool load_image(const std::string &path, RgbImage *out, std::string *err, ImageMeta *meta) {
    unsigned char sig[8] = {0};
    {
        File f(path, "rb");
        if (!f.f) {
            set_err(err, path + ": cannot open: " + strerror(errno));
            return false;
        }
        if (fread(sig, 1, sizeof sig, f.f) != sizeof sig) {
            set_err(err, path + ": too short for an image");
            return false;
        }
    }
    if (png_sig_cmp(sig, 0, 8) == 0) return load_png(path, out, err, meta);
    if (sig[0] == 0xFF && sig[1] == 0xD8) return load_jpeg(path, out, err, meta);
    set_err(err, path + ": neither PNG nor JPEG");
    return false;
}

static bool write_png_common(const std::string &path, const uint8_t *data, int w, int h,
                             int pitch, bool grey, std::string *err) {
    if (w <= 0 || h <= 0) {
        set_err(err, path + ": empty image");
        return false;
    }
    File f(path, "wb");
    if (!f.f) {
        set_err(err, path + ": cannot create: " + strerror(errno));
        return false;
    }
    PngState s;
    s.message[0] = 0;
    std::vector<png_bytep> rows;
    if (!write_png_file(f.f, data, w, h, pitch, grey, &rows, &s)) {
        set_err(err, path + ": PNG write failed: " + s.message);
        return false;
    }
    if (fflush(f.f) != 0 || ferror(f.f)) {
        set_err(err, path + ": write failed");
        return false;
    }
    return true;
}

bool write_png(const std::string &path, const RgbImage &img, std::string *err) {
    return write_png_common(path, img.rgb.data(), img.width, img.height, img.width * 3, false, err);
}

bool write_png_grey(const std::string &path, const uint8_t *plane, int width, int height,
                    int pitch, std::string *err) {
    return write_png_common(path, plane, width, height, pitch, true, err);
}

bool read_nv12(const std::string &path, int width, int height, Nv12Image *out, std::string *err) {
    if (width <= 0 || height <= 0 || (width | height) & 1) {
        set_err(err, path + ": NV12 size must be positive and even");
        return false;
    }
    File f(path, "rb");
    if (!f.f) {
        set_err(err, path + ": cannot open: " + strerror(errno));
        return false;
    }
    Nv12Image img = make_nv12(width, height);
    const size_t nl = img.luma.size(), nc = img.chroma.size();
    if (fread(img.luma.data(), 1, nl, f.f) != nl || fread(img.chroma.data(), 1, nc, f.f) != nc) {
        set_err(err, path + ": shorter than " + std::to_string(nl + nc) + " bytes for " +
                         std::to_string(width) + "x" + std::to_string(height));
        return false;
    }
    if (fgetc(f.f) != EOF) {
        set_err(err, path + ": longer than " + std::to_string(nl + nc) + " bytes for " +
                         std::to_string(width) + "x" + std::to_string(height));
        return false;
    }
    *out = std::move(img);
    return true;
}

bool write_nv12(const std::string &path, const Nv12Image &img, std::string *err) {
    File f(path, "wb");
    if (!f.f) {
        set_err(err, path + ": cannot create: " + strerror(errno));
        return false;
    }
    if (fwrite(img.luma.data(), 1, img.luma.size(), f.f) != img.luma.size() ||
        fwrite(img.chroma.data(), 1, img.chroma.size(), f.f) != img.chroma.size() ||
        fflush(f.f) != 0) {
        set_err(err, path + ": write failed");
        return false;
    }
    return true;
}

// ------------------------------------------------------------ colour --
// BT.601 full range in 8-bit fixed point.  Each row of coefficients sums to
// 256 (luma) or 0 (chroma), so grey maps to Y = value, Cb = Cr = 128 exactly.
// The chroma sums run over 2x2 blocks (4 samples, hence the shift by 10); the
// +128<<10 bias keeps the shifted value non-negative.
void rgb_to_nv12_planes(const RgbImage &img, int width, int height, uint8_t *luma,
                        uint8_t *chroma) {
    const int sp = img.width * 3;
    for (int y = 0; y < height; y += 2) {
        const uint8_t *r0 = img.rgb.data() + (size_t)y * sp;
        const uint8_t *r1 = r0 + sp;
        uint8_t *l0 = luma + (size_t)y * width, *l1 = l0 + width;
        uint8_t *c = chroma + (size_t)(y / 2) * width;
        for (int x = 0; x < width; x += 2) {
            int rs = 0, gs = 0, bs = 0;
            const uint8_t *px[4] = {r0 + x * 3, r0 + x * 3 + 3, r1 + x * 3, r1 + x * 3 + 3};
            uint8_t *ly[4] = {l0 + x, l0 + x + 1, l1 + x, l1 + x + 1};
            for (int k = 0; k < 4; ++k) {
                const int r = px[k][0], g = px[k][1], b = px[k][2];
                *ly[k] = (uint8_t)((77 * r + 150 * g + 29 * b + 128) >> 8);
                rs += r;
                gs += g;
                bs += b;
            }
            const int cb = (-43 * rs - 85 * gs + 128 * bs + (128 << 10) + 512) >> 10;
            const int cr = (128 * rs - 107 * gs - 21 * bs + (128 << 10) + 512) >> 10;
            c[x] = clamp8(cb);
            c[x + 1] = clamp8(cr);
        }
    }
}

Nv12Image rgb_to_nv12(const RgbImage &img) {
    const int w = img.width & ~1, h = img.height & ~1;
    Nv12Image out = make_nv12(w, h);
    if (w > 0 && h > 0) rgb_to_nv12_planes(img, w, h, out.luma.data(), out.chroma.data());
    return out;
}

// R = Y + 1.402 Cr', G = Y - 0.344 Cb' - 0.714 Cr', B = Y + 1.772 Cb', with
// the products rounded in 8-bit fixed point (bias keeps the shift on
// non-negative values).
RgbImage nv12_planes_to_rgb(const uint8_t *luma, const uint8_t *chroma, int pitch, int width,
                            int height) {
    RgbImage out = make_rgb(width, height);
    const int bias = 256 << 8;
    for (int y = 0; y < height; ++y) {
        const uint8_t *l = luma + (size_t)y * pitch;
        const uint8_t *c = chroma + (size_t)(y / 2) * pitch;
        uint8_t *o = out.rgb.data() + (size_t)y * width * 3;
        for (int x = 0; x < width; ++x) {
            const int Y = l[x];
            const int cb = c[x & ~1] - 128, cr = c[(x & ~1) + 1] - 128;
            o[3 * x + 0] = clamp8(Y + ((359 * cr + bias + 128) >> 8) - 256);
            o[3 * x + 1] = clamp8(Y + ((-88 * cb - 183 * cr + bias + 128) >> 8) - 256);
            o[3 * x + 2] = clamp8(Y + ((454 * cb + bias + 128) >> 8) - 256);
        }
    }
    return out;
}

RgbImage nv12_to_rgb(const Nv12Image &img) {
    return nv12_planes_to_rgb(img.luma.data(), img.chroma.data(), img.width, img.width,
                              img.height);
}

// ----------------------------------------------------------- geometry --
RgbImage crop(const RgbImage &img, int x, int y, int w, int h) {
    x &= ~1;
    y &= ~1;
    if (x < 0 || y < 0 || w <= 0 || h <= 0 || x + w > img.width || y + h > img.height)
        return RgbImage();
    RgbImage out = make_rgb(w, h);
    for (int r = 0; r < h; ++r)
        memcpy(out.rgb.data() + (size_t)r * w * 3,
               img.rgb.data() + ((size_t)(y + r) * img.width + x) * 3, (size_t)w * 3);
    return out;
}

// libyuv works on 4-byte pixels; "RAW" is its name for R, G, B byte order.
RgbImage resize_bilinear(const RgbImage &img, int width, int height) {
    if (width <= 0 || height <= 0 || img.width <= 0 || img.height <= 0) return RgbImage();
    if (width == img.width && height == img.height) return img;
    std::vector<uint8_t> src((size_t)img.width * img.height * 4), dst((size_t)width * height * 4);
    libyuv::RAWToARGB(img.rgb.data(), img.width * 3, src.data(), img.width * 4, img.width, img.height);
    // Box filtering when shrinking, bilinear when enlarging.
    libyuv::ARGBScale(src.data(), img.width * 4, img.width, img.height, dst.data(), width * 4, width,
                      height, libyuv::kFilterBox);
    RgbImage out = make_rgb(width, height);
    libyuv::ARGBToRAW(dst.data(), width * 4, out.rgb.data(), width * 3, width, height);
    return out;
}

RgbImage rotate90(const RgbImage &img, bool clockwise) {
    RgbImage out = make_rgb(img.height, img.width);
    for (int y = 0; y < img.height; ++y)
        for (int x = 0; x < img.width; ++x) {
            // Clockwise: source (x, y) lands at column H-1-y, row x.
            const int ox = clockwise ? img.height - 1 - y : y;
            const int oy = clockwise ? x : img.width - 1 - x;
            memcpy(&out.rgb[((size_t)oy * out.width + ox) * 3],
                   &img.rgb[((size_t)y * img.width + x) * 3], 3);
        }
    return out;
}

} // namespace varo_io
