// Bracket-set folders: meta.json plus three image files.
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

#include <nlohmann/json.hpp>

#include "imageio.h"

namespace varo_io {

namespace {

bool read_text(const std::string &path, std::string *out, std::string *err) {
    FILE *f = fopen(path.c_str(), "rb");
    if (!f) {
        *err = path + ": cannot open";
        return false;
    }
    char buf[4096];
    size_t n;
    out->clear();
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) out->append(buf, n);
    fclose(f);
    return true;
}

using Json = nlohmann::json;

// Null when any key along the way is missing.
const Json *path_get(const Json &root, std::initializer_list<const char *> keys) {
    const Json *v = &root;
    for (const char *k : keys) {
        if (!v->is_object()) return nullptr;
        auto it = v->find(k);
        if (it == v->end()) return nullptr;
        v = &*it;
    }
    return v;
}

bool get_int(const Json *v, double lo, double hi, int64_t *out) {
    if (!v || !v->is_number()) return false;
    const double d = v->get<double>();
    if (d != floor(d) || d < lo || d > hi) return false;
    *out = (int64_t)d;
    return true;
}

// Turns a frame stored a quarter turn from the set's size.  EXIF orientation 6
// needs a clockwise turn to display, anything else is taken counter-clockwise.
RgbImage turn_to(const RgbImage &img, int orientation) { return rotate90(img, orientation == 6); }

} // namespace

// ------------------------------------------------------------ Bayer --
RgbImage develop_bayer(const std::vector<uint8_t> &mosaic, int width, int height,
                       const BayerParams &p) {
    // Tone table per channel, indexed by 4x the interpolated raw value.
    uint8_t lut[3][1021];
    const double range = p.white_level > p.black_level ? p.white_level - p.black_level : 1;
    const double gain_rgb[3] = {p.wb_gains_bgr[2], p.wb_gains_bgr[1], p.wb_gains_bgr[0]};
    for (int c = 0; c < 3; ++c)
        for (int s = 0; s <= 1020; ++s) {
            double v = (s / 4.0 - p.black_level) / range * gain_rgb[c];
            v = v < 0 ? 0 : v > 1 ? 1 : v;
            if (p.srgb) v = v <= 0.0031308 ? 12.92 * v : 1.055 * pow(v, 1.0 / 2.4) - 0.055;
            lut[c][s] = (uint8_t)floor(v * 255.0 + 0.5);
        }
    RgbImage out = make_rgb(width, height);
    // Mirror at the borders keeps the colour of each site (period 2).
    auto at = [&](int x, int y) -> int {
        x = x < 0 ? -x : x >= width ? 2 * width - 2 - x : x;
        y = y < 0 ? -y : y >= height ? 2 * height - 2 - y : y;
        return mosaic[(size_t)y * width + x];
    };
    for (int y = 0; y < height; ++y) {
        uint8_t *o = out.rgb.data() + (size_t)y * width * 3;
        for (int x = 0; x < width; ++x) {
            const int v4 = 4 * at(x, y);
            const int cross = at(x - 1, y) + at(x + 1, y) + at(x, y - 1) + at(x, y + 1);
            const int diag = at(x - 1, y - 1) + at(x + 1, y - 1) + at(x - 1, y + 1) + at(x + 1, y + 1);
            const int horiz = 2 * (at(x - 1, y) + at(x + 1, y));
            const int vert = 2 * (at(x, y - 1) + at(x, y + 1));
            int r, g, b;
            if (!(y & 1) && !(x & 1)) { // red site
                r = v4, g = cross, b = diag;
            } else if ((y & 1) && (x & 1)) { // blue site
                r = diag, g = cross, b = v4;
            } else if (!(y & 1)) { // green on a red row
                r = horiz, g = v4, b = vert;
            } else { // green on a blue row
                r = vert, g = v4, b = horiz;
            }
            o[3 * x + 0] = lut[0][r];
            o[3 * x + 1] = lut[1][g];
            o[3 * x + 2] = lut[2][b];
        }
    }
    return out;
}

// -------------------------------------------------------- bracket sets --
bool load_bracket_set(const std::string &dir, BracketSet *out, std::string *err) {
    std::string text;
    const std::string meta_path = dir + "/meta.json";
    if (!read_text(meta_path, &text, err)) return false;
    const Json root = Json::parse(text, nullptr, false); // no exceptions: discarded on error
    if (root.is_discarded() || !root.is_object()) {
        *err = meta_path + ": not valid JSON";
        return false;
    }
    BracketSet set;
    if (const Json *n = path_get(root, {"name"}); n && n->is_string()) set.name = n->get<std::string>();
    int64_t w = 0, h = 0;
    if (!get_int(path_get(root, {"image_size", "width"}), 2, 1 << 16, &w) ||
        !get_int(path_get(root, {"image_size", "height"}), 2, 1 << 16, &h)) {
        *err = meta_path + ": missing or bad image_size";
        return false;
    }
    set.width = (int)w;
    set.height = (int)h;

    if (const Json *bayer = path_get(root, {"bayer"})) {
        BayerParams &bp = set.bayer;
        bp.present = true;
        int64_t v;
        if (get_int(path_get(*bayer, {"black_level"}), 0, 254, &v)) bp.black_level = (int)v;
        if (get_int(path_get(*bayer, {"white_level"}), 1, 255, &v)) bp.white_level = (int)v;
        const Json *g = path_get(*bayer, {"wb_gains_bgr"});
        if (g) {
            if (!g->is_array() || g->size() != 3) {
                *err = meta_path + ": bayer.wb_gains_bgr must hold three numbers";
                return false;
            }
            for (int i = 0; i < 3; ++i) {
                if (!(*g)[i].is_number() || !((*g)[i].get<double>() > 0)) {
                    *err = meta_path + ": bad bayer.wb_gains_bgr";
                    return false;
                }
                bp.wb_gains_bgr[i] = (*g)[i].get<double>();
            }
        }
        const Json *gamma = path_get(*bayer, {"gamma"});
        bp.srgb = gamma && gamma->is_string() && gamma->get<std::string>() == "srgb";
    }

    static const char *const roles[3] = {"he", "le", "ae"}; // BRACKET_HE, _LE, _AE
    for (int f = 0; f < 3; ++f) {
        const Json *fr = path_get(root, {"frames", roles[f]});
        const Json *file_json = fr ? path_get(*fr, {"file"}) : nullptr;
        const std::string file_name = file_json && file_json->is_string() ? file_json->get<std::string>() : "";
        const std::string *file = &file_name;
        int64_t units = 0;
        if (file->empty() || file->find('/') != std::string::npos) {
            *err = meta_path + ": missing or bad frames." + roles[f] + ".file";
            return false;
        }
        if (!get_int(path_get(*fr, {"exposure_units_us"}), 1, 4294967295.0, &units)) {
            *err = meta_path + ": missing or bad frames." + roles[f] + ".exposure_units_us";
            return false;
        }
        set.file[f] = *file;
        set.exposure_units[f] = (uint32_t)units;
        RgbImage img;
        if (!load_image(dir + "/" + *file, &img, err)) return false;
        if (set.bayer.present) {
            // The mosaic was stored as a grey picture: every channel holds it.
            std::vector<uint8_t> mosaic((size_t)img.width * img.height);
            for (size_t i = 0; i < mosaic.size(); ++i) {
                const uint8_t *px = &img.rgb[3 * i];
                if (px[0] != px[1] || px[0] != px[2]) {
                    *err = dir + "/" + *file + ": Bayer frame is not grey";
                    return false;
                }
                mosaic[i] = px[0];
            }
            img = develop_bayer(mosaic, img.width, img.height, set.bayer);
        }
        if (img.width == set.height && img.height == set.width && set.width != set.height) {
            int64_t orientation = 1;
            get_int(path_get(*fr, {"exif", "Orientation"}), 1, 8, &orientation);
            img = turn_to(img, (int)orientation);
        }
        if (img.width != set.width || img.height != set.height) {
            *err = dir + "/" + *file + ": " + std::to_string(img.width) + "x" +
                   std::to_string(img.height) + " does not match image_size " +
                   std::to_string(set.width) + "x" + std::to_string(set.height);
            return false;
        }
        set.frame[f] = std::move(img);
    }
    *out = std::move(set);
    return true;
}

} // namespace varo_io
