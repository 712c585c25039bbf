#include "merge_support.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

namespace varo_merge {

using varo_io::RgbImage;

namespace {

// Below this the pyramids and the registration search have too little to work on.
const int kMinSide = 128;

bool parse_uint(const char *s, uint64_t max, uint64_t *out, const char **end) {
    if (*s < '0' || *s > '9') return false;
    errno = 0;
    char *e = nullptr;
    const unsigned long long v = strtoull(s, &e, 10);
    if (errno || v > max) return false;
    *out = v;
    *end = e;
    return true;
}

bool parse_size(const char *s, int *w, int *h) {
    uint64_t a, b;
    const char *e;
    if (!parse_uint(s, 100000, &a, &e) || (*e != 'x' && *e != 'X')) return false;
    if (!parse_uint(e + 1, 100000, &b, &e) || *e) return false;
    *w = (int)a;
    *h = (int)b;
    return true;
}

bool parse_units(const char *s, uint32_t units[3]) {
    for (int i = 0; i < 3; ++i) {
        uint64_t v;
        const char *e;
        if (!parse_uint(s, 0xffffffffu, &v, &e) || v == 0) return false;
        if (*e != (i < 2 ? ',' : '\0')) return false;
        units[i] = (uint32_t)v;
        s = e + 1;
    }
    return true;
}

} // namespace

const char *usage() {
    return "usage: varo_hdr_merge [--he FILE --le FILE --ae FILE | --bracket DIR]\n"
           "                      [--exposure-units HE,LE,AE] [--size WxH]\n"
           "                      [--out OUT.png] [--out-nv12 OUT.nv12] [--log]\n"
           "       varo_hdr_merge --write-default DIR\n"
           "\n"
           "Merges three exposures (PNG or JPEG) into one picture.  Without inputs it\n"
           "merges a built-in synthetic bracket (1280x720, exposures 1:4:16).\n"
           "  --he/--le/--ae   over-, under- and normally exposed frames (--exposure-units needed)\n"
           "  --bracket DIR    a bracket folder with meta.json\n"
           "  --exposure-units exposure of each frame as integers, e.g. 40000,2500,10000\n"
           "  --size WxH       resample the inputs first (even sizes, at most 4160x3120)\n"
           "  --out            PNG of the valid output rectangle (default varo_hdr_out.png)\n"
           "  --out-nv12       the same rectangle as raw NV12 (luma plane, then chroma)\n"
           "  --log            enable the library's log lines\n"
           "  --write-default  write the built-in bracket as he.png, le.png, ae.png\n";
}

bool parse_args(int argc, const char *const *argv, Options *opt, std::string *err) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&](const char **v) {
            if (i + 1 >= argc) {
                *err = a + " needs a value";
                return false;
            }
            *v = argv[++i];
            return true;
        };
        const char *v = nullptr;
        if (a == "-h" || a == "--help") {
            o.help = true;
        } else if (a == "--log") {
            o.log = true;
        } else if (a == "--he" || a == "--le" || a == "--ae") {
            if (!value(&v)) return false;
            o.file[a == "--he" ? HE_IDX : a == "--le" ? LE_IDX : AE_IDX] = v;
        } else if (a == "--bracket") {
            if (!value(&v)) return false;
            o.bracket_dir = v;
        } else if (a == "--exposure-units") {
            if (!value(&v)) return false;
            if (!parse_units(v, o.units)) {
                *err = std::string("--exposure-units wants three positive integers HE,LE,AE, got '") + v + "'";
                return false;
            }
            o.have_units = true;
        } else if (a == "--size") {
            if (!value(&v)) return false;
            if (!parse_size(v, &o.width, &o.height) || o.width < kMinSide || o.height < kMinSide ||
                o.width > VARO_HDR_MAX_WIDTH || o.height > VARO_HDR_MAX_HEIGHT || (o.width | o.height) & 1) {
                *err = std::string("--size wants even WxH from ") + std::to_string(kMinSide) + "x" +
                       std::to_string(kMinSide) + " to " + std::to_string(VARO_HDR_MAX_WIDTH) + "x" +
                       std::to_string(VARO_HDR_MAX_HEIGHT) + ", got '" + v + "'";
                return false;
            }
        } else if (a == "--out") {
            if (!value(&v)) return false;
            o.out_png = v;
        } else if (a == "--out-nv12") {
            if (!value(&v)) return false;
            o.out_nv12 = v;
        } else if (a == "--write-default") {
            if (!value(&v)) return false;
            o.write_default_dir = v;
        } else {
            *err = "unknown argument '" + a + "'";
            return false;
        }
    }
    const int files = !o.file[0].empty() + !o.file[1].empty() + !o.file[2].empty();
    if (files != 0 && files != 3) {
        *err = "--he, --le and --ae go together";
        return false;
    }
    if (files == 3 && !o.bracket_dir.empty()) {
        *err = "give either --he/--le/--ae or --bracket, not both";
        return false;
    }
    if (files == 3 && !o.have_units) {
        *err = "--exposure-units HE,LE,AE is needed with --he/--le/--ae";
        return false;
    }
    if (o.out_png.empty() && o.out_nv12.empty()) {
        *err = "--out needs a file name";
        return false;
    }
    *opt = o;
    return true;
}

bool load_inputs(const Options &opt, Inputs *in, std::string *err) {
    Inputs r;
    if (!opt.bracket_dir.empty()) {
        varo_io::BracketSet set;
        if (!varo_io::load_bracket_set(opt.bracket_dir, &set, err)) return false;
        r.description = "bracket " + (set.name.empty() ? opt.bracket_dir : set.name);
        for (int f = 0; f < 3; ++f) {
            r.frame[f] = std::move(set.frame[f]);
            r.units[f] = set.exposure_units[f];
        }
    } else if (!opt.file[0].empty()) {
        r.description = "files";
        for (int f = 0; f < 3; ++f)
            if (!varo_io::load_image(opt.file[f], &r.frame[f], err)) return false;
    } else {
        varo_io::SyntheticBracket s = varo_io::synthetic_bracket();
        r.description = "built-in synthetic bracket";
        for (int f = 0; f < 3; ++f) {
            r.frame[f] = std::move(s.frame[f]);
            r.units[f] = s.exposure_units[f];
        }
    }
    if (opt.have_units)
        for (int f = 0; f < 3; ++f) r.units[f] = opt.units[f];

    static const char *const names[3] = {"HE", "LE", "AE"};
    for (int f = 0; f < 3; ++f) {
        if (r.frame[f].width != r.frame[AE_IDX].width || r.frame[f].height != r.frame[AE_IDX].height) {
            *err = std::string("frame sizes differ: ") + names[f] + " " +
                   std::to_string(r.frame[f].width) + "x" + std::to_string(r.frame[f].height) +
                   ", AE " + std::to_string(r.frame[AE_IDX].width) + "x" +
                   std::to_string(r.frame[AE_IDX].height);
            return false;
        }
    }
    int w = r.frame[0].width & ~1, h = r.frame[0].height & ~1;
    if (opt.width) {
        w = opt.width;
        h = opt.height;
    }
    for (int f = 0; f < 3; ++f) {
        if (opt.width) r.frame[f] = varo_io::resize_bilinear(r.frame[f], w, h);
        else if (r.frame[f].width != w || r.frame[f].height != h) r.frame[f] = varo_io::crop(r.frame[f], 0, 0, w, h);
    }
    if (w < kMinSide || h < kMinSide || w > VARO_HDR_MAX_WIDTH || h > VARO_HDR_MAX_HEIGHT) {
        *err = "frame size " + std::to_string(w) + "x" + std::to_string(h) + " is outside " +
               std::to_string(kMinSide) + "x" + std::to_string(kMinSide) + " .. " +
               std::to_string(VARO_HDR_MAX_WIDTH) + "x" + std::to_string(VARO_HDR_MAX_HEIGHT) +
               " (use --size)";
        return false;
    }
    *in = std::move(r);
    return true;
}

bool write_default_bracket(const std::string &dir, std::string *err) {
    if (mkdir(dir.c_str(), 0777) != 0 && errno != EEXIST) {
        *err = dir + ": cannot create: " + strerror(errno);
        return false;
    }
    const varo_io::SyntheticBracket s = varo_io::synthetic_bracket();
    static const char *const names[3] = {"he.png", "le.png", "ae.png"};
    for (int f = 0; f < 3; ++f)
        if (!varo_io::write_png(dir + "/" + names[f], s.frame[f], err)) return false;
    return true;
}

size_t frame_slack_bytes(int width) { return (size_t)126 * width + 126; }

void FrameBuffer::Free::operator()(uint8_t *p) const { free(p); }

FrameBuffer::FrameBuffer(int width, int height) : width_(width), height_(height) {
    const size_t planes = (size_t)width * height + (size_t)width * (height / 2);
    // Camera buffers are cache-line aligned; so are these.
    bytes_ = (planes + frame_slack_bytes(width) + 63) & ~(size_t)63;
    mem_.reset((uint8_t *)aligned_alloc(64, bytes_));
    if (!mem_) {
        fprintf(stderr, "varo_hdr_merge: out of memory for a %dx%d frame\n", width, height);
        exit(1);
    }
    memset(mem_.get(), 0, bytes_);
}

void make_frames(const Inputs &in, Frames *frames) {
    const int w = in.frame[0].width, h = in.frame[0].height;
    frames->width = w;
    frames->height = h;
    for (int f = 0; f < 3; ++f) {
        frames->buf[f].reset(new FrameBuffer(w, h));
        varo_io::rgb_to_nv12_planes(in.frame[f], w, h, frames->buf[f]->luma(), frames->buf[f]->chroma());
    }
}

void fill_descriptor(Frames *frames, const uint32_t units[3], HdrInput *desc) {
    memset(desc, 0, sizeof *desc);
    // exposure[] shares its words with frame[AE_IDX].reserved, which nothing
    // else here writes.
    for (int f = 0; f < 3; ++f) {
        desc->frame[f].luma = frames->buf[f]->luma();
        desc->frame[f].chroma = frames->buf[f]->chroma();
    }
    for (int f = 0; f < 3; ++f) {
        desc->exposure[f].exposure_scale = 1.0f;
        desc->exposure[f].exposure_units = units[f];
    }
    desc->width = frames->width;
    desc->height = frames->height;
}

bool extract_output(const HdrInput &desc, varo_io::Nv12Image *out, std::string *err) {
    const int x = desc.out_x, y = desc.out_y, w = desc.out_width, h = desc.out_height;
    if (x < 0 || y < 0 || w < 2 || h < 2 || x > desc.width - w || y > desc.height - h) {
        *err = "output rectangle (" + std::to_string(x) + ", " + std::to_string(y) + ", " +
               std::to_string(w) + ", " + std::to_string(h) + ") is not inside the " +
               std::to_string(desc.width) + "x" + std::to_string(desc.height) + " frame";
        return false;
    }
    const int ew = w & ~1, eh = h & ~1;
    const int pitch = desc.width;
    const uint8_t *luma = desc.frame[HE_IDX].luma, *chroma = desc.frame[HE_IDX].chroma;
    varo_io::Nv12Image o = varo_io::make_nv12(ew, eh);
    for (int r = 0; r < eh; ++r) memcpy(&o.luma[(size_t)r * ew], luma + (size_t)(y + r) * pitch + x, (size_t)ew);
    // A chroma pair covers a 2x2 block; an odd origin takes the block it falls in.
    for (int r = 0; r < eh / 2; ++r)
        memcpy(&o.chroma[(size_t)r * ew], chroma + (size_t)(y / 2 + r) * pitch + (x & ~1), (size_t)ew);
    *out = std::move(o);
    return true;
}

} // namespace varo_merge
