#include "merge_support.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

#include <nlohmann/json.hpp>

namespace varo_merge {

using varo_io::Nv12Image;
using varo_io::RgbImage;

namespace {

// Below this the pyramids and the registration search have too little to work on.
const int kMinSide = 128;
const char *const kRole[3] = {"HE", "LE", "AE"};

double now_ms() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

std::string lower(std::string s) {
    for (char &c : s) c = (char)tolower((unsigned char)c);
    return s;
}

std::string extension(const std::string &path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    return lower(path.substr(dot + 1));
}

std::string base_name(const std::string &path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string size_text(int w, int h) { return std::to_string(w) + "x" + std::to_string(h); }

bool parse_int(const char *s, long lo, long hi, long *out) {
    char *e = nullptr;
    errno = 0;
    const long v = strtol(s, &e, 10);
    if (errno || e == s || *e || v < lo || v > hi) return false;
    *out = v;
    return true;
}

bool parse_size(const char *s, int *w, int *h) {
    const char *x = strpbrk(s, "xX");
    if (!x) return false;
    long a, b;
    const std::string first(s, x);
    if (!parse_int(first.c_str(), 1, 100000, &a) || !parse_int(x + 1, 1, 100000, &b)) return false;
    *w = (int)a;
    *h = (int)b;
    return true;
}

// "2", "0.25" or "1/30".
bool parse_exposure_value(const std::string &t, double *v) {
    if (t.empty()) return false;
    char *e = nullptr;
    const double a = strtod(t.c_str(), &e);
    if (e == t.c_str()) return false;
    double r = a;
    if (*e == '/') {
        const char *d = e + 1;
        const double b = strtod(d, &e);
        if (e == d || !(b > 0)) return false;
        r = a / b;
    }
    if (*e || !(r > 0) || !std::isfinite(r)) return false;
    *v = r;
    return true;
}

// Integers in the given proportion: the smallest exposure becomes 1000.
bool units_from_values(const double v[3], uint32_t units[3], std::string *err) {
    const double lo = std::min(v[0], std::min(v[1], v[2]));
    for (int f = 0; f < 3; ++f) {
        const double u = floor(v[f] / lo * 1000.0 + 0.5);
        if (!(u >= 1 && u <= 2e9)) {
            *err = "exposures span too wide a range";
            return false;
        }
        units[f] = (uint32_t)u;
    }
    return true;
}

std::string format_seconds(double t) {
    char b[64];
    if (t > 0 && t < 0.5) snprintf(b, sizeof b, "1/%.0f s", 1.0 / t);
    else snprintf(b, sizeof b, "%g s", t);
    return b;
}

// HE must be the brightest and LE the darkest.  The message names the order
// that would agree with the exposures.
bool check_roles(const uint32_t units[3], const std::string file[3], const std::string &source,
                 std::string *err) {
    if (units[HE_IDX] >= units[AE_IDX] && units[AE_IDX] >= units[LE_IDX] && units[HE_IDX] > units[LE_IDX])
        return true;
    int order[3] = {0, 1, 2};
    std::sort(order, order + 3, [&](int a, int b) { return units[a] < units[b]; });
    const int le = order[0], ae = order[1], he = order[2];
    std::string msg = "the exposures (" + source + ") contradict the roles: HE " +
                      std::to_string(units[HE_IDX]) + ", LE " + std::to_string(units[LE_IDX]) +
                      ", AE " + std::to_string(units[AE_IDX]) +
                      "; HE must be the brightest and LE the darkest";
    if (units[HE_IDX] == units[LE_IDX] && units[LE_IDX] == units[AE_IDX]) {
        *err = msg + " (all three are equal)";
        return false;
    }
    msg += ". The right order is";
    if (!file[0].empty())
        msg += " --he " + file[he] + " --le " + file[le] + " --ae " + file[ae];
    if (source == "--exposure-units" || file[0].empty())
        msg += " --exposure-units " + std::to_string(units[he]) + "," + std::to_string(units[le]) + "," +
               std::to_string(units[ae]);
    *err = msg;
    return false;
}

bool is_raw_name(const std::string &path) {
    const std::string e = extension(path);
    return e == "nv12" || e == "yuv";
}

struct Loaded {
    RgbImage rgb;
    Nv12Image nv12;
    varo_io::ImageMeta meta;
    varo_io::ExifInfo exif;
    bool has_exif = false;
};

bool load_file(const std::string &path, const Options &opt, Loaded *l, std::string *err) {
    if (is_raw_name(path)) {
        if (!opt.width) {
            *err = path + ": a raw NV12 file needs --size WxH";
            return false;
        }
        return varo_io::read_nv12(path, opt.width, opt.height, &l->nv12, err);
    }
    if (!varo_io::load_image(path, &l->rgb, err, &l->meta)) return false;
    l->has_exif = varo_io::parse_exif(l->meta.exif, &l->exif);
    return true;
}

// t x ISO / N^2 from EXIF; missing ISO or f-number count as equal for all.
bool exif_exposure(const Loaded &l, const std::string &path, double *v, std::string *text,
                   std::string *err) {
    if (!l.has_exif || !(l.exif.exposure_time > 0)) {
        *err = path + ": no exposure time in its EXIF; give --exposure-units HE,LE,AE";
        return false;
    }
    const double iso = l.exif.iso > 0 ? l.exif.iso : 100;
    const double n = l.exif.f_number > 0 ? l.exif.f_number : 1;
    *v = l.exif.exposure_time * iso / (n * n);
    char b[96];
    snprintf(b, sizeof b, ", ISO %g", l.exif.iso);
    *text = format_seconds(l.exif.exposure_time) + (l.exif.iso > 0 ? b : ", no ISO (taken as 100)");
    snprintf(b, sizeof b, ", f/%g", l.exif.f_number);
    *text += l.exif.f_number > 0 ? b : ", no f-number (taken as 1)";
    return true;
}

bool fits(int w, int h) { return w <= VARO_HDR_MAX_WIDTH && h <= VARO_HDR_MAX_HEIGHT; }

// The largest even size inside w x h with the picture's aspect ratio.
void fit_box(int sw, int sh, int bw, int bh, int *w, int *h) {
    const double s = std::min((double)bw / sw, (double)bh / sh);
    *w = (int)floor(sw * s) & ~1;
    *h = (int)floor(sh * s) & ~1;
}

bool read_text_file(const std::string &path, std::string *out) {
    FILE *f = fopen(path.c_str(), "rb");
    if (!f) return false;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) out->append(buf, n);
    fclose(f);
    return true;
}

} // namespace

bool format_from_path(const std::string &path, OutFormat *out, std::string *err) {
    const std::string e = extension(path);
    if (e == "png") *out = OutFormat::PNG;
    else if (e == "jpg" || e == "jpeg") *out = OutFormat::JPEG;
    else if (e == "tif" || e == "tiff") *out = OutFormat::TIFF;
    else if (e == "nv12") *out = OutFormat::NV12;
    else if (e == "nv21") *out = OutFormat::NV21;
    else {
        *err = path + ": unknown output type '." + e + "' (use .png, .jpg, .jpeg, .tif, .tiff, .nv12 or .nv21)";
        return false;
    }
    return true;
}

const char *usage() {
    return "usage: varo_hdr_merge [options] [HE LE AE | FILE FILE FILE]\n"
           "       varo_hdr_merge --he FILE --le FILE --ae FILE [options]\n"
           "       varo_hdr_merge --bracket DIR [options]\n"
           "       varo_hdr_merge --batch DIR --out-dir OUT [-j N] [options]\n"
           "\n"
           "Merges three exposures of one scene (JPEG, PNG or raw NV12) into one picture\n"
           "with varo_hdr.  Without inputs it merges a built-in synthetic 1280x720 bracket.\n"
           "\n"
           "Inputs\n"
           "  FILE FILE FILE        three files in any order: their EXIF exposures give the roles\n"
           "  --he/--le/--ae FILE   over-, under- and normally exposed frame (AE is the reference)\n"
           "  --bracket DIR         a folder with meta.json naming the three frames\n"
           "  --exposure-units HE,LE,AE\n"
           "                        exposures in proportion: 16,1,4 or 1/30,1/250,1/125 or 0.5,0.03,0.12;\n"
           "                        without it each file's EXIF exposure (time x ISO / f-number^2) is used\n"
           "  --size WxH            fit the frames into WxH keeping their aspect ratio (at most 4160x3120);\n"
           "                        for raw .nv12 inputs, their size\n"
           "Output\n"
           "  --out FILE            by extension: .png, .jpg/.jpeg, .tif/.tiff (upright, as the camera\n"
           "                        meant it to be seen), .nv12/.nv21 (raw, as merged); default varo_hdr_out.png\n"
           "  --quality N           JPEG quality 1..100 (default 92); the AE file's EXIF is carried over\n"
           "  --json FILE           the report as JSON (\"status\": \"merged\" or \"fallback\", \"reason\", ...)\n"
           "  --dump DIR            PNGs of the registered frames, weight maps, motion masks and the\n"
           "                        result beside the reference frame\n"
           "  --strict              a fallback to the reference frame exits with 3\n"
           "  --log                 the library's log lines (stderr)\n"
           "Batch\n"
           "  --batch DIR           merge every bracket folder under DIR (a meta.json, or three images\n"
           "                        whose EXIF exposures order them), carrying on past failures\n"
           "  --out-dir OUT         where the batch writes NAME.EXT and NAME.json\n"
           "  --format EXT          batch output type: jpg (default), png, tif, nv12, nv21\n"
           "  -j, --jobs N          merge N sets at once; each merge holds about 430 MB\n"
           "Other\n"
           "  --write-default DIR   write the built-in bracket as he.png, le.png, ae.png\n"
           "  --version, -h/--help\n"
           "\n"
           "Exit codes: 0 merged (or fell back to the reference frame without --strict);\n"
           "  1 an input, output or merge error (batch: any set failed); 2 bad command line;\n"
           "  3 --strict and the result is the reference frame.\n"
           "\n"
           "Examples\n"
           "  varo_hdr_merge IMG_3872.jpeg IMG_3874.jpeg IMG_3876.jpeg --out night.jpg\n"
           "  varo_hdr_merge --he over.png --le under.png --ae mid.png --exposure-units 1/15,1/250,1/60 \\\n"
           "                 --out merged.tif --json merged.json\n"
           "  varo_hdr_merge --bracket brackets/stlouis_arch_night --out arch.jpg --dump arch_dump\n"
           "  varo_hdr_merge --batch brackets --out-dir merged -j 2 --strict\n";
}

bool parse_exposures(const std::string &text, uint32_t units[3], std::string *err) {
    std::string tok[3];
    size_t pos = 0;
    for (int i = 0; i < 3; ++i) {
        const size_t comma = text.find(',', pos);
        if ((i < 2) != (comma != std::string::npos)) {
            *err = "--exposure-units wants three exposures HE,LE,AE, got '" + text + "'";
            return false;
        }
        tok[i] = text.substr(pos, i < 2 ? comma - pos : std::string::npos);
        pos = comma + 1;
    }
    bool integers = true;
    double v[3];
    for (int i = 0; i < 3; ++i) {
        if (!parse_exposure_value(tok[i], &v[i])) {
            *err = "--exposure-units: '" + tok[i] + "' is not an exposure (forms: 16, 0.25, 1/30)";
            return false;
        }
        integers = integers && tok[i].find_first_not_of("0123456789") == std::string::npos &&
                   v[i] <= 4294967295.0;
    }
    if (integers) {
        for (int i = 0; i < 3; ++i) units[i] = (uint32_t)v[i];
        return true;
    }
    return units_from_values(v, units, err);
}

bool parse_args(int argc, const char *const *argv, Options *opt, std::string *err) {
    enum { O_HE = 256, O_LE, O_AE, O_BRACKET, O_UNITS, O_SIZE, O_OUT, O_QUALITY, O_JSON, O_DUMP,
           O_BATCH, O_OUTDIR, O_FORMAT, O_STRICT, O_LOG, O_VERSION, O_WRITE_DEFAULT };
    static const option longopts[] = {
        {"he", required_argument, nullptr, O_HE},          {"le", required_argument, nullptr, O_LE},
        {"ae", required_argument, nullptr, O_AE},          {"bracket", required_argument, nullptr, O_BRACKET},
        {"exposure-units", required_argument, nullptr, O_UNITS},
        {"size", required_argument, nullptr, O_SIZE},      {"out", required_argument, nullptr, O_OUT},
        {"quality", required_argument, nullptr, O_QUALITY}, {"json", required_argument, nullptr, O_JSON},
        {"dump", required_argument, nullptr, O_DUMP},      {"batch", required_argument, nullptr, O_BATCH},
        {"out-dir", required_argument, nullptr, O_OUTDIR}, {"format", required_argument, nullptr, O_FORMAT},
        {"jobs", required_argument, nullptr, 'j'},         {"strict", no_argument, nullptr, O_STRICT},
        {"log", no_argument, nullptr, O_LOG},              {"version", no_argument, nullptr, O_VERSION},
        {"help", no_argument, nullptr, 'h'},
        {"write-default", required_argument, nullptr, O_WRITE_DEFAULT},
        {nullptr, 0, nullptr, 0}};
    std::vector<char *> args;
    for (int i = 0; i < argc; ++i) args.push_back(const_cast<char *>(argv[i]));
    args.push_back(nullptr);
    Options o;
    optind = 0; // full reset: parse_args may run more than once in a process
    opterr = 0;
    for (;;) {
        const int c = getopt_long(argc, args.data(), ":hj:", longopts, nullptr);
        if (c == -1) break;
        const char *v = optarg;
        long n;
        switch (c) {
        case O_HE: o.file[HE_IDX] = v; break;
        case O_LE: o.file[LE_IDX] = v; break;
        case O_AE: o.file[AE_IDX] = v; break;
        case O_BRACKET: o.bracket_dir = v; break;
        case O_UNITS:
            if (!parse_exposures(v, o.units, err)) return false;
            o.units_text = v;
            o.have_units = true;
            break;
        case O_SIZE:
            if (!parse_size(v, &o.width, &o.height) || (o.width | o.height) & 1) {
                *err = std::string("--size wants even WxH, got '") + v + "'";
                return false;
            }
            break;
        case O_OUT: o.out = v; break;
        case O_QUALITY:
            if (!parse_int(v, 1, 100, &n)) {
                *err = std::string("--quality wants 1..100, got '") + v + "'";
                return false;
            }
            o.quality = (int)n;
            break;
        case O_JSON: o.json_path = v; break;
        case O_DUMP: o.dump_dir = v; break;
        case O_BATCH: o.batch_dir = v; break;
        case O_OUTDIR: o.out_dir = v; break;
        case O_FORMAT: o.batch_format = lower(v); break;
        case 'j':
            if (!parse_int(v, 1, 64, &n)) {
                *err = std::string("--jobs wants 1..64, got '") + v + "'";
                return false;
            }
            o.jobs = (int)n;
            break;
        case O_STRICT: o.strict = true; break;
        case O_LOG: o.log = true; break;
        case O_VERSION: o.version = true; break;
        case 'h': o.help = true; break;
        case O_WRITE_DEFAULT: o.write_default_dir = v; break;
        default: {
            const char *bad = optind - 1 < argc ? argv[optind - 1] : "?";
            *err = c == ':' ? std::string(bad) + " needs a value"
                                      : std::string("unknown or incomplete option '") + bad + "'";
            return false;
        }
        }
    }
    for (int i = optind; i < argc; ++i) o.positional.push_back(args[i]); // permuted: options first
    if (o.help || o.version) {
        *opt = o;
        return true;
    }
    const int files = !o.file[0].empty() + !o.file[1].empty() + !o.file[2].empty();
    if (files != 0 && files != 3) {
        *err = "--he, --le and --ae go together";
        return false;
    }
    if (!o.positional.empty() && o.positional.size() != 3) {
        *err = "give three input files, not " + std::to_string(o.positional.size());
        return false;
    }
    if ((files == 3) + !o.positional.empty() + !o.bracket_dir.empty() + !o.batch_dir.empty() > 1) {
        *err = "give one of: three files, --he/--le/--ae, --bracket or --batch";
        return false;
    }
    if (!o.batch_dir.empty() && o.out_dir.empty()) {
        *err = "--batch needs --out-dir";
        return false;
    }
    OutFormat fmt;
    if (!o.batch_dir.empty()) {
        if (!format_from_path("x." + o.batch_format, &fmt, err)) return false;
    } else if (!format_from_path(o.out, &fmt, err)) {
        return false;
    }
    *opt = o;
    return true;
}

bool load_inputs(const Options &opt, Inputs *in, std::string *err) {
    const double t0 = now_ms();
    Inputs r;
    std::string path[3];
    bool from_files = false;
    double exif_value[3] = {0, 0, 0};
    bool roles_from_exposure = false;

    if (!opt.bracket_dir.empty()) {
        std::string text;
        const std::string meta_path = opt.bracket_dir + "/meta.json";
        if (!read_text_file(meta_path, &text)) {
            *err = meta_path + ": cannot open";
            return false;
        }
        const nlohmann::json meta = nlohmann::json::parse(text, nullptr, false);
        if (meta.is_discarded() || !meta.is_object()) {
            *err = meta_path + ": not valid JSON";
            return false;
        }
        r.description = "bracket " + meta.value("name", base_name(opt.bracket_dir));
        if (meta.contains("bayer")) {
            // Raw mosaics are developed by the bracket reader.
            varo_io::BracketSet set;
            if (!varo_io::load_bracket_set(opt.bracket_dir, &set, err)) return false;
            for (int f = 0; f < 3; ++f) {
                r.frame[f] = std::move(set.frame[f]);
                r.units[f] = set.exposure_units[f];
                r.file[f] = set.file[f];
            }
            r.exposure_source = "meta.json";
            r.notes.push_back("raw Bayer frames developed");
        } else {
            static const char *const key[3] = {"he", "le", "ae"};
            for (int f = 0; f < 3; ++f) {
                const auto frames = meta.find("frames");
                if (frames == meta.end() || !frames->contains(key[f]) || !(*frames)[key[f]].contains("file")) {
                    *err = meta_path + ": missing frames." + key[f] + ".file";
                    return false;
                }
                const nlohmann::json &fr = (*frames)[key[f]];
                r.file[f] = fr["file"].is_string() ? fr["file"].get<std::string>() : "";
                path[f] = opt.bracket_dir + "/" + r.file[f];
                const auto u = fr.find("exposure_units_us");
                if (u != fr.end() && u->is_number_unsigned() && u->get<uint64_t>() > 0 &&
                    u->get<uint64_t>() <= 0xffffffffu) {
                    r.units[f] = (uint32_t)u->get<uint64_t>();
                    r.exposure_text[f] = std::to_string(r.units[f]) + " units";
                }
            }
            r.exposure_source = r.units[0] && r.units[1] && r.units[2] ? "meta.json" : "";
            from_files = true;
        }
    } else if (!opt.file[0].empty() || !opt.positional.empty()) {
        for (int f = 0; f < 3; ++f) path[f] = opt.positional.empty() ? opt.file[f] : opt.positional[f];
        for (int f = 0; f < 3; ++f) r.file[f] = path[f];
        roles_from_exposure = !opt.positional.empty();
        r.description = "files";
        from_files = true;
    } else {
        varo_io::SyntheticBracket s = varo_io::synthetic_bracket();
        r.description = "built-in synthetic bracket";
        for (int f = 0; f < 3; ++f) {
            r.frame[f] = std::move(s.frame[f]);
            r.units[f] = s.exposure_units[f];
            r.file[f] = std::string("built-in ") + kRole[f];
        }
        r.exposure_source = "built-in";
    }

    if (from_files) {
        Loaded l[3];
        for (int f = 0; f < 3; ++f)
            if (!load_file(path[f], opt, &l[f], err)) return false;
        r.raw = !l[0].nv12.luma.empty();
        for (int f = 1; f < 3; ++f)
            if (r.raw != !l[f].nv12.luma.empty()) {
                *err = "mix of raw NV12 and image files";
                return false;
            }
        const bool need_exif = !opt.have_units && r.exposure_source.empty();
        if (need_exif && r.raw) {
            *err = "raw NV12 files carry no exposure: give --exposure-units HE,LE,AE";
            return false;
        }
        if (need_exif || roles_from_exposure) {
            for (int f = 0; f < 3; ++f) {
                std::string text;
                if (opt.have_units) break;
                if (!exif_exposure(l[f], path[f], &exif_value[f], &text, err)) return false;
                r.exposure_text[f] = text;
            }
            if (!opt.have_units) {
                if (!units_from_values(exif_value, r.units, err)) return false;
                r.exposure_source = "EXIF";
            }
        }
        if (opt.have_units) {
            for (int f = 0; f < 3; ++f) r.units[f] = opt.units[f];
            r.exposure_source = "--exposure-units";
        }
        if (roles_from_exposure) {
            // Three files in any order: the darkest is LE, the brightest HE.
            if (opt.have_units) {
                *err = "with three unnamed files the roles come from their EXIF; use --he/--le/--ae "
                       "with --exposure-units";
                return false;
            }
            int order[3] = {0, 1, 2};
            std::stable_sort(order, order + 3, [&](int a, int b) { return r.units[a] < r.units[b]; });
            const int role_of_rank[3] = {LE_IDX, AE_IDX, HE_IDX};
            Loaded sorted[3];
            std::string file[3], text[3];
            uint32_t units[3];
            for (int k = 0; k < 3; ++k) {
                const int f = role_of_rank[k], src = order[k];
                sorted[f] = std::move(l[src]);
                file[f] = r.file[src];
                text[f] = r.exposure_text[src];
                units[f] = r.units[src];
            }
            for (int f = 0; f < 3; ++f) {
                l[f] = std::move(sorted[f]);
                r.file[f] = file[f];
                r.exposure_text[f] = text[f];
                r.units[f] = units[f];
            }
            r.notes.push_back("roles given by the EXIF exposures");
        }
        for (int f = 0; f < 3; ++f) {
            r.frame[f] = std::move(l[f].rgb);
            r.nv12[f] = std::move(l[f].nv12);
            for (const std::string &n : l[f].meta.notes) r.notes.push_back(base_name(r.file[f]) + ": " + n);
        }
        r.exif = l[AE_IDX].meta.exif;
        r.orientation = l[AE_IDX].has_exif ? l[AE_IDX].exif.orientation : 1;
        for (int f = 0; f < 2; ++f) {
            const int o = l[f].has_exif ? l[f].exif.orientation : 1;
            if (o != r.orientation)
                r.notes.push_back(base_name(r.file[f]) + ": EXIF orientation " + std::to_string(o) +
                                  " differs from AE's " + std::to_string(r.orientation) + "; AE's is used");
        }
    }
    if (!check_roles(r.units, r.file, r.exposure_source, err)) return false;

    auto wh = [&](int f, int *w, int *h) {
        *w = r.raw ? r.nv12[f].width : r.frame[f].width;
        *h = r.raw ? r.nv12[f].height : r.frame[f].height;
    };
    int w, h;
    wh(AE_IDX, &w, &h);
    for (int f = 0; f < 2; ++f) {
        int fw, fh;
        wh(f, &fw, &fh);
        if (fw != w || fh != h) {
            *err = std::string("frame sizes differ: ") + kRole[f] + " " + base_name(r.file[f]) + " " +
                   size_text(fw, fh) + ", AE " + base_name(r.file[AE_IDX]) + " " + size_text(w, h);
            return false;
        }
    }
    if (!r.raw) {
        if ((w | h) & 1) {
            r.notes.push_back("odd size " + size_text(w, h) + " cropped to " + size_text(w & ~1, h & ~1));
            for (int f = 0; f < 3; ++f) r.frame[f] = varo_io::crop(r.frame[f], 0, 0, w & ~1, h & ~1);
            w &= ~1;
            h &= ~1;
        }
        // A picture stored upright in portrait is merged in the sensor's
        // landscape orientation and turned back on output: when it would not
        // fit the library otherwise, or when --size asks for the other
        // orientation (so that --size 4160x3120 gives 4160x3120).
        const bool turn = opt.width ? (w > h) != (opt.width > opt.height) && w != h && opt.width != opt.height
                                    : !fits(w, h) && fits(h, w);
        if (turn) {
            for (int f = 0; f < 3; ++f) r.frame[f] = varo_io::rotate90(r.frame[f], true);
            std::swap(w, h);
            r.turned = true;
            r.notes.push_back("stored " + size_text(h, w) + ", merged turned a quarter to " + size_text(w, h));
        }
        if (opt.width) {
            int nw, nh;
            fit_box(w, h, opt.width, opt.height, &nw, &nh);
            if (nw != w || nh != h) {
                r.notes.push_back("resampled from " + size_text(w, h) + " to " + size_text(nw, nh));
                for (int f = 0; f < 3; ++f) r.frame[f] = varo_io::resize_bilinear(r.frame[f], nw, nh);
                w = nw;
                h = nh;
            }
        }
    }
    if (w < kMinSide || h < kMinSide || !fits(w, h)) {
        int sw, sh;
        fit_box(w, h, VARO_HDR_MAX_WIDTH, VARO_HDR_MAX_HEIGHT, &sw, &sh);
        *err = "frame size " + size_text(w, h) + " is outside " + size_text(kMinSide, kMinSide) + " .. " +
               size_text(VARO_HDR_MAX_WIDTH, VARO_HDR_MAX_HEIGHT) +
               (fits(w, h) || r.raw ? "" : " (try --size " + size_text(sw, sh) + ")");
        return false;
    }
    r.decode_ms = now_ms() - t0;
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

void FrameBuffer::Free::operator()(uint8_t *p) const { free(p); }

FrameBuffer::FrameBuffer(int width, int height) : width_(width), height_(height) {
    const size_t planes = (size_t)width * height + (size_t)width * (height / 2);
    // Camera buffers are cache-line aligned; so are these.
    bytes_ = (planes + 63) & ~(size_t)63;
    mem_.reset((uint8_t *)aligned_alloc(64, bytes_));
    if (!mem_) {
        fprintf(stderr, "varo_hdr_merge: out of memory for a %dx%d frame\n", width, height);
        exit(EXIT_FAILED);
    }
    memset(mem_.get(), 0, bytes_);
}

void make_frames(const Inputs &in, Frames *frames) {
    const int w = in.raw ? in.nv12[0].width : in.frame[0].width;
    const int h = in.raw ? in.nv12[0].height : in.frame[0].height;
    frames->width = w;
    frames->height = h;
    for (int f = 0; f < 3; ++f) {
        frames->buf[f].reset(new FrameBuffer(w, h));
        if (in.raw) {
            memcpy(frames->buf[f]->luma(), in.nv12[f].luma.data(), in.nv12[f].luma.size());
            memcpy(frames->buf[f]->chroma(), in.nv12[f].chroma.data(), in.nv12[f].chroma.size());
        } else {
            varo_io::rgb_to_nv12_planes(in.frame[f], w, h, frames->buf[f]->luma(), frames->buf[f]->chroma());
        }
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

bool extract_output(const HdrInput &desc, Nv12Image *out, std::string *err) {
    const int x = desc.out_x, y = desc.out_y, w = desc.out_width, h = desc.out_height;
    if (x < 0 || y < 0 || w < 2 || h < 2 || x > desc.width - w || y > desc.height - h) {
        *err = "output rectangle (" + std::to_string(x) + ", " + std::to_string(y) + ", " +
               std::to_string(w) + ", " + std::to_string(h) + ") is not inside the " +
               size_text(desc.width, desc.height) + " frame";
        return false;
    }
    const int ew = w & ~1, eh = h & ~1;
    const int pitch = desc.width;
    const uint8_t *luma = desc.frame[HE_IDX].luma, *chroma = desc.frame[HE_IDX].chroma;
    Nv12Image o = varo_io::make_nv12(ew, eh);
    for (int r = 0; r < eh; ++r) memcpy(&o.luma[(size_t)r * ew], luma + (size_t)(y + r) * pitch + x, (size_t)ew);
    // A chroma pair covers a 2x2 block; an odd origin takes the block it falls in.
    for (int r = 0; r < eh / 2; ++r)
        memcpy(&o.chroma[(size_t)r * ew], chroma + (size_t)(y / 2 + r) * pitch + (x & ~1), (size_t)ew);
    *out = std::move(o);
    return true;
}

namespace {

mode_t file_mode() {
    static const mode_t mode = [] {
        const mode_t m = umask(0);
        umask(m);
        return (mode_t)(0666 & ~m);
    }();
    return mode;
}

// The picture as the camera meant it to be seen.
RgbImage upright_rgb(const Nv12Image &img, const Inputs &in) {
    RgbImage rgb = varo_io::nv12_to_rgb(img);
    if (in.turned) rgb = varo_io::rotate90(rgb, false);
    return varo_io::orient_upright(rgb, in.orientation);
}

} // namespace

bool write_output(const std::string &path, OutFormat format, const Nv12Image &merged, const Inputs &in,
                  int quality, std::string *err) {
    const size_t slash = path.find_last_of('/');
    const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash);
    std::string tmp = dir + "/." + base_name(path) + ".XXXXXX";
    const int fd = mkstemp(&tmp[0]);
    if (fd < 0) {
        *err = path + ": cannot create a file in " + dir + ": " + strerror(errno);
        return false;
    }
    fchmod(fd, file_mode());
    close(fd);
    bool ok = false;
    switch (format) {
    case OutFormat::PNG: ok = varo_io::write_png(tmp, upright_rgb(merged, in), err); break;
    case OutFormat::TIFF: ok = varo_io::write_tiff(tmp, upright_rgb(merged, in), err); break;
    case OutFormat::JPEG: {
        const RgbImage rgb = upright_rgb(merged, in);
        ok = varo_io::write_jpeg(tmp, rgb, quality, varo_io::exif_for_upright(in.exif, rgb.width, rgb.height),
                                 err);
        break;
    }
    case OutFormat::NV12: ok = varo_io::write_nv12(tmp, merged, err); break;
    case OutFormat::NV21: {
        Nv12Image swapped = merged;
        for (size_t i = 0; i + 1 < swapped.chroma.size(); i += 2) std::swap(swapped.chroma[i], swapped.chroma[i + 1]);
        ok = varo_io::write_nv12(tmp, swapped, err);
        break;
    }
    }
    if (ok) {
        const int rfd = open(tmp.c_str(), O_RDONLY);
        ok = rfd >= 0 && fsync(rfd) == 0;
        if (rfd >= 0) close(rfd);
        if (!ok) *err = path + ": cannot sync: " + strerror(errno);
    }
    if (ok && rename(tmp.c_str(), path.c_str()) != 0) {
        *err = path + ": cannot rename into place: " + strerror(errno);
        ok = false;
    }
    if (!ok) {
        if (err->find(tmp) != std::string::npos) *err = path + ": " + err->substr(err->find(tmp) + tmp.size() + 2);
        unlink(tmp.c_str());
    }
    return ok;
}

bool names_an_input(const std::string &path, const Options &opt, const Inputs *in) {
    struct stat out;
    const bool exists = stat(path.c_str(), &out) == 0;
    std::vector<std::string> inputs;
    for (int f = 0; f < 3; ++f) {
        if (!opt.file[f].empty()) inputs.push_back(opt.file[f]);
        if (in && !in->file[f].empty())
            inputs.push_back(opt.bracket_dir.empty() ? in->file[f] : opt.bracket_dir + "/" + in->file[f]);
    }
    for (const std::string &p : opt.positional) inputs.push_back(p);
    if (!opt.bracket_dir.empty()) inputs.push_back(opt.bracket_dir + "/meta.json");
    for (const std::string &p : inputs) {
        if (p == path) return true;
        struct stat st;
        if (exists && stat(p.c_str(), &st) == 0 && st.st_dev == out.st_dev && st.st_ino == out.st_ino) return true;
    }
    return false;
}

// ------------------------------------------------------------- report --
namespace {

double ms(int64_t us) { return us / 1000.0; }

nlohmann::json report_object(const Report &r) {
    const HdrMergeStatus &s = r.status;
    nlohmann::json j;
    j["name"] = r.name;
    const bool ok = r.error.empty();
    j["status"] = !ok ? "error" : r.fallback() ? "fallback" : "merged";
    j["reason"] = !ok ? r.error : r.fallback() ? hdrFallbackReasonName(s.reason) : "";
    j["outcome"] = ok ? hdrOutcomeName(s.outcome) : "";
    j["return_code"] = r.rc;
    j["output"] = r.out_path;
    j["input"] = r.description;
    j["size"] = {{"width", r.width}, {"height", r.height}};
    j["exposure_source"] = r.exposure_source;
    nlohmann::json frames = nlohmann::json::object();
    for (int f = 0; f < 3; ++f)
        frames[lower(kRole[f])] = {{"file", r.file[f]}, {"units", r.units[f]}, {"exposure", r.exposure_text[f]}};
    j["frames"] = frames;
    j["offsets"] = {{"le", {{"x", s.le_offset.x}, {"y", s.le_offset.y}, {"error_bits", s.le_error_bits},
                            {"reused", s.le_offset_reused != 0}}},
                    {"he", {{"x", s.he_offset.x}, {"y", s.he_offset.y}, {"error_bits", s.he_error_bits},
                            {"reused", s.he_offset_reused != 0}}}};
    j["ghost"] = {{"threshold", s.ghost_threshold}, {"le_flag", s.le_flag}, {"he_flag", s.he_flag}};
    j["working_size"] = {{"width", s.width}, {"height", s.height}, {"levels", s.levels}};
    j["rectangle"] = {{"x", s.out_x}, {"y", s.out_y}, {"width", s.out_width}, {"height", s.out_height}};
    j["times_ms"] = {{"decode", r.decode_ms},         {"convert", r.convert_ms},
                     {"registration", ms(s.registration_us)}, {"motion", ms(s.motion_us)},
                     {"fusion", ms(s.fusion_us)},     {"weights", ms(s.weights_us)},
                     {"merge", ms(s.total_us)},       {"encode", r.encode_ms},
                     {"dump", r.dump_ms}};
    j["notes"] = r.notes;
    return j;
}

} // namespace

std::string report_json(const Report &r) { return report_object(r).dump(2) + "\n"; }

std::string reports_json(const std::vector<Report> &reports) {
    nlohmann::json sets = nlohmann::json::array();
    for (const Report &r : reports) sets.push_back(report_object(r));
    return nlohmann::json{{"sets", sets}}.dump(2) + "\n";
}

std::string report_text(const Report &r) {
    const HdrMergeStatus &s = r.status;
    char b[512];
    std::string t;
    t += "input:     " + r.description + (r.width ? ", " + size_text(r.width, r.height) : "") + "\n";
    for (int f = 0; f < 3 && !r.file[f].empty(); ++f) {
        snprintf(b, sizeof b, "  %s  %-28s exposure %u%s%s%s\n", kRole[f], base_name(r.file[f]).c_str(), r.units[f],
                 r.exposure_text[f].empty() ? "" : " (", r.exposure_text[f].c_str(),
                 r.exposure_text[f].empty() ? "" : ")");
        t += b;
    }
    if (!r.exposure_source.empty()) t += "  exposures from " + r.exposure_source + "\n";
    for (const std::string &n : r.notes) t += "  note: " + n + "\n";
    if (!r.error.empty()) return t + "error:     " + r.error + "\n";
    if (r.fallback())
        t += std::string("result:    FALLBACK: the output is the reference (AE) frame: ") +
             hdrFallbackReasonName(s.reason) + "\n";
    else
        t += std::string("result:    ") + hdrOutcomeName(s.outcome) + "\n";
    if (s.registered) {
        snprintf(b, sizeof b,
                 "offsets:   LE (%d, %d) error %u%s, HE (%d, %d) error %u%s; ghost threshold %u, flags LE %d HE %d\n",
                 s.le_offset.x, s.le_offset.y, s.le_error_bits, s.le_offset_reused ? " [previous offset reused]" : "",
                 s.he_offset.x, s.he_offset.y, s.he_error_bits, s.he_offset_reused ? " [previous offset reused]" : "",
                 s.ghost_threshold, s.le_flag, s.he_flag);
        t += b;
    }
    snprintf(b, sizeof b, "rectangle: x %d y %d width %d height %d", s.out_x, s.out_y, s.out_width, s.out_height);
    t += b;
    if (s.width) {
        snprintf(b, sizeof b, " (working size %dx%d, %d levels)", s.width, s.height, s.levels);
        t += b;
    }
    snprintf(b, sizeof b,
             "\ntimes ms:  decode %.1f, convert %.1f, registration %.1f, motion %.1f, fusion %.1f "
             "(weights %.1f), merge %.1f, encode %.1f\n",
             r.decode_ms, r.convert_ms, ms(s.registration_us), ms(s.motion_us), ms(s.fusion_us),
             ms(s.weights_us), ms(s.total_us), r.encode_ms);
    t += b;
    if (!r.out_path.empty()) t += "wrote:     " + r.out_path + "\n";
    return t;
}

// --------------------------------------------------------------- dump --
namespace {

// Every picture upright, as the output is.
struct DumpWriter {
    const std::string &dir;
    const Inputs &in;
    bool rgb(const std::string &name, RgbImage img, std::string *err) const {
        if (in.turned) img = varo_io::rotate90(img, false);
        return varo_io::write_png(dir + "/" + name, varo_io::orient_upright(img, in.orientation), err);
    }
    bool grey(const std::string &name, const uint8_t *p, int w, int h, int pitch, std::string *err) const {
        RgbImage img = varo_io::make_rgb(w, h);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) memset(&img.rgb[((size_t)y * w + x) * 3], p[(size_t)y * pitch + x], 3);
        return rgb(name, std::move(img), err);
    }
};

bool dump_pictures(const std::string &dir, HdrContext *ctx, const HdrMergeStatus &s, const Nv12Image before[3],
                   const Nv12Image &merged, const Inputs &in, std::string *err) {
    const DumpWriter out_png{dir, in};
    if (mkdir(dir.c_str(), 0777) != 0 && errno != EEXIST) {
        *err = dir + ": cannot create: " + strerror(errno);
        return false;
    }
    const int W = before[AE_IDX].width;
    static const char *const name[3] = {"he", "le", "ae"};
    if (s.registered && s.width) {
        // Crop origins as the registration derives them: the overlap starts
        // where the furthest-shifted frame starts.
        const int mx = std::min(0, std::min(s.he_offset.x, s.le_offset.x));
        const int my = std::min(0, std::min(s.he_offset.y, s.le_offset.y));
        const int ox[3] = {s.he_offset.x - mx, s.le_offset.x - mx, -mx};
        const int oy[3] = {s.he_offset.y - my, s.le_offset.y - my, -my};
        for (int f = 0; f < 3; ++f) {
            const RgbImage rgb = varo_io::nv12_planes_to_rgb(
                before[f].luma.data() + (size_t)oy[f] * W + ox[f],
                before[f].chroma.data() + (size_t)(oy[f] >> 1) * W + (ox[f] & ~1), W, s.width, s.height);
            if (!out_png.rgb(std::string("registered_") + name[f] + ".png", rgb, err)) return false;
        }
        if (s.outcome != HDR_OUTCOME_FALLBACK) {
            // Level-0 weights after normalisation: the three sum to about 256.
            for (int f = 0; f < 3; ++f)
                if (!out_png.grey(std::string("weight_") + name[f] + ".png", ctx->w_gaussian_pyramid[f][0], s.width,
                                  s.height, ctx->row_stride[0], err))
                    return false;
        }
        // Motion masks: white where the frame contributes, black where it is
        // excluded, grey where the reference is forced.
        std::vector<uint8_t> m((size_t)s.width * s.height);
        for (int f = 0; f < 3; ++f) {
            const uint8_t *src = ctx->motion_mask[f];
            for (size_t i = 0; i < m.size(); ++i) m[i] = src[i] == 1 ? 255 : src[i] == 255 ? 128 : 0;
            if (!out_png.grey(std::string("motion_") + name[f] + ".png", m.data(), s.width, s.height, s.width, err))
                return false;
        }
    }
    // The result beside the reference frame.
    const RgbImage out = upright_rgb(merged, in);
    const RgbImage ref = upright_rgb(before[AE_IDX], in);
    RgbImage both = varo_io::make_rgb(out.width + 16 + ref.width, std::max(out.height, ref.height));
    for (int y = 0; y < out.height; ++y)
        memcpy(&both.rgb[(size_t)y * both.width * 3], &out.rgb[(size_t)y * out.width * 3], (size_t)out.width * 3);
    for (int y = 0; y < ref.height; ++y)
        memcpy(&both.rgb[((size_t)y * both.width + out.width + 16) * 3], &ref.rgb[(size_t)y * ref.width * 3],
               (size_t)ref.width * 3);
    return varo_io::write_png(dir + "/result_beside_reference.png", both, err);
}

} // namespace

int merge_one(const Options &opt, HdrContext *ctx, Report *rep, Inputs *in) {
    auto fail = [&](const std::string &e) {
        rep->error = e;
        return (int)EXIT_FAILED;
    };
    std::string err;
    OutFormat format;
    if (!format_from_path(rep->out_path, &format, &err)) return fail(err);
    if (names_an_input(rep->out_path, opt, nullptr)) return fail(rep->out_path + ": names an input; refused");
    if (!load_inputs(opt, in, &err)) return fail(err);
    rep->description = in->description;
    for (int f = 0; f < 3; ++f) {
        rep->file[f] = in->file[f];
        rep->units[f] = in->units[f];
        rep->exposure_text[f] = in->exposure_text[f];
    }
    rep->exposure_source = in->exposure_source;
    rep->notes = in->notes;
    rep->decode_ms = in->decode_ms;
    if (names_an_input(rep->out_path, opt, in)) return fail(rep->out_path + ": names an input; refused");

    double t = now_ms();
    Frames frames;
    make_frames(*in, &frames);
    rep->width = frames.width;
    rep->height = frames.height;
    Nv12Image before[3];
    if (!opt.dump_dir.empty())
        for (int f = 0; f < 3; ++f) {
            before[f] = varo_io::make_nv12(frames.width, frames.height);
            memcpy(before[f].luma.data(), frames.buf[f]->luma(), before[f].luma.size());
            memcpy(before[f].chroma.data(), frames.buf[f]->chroma(), before[f].chroma.size());
        }
    HdrInput desc;
    fill_descriptor(&frames, in->units, &desc);
    rep->convert_ms = now_ms() - t;

    rep->rc = hdrThreeFrameCore(ctx, &desc);
    rep->status.struct_size = sizeof rep->status;
    hdrGetMergeStatus(ctx, &rep->status);
    if (rep->rc != VARO_HDR_OK)
        return fail(std::string("the merge returned ") + std::to_string(rep->rc) + " (" +
                    hdrOutcomeName(rep->status.outcome) + "), nothing written");
    Nv12Image out;
    if (!extract_output(desc, &out, &err)) return fail(err);
    t = now_ms();
    if (!write_output(rep->out_path, format, out, *in, opt.quality, &err)) return fail(err);
    rep->encode_ms = now_ms() - t;
    if (format == OutFormat::NV12 || format == OutFormat::NV21)
        rep->notes.push_back(std::string("raw output ") + size_text(out.width, out.height) + " in the merge's orientation");
    else if (in->turned || in->orientation != 1)
        rep->notes.push_back("output turned upright (EXIF orientation " + std::to_string(in->orientation) + ")");
    if (!opt.dump_dir.empty()) {
        t = now_ms();
        if (!dump_pictures(opt.dump_dir, ctx, rep->status, before, out, *in, &err)) return fail(err);
        rep->dump_ms = now_ms() - t;
    }
    return rep->fallback() && opt.strict ? EXIT_FALLBACK : EXIT_MERGED;
}

// -------------------------------------------------------------- batch --
namespace {

bool is_image_name(const std::string &n) {
    const std::string e = extension(n);
    return e == "jpg" || e == "jpeg" || e == "png";
}

std::vector<std::string> list_dir(const std::string &dir, bool dirs) {
    std::vector<std::string> out;
    if (DIR *d = opendir(dir.c_str())) {
        while (dirent *e = readdir(d)) {
            if (e->d_name[0] == '.') continue;
            struct stat st;
            if (stat((dir + "/" + e->d_name).c_str(), &st) != 0) continue;
            if (S_ISDIR(st.st_mode) == dirs) out.push_back(e->d_name);
        }
        closedir(d);
    }
    std::sort(out.begin(), out.end());
    return out;
}

} // namespace

int run_batch(const Options &opt) {
    if (mkdir(opt.out_dir.c_str(), 0777) != 0 && errno != EEXIST) {
        fprintf(stderr, "varo_hdr_merge: %s: cannot create: %s\n", opt.out_dir.c_str(), strerror(errno));
        return EXIT_FAILED;
    }
    const std::vector<std::string> names = list_dir(opt.batch_dir, true);
    std::vector<Report> reports(names.size());
    std::atomic<size_t> next{0};
    std::atomic<int> done{0};
    std::mutex print;
    auto worker = [&] {
        HdrContext *ctx = nullptr;
        const int crc = hdrCreateContext(&ctx);
        for (size_t i; (i = next++) < names.size();) {
            Report &rep = reports[i];
            rep.name = names[i];
            const std::string dir = opt.batch_dir + "/" + names[i];
            Options o = opt;
            o.batch_dir.clear();
            o.json_path.clear();
            o.out = opt.out_dir + "/" + names[i] + "." + opt.batch_format;
            o.dump_dir = opt.dump_dir.empty() ? "" : opt.dump_dir + "/" + names[i];
            rep.out_path = o.out;
            if (crc != 0) {
                rep.error = "cannot create a merge context (out of memory?)";
            } else {
                struct stat st;
                if (stat((dir + "/meta.json").c_str(), &st) == 0) {
                    o.bracket_dir = dir;
                } else {
                    std::vector<std::string> imgs;
                    for (const std::string &n : list_dir(dir, false))
                        if (is_image_name(n) && n != "preview.jpg") imgs.push_back(dir + "/" + n);
                    o.positional = imgs;
                }
                if (o.bracket_dir.empty() && o.positional.size() != 3) {
                    rep.error = "neither meta.json nor three images (" + std::to_string(o.positional.size()) + " found)";
                } else {
                    Inputs in;
                    merge_one(o, ctx, &rep, &in); // the report carries the outcome
                }
            }
            if (rep.error.empty()) {
                FILE *f = fopen((opt.out_dir + "/" + names[i] + ".json").c_str(), "w");
                if (f) {
                    fputs(report_json(rep).c_str(), f);
                    fclose(f);
                }
            }
            std::lock_guard<std::mutex> lock(print);
            printf("[%d/%zu] %s: %s%s%s\n", ++done, names.size(), names[i].c_str(),
                   !rep.error.empty() ? "FAILED: " : rep.fallback() ? "fallback: " : "merged",
                   !rep.error.empty() ? rep.error.c_str() : rep.fallback() ? hdrFallbackReasonName(rep.status.reason) : "",
                   "");
            fflush(stdout);
        }
        if (ctx) hdrDestroyContext(ctx);
    };
    std::vector<std::thread> pool;
    const int jobs = std::max(1, std::min(opt.jobs, (int)names.size()));
    for (int k = 1; k < jobs; ++k) pool.emplace_back(worker);
    worker();
    for (std::thread &t : pool) t.join();

    printf("\n%-28s %-9s %-22s %-22s %9s  %s\n", "set", "status", "reason", "offsets LE / HE", "merge ms", "output");
    int failed = 0, fallbacks = 0;
    for (size_t i = 0; i < names.size(); ++i) {
        const Report &r = reports[i];
        const HdrMergeStatus &s = r.status;
        char off[64] = "";
        if (r.error.empty() && s.registered)
            snprintf(off, sizeof off, "(%d,%d) / (%d,%d)", s.le_offset.x, s.le_offset.y, s.he_offset.x, s.he_offset.y);
        const bool err = !r.error.empty();
        failed += err;
        fallbacks += !err && r.fallback();
        printf("%-28s %-9s %-22s %-22s %9.1f  %s\n", names[i].c_str(), err ? "FAILED" : r.fallback() ? "fallback" : "merged",
               err ? r.error.substr(0, 60).c_str() : r.fallback() ? hdrFallbackReasonName(s.reason) : "", off,
               ms(s.total_us), err ? "" : r.out_path.c_str());
    }
    printf("%zu sets: %zu merged, %d fell back, %d failed\n", names.size(), names.size() - failed - fallbacks,
           fallbacks, failed);
    if (!opt.json_path.empty()) {
        FILE *f = fopen(opt.json_path.c_str(), "w");
        if (!f || fputs(reports_json(reports).c_str(), f) < 0 || fclose(f) != 0) {
            fprintf(stderr, "varo_hdr_merge: %s: cannot write\n", opt.json_path.c_str());
            return EXIT_FAILED;
        }
    }
    if (failed || names.empty()) return EXIT_FAILED;
    return fallbacks && opt.strict ? EXIT_FALLBACK : EXIT_MERGED;
}

} // namespace varo_merge
