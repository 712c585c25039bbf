// JPEG and TIFF output, EXIF through libexif, and display orientation.
#include <setjmp.h>
#include <stdio.h>
#include <string.h>

#include <jpeglib.h>
#include <libexif/exif-data.h>
#include <tiffio.h>

#include "imageio.h"

namespace varo_io {

namespace {

struct JpegWriteError {
    jpeg_error_mgr mgr;
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void jpeg_write_error_cb(j_common_ptr cinfo) {
    JpegWriteError *e = (JpegWriteError *)cinfo->err;
    (*cinfo->err->format_message)(cinfo, e->message);
    longjmp(e->jump, 1);
}

// Everything the jump must survive is in memory owned by the caller.
bool write_jpeg_file(FILE *f, const RgbImage &img, int quality, const std::vector<uint8_t> &exif,
                     jpeg_compress_struct *c, JpegWriteError *e) {
    c->err = jpeg_std_error(&e->mgr);
    e->mgr.error_exit = jpeg_write_error_cb;
    if (setjmp(e->jump)) {
        jpeg_destroy_compress(c);
        return false;
    }
    jpeg_create_compress(c);
    jpeg_stdio_dest(c, f);
    c->image_width = (JDIMENSION)img.width;
    c->image_height = (JDIMENSION)img.height;
    c->input_components = 3;
    c->in_color_space = JCS_RGB;
    jpeg_set_defaults(c);
    jpeg_set_quality(c, quality, TRUE);
    c->dct_method = JDCT_ISLOW;
    c->write_JFIF_header = exif.empty(); // an EXIF file starts with its APP1 block
    jpeg_start_compress(c, TRUE);
    if (!exif.empty() && exif.size() <= 65533)
        jpeg_write_marker(c, JPEG_APP0 + 1, exif.data(), (unsigned)exif.size());
    while (c->next_scanline < c->image_height) {
        JSAMPROW row = (JSAMPROW)(img.rgb.data() + (size_t)c->next_scanline * img.width * 3);
        jpeg_write_scanlines(c, &row, 1);
    }
    jpeg_finish_compress(c);
    jpeg_destroy_compress(c);
    return true;
}

ExifShort get_short(ExifData *d, ExifTag tag, bool *found) {
    ExifEntry *e = exif_data_get_entry(d, tag);
    *found = e && e->format == EXIF_FORMAT_SHORT && e->components >= 1;
    return *found ? exif_get_short(e->data, exif_data_get_byte_order(d)) : 0;
}

double get_number(ExifData *d, ExifTag tag) {
    ExifEntry *e = exif_data_get_entry(d, tag);
    if (!e || e->components < 1) return 0;
    const ExifByteOrder o = exif_data_get_byte_order(d);
    switch (e->format) {
    case EXIF_FORMAT_RATIONAL: {
        const ExifRational r = exif_get_rational(e->data, o);
        return r.denominator ? (double)r.numerator / r.denominator : 0;
    }
    case EXIF_FORMAT_SRATIONAL: {
        const ExifSRational r = exif_get_srational(e->data, o);
        return r.denominator ? (double)r.numerator / r.denominator : 0;
    }
    case EXIF_FORMAT_SHORT: return exif_get_short(e->data, o);
    case EXIF_FORMAT_LONG: return exif_get_long(e->data, o);
    default: return 0;
    }
}

} // namespace

bool write_jpeg(const std::string &path, const RgbImage &img, int quality,
                const std::vector<uint8_t> &exif, std::string *err) {
    FILE *f = fopen(path.c_str(), "wb");
    if (!f) {
        *err = path + ": cannot create: " + strerror(errno);
        return false;
    }
    jpeg_compress_struct c;
    JpegWriteError e;
    e.message[0] = 0;
    const bool ok = write_jpeg_file(f, img, quality, exif, &c, &e);
    const bool flushed = fflush(f) == 0 && !ferror(f);
    const bool closed = fclose(f) == 0;
    if (!ok || !flushed || !closed) {
        *err = path + ": JPEG write failed" + (e.message[0] ? std::string(": ") + e.message : "");
        return false;
    }
    return true;
}

bool write_tiff(const std::string &path, const RgbImage &img, std::string *err) {
    TIFFSetWarningHandler(nullptr);
    TIFF *t = TIFFOpen(path.c_str(), "w");
    if (!t) {
        *err = path + ": cannot create TIFF";
        return false;
    }
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, (uint32_t)img.width);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, (uint32_t)img.height);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
    bool ok = true;
    for (int y = 0; y < img.height && ok; ++y)
        ok = TIFFWriteScanline(t, (void *)(img.rgb.data() + (size_t)y * img.width * 3), (uint32_t)y, 0) >= 0;
    ok = TIFFFlush(t) == 1 && ok;
    TIFFClose(t);
    if (!ok) *err = path + ": TIFF write failed";
    return ok;
}

bool parse_exif(const std::vector<uint8_t> &app1, ExifInfo *out) {
    if (app1.empty()) return false;
    ExifData *d = exif_data_new_from_data(app1.data(), (unsigned)app1.size());
    if (!d) return false;
    ExifInfo info;
    info.exposure_time = get_number(d, EXIF_TAG_EXPOSURE_TIME);
    info.f_number = get_number(d, EXIF_TAG_FNUMBER);
    info.iso = get_number(d, EXIF_TAG_ISO_SPEED_RATINGS);
    bool found;
    const int o = get_short(d, EXIF_TAG_ORIENTATION, &found);
    if (found && o >= 1 && o <= 8) info.orientation = o;
    exif_data_unref(d);
    *out = info;
    return true;
}

std::vector<uint8_t> exif_for_upright(const std::vector<uint8_t> &app1, int width, int height) {
    std::vector<uint8_t> out;
    if (app1.empty()) return out;
    ExifData *d = exif_data_new_from_data(app1.data(), (unsigned)app1.size());
    if (!d) return out;
    const ExifByteOrder o = exif_data_get_byte_order(d);
    if (ExifEntry *e = exif_data_get_entry(d, EXIF_TAG_ORIENTATION))
        if (e->format == EXIF_FORMAT_SHORT) exif_set_short(e->data, o, 1);
    for (auto tag : {EXIF_TAG_PIXEL_X_DIMENSION, EXIF_TAG_PIXEL_Y_DIMENSION})
        if (ExifEntry *e = exif_data_get_entry(d, tag)) {
            const uint32_t v = tag == EXIF_TAG_PIXEL_X_DIMENSION ? (uint32_t)width : (uint32_t)height;
            if (e->format == EXIF_FORMAT_LONG) exif_set_long(e->data, o, v);
            else if (e->format == EXIF_FORMAT_SHORT) exif_set_short(e->data, o, (ExifShort)v);
        }
    if (d->data) {
        free(d->data);
        d->data = nullptr;
        d->size = 0;
    }
    unsigned char *buf = nullptr;
    unsigned size = 0;
    exif_data_save_data(d, &buf, &size);
    if (buf) {
        out.assign(buf, buf + size);
        free(buf);
    }
    exif_data_unref(d);
    return out;
}

RgbImage orient_upright(const RgbImage &img, int orientation) {
    auto mirror = [](const RgbImage &in) {
        RgbImage m = make_rgb(in.width, in.height);
        for (int y = 0; y < in.height; ++y)
            for (int x = 0; x < in.width; ++x)
                memcpy(&m.rgb[((size_t)y * in.width + in.width - 1 - x) * 3],
                       &in.rgb[((size_t)y * in.width + x) * 3], 3);
        return m;
    };
    switch (orientation) {
    case 2: return mirror(img);
    case 3: return rotate90(rotate90(img, true), true);
    case 4: return rotate90(rotate90(mirror(img), true), true);
    case 5: return rotate90(mirror(img), false);
    case 6: return rotate90(img, true);
    case 7: return rotate90(mirror(img), true);
    case 8: return rotate90(img, false);
    default: return img;
    }
}

} // namespace varo_io
