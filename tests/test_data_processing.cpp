// Output composition through small hand-built control tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "pipe/data_processing.h"

namespace {

TEST(BilinearInterpolation, ShiftsWithoutRounding) {
    int c[2][2] = {{0, 16}, {32, 48}}, fall[2][2] = {{10, 0}, {10, 0}}, wide[2][2] = {{0, 32}, {0, 32}};
    EXPECT_EQ(BilinearInterpolation(c, 8, 8, 4, 0), 24);
    EXPECT_EQ(BilinearInterpolation(fall, 1, 0, 4, 0), 9);  // -10 >> 4 is -1
    EXPECT_EQ(BilinearInterpolation(wide, 16, 0, 4, 1), 16);   // extra bit: 1/32 units
}

using Triple = std::array<int, 3>;
using Node = std::array<int, 4>;  // SrcX, SrcY (1/16 pixel), weight, CamSel
const unsigned char kSentinel = 0xAA;
const int kBig = 1 << 20;  // a seam index never reached

// Cameras 160 x 48 with neutral chroma, output 128 x 16, nodes every 8 pixels.
// Luma probes (camera 0 along x, camera 1 along y) rise 16 levels per pixel,
// so Y shows the source position to 1/16 pixel within each 16-pixel period.
class Compose : public ::testing::Test {
protected:
    static constexpr int W = 160, H = 48, OW = 128, OH = 16;
    std::vector<unsigned char> cam[4], out;
    std::vector<int> tb[2];
    tag_CtrlPara p{};
    int gain[12], tcurve[36];

    void SetUp() override {
        for (auto& c : cam) c.assign(W * H * 3 / 2, 128);
        Luma(0, [](int x, int) { return 16 * (x & 15); });
        Luma(1, [](int, int y) { return 16 * (y & 15); });
        // Storage as the loader sizes it; tables without seam rows leave spare rows.
        for (auto& t : tb) t.assign((OW / 8 + 3) * (OH / 8 + 3) * 4, -1);
        p.TB1 = tb[0].data(), p.TB2 = tb[1].data();
        p.TableWidth = OW / 8 + 1, p.TableHeight = OH / 8 + 1;
        p.IntervalX = p.IntervalY = 3, p.ZoomFactorX = p.ZoomFactorY = 64;
        p.ROIEndX = p.ROIEndY = p.L1 = p.L2 = p.H1 = p.H2 = kBig;
        std::fill(gain, gain + 12, 1024);
        for (int i = 0; i < 36; ++i) tcurve[i] = 64 * (i % 3 + 1);
    }
    void Luma(int k, std::function<int(int, int)> f) {
        for (int i = 0; i < W * H; ++i) cam[k][i] = static_cast<unsigned char>(f(i % W, i / W));
    }
    void Flat(int k, int y) { Luma(k, [y](int, int) { return y; }); }
    // f(x, y, sx, sy): node position in table space, side of each seam pair (0, 1 or 2).
    void Fill(int t, std::function<Node(int x, int y, int sx, int sy)> f) {
        for (int r = 0; r < p.TableHeight; ++r)
            for (int c = 0; c < p.TableWidth; ++c) {
                const int sx = (c > p.L1) + (c > p.L2), sy = (r > p.H1) + (r > p.H2);
                const Node n = f(8 * (c - sx), 8 * (r - sy), sx, sy);
                std::copy(n.begin(), n.end(), &tb[t][(r * p.TableWidth + c) * 4]);
            }
    }
    // Source = table position + (dx, dy) in 1/16 pixel.
    void Shift(int t, int sel, int dx, int dy, int w = 256) {
        Fill(t, [=](int x, int y, int, int) { return Node{16 * x + dx, 16 * y + dy, w, sel}; });
    }
    int Run(int ow = OW) {
        out.assign(ow * OH * 3 / 2, kSentinel);
        unsigned char* imgs[4] = {cam[0].data(), cam[1].data(), cam[2].data(), cam[3].data()};
        return DataProcessing(imgs, W, H, out.data(), ow, OH, &p, gain, tcurve, 64, 8);
    }
    int Y(int x, int y) const { return out[y * OW + x]; }
    int UV(int x, int y, int i) const { return out[(OH + y / 2) * OW + x / 2 * 2 + i]; }
    Triple Yuv(int x, int y) const { return {Y(x, y), UV(x, y, 0), UV(x, y, 1)}; }
    void Check(std::initializer_list<Triple> want) const {  // rows of {x, y, luma}
        for (const Triple& w : want) EXPECT_EQ(Y(w[0], w[1]), w[2]) << "at " << w[0] << "," << w[1];
    }
};

// A row's first cell is loaded without the width test: starting on the last
// node column it renders, reaching one node past the row; the next cell ends
// the row.
TEST_F(Compose, FirstCellOfARowSkipsTheWidthTest) {
    p.TableWidth = 3;
    p.ROIStartX = 16;  // cell column 2 = TableWidth - 1
    Flat(0, 50);
    Shift(0, 0, 16, 16);
    Run();
    Check({{0, 0, 50}, {7, 7, 50}, {8, 0, kSentinel}, {8, 7, kSentinel}});
}

TEST_F(Compose, IdentityZoomAdvancesOnePixelPerOutputPixelOtherStepsScale) {
    Shift(0, 0, 16, 16);
    EXPECT_EQ(Run(), 1);  // zoom 64, step 2048
    for (int y = 0; y < OH; ++y)
        for (int x = 0; x < OW; ++x) ASSERT_EQ(Y(x, y), 16 * ((x + 1) & 15)) << x << "," << y;
    // Probe level at column c: 16 * ((pixel + 1) & 15) + sixteenths.
    const struct { int zoom, col, level; } cases[] = {
        {96, 1, 27},   // step 1365: 11/16 pixel
        {96, 96, 16},  // 96 * 1365 / 128 rounds to 1024/16: 64 pixels, not 1025
        {128, 3, 40},  // step 1024: 1.5 pixels
    };
    for (const auto& c : cases) {
        p.ZoomFactorX = c.zoom;
        Run();
        EXPECT_EQ(Y(c.col, 0), c.level) << "zoom " << c.zoom;
    }
}

TEST_F(Compose, OddHorizontalOriginsAreRaisedVerticalKept) {
    p.ROIStartX = 3, p.DispCoorX = 1, p.ROIStartY = 3, p.DispCoorY = 1;
    Shift(0, 0, 0, 0);
    Run();
    Check({{1, 1, kSentinel}, {2, 0, kSentinel}, {2, 1, 16 * 4}});  // table x 4, not 3
    Shift(0, 1, 0, 0);
    Run();
    Check({{2, 1, 16 * 3}});  // table y 3
}

TEST_F(Compose, SeamsSplitTheMesh) {
    // Doubled columns at table index 2 (x = 16) and 5 (x = 32: the second
    // test sees the index already shifted by the first), a doubled row at 1.
    p.L1 = 2, p.L2 = 5, p.H1 = 1, p.TableWidth += 2, p.TableHeight += 1;
    Fill(0, [](int x, int y, int sx, int) { return Node{16 * (x + 1 + 4 * sx), 16 * (y + 1), 256, 0}; });
    Run();
    for (int x = 0; x < 48; ++x) ASSERT_EQ(Y(x, 0), 16 * ((x + 1 + 4 * (x / 16)) & 15)) << x;
    Fill(0, [](int x, int y, int, int sy) { return Node{16 * (x + 1), 16 * (y + 1 + 3 * sy), 256, 1}; });
    Run();
    for (int y = 0; y < OH; ++y) ASSERT_EQ(Y(0, y), 16 * ((y + 1 + 3 * (y / 8)) & 15)) << y;
}

TEST_F(Compose, BlendTruncatesAndWrapsAbove256) {
    Flat(0, 200);
    Flat(3, 100);
    Shift(0, 0, 16, 16, 100);
    Shift(1, 1, 16, 16, 156);
    Run();
    Check({{7, 5, 139}});  // (200 * 100 + 100 * 156) >> 8 = 139.06
    Shift(0, 0, 16, 16, 256);
    Shift(1, 1, 16, 16, 256);
    Run();
    EXPECT_EQ(Yuv(6, 4), (Triple{300 & 255, 256 & 255, 256 & 255}));
}

TEST_F(Compose, MixedCamSelRendersCamera0AtWeight0) {
    Flat(0, 40);
    Flat(1, 90);
    Flat(3, 200);
    Fill(0, [](int x, int y, int, int) { return Node{16 * (x + 1), 16 * (y + 1), 256, x >= 16}; });
    Run();
    Check({{4, 3, 40}, {12, 3, 40}, {20, 3, 90}});  // x 8..15: corners 0 and 1, camera 0
    Shift(1, 1, 16, 16, 100);
    Run();
    Check({{12, 3, 200 * 100 >> 8}, {20, 3, (90 * 256 + 200 * 100) >> 8 & 255}});
}

TEST_F(Compose, BorderOfCameraAndNegativeCornersAreNeverSampled) {
    Shift(0, 0, 0, 0);
    tb[0][(1 * p.TableWidth + 10) * 4] = -1;  // node x 80, y 8
    Run();
    // Camera column 0 and row 0; then the four cells sharing the negative node.
    Check({{0, 5, kSentinel}, {5, 0, kSentinel}, {1, 1, 16}});
    Check({{75, 5, kSentinel}, {87, 12, kSentinel}, {71, 5, 16 * 7}, {88, 5, 16 * 8}});
    Shift(0, 0, 16 * (W - OW), 16 * (H - OH));
    Run();
    // Camera column W - 1 and row H - 1.
    Check({{OW - 1, 3, kSentinel}, {5, OH - 1, kSentinel}, {OW - 2, OH - 2, 16 * ((W - 2) & 15)}});
}

// Camera 2 through TB2 alone, luma 16 throughout: chroma (240, 240) makes
// RGB (173, 0, 215), which is (76, 206, 197).
TEST_F(Compose, OnlyTable2ValidTakesFullWeightAndSamplesChroma) {
    Flat(2, 16);
    unsigned char* uv = &cam[2][W * H];
    std::fill(uv, uv + W * H / 2, 240);
    Shift(1, 0, 16, 16, 10);
    Run();
    EXPECT_EQ(Yuv(4, 2), (Triple{76, 206, 197}));
    // Even-even output pixels alone interpolate chroma; the rest reuse theirs.
    uv[1 * W + 2] = uv[1 * W + 3] = 128;  // chroma sample (1, 1) neutral
    Shift(1, 0, 32, 32);  // even output pixels sit on chroma samples exactly
    Run();
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) EXPECT_EQ(Y(x, y), x < 2 && y < 2 ? 16 : 76) << x << "," << y;
    // Chroma 128 before sample 2, 240 from it on along one axis; output (2, 2) on an odd
    // source pixel there gets 184: (16, 184, 184) -> RGB (95, 0, 115) -> (41, 169, 166).
    for (int axis = 0; axis < 2; ++axis) {
        for (int i = 0; i < H / 2; ++i)
            for (int j = 0; j < W; ++j) uv[i * W + j] = (axis ? i : j / 2) >= 2 ? 240 : 128;
        Shift(1, 0, axis ? 32 : 16, axis ? 16 : 32);
        Run();
        EXPECT_EQ(Yuv(2, 2), (Triple{41, 169, 166})) << axis;
    }
    // Output (0, 0) samples camera (W - 2 + 1/2, H - 2 + 1/2): the last interior column
    // and row reuse their chroma sample, so the last one's 240 comes through unmixed.
    std::fill(uv, uv + W * H / 2, 128);
    uv[(H / 2 - 1) * W + W - 2] = uv[(H / 2 - 1) * W + W - 1] = 240;
    Shift(1, 0, 16 * (W - 2) + 8, 16 * (H - 2) + 8);
    Run();
    EXPECT_EQ(Yuv(0, 0), (Triple{76, 206, 197}));
}

TEST_F(Compose, RowsAndColumnsBeyondTheRoiAreUntouchedNegativeStartYClampsRow0Only) {
    Shift(0, 1, 16, 16);
    p.ROIEndY = 5, p.ROIEndX = 9;
    Run();
    Check({{9, 5, 16 * 6}, {10, 5, kSentinel}, {0, 6, kSentinel}, {0, OH - 1, kSentinel}});
    p.ROIEndY = p.ROIEndX = kBig, p.ROIStartY = -3;
    Run();
    // Row 0 reads table y 0; rows 1 and 2 (table y -2 and -1) lie above the table.
    Check({{0, 0, 16}, {0, 1, kSentinel}, {0, 2, kSentinel}, {0, 3, 16}, {0, 4, 32}});
}

// Quadrants: TB1 gives camera 0 above and camera 1 below a doubled row, TB2 cameras
// 2 and 3 in the right half. Camera 3 is grey with its green gain doubled.
TEST_F(Compose, EndToEndQuadrants) {
    for (int k = 0; k < 3; ++k) Luma(k, [k](int x, int y) { return (2 * x + y + 20 * k) & 255; });
    Flat(3, 100);
    gain[3 * 3 + 1] = 2048;
    p.H1 = 1, p.TableHeight += 1;
    for (int t = 0; t < 2; ++t)
        Fill(t, [t](int x, int y, int, int sy) {
            if (t ? x < OW / 2 : x > OW / 2) return Node{-1, -1, 0, 0};
            return Node{16 * (x + 1) + 8 * sy, 16 * (y + 1), 256, sy};
        });
    Run();
    for (int y = 0; y < OH; ++y)
        for (int x = 0; x < OW; ++x) {
            const int k = (x >= OW / 2 ? 2 : 0) + (y >= OH / 2);
            // Camera 1 is sampled half a pixel to the right: 2 * (x + 1.5).
            const int want = k == 3 ? 159 : (2 * (x + 1) + y + 1 + 20 * k + (k == 1)) & 255;
            // Quadrant edges are even: every pixel's chroma pair is its quadrant's.
            ASSERT_EQ(Yuv(x, y), (Triple{want, k == 3 ? 95 : 128, k == 3 ? 86 : 128})) << x << "," << y;
        }
}

// A refused call prints one line and leaves the output untouched.
TEST_F(Compose, RefusalsPrintOneLineAndWriteNothing) {
    Shift(0, 0, 16, 16);
    const tag_CtrlPara good = p;
    const struct { std::function<void(tag_CtrlPara&)> mutate; const char* message; int ow; } cases[] = {
        {[](tag_CtrlPara& c) { c.ZoomFactorY = 0; }, "ZoomFactorX and ZoomFactorY must be positive", OW},
        {[](tag_CtrlPara& c) { c.IntervalX = 16; }, "IntervalX and IntervalY must be 0..15", OW},
        {[](tag_CtrlPara& c) { c.IntervalY = -1; }, "IntervalX and IntervalY must be 0..15", OW},
        {[](tag_CtrlPara& c) { c.ROIStartX = -2; }, "negative ROIStartX", OW},
        {[](tag_CtrlPara& c) { c.TB2 = nullptr; }, "missing buffer for DataProcessing", OW},
        {[](tag_CtrlPara&) {}, "output wider than 4096 pixels", 4098},
    };
    for (const auto& c : cases) {
        p = good;
        c.mutate(p);
        testing::internal::CaptureStdout();
        EXPECT_EQ(Run(c.ow), 1);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("error! ") + c.message + "\n");
        for (unsigned char b : out) ASSERT_EQ(b, kSentinel) << c.message;
    }
}

}  // namespace
