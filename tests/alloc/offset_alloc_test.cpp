#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <vector>

#include "alloc/alloc_hook.h"
#include "varo_hdr.h"

namespace {

// A bitmap pyramid of a 640 x 480 frame in plain vectors.
struct Pyramid {
    HdrBitmapLevel lv[VARO_HDR_BITMAP_LEVELS];
    std::vector<uint8_t> storage[VARO_HDR_BITMAP_LEVELS];
    explicit Pyramid(uint8_t fill) {
        std::vector<uint8_t> frame(640 * 480);
        for (size_t i = 0; i < frame.size(); ++i) frame[i] = (uint8_t)((i * 2654435761u) >> 24) ^ fill;
        for (int L = 0; L < VARO_HDR_BITMAP_LEVELS; ++L) {
            const size_t stride = ((448 >> L) >> 5) + 5, rows = 320 >> L;
            storage[L].resize(stride * (rows + 128) * 8 + 16);
            lv[L].buffer = storage[L].data();
            lv[L].buffer_bytes = (uint32_t)storage[L].size();
        }
        BitmapCalc(frame.data(), 640, 480, lv);
    }
};

TEST(OffsetAllocation, ScratchBlockSizeAndRelease) {
    Pyramid fixed(0), moving(0);
    HdrOffset off = {7, 7};
    alloc_hook_arm();
    const uint32_t err = OffsetCalc(fixed.lv, moving.lv, &off);
    std::vector<AllocRecord> req = alloc_hook_disarm();
    ASSERT_EQ(req.size(), 1u);
    // 16 + 8 x W x R bytes, plus the aligner's 64.
    EXPECT_EQ(req[0].size, 16 + 8 * (size_t)moving.lv[0].width_words * moving.lv[0].rows + 64);
    EXPECT_EQ(alloc_hook_live(), 0u);
    EXPECT_EQ(err, 0u);
    EXPECT_EQ(off.x, 0);
    EXPECT_EQ(off.y, 0);
}

TEST(OffsetAllocation, FailedScratchLeavesTheOffsetAndReturnsZero) {
    Pyramid fixed(0), moving(0x5A);
    HdrOffset off = {41, -17};
    testing::internal::CaptureStdout();
    alloc_hook_arm(0);
    const uint32_t err = OffsetCalc(fixed.lv, moving.lv, &off);
    std::vector<AllocRecord> req = alloc_hook_disarm();
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "malloc failed\n");
    EXPECT_EQ(req.size(), 1u);
    EXPECT_EQ(err, 0u);
    EXPECT_EQ(off.x, 41);
    EXPECT_EQ(off.y, -17);
}

} // namespace
