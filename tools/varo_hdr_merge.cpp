// varo_hdr_merge: merges three exposures with varo_hdr and writes the result.
// Run without arguments it merges a built-in synthetic bracket; see usage().
#include <stdio.h>

#include "cam_debug_stub.h"
#include "merge_support.h"
#include "varo_hdr.h"

int main(int argc, char **argv) {
    using namespace varo_merge;
    Options opt;
    std::string err;
    if (!parse_args(argc, argv, &opt, &err)) {
        fprintf(stderr, "varo_hdr_merge: %s\n\n%s", err.c_str(), usage());
        return 2;
    }
    if (opt.help) {
        fputs(usage(), stdout);
        return 0;
    }
    if (!opt.write_default_dir.empty()) {
        if (!write_default_bracket(opt.write_default_dir, &err)) {
            fprintf(stderr, "varo_hdr_merge: %s\n", err.c_str());
            return 1;
        }
        printf("wrote he.png, le.png, ae.png to %s\n", opt.write_default_dir.c_str());
        return 0;
    }

    Inputs in;
    if (!load_inputs(opt, &in, &err)) {
        fprintf(stderr, "varo_hdr_merge: %s\n", err.c_str());
        return 1;
    }
    Frames frames;
    make_frames(in, &frames);
    HdrInput desc;
    fill_descriptor(&frames, in.units, &desc);
    printf("input: %s, %dx%d, exposure units HE %u LE %u AE %u\n", in.description.c_str(),
           frames.width, frames.height, in.units[HE_IDX], in.units[LE_IDX], in.units[AE_IDX]);

    g_cam_log[46] = opt.log ? 1 : 0;
    HdrContext *ctx = nullptr;
    int rc = hdrCreateContext(&ctx);
    if (rc != 0 || !ctx) {
        fprintf(stderr, "varo_hdr_merge: hdrCreateContext failed (%d)\n", rc);
        return 1;
    }
    rc = hdrThreeFrameCore(ctx, &desc);
    printf("hdrThreeFrameCore: %d\n", rc);
    printf("output rectangle: x %d y %d width %d height %d\n", desc.out_x, desc.out_y,
           desc.out_width, desc.out_height);
    printf("stage times (ms): registration %lld, motion %lld, fusion %lld, weights %lld\n",
           (long long)total_time_1, (long long)total_time_4, (long long)total_time_5,
           (long long)total_time_6);
    hdrDestroyContext(ctx);
    if (rc != VARO_HDR_OK) {
        fprintf(stderr, "varo_hdr_merge: merge returned %d, nothing written\n", rc);
        return 1;
    }

    varo_io::Nv12Image out;
    if (!extract_output(desc, &out, &err)) {
        fprintf(stderr, "varo_hdr_merge: %s\n", err.c_str());
        return 1;
    }
    if (!opt.out_png.empty()) {
        if (!varo_io::write_png(opt.out_png, varo_io::nv12_to_rgb(out), &err)) {
            fprintf(stderr, "varo_hdr_merge: %s\n", err.c_str());
            return 1;
        }
        printf("wrote %s (%dx%d)\n", opt.out_png.c_str(), out.width, out.height);
    }
    if (!opt.out_nv12.empty()) {
        if (!varo_io::write_nv12(opt.out_nv12, out, &err)) {
            fprintf(stderr, "varo_hdr_merge: %s\n", err.c_str());
            return 1;
        }
        printf("wrote %s (NV12 %dx%d)\n", opt.out_nv12.c_str(), out.width, out.height);
    }
    return 0;
}
