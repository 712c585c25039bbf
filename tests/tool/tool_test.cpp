// varo_hdr_merge end to end on small generated brackets: JPEGs with EXIF,
// broken and contradictory inputs, the JSON report, a batch of two sets.
#include <gtest/gtest.h>
#include <libexif/exif-data.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

#include <nlohmann/json.hpp>

#include "imageio.h"

namespace {

const std::string kDir = "/tmp/varo_tool_test_" + std::to_string(getpid());

std::vector<uint8_t> make_exif(int den, int orientation) { // 1/den s, ISO 100, f/2
    ExifData *d = exif_data_new();
    exif_data_set_byte_order(d, EXIF_BYTE_ORDER_INTEL);
    auto add = [&](ExifIfd ifd, ExifTag tag) {
        ExifEntry *e = exif_entry_new();
        exif_content_add_entry(d->ifd[ifd], e);
        exif_entry_initialize(e, tag);
        exif_entry_unref(e);
        return e;
    };
    exif_set_rational(add(EXIF_IFD_EXIF, EXIF_TAG_EXPOSURE_TIME)->data, EXIF_BYTE_ORDER_INTEL, {1, (ExifLong)den});
    exif_set_rational(add(EXIF_IFD_EXIF, EXIF_TAG_FNUMBER)->data, EXIF_BYTE_ORDER_INTEL, {2, 1});
    exif_set_short(add(EXIF_IFD_EXIF, EXIF_TAG_ISO_SPEED_RATINGS)->data, EXIF_BYTE_ORDER_INTEL, 100);
    exif_set_short(add(EXIF_IFD_0, EXIF_TAG_ORIENTATION)->data, EXIF_BYTE_ORDER_INTEL, (ExifShort)orientation);
    unsigned char *buf = nullptr;
    unsigned size = 0;
    exif_data_save_data(d, &buf, &size);
    std::vector<uint8_t> out(buf, buf + size);
    free(buf);
    exif_data_unref(d);
    return out;
}

struct ToolRun {
    int rc;
    std::string out;
};

ToolRun tool(const std::string &args, const std::string &shell_prefix = "") {
    const std::string log = kDir + "/log.txt";
    const int st = system((shell_prefix + VARO_TOOL " " + args + " > " + log + " 2>&1").c_str());
    std::ifstream f(log);
    std::stringstream ss;
    ss << f.rdbuf();
    return {WIFEXITED(st) ? WEXITSTATUS(st) : -1, ss.str()};
}

nlohmann::json read_json(const std::string &path) {
    std::ifstream f(path);
    std::stringstream ss;
    ss << f.rdbuf();
    return nlohmann::json::parse(ss.str(), nullptr, false);
}

// A 480x640 portrait bracket stored landscape (EXIF orientation 6), written
// as LE, AE, HE JPEGs 1/400, 1/100, 1/25 s into dir.
void write_set(const std::string &dir) {
    mkdir(dir.c_str(), 0777);
    const varo_io::SyntheticBracket b = varo_io::synthetic_bracket(640, 480);
    static const char *const name[3] = {"c.jpg", "a.jpg", "b.jpg"}; // HE, LE, AE
    static const int den[3] = {25, 400, 100};
    std::string err;
    for (int f = 0; f < 3; ++f)
        ASSERT_TRUE(varo_io::write_jpeg(dir + "/" + name[f], b.frame[f], 95, make_exif(den[f], 6), &err)) << err;
}

TEST(MergeTool, EndToEnd) {
    mkdir(kDir.c_str(), 0777);
    const std::string s = kDir + "/set", a = s + "/a.jpg", b = s + "/b.jpg", c = s + "/c.jpg";
    write_set(s);

    // Exposures from EXIF, roles from their order, upright JPEG with EXIF.
    ToolRun r = tool(b + " " + c + " " + a + " --out " + kDir + "/m.jpg --json " + kDir + "/m.json");
    ASSERT_EQ(r.rc, 0) << r.out;
    nlohmann::json j = read_json(kDir + "/m.json");
    EXPECT_EQ(j["status"], "merged") << j.dump();
    EXPECT_EQ(j["reason"], "");
    EXPECT_EQ(j["exposure_source"], "EXIF");
    EXPECT_EQ(std::vector<int>({j["frames"]["he"]["units"], j["frames"]["le"]["units"], j["frames"]["ae"]["units"]}),
              std::vector<int>({16000, 1000, 4000}));
    EXPECT_EQ(j["frames"]["he"]["file"], c);
    varo_io::RgbImage img;
    varo_io::ImageMeta meta;
    varo_io::ExifInfo exif;
    std::string err;
    ASSERT_TRUE(varo_io::load_image(kDir + "/m.jpg", &img, &err, &meta)) << err;
    ASSERT_TRUE(varo_io::parse_exif(meta.exif, &exif));
    EXPECT_EQ(std::vector<double>({(double)img.width, (double)img.height, (double)exif.orientation, exif.exposure_time}),
              std::vector<double>({(double)j["rectangle"]["height"], (double)j["rectangle"]["width"], 1, 0.01}))
        << "upright: the merged landscape turned a quarter, AE's EXIF carried";

    // Errors: each refused with its message, nothing written.
    std::string broken = kDir + "/broken.jpg", raw = kDir + "/short.nv12", odd = kDir + "/small.png";
    ASSERT_EQ(system(("head -c 3000 " + a + " > " + broken + "; head -c 1000 /dev/zero > " + raw).c_str()), 0);
    ASSERT_TRUE(varo_io::write_png(odd, varo_io::make_rgb(320, 240), &err));
    const struct {
        std::string args;
        int rc;
        std::string says;
    } errors[] = {
        {"--he " + a + " --le " + c + " --ae " + b, 1, "--he " + c + " --le " + a + " --ae " + b},
        {"--he " + c + " --le " + a + " --ae " + b + " --exposure-units 1,16,4", 1, "--exposure-units 16,1,4"},
        {"--he " + c + " --le " + broken + " --ae " + b, 1, "bad JPEG"},
        {"--he " + c + " --le " + a + " --ae " + odd + " --exposure-units 4,1,2", 1, "frame sizes differ"},
        {"--he " + raw + " --le " + raw + " --ae " + raw + " --size 64x48 --exposure-units 4,1,2", 1, "shorter than"},
        {b + " " + c + " " + a + " --out " + a, 1, "names an input"},
        {b + " " + c + " " + a + " --out " + kDir + "/m.gif", 2, "unknown output type"},
        {"--he " + c + " --le " + a + " --ae " + b + " --exposure-units 1/25,0.0025,1/100 --out " + kDir + "/m.tif", 0,
         "exposure 1000"},
    };
    for (const auto &e : errors) {
        r = tool(e.args + (e.args.find("--out") == std::string::npos ? " --out " + kDir + "/never.png" : ""));
        EXPECT_EQ(r.rc, e.rc) << e.args << "\n" << r.out;
        EXPECT_NE(r.out.find(e.says), std::string::npos) << e.args << "\n" << r.out;
    }
    // A write that fails half-way (a full disk; here a file-size limit) leaves nothing.
    r = tool(b + " " + c + " " + a + " --out " + kDir + "/never.png", "ulimit -f 64; ");
    EXPECT_EQ(r.rc, 1) << r.out;
    EXPECT_NE(r.out.find("write failed"), std::string::npos) << r.out;
    EXPECT_EQ(system(("ls -A " + kDir + " | grep -q never").c_str()) == 0, false) << "no partial or temporary file";
    EXPECT_TRUE(varo_io::load_image(a, &img, &err)) << "the input named by --out is intact";

    // Flat frames cannot be registered: fallback, exit 3 with --strict.
    const std::string flat = kDir + "/flat.png";
    varo_io::RgbImage grey = varo_io::make_rgb(320, 240);
    std::fill(grey.rgb.begin(), grey.rgb.end(), 90);
    ASSERT_TRUE(varo_io::write_png(flat, grey, &err));
    r = tool("--he " + flat + " --le " + flat + " --ae " + flat + " --exposure-units 4,1,2 --strict --out " + kDir +
             "/f.nv21 --json " + kDir + "/f.json");
    EXPECT_EQ(r.rc, 3) << r.out;
    j = read_json(kDir + "/f.json");
    EXPECT_EQ(j["status"], "fallback");
    EXPECT_EQ(j["reason"], "registration failed");
    struct stat st;
    EXPECT_EQ(stat((kDir + "/f.nv21").c_str(), &st) == 0 ? st.st_size : 0, 320 * 240 * 3 / 2);

    // A batch of two sets and a broken one: carries on, exits 1, per-set reports.
    mkdir((kDir + "/batch").c_str(), 0777);
    write_set(kDir + "/batch/two");
    ASSERT_EQ(system(("cp -r " + s + " " + kDir + "/batch/one; mkdir -p " + kDir + "/batch/empty").c_str()), 0);
    r = tool("--batch " + kDir + "/batch --out-dir " + kDir + "/out -j 2 --format png --json " + kDir + "/all.json");
    EXPECT_EQ(r.rc, 1) << r.out;
    j = read_json(kDir + "/all.json");
    ASSERT_EQ(j["sets"].size(), 3u) << r.out;
    EXPECT_EQ(std::vector<std::string>({j["sets"][0]["status"], j["sets"][1]["status"], j["sets"][2]["status"]}),
              std::vector<std::string>({"error", "merged", "merged"}));
    EXPECT_TRUE(varo_io::load_image(kDir + "/out/two.png", &img, &err)) << err;
    EXPECT_NE(r.out.find("3 sets: 2 merged, 0 fell back, 1 failed"), std::string::npos) << r.out;
    ASSERT_EQ(system(("rm -rf " + kDir).c_str()), 0);
}

} // namespace
