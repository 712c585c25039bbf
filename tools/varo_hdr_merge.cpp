// varo_hdr_merge: merges three exposures with varo_hdr, writes the result and
// says what the merge did.  Run without arguments it merges a built-in
// synthetic bracket; see usage().
#include <signal.h>
#include <stdio.h>

#include "cam_debug_stub.h"
#include "merge_support.h"
#include "varo_hdr.h"

int main(int argc, char **argv) {
    using namespace varo_merge;
    // Under a file-size limit a write then fails (and the partial output is
    // removed) instead of the signal killing the tool mid-file.
    signal(SIGXFSZ, SIG_IGN);
    Options opt;
    std::string err;
    if (!parse_args(argc, argv, &opt, &err)) {
        fprintf(stderr, "varo_hdr_merge: %s\n(see varo_hdr_merge --help)\n", err.c_str());
        return EXIT_USAGE;
    }
    if (opt.help) {
        fputs(usage(), stdout);
        return EXIT_MERGED;
    }
    if (opt.version) {
        printf("varo_hdr_merge %s (library %s)\n", VARO_HDR_VERSION_STRING, hdrGetVersion());
        return EXIT_MERGED;
    }
    if (!opt.write_default_dir.empty()) {
        if (!write_default_bracket(opt.write_default_dir, &err)) {
            fprintf(stderr, "varo_hdr_merge: %s\n", err.c_str());
            return EXIT_FAILED;
        }
        printf("wrote he.png, le.png, ae.png to %s\n", opt.write_default_dir.c_str());
        return EXIT_MERGED;
    }
    g_cam_log[46] = opt.log ? 1 : 0;
    if (!opt.batch_dir.empty()) return run_batch(opt);

    HdrContext *ctx = nullptr;
    if (hdrCreateContext(&ctx) != 0 || !ctx) {
        fprintf(stderr, "varo_hdr_merge: cannot create a merge context (about 430 MB)\n");
        return EXIT_FAILED;
    }
    Report rep;
    rep.out_path = opt.out;
    Inputs in;
    const int code = merge_one(opt, ctx, &rep, &in);
    hdrDestroyContext(ctx);
    if (!rep.error.empty()) rep.out_path.clear();
    fputs(report_text(rep).c_str(), rep.error.empty() ? stdout : stderr);
    if (!opt.json_path.empty()) {
        FILE *f = fopen(opt.json_path.c_str(), "w");
        if (!f || fputs(report_json(rep).c_str(), f) < 0 || fclose(f) != 0) {
            fprintf(stderr, "varo_hdr_merge: %s: cannot write the report\n", opt.json_path.c_str());
            return EXIT_FAILED;
        }
    }
    return code;
}
