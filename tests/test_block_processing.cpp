#include "pipe/block_processing.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

class BlockCache : public ::testing::Test {
protected:
    static constexpr int W = 160, H = 96, kSlot = 1;
    Bytes img = Bytes(W * H * 3 / 2);  // exact size: the sanitizer sees overruns

    void SetUp() override {
        std::mt19937 rng(7);
        for (auto& v : img) v = rng() & 255;
        memset(sourceBuffer, 0x55, sizeof sourceBuffer);
    }
    int Run(int row, int col, bool reload, int h = H, int slot = kSlot) {
        return BlockProcessing(row, col, reload, h, W, img.data(), slot);
    }
    Bytes Line(int line, int from = 0, int to = 64) {
        const unsigned char* p = sourceBuffer + kSlot * 3072 + line * BS_X;
        return Bytes(p + from, p + to);
    }
    // Luma rows and the chroma line of every even row, columns 0..n - 1.
    void ExpectBlockAt(int r0, int c0, int n = BS_X) {
        EXPECT_TRUE(xp[kSlot] == r0 && yp[kSlot] == c0) << xp[kSlot] << "," << yp[kSlot];
        for (int i = 0; i < BS_Y; ++i) {
            const auto* luma = &img[(r0 + i) * W + c0];
            const auto* uv = &img[W * H + (r0 + i) / 2 * W + c0];
            ASSERT_EQ(Bytes(luma, luma + n), Line(i, 0, n)) << "row " << i;
            if (i % 2 == 0) { ASSERT_EQ(Bytes(uv, uv + n), Line(32 + i / 2, 0, n)) << "row " << i; }
        }
    }
};

TEST_F(BlockCache, WholeFetchAtTheEvenOriginOnlyIntoAValidSlot) {
    // Past the right edge a run reads on into the next row; only the end of
    // the image stops it (the last chroma row here, 32 bytes short).
    Run(H - 2, 130, true);
    EXPECT_EQ(Bytes(32, 0x55), Line(32, 32));
    Run(0, 130, true);
    ExpectBlockAt(0, 128);
    Run(20, 20, true);
    EXPECT_EQ(0, Run(11, 17, true));  // inside the block, yet fetched whole
    ExpectBlockAt(10, 14);
    const Bytes before(sourceBuffer, sourceBuffer + sizeof sourceBuffer);
    testing::internal::CaptureStdout();
    EXPECT_EQ(-1, Run(10, 10, true, H, 4));
    EXPECT_EQ(-1, Run(10, 10, true, H, -1));
    EXPECT_EQ(0u, testing::internal::GetCapturedStdout().rfind("error! ", 0));
    EXPECT_EQ(before, Bytes(sourceBuffer, sourceBuffer + sizeof sourceBuffer));
}

TEST_F(BlockCache, MovesKeepTheOverlapAndRecentre) {
    Run(20, 2, true);
    Run(50, 2, false);  // 30 rows down: 16 rows above the request
    EXPECT_TRUE(xm_org == 14 && xm_fnl == 0 && mH == 18 && mW == 64);
    ExpectBlockAt(34, 0);
    Run(50, 62, false);  // 60 columns right: 32 columns left of it
    EXPECT_TRUE(ym_org == 28 && ym_fnl == 0 && mW == 36 && mH == 32);
    ExpectBlockAt(34, 28);
    Run(50, 82, true);
    Run(50, 72, false);  // left: 16 columns short, only the first gap refilled
    EXPECT_TRUE(ym_fnl == 42 && mW == 6);
    ExpectBlockAt(50, 38, 48);
    for (int i = 0; i < BS_Y; ++i) ASSERT_EQ(Bytes(tempBuf + i * 64 + 48, tempBuf + i * 64 + 64), Line(i, 48));
}

TEST_F(BlockCache, RowsBelowTheImageAreBlackWhenRefilledUntouchedWhenFetched) {
    Run(20, 2, true, 40);
    EXPECT_TRUE(Line(25) == Bytes(64, 0x55) && Line(32 + 12) == Bytes(64, 0x55));
    Run(50, 2, false, 40);  // block rows 18..31 are image rows 52..65
    for (int i = 18; i < 32; ++i) EXPECT_TRUE(Line(i) == Bytes(64, 0) && Line(32 + i / 2) == Bytes(64, 128)) << i;
}

TEST(GaussianFilter, BorderFlatAndEveryWeight) {
    const int w = 37, h = 23;
    Bytes im(w * h, 77);
    im[0] = 5;
    EXPECT_EQ(5, GaussianFilter(im.data(), w, h, 1, 10));
    EXPECT_EQ(77, GaussianFilter(im.data(), w, h, 20, 10));
    static const int k[5][5] = {{38, 40, 41, 40, 38}, {40, 43, 43, 43, 40}, {41, 43, 44, 43, 41},
                                {40, 43, 43, 43, 40}, {38, 40, 41, 40, 38}};
    std::mt19937 rng(3);
    for (auto& v : im) v = rng() & 255;
    for (int n = 0; n < 2000; ++n) {
        const int x = 2 + rng() % (w - 4), y = 2 + rng() % (h - 4);
        int sum = 512;
        for (int dy = -2; dy <= 2; ++dy)
            for (int dx = -2; dx <= 2; ++dx) sum += k[dy + 2][dx + 2] * im[(y + dy) * w + x + dx];
        ASSERT_EQ(sum / 1024, GaussianFilter(im.data(), w, h, x, y)) << x << "," << y;
    }
}

TEST(CalcRadius, WorkedExamples) {
    const int rows[][3] = {{3, 4, 5}, {100, 0, 106}, {100, 100, 156}, {-3, 4, 5}};
    for (auto& [a, b, r] : rows) EXPECT_EQ(r, CalcRadius(a, b)) << a << "," << b;
}

}  // namespace
