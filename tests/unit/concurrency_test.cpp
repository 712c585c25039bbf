// Several contexts merging at once on their own threads while the host
// switches its log on and off: each merge gives the bytes it gives alone.
// Run under ThreadSanitizer in the tsan configuration.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "cam_debug_stub.h"
#include "synthetic_bracket.h"
#include "unit/test_support.h"

namespace {

uint64_t merged_hash(HdrContext *ctx, TestBracket b) {
    HdrInput in = b.input();
    const int rc = hdrThreeFrameCore(ctx, &in);
    return hash_plane(in.frame[HE_IDX].luma, in.width, in.out_width, in.out_height) ^
           hash_plane(in.frame[HE_IDX].chroma, in.width, in.out_width, in.out_height / 2) * 3 ^ (uint64_t)rc;
}

void drop_line(void *, int, int, const char *, int, const char *) {} // keeps stderr quiet

TEST(Concurrency, ContextsMergeAtOnceWhileTheHostTogglesTheLog) {
    BracketOptions moving;
    moving.he_dx = 3, moving.he_dy = -2, moving.le_dx = -5, moving.le_dy = 4, moving.moving_object = true;
    BracketOptions shifted = moving;
    shifted.moving_object = false;
    const TestBracket brackets[3] = {make_bracket(264, 192, shifted), make_bracket(296, 232, moving),
                                     make_bracket(298, 200)};
    HdrContext *ctx[3] = {shared_context(), nullptr, nullptr};
    ASSERT_EQ(hdrCreateContext(&ctx[1]), 0);
    ASSERT_EQ(hdrCreateContext(&ctx[2]), 0);
    uint64_t want[3], got[3][3];
    for (int i = 0; i < 3; ++i) want[i] = merged_hash(ctx[0], brackets[i]);

    std::atomic<bool> stop{false};
    cam_debug_set_sink(drop_line, nullptr);
    std::thread host([&] {
        for (int32_t on = 1; !stop.load(); on ^= 1) {
            __atomic_store_n(&g_cam_log[46], on, __ATOMIC_RELAXED);
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    std::thread merging[3];
    for (int i = 0; i < 3; ++i)
        merging[i] = std::thread([&, i] {
            for (int m = 0; m < 3; ++m) got[i][m] = merged_hash(ctx[i], brackets[(i + m) % 3]);
        });
    for (std::thread &t : merging) t.join();
    stop = true;
    host.join();
    __atomic_store_n(&g_cam_log[46], 0, __ATOMIC_RELAXED);
    cam_debug_set_sink(nullptr, nullptr);
    hdrDestroyContext(ctx[1]);
    hdrDestroyContext(ctx[2]);
    for (int i = 0; i < 3; ++i)
        for (int m = 0; m < 3; ++m) EXPECT_EQ(got[i][m], want[(i + m) % 3]) << "context " << i << " merge " << m;
}

} // namespace
