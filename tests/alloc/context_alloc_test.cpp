#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include "alloc/alloc_hook.h"
#include "pipeline/merge_state.h"
#include "varo_hdr.h"

namespace {

// The failure message of each creation request, by block kind in request
// order: count of blocks, levels per frame, message (frame and level, or the
// level alone for the two gaussian levels).
struct Kind {
    int count, levels;
    const char *message;
};
const Kind kKinds[] = {
    {1, 1, "hrd_creat malloc failed 0\n"},
    {18, 6, "hrd_creat malloc failed 3\n"},
    {33, 11, "malloc w_gaussian_pyramid [%d, %d] failed\n"},
    {6, 2, "malloc img_gaussian_pyramid %2$d failed\n"},
    {33, 11, "malloc img_laplacian_pyramid [%d, %d, IY] failed\n"},
    {30, 10, "malloc img_laplacian_pyramid [%d, %d, IC] failed\n"},
    {3, 1, "malloc inter_buf failed\n"},
    {3, 1, "hrd_creat malloc failed 9\n"},
};

std::string message_of(int request) {
    for (const Kind &k : kKinds) {
        if (request < k.count) {
            char text[80];
            snprintf(text, sizeof text, k.message, request / k.levels, request % k.levels);
            return text;
        }
        request -= k.count;
    }
    return "(no such request)";
}

// 127 requests of 429,900,112 bytes in all with the 1208-byte record of a
// 32-bit target (the record's size follows the platform's pthread types).
TEST(ContextAllocation, RequestsAndTotal) {
    HdrContext *ctx = nullptr;
    alloc_hook_arm();
    ASSERT_EQ(hdrCreateContext(&ctx), 0);
    const std::vector<AllocRecord> req = alloc_hook_disarm();
    ASSERT_EQ(req.size(), 127u);
    size_t total = 0;
    for (size_t k = 1; k < req.size(); ++k) total += req[k].size;
    EXPECT_EQ(req[0].size, sizeof(HdrContextBlock) + 128); // merge status behind the record
    EXPECT_EQ(total + 1208 + 128, 429900112u);
    EXPECT_EQ(hdrDestroyContext(ctx), 0);
    EXPECT_EQ(alloc_hook_live(), 0u);
}

// Each request failing in turn: its message on stdout, -2, no request after
// it, nothing kept but the record, which holds null pointers and can be
// destroyed; *out untouched when the record itself fails.
TEST(ContextAllocation, EveryRequestFailingInTurn) {
    for (int i = 0; i < 127; ++i) {
        HdrContext *const sentinel = (HdrContext *)0x1234;
        HdrContext *ctx = sentinel;
        testing::internal::CaptureStdout();
        alloc_hook_arm(i);
        const int rc = hdrCreateContext(&ctx);
        const size_t requests = alloc_hook_disarm().size();
        fflush(stdout);
        ASSERT_EQ(testing::internal::GetCapturedStdout(), message_of(i)) << i;
        ASSERT_EQ(rc, -2) << i;
        ASSERT_EQ(requests, (size_t)i + 1) << i;
        if (i == 0) {
            EXPECT_EQ(ctx, sentinel);
            EXPECT_EQ(alloc_hook_live(), 0u);
            continue;
        }
        ASSERT_NE(ctx, sentinel);
        ASSERT_EQ(alloc_hook_live(), 1u) << i;
        const HdrContext empty = HdrContext();
        ASSERT_EQ(memcmp(ctx, &empty, sizeof empty), 0) << i;
        EXPECT_EQ(hdrDestroyContext(ctx), 0);
        ASSERT_EQ(alloc_hook_live(), 0u) << i;
    }
}

} // namespace
