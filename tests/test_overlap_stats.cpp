// Overlap statistics: sampling through the statistics mesh, thinning and
// the consistency test.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>

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
                for (int t = 0; t < 2; ++t)
                    mesh.Set(t, r, c, 128 * c + 256, 128 * r + 192, 128, 0);
        for (int k = 0; k < 4; ++k) Grey(k, 100);
        for (int p = 0; p < 8; ++p) planes[p] = &store[p * kRows * kCols * 3];
    }
    void Grey(int cam, int v)
    {
        images[cam] = Nv12(W, H, [v](int, int) { return Rgb{v, v, v}; });
    }
    void Run(int DS = 1, int VL = 8, int VH = 248, int sw = kSW)
    {
        for (int k = 0; k < 4; ++k) yuv[k] = images[k].data();
        stat = StatPara(mesh, sw);
        rows = kRows, cols = kCols;
        GetStatData(yuv, W, H, stat, planes, rows, cols, kCols, VL, VH, 14, 16,
                    128, DS);
    }
    int At(int p, int r, int c, int ch = 0) { return planes[p][(r * kCols + c) * 3 + ch]; }

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
    // Region 0 and 2 put TB2 on side A, regions 1 and 3 TB1.
    EXPECT_EQ(At(0, 5, 5), 100);
    EXPECT_EQ(At(1, 5, 5), 90);
    EXPECT_EQ(At(2, 5, 5), 90);
    EXPECT_EQ(At(4, 5, 5), 100);
    EXPECT_EQ(At(6, 5, 5), 90);
    for (int r = 0; r < kRows; ++r) {
        EXPECT_EQ(At(2, r, 0), 0);  // region 1, local column 0
        EXPECT_NE(At(2, r, 1), 0);
        EXPECT_EQ(At(4, r, 0), 0);  // region 2, local column 0
    }
    for (int c = 0; c < kCols; ++c) {
        EXPECT_EQ(At(4, 0, c), 0);  // region 2, local row 0
        EXPECT_EQ(At(6, 0, c), 0);  // region 3, local row 0
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
    Run(1, 100, 100);
    EXPECT_EQ(At(0, 9, 9), 100);
    Run(1, 101, 248);
    EXPECT_EQ(At(0, 9, 9), 0);
    Run(1, 8, 99);
    EXPECT_EQ(At(0, 9, 9), 0);
    Grey(2, 0);  // Y 0 is black, below VL
    Run();
    EXPECT_EQ(At(1, 9, 9), 0);
}

TEST_F(OverlapStats, BlockSizeRoundsDownToEven)
{
    Run(4);
    EXPECT_EQ(rows, 21);
    EXPECT_EQ(cols, 16);
    Run(2);
    const std::vector<unsigned char> two = store;
    Run(3);
    EXPECT_EQ(rows, 42);
    EXPECT_EQ(cols, 32);
    EXPECT_EQ(store, two);
    Run(0);  // taken as 1
    EXPECT_EQ(rows, kRows);
    EXPECT_EQ(cols, kCols);
}

// (side A grey, side B grey, kept): 200 vs 20 exceeds the 128 cap, 30 vs 18
// is within max(16, (30 * 14) >> 4 = 26); 128 allows exactly 112.
class Tolerance : public OverlapStats,
                  public ::testing::WithParamInterface<std::tuple<int, int, bool>> {};

TEST_P(Tolerance, DropsPairsThatDisagree)
{
    const auto [a, b, kept] = GetParam();
    Grey(2, a);
    Grey(0, b);
    Run();
    EXPECT_EQ(At(0, 9, 9), kept ? a : 0);
    EXPECT_EQ(At(1, 9, 9), kept ? b : 0);
}
INSTANTIATE_TEST_SUITE_P(Examples, Tolerance,
                         ::testing::Values(std::make_tuple(200, 20, false),
                                           std::make_tuple(30, 18, true),
                                           std::make_tuple(20, 200, false),
                                           std::make_tuple(128, 16, true),
                                           std::make_tuple(15, 128, false)));

TEST_F(OverlapStats, TableEdgesAreNeverReadPastTheLoadedNodes)
{
    // Exactly sized tables: ASan sees any read past the last row or column.
    Mesh shortMesh(kTW, kTH - 1);
    std::copy_n(mesh.tb[0].begin(), shortMesh.tb[0].size(), shortMesh.tb[0].begin());
    std::copy_n(mesh.tb[1].begin(), shortMesh.tb[1].size(), shortMesh.tb[1].begin());
    mesh = shortMesh;
    Run();
    EXPECT_NE(At(6, 75, 5), 0);  // i = 159, last row of a complete cell
    EXPECT_EQ(At(6, 76, 5), 0);  // i = 160 lies in the last cell row
    Mesh oneColumn(1, kTH);
    mesh = oneColumn;
    Run();
    EXPECT_TRUE(std::all_of(store.begin(), store.end(), [](int v) { return v == 0; }));
}

TEST_F(OverlapStats, OuterBandsAreReadOnlyInsideTheImage)
{
    // TB1 reads the fourth band near the bottom: luma stays inside the image,
    // chroma from row i = 162 on would lie past its end.
    for (int r = 0; r < kTH; ++r)
        for (int c = 0; c < kTW; ++c) {
            mesh.Node(0, r, c)[0] = 16 * (3 * W + 2);
            mesh.Node(0, r, c)[1] += 16 * 10;
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
        images[k] = Nv12(W, H, [k](int x, int y) {
            return Rgb{60 + x / 2 + 10 * k, 80 + y / 3, 100 + 5 * k};
        });
    Run(4, 8, 248, 129);  // w2 = 64
    std::vector<int> fit(48, -1), ref(48, -1);
    optimize4GT(planes, rows, cols, kCols, &ref[0], &ref[12], 4, 0.1f, 4, 16, 0.05f);
    CalibGT(yuv, W, H, stat, &fit[0], &fit[12], 8, 248, 14, 16, 128, 4, 4, 0.1f,
            4, 16, 0.05f);
    EXPECT_NE(fit[0], -1);
    EXPECT_EQ(fit, ref);
}

TEST(DownSample, MatchesBlockMeansOnRandomPlanes)
{
    std::mt19937 rng(7);
    for (int iter = 0; iter < 50; ++iter) {
        const int rows0 = 1 + rng() % 40, cols0 = 1 + rng() % 40, stride = cols0;
        const int DS = 1 + rng() % 6, s = DS > 1 ? DS / 2 * 2 : 1;
        std::vector<unsigned char> buf(8 * rows0 * stride * 3);
        for (auto& v : buf) v = rng() & 255;
        const std::vector<unsigned char> in = buf;
        unsigned char* planes[8];
        for (int p = 0; p < 8; ++p) planes[p] = &buf[p * rows0 * stride * 3];
        int rows = rows0, cols = cols0, st = stride;
        DownSample(planes, rows, cols, st, DS);
        ASSERT_EQ(rows, rows0 / s);
        ASSERT_EQ(cols, cols0 / s);
        for (int p = 0; p < 8; ++p)
            for (int r = 0; r < rows; ++r)
                for (int c = 0; c < cols; ++c)
                    for (int ch = 0; ch < 3; ++ch) {
                        int sum = 0;
                        for (int y = r * s; y < r * s + s; ++y)
                            for (int x = c * s; x < c * s + s; ++x)
                                sum += in[p * rows0 * stride * 3 + (y * stride + x) * 3 + ch];
                        ASSERT_EQ(planes[p][(r * stride + c) * 3 + ch], (sum + s * s / 2) / (s * s));
                    }
    }
}

}  // namespace
