// Overlap statistics: sampling through the statistics mesh, thinning and
// the consistency test.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>

#include "common/synthetic_rig.h"
#include "pipe/calib_GT.h"

using namespace svtest;

namespace {

constexpr int W = 160, H = 192, kRows = kSH / 2, kCols = kSW / 2;

class OverlapStats : public ::testing::Test {
protected:
    // Every camera sees the scene 1:1, shifted by (16, 12) pixels; TB1 picks
    // camera 0 and TB2 camera 2 everywhere.
    OverlapStats() : mesh(kTW, kTH), store(8 * kRows * kCols * 3)
    {
        for (int r = 0; r < kTH; ++r)
            for (int c = 0; c < kTW; ++c)
                for (int t = 0; t < 2; ++t) mesh.Set(t, r, c, {128 * c + 256, 128 * r + 192, 128, 0});
        for (int k = 0; k < 4; ++k) Grey(k, 100);
        for (int p = 0; p < 8; ++p) planes[p] = &store[p * kRows * kCols * 3];
    }
    void Grey(int cam, int v) { images[cam] = Nv12(W, H, [v](int, int) { return Rgb{v, v, v}; }); }
    void Run(int DS = 1, int VL = 8, int VH = 248, int sw = kSW, int rto = 14)
    {
        for (int k = 0; k < 4; ++k) yuv[k] = images[k].data();
        stat = {sw, kSH, mesh.w, mesh.h, kInterval, kInterval, mesh.tb[0].data(), mesh.tb[1].data()};
        rows = kRows, cols = kCols;
        GetStatData(yuv, W, H, stat, planes, rows, cols, kCols, VL, VH, rto, 16, 128, DS);
    }
    int At(int p, int r, int c) { return planes[p][(r * kCols + c) * 3]; }

    Mesh mesh;
    std::vector<unsigned char> images[4], store;
    unsigned char *planes[8], *yuv[4];
    tag_StatPara stat;
    int rows = 0, cols = 0;
};

TEST_F(OverlapStats, RegionsTakeTheirSidesAndSkipLocalZeroLines)
{
    Grey(0, 90);  // TB1
    Run();
    // Regions 0 and 2 put TB2 on side A, regions 1 and 3 TB1.
    const int side[8] = {100, 90, 90, 100, 100, 90, 90, 100};
    for (int p = 0; p < 8; ++p) EXPECT_EQ(At(p, 5, 5), side[p]) << p;
    for (int r = 0; r < kRows; ++r) {  // local column 0 of regions 1 and 2
        EXPECT_EQ(At(2, r, 0) + At(3, r, 0) + At(4, r, 0) + At(5, r, 0), 0) << r;
        EXPECT_NE(At(2, r, 1), 0);
    }
    for (int c = 0; c < kCols; ++c) {  // local row 0 of regions 2 and 3
        EXPECT_EQ(At(4, 0, c) + At(5, 0, c) + At(6, 0, c) + At(7, 0, c), 0) << c;
        EXPECT_NE(At(6, 1, c), 0);
    }
}

TEST_F(OverlapStats, MixedCamSelNeverSamples)
{
    mesh.Node(0, 3, 3)[3] = 1;  // the four cells around node (3, 3)
    Run();
    for (int r = 16; r < 32; ++r)
        for (int c = 16; c < 32; ++c) EXPECT_EQ(At(1, r, c), 0) << r << "," << c;
    EXPECT_NE(At(1, 15, 15), 0);
    EXPECT_NE(At(1, 32, 32), 0);
}

TEST_F(OverlapStats, AllSixValuesMustLieInsideVlVh)
{
    const int cases[3][3] = {{100, 100, 100}, {101, 248, 0}, {8, 99, 0}};  // VL, VH, stored
    for (const auto& t : cases) {
        Run(1, t[0], t[1]);
        EXPECT_EQ(At(0, 9, 9), t[2]) << t[0] << ".." << t[1];
    }
    Grey(2, 0);  // Y 0 is black, below VL
    Run();
    EXPECT_EQ(At(1, 9, 9), 0);
}

TEST_F(OverlapStats, BlockSizeRoundsDownToEven)
{
    Run(4);
    EXPECT_EQ(std::make_pair(rows, cols), std::make_pair(21, 16));
    Run(2);
    const std::vector<unsigned char> two = store;
    Run(3);
    EXPECT_EQ(std::make_pair(rows, cols), std::make_pair(42, 32));
    EXPECT_EQ(store, two);
    Run(0);  // taken as 1
    EXPECT_EQ(std::make_pair(rows, cols), std::make_pair(kRows, kCols));
}

TEST_F(OverlapStats, ToleranceDropsPairsThatDisagree)
{
    // 200 vs 20 exceeds the 128 cap, 30 vs 18 is within max(16, (30 * 14) >> 4
    // = 26); 128 allows exactly 112. Ratios whose product leaves 32 bits
    // saturate at the cap or, negative, fall to the floor.
    const struct { int a, b; bool kept; int rto = 14; } cases[] = {
        {200, 20, false}, {30, 18, true}, {20, 200, false}, {128, 16, true}, {15, 128, false},
        {200, 20, false, INT_MAX}, {130, 10, true, INT_MAX}, {130, 10, false, INT_MIN}, {26, 10, true, INT_MIN}};
    for (const auto& t : cases) {
        Grey(2, t.a);  // side A of region 0
        Grey(0, t.b);
        Run(1, 8, 248, kSW, t.rto);
        EXPECT_EQ(At(0, 9, 9), t.kept ? t.a : 0) << t.a << " vs " << t.b;
        EXPECT_EQ(At(1, 9, 9), t.kept ? t.b : 0) << t.a << " vs " << t.b;
    }
}

TEST_F(OverlapStats, TableEdgesAreNeverReadPastTheLoadedNodes)
{
    // Exactly sized tables: ASan sees any read past the last row or column.
    Mesh shortMesh(kTW, kTH - 1);
    for (int t = 0; t < 2; ++t) std::copy_n(mesh.tb[t].begin(), shortMesh.tb[t].size(), shortMesh.tb[t].begin());
    mesh = shortMesh;
    Run();
    EXPECT_NE(At(6, 75, 5), 0);  // i = 159, last row of a complete cell
    EXPECT_EQ(At(6, 76, 5), 0);  // i = 160 lies in the last cell row
    mesh = Mesh(1, kTH);
    Run();
    EXPECT_TRUE(std::all_of(store.begin(), store.end(), [](int v) { return v == 0; }));
}

TEST_F(OverlapStats, OuterBandsAreReadOnlyInsideTheImage)
{
    // TB1 reads the fourth band near the bottom: luma stays inside the image,
    // chroma from row i = 162 on would lie past its end.
    for (int n = 0; n < kTW * kTH; ++n) {
        mesh.tb[0][4 * n] = 16 * (3 * W + 2);
        mesh.tb[0][4 * n + 1] += 16 * 10;
    }
    Run();
    EXPECT_NE(At(6, 76, 6), 0);  // i = 160
    EXPECT_EQ(At(6, 78, 6), 0);  // i = 162, chroma computed here
    EXPECT_NE(At(6, 78, 5), 0);  // odd columns and rows reuse the cache
    EXPECT_NE(At(6, 79, 6), 0);
}

TEST_F(OverlapStats, CalibGTHalvesAnOddWidthDownward)
{
    for (int k = 0; k < 4; ++k)
        images[k] = Nv12(W, H, [k](int x, int y) { return Rgb{60 + x / 2 + 10 * k, 80 + y / 3, 100 + 5 * k}; });
    Run(4, 8, 248, 129);  // w2 = 64
    std::vector<int> fit(48, -1), ref(48, -1);
    optimize4GT(planes, rows, cols, kCols, &ref[0], &ref[12], 4, 0.1f, 4, 16, 0.05f);
    CalibGT(yuv, W, H, stat, &fit[0], &fit[12], 8, 248, 14, 16, 128, 4, 4, 0.1f, 4, 16, 0.05f);
    EXPECT_NE(fit[0], -1);
    EXPECT_EQ(fit, ref);
}

TEST(DownSample, MatchesBlockMeansOnRandomPlanes)
{
    std::mt19937 rng(7);
    for (int iter = 0; iter < 50; ++iter) {
        const int R = 1 + rng() % 40, C = 1 + rng() % 40, DS = 1 + rng() % 6;
        const int s = DS > 1 ? DS / 2 * 2 : 1, size = R * C * 3;
        std::vector<unsigned char> buf(8 * size);
        for (auto& v : buf) v = rng() & 255;
        const std::vector<unsigned char> in = buf;
        unsigned char* planes[8];
        for (int p = 0; p < 8; ++p) planes[p] = &buf[p * size];
        int rows = R, cols = C, stride = C;
        DownSample(planes, rows, cols, stride, DS);
        ASSERT_EQ(std::make_pair(rows, cols), std::make_pair(R / s, C / s));
        for (int p = 0; p < 8; ++p)
            for (int o = 0; o < rows * cols * 3; ++o) {
                const int r = o / 3 / cols, c = o / 3 % cols, ch = o % 3;
                int sum = 0;
                for (int y = r * s; y < r * s + s; ++y)
                    for (int x = c * s; x < c * s + s; ++x) sum += in[p * size + (y * C + x) * 3 + ch];
                ASSERT_EQ(planes[p][(r * C + c) * 3 + ch], (sum + s * s / 2) / (s * s));
            }
    }
}

}  // namespace
