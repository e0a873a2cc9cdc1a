// Output composition through small hand-built control tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "pipe/data_processing.h"

namespace {

TEST(BilinearInterpolation, ShiftsWithoutRounding) {
    int c[2][2] = {{0, 16}, {32, 48}};
    EXPECT_EQ(BilinearInterpolation(c, 8, 8, 4, 0), 24);
    int falling[2][2] = {{10, 0}, {10, 0}};
    EXPECT_EQ(BilinearInterpolation(falling, 1, 0, 4, 0), 9);  // -10 >> 4 is -1
    int wide[2][2] = {{0, 32}, {0, 32}};
    EXPECT_EQ(BilinearInterpolation(wide, 16, 0, 4, 1), 16);   // extra bit: 1/32 units
}

struct Node {
    int x, y, w, sel;  // SrcX, SrcY in 1/16 pixel
};
const Node kUnseen = {-1, -1, 0, 0};
const unsigned char kSentinel = 0xAA;
const int kBig = 1 << 20;  // a seam index never reached

// Cameras 160 x 48 with neutral chroma, output 128 x 16, nodes every 8 pixels.
class Compose : public ::testing::Test {
protected:
    static constexpr int W = 160, H = 48, OW = 128, OH = 16;
    std::vector<unsigned char> cam[4], out;
    std::vector<int> tb[2];
    tag_CtrlPara p{};
    int gain[12], tcurve[36];

    void SetUp() override {
        for (auto& c : cam) c.assign(W * H * 3 / 2, 128);
        // Storage as the loader sizes it; tables without seam rows leave spare rows.
        for (auto& t : tb) t.assign((OW / 8 + 3) * (OH / 8 + 3) * 4, -1);
        p.TB1 = tb[0].data();
        p.TB2 = tb[1].data();
        p.TableWidth = OW / 8 + 1;
        p.TableHeight = OH / 8 + 1;
        p.IntervalX = p.IntervalY = 3;
        p.ROIEndX = p.ROIEndY = kBig;
        p.ZoomFactorX = p.ZoomFactorY = 64;
        p.L1 = p.L2 = p.H1 = p.H2 = kBig;
        for (int i = 0; i < 12; ++i) gain[i] = 1024;
        for (int i = 0; i < 36; ++i) tcurve[i] = 64 * (i % 3 + 1);
    }
    // Luma probes: 16 levels per pixel along one axis, so Y shows the
    // source position to 1/16 pixel within each 16-pixel period.
    void Luma(int k, std::function<int(int, int)> f) {
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) cam[k][y * W + x] = static_cast<unsigned char>(f(x, y));
    }
    void ProbeX(int k) { Luma(k, [](int x, int) { return 16 * (x & 15); }); }
    void ProbeY(int k) { Luma(k, [](int, int y) { return 16 * (y & 15); }); }
    // f gets the table-space node position and the side of each seam pair
    // (0 before L1/H1, 1 between, 2 after L2/H2).
    void Fill(int t, std::function<Node(int x, int y, int sx, int sy)> f) {
        for (int r = 0; r < p.TableHeight; ++r)
            for (int c = 0; c < p.TableWidth; ++c) {
                const int sx = (c > p.L1) + (c > p.L2), sy = (r > p.H1) + (r > p.H2);
                const Node n = f(8 * (c - sx), 8 * (r - sy), sx, sy);
                int* d = &tb[t][(r * p.TableWidth + c) * 4];
                d[0] = n.x, d[1] = n.y, d[2] = n.w, d[3] = n.sel;
            }
    }
    // Source = table position + (dx, dy) in 1/16 pixel.
    void Shift(int t, int sel, int dx, int dy, int w = 256) {
        Fill(t, [=](int x, int y, int, int) { return Node{16 * x + dx, 16 * y + dy, w, sel}; });
    }
    int Run() {
        out.assign(OW * OH * 3 / 2, kSentinel);
        unsigned char* imgs[4] = {cam[0].data(), cam[1].data(), cam[2].data(), cam[3].data()};
        return DataProcessing(imgs, W, H, out.data(), OW, OH, &p, gain, tcurve, 64, 8);
    }
    int Y(int x, int y) const { return out[y * OW + x]; }
    int U(int x, int y) const { return out[(OH + y / 2) * OW + x / 2 * 2]; }
    int V(int x, int y) const { return out[(OH + y / 2) * OW + x / 2 * 2 + 1]; }
};

TEST_F(Compose, IdentityZoomAdvancesOnePixelPerOutputPixel) {
    ProbeX(0);
    Shift(0, 0, 16, 16);
    EXPECT_EQ(Run(), 1);
    for (int y = 0; y < OH; ++y)
        for (int x = 0; x < OW; ++x) ASSERT_EQ(Y(x, y), 16 * ((x + 1) & 15)) << x << "," << y;
    EXPECT_EQ(U(0, 0), 128);
}

TEST_F(Compose, ZoomStepsSetTheAdvance) {
    ProbeX(0);
    Shift(0, 0, 16, 16);
    // Probe level at column c: 16 * ((pixel + 1) & 15) + sixteenths.
    const struct { int zoom, col, level; } cases[] = {
        {64, 5, 96},   // step 2048: 5 pixels
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
    ProbeX(0);
    ProbeY(1);
    Shift(0, 0, 0, 0);
    Run();
    EXPECT_EQ(Y(1, 1), kSentinel);
    EXPECT_EQ(Y(2, 0), kSentinel);
    EXPECT_EQ(Y(2, 1), 16 * 4);  // table x 4, not 3
    Shift(0, 1, 0, 0);
    Run();
    EXPECT_EQ(Y(2, 1), 16 * 3);  // table y 3
}

TEST_F(Compose, SeamsSplitTheMesh) {
    // Doubled columns at table index 2 (x = 16) and 5 (x = 32: the second
    // test sees the index already shifted by the first), a doubled row at 1.
    p.L1 = 2, p.L2 = 5, p.H1 = 1;
    p.TableWidth += 2, p.TableHeight += 1;
    ProbeX(0);
    ProbeY(1);
    Fill(0, [](int x, int y, int sx, int) { return Node{16 * (x + 1 + 4 * sx), 16 * (y + 1), 256, 0}; });
    Run();
    for (int x = 0; x < 48; ++x) ASSERT_EQ(Y(x, 0), 16 * ((x + 1 + 4 * (x / 16)) & 15)) << x;
    Fill(0, [](int x, int y, int, int sy) { return Node{16 * (x + 1), 16 * (y + 1 + 3 * sy), 256, 1}; });
    Run();
    for (int y = 0; y < OH; ++y) ASSERT_EQ(Y(0, y), 16 * ((y + 1 + 3 * (y / 8)) & 15)) << y;
}

TEST_F(Compose, OnlyTable2ValidTakesFullWeight) {
    Luma(2, [](int, int) { return 16; });
    std::fill(cam[2].begin() + W * H, cam[2].end(), 240);
    Shift(1, 0, 16, 16, 10);
    Run();
    // (16, 240, 240) -> RGB (173, 0, 215) -> (76, 206, 197).
    EXPECT_EQ(Y(5, 3), 76);
    EXPECT_EQ(U(4, 2), 206);
    EXPECT_EQ(V(4, 2), 197);
}

TEST_F(Compose, BlendTruncatesAndWrapsAbove256) {
    Luma(0, [](int, int) { return 200; });
    Luma(3, [](int, int) { return 100; });
    Shift(0, 0, 16, 16, 100);
    Shift(1, 1, 16, 16, 156);
    Run();
    EXPECT_EQ(Y(7, 5), 139);  // (200 * 100 + 100 * 156) >> 8 = 139.06
    Shift(0, 0, 16, 16, 256);
    Shift(1, 1, 16, 16, 256);
    Run();
    EXPECT_EQ(Y(7, 5), 300 & 255);
    EXPECT_EQ(U(6, 4), 256 & 255);
}

TEST_F(Compose, MixedCamSelRendersCamera0AtWeight0) {
    Luma(0, [](int, int) { return 40; });
    Luma(1, [](int, int) { return 90; });
    Luma(3, [](int, int) { return 200; });
    Fill(0, [](int x, int y, int, int) { return Node{16 * (x + 1), 16 * (y + 1), 256, x >= 16}; });
    Run();
    EXPECT_EQ(Y(4, 3), 40);
    EXPECT_EQ(Y(12, 3), 40);  // cell with corners 0 and 1: camera 0
    EXPECT_EQ(Y(20, 3), 90);
    Shift(1, 1, 16, 16, 100);
    Run();
    EXPECT_EQ(Y(12, 3), 200 * 100 >> 8);
    EXPECT_EQ(Y(20, 3), (90 * 256 + 200 * 100) >> 8 & 255);
}

TEST_F(Compose, BorderOfCameraAndNegativeCornersAreNeverSampled) {
    ProbeX(0);
    Shift(0, 0, 0, 0);
    tb[0][(1 * p.TableWidth + 10) * 4] = -1;  // node x 80, y 8
    Run();
    EXPECT_EQ(Y(0, 5), kSentinel);   // camera column 0
    EXPECT_EQ(Y(5, 0), kSentinel);   // camera row 0
    EXPECT_EQ(Y(1, 1), 16);
    EXPECT_EQ(Y(75, 5), kSentinel);  // four cells share the negative node
    EXPECT_EQ(Y(87, 12), kSentinel);
    EXPECT_EQ(Y(71, 5), 16 * 7);
    EXPECT_EQ(Y(88, 5), 16 * 8);
    Shift(0, 0, 16 * (W - OW), 16 * (H - OH));
    Run();
    EXPECT_EQ(Y(OW - 1, 3), kSentinel);  // camera column W - 1
    EXPECT_EQ(Y(5, OH - 1), kSentinel);  // camera row H - 1
    EXPECT_EQ(Y(OW - 2, OH - 2), 16 * ((W - 2) & 15));
}

TEST_F(Compose, LastInteriorColumnAndRowReuseTheirChroma) {
    Luma(2, [](int, int) { return 16; });
    unsigned char* uv = &cam[2][W * H];
    uv[(H / 2 - 1) * W + W - 2] = uv[(H / 2 - 1) * W + W - 1] = 240;  // last chroma sample
    // Output (0, 0) samples camera (W - 2 + 1/2, H - 2 + 1/2).
    Fill(1, [](int x, int y, int, int) { return Node{16 * (x + W - 2) + 8, 16 * (y + H - 2) + 8, 256, 0}; });
    Run();
    EXPECT_EQ(Y(0, 0), 76);  // chroma (240, 240) unmixed, as in OnlyTable2Valid
    EXPECT_EQ(U(0, 0), 206);
}

TEST_F(Compose, ChromaComesOnlyFromEvenEvenPixels) {
    Luma(2, [](int, int) { return 16; });
    std::fill(cam[2].begin() + W * H, cam[2].end(), 240);
    unsigned char* uv = &cam[2][W * H];
    uv[1 * W + 2] = uv[1 * W + 3] = 128;  // chroma sample (1, 1) neutral
    Shift(1, 0, 32, 32);  // even output pixels sit on chroma samples exactly
    Run();
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) EXPECT_EQ(Y(x, y), x < 2 && y < 2 ? 16 : 76) << x << "," << y;
}

TEST_F(Compose, OddSourcePixelsSampleChromaHalfway) {
    Luma(2, [](int, int) { return 16; });
    unsigned char* uv = &cam[2][W * H];
    // Chroma 128 before sample 2 and 240 from it on, along one axis; output
    // (2, 2) sits on an odd source pixel along that axis: 184 halfway, and
    // (16, 184, 184) -> RGB (95, 0, 115) -> (41, 169, 166).
    for (int axis = 0; axis < 2; ++axis) {
        for (int i = 0; i < H / 2; ++i)
            for (int j = 0; j < W; ++j) uv[i * W + j] = (axis ? i : j / 2) >= 2 ? 240 : 128;
        Shift(1, 0, axis ? 32 : 16, axis ? 16 : 32);
        Run();
        EXPECT_EQ(Y(2, 2), 41) << axis;
        EXPECT_EQ(U(2, 2), 169) << axis;
        EXPECT_EQ(V(2, 2), 166) << axis;
    }
}

TEST_F(Compose, RowsAndColumnsBeyondTheRoiAreUntouched) {
    ProbeY(0);
    Shift(0, 0, 16, 16);
    p.ROIEndY = 5, p.ROIEndX = 9;
    Run();
    EXPECT_EQ(Y(9, 5), 16 * 6);
    EXPECT_EQ(Y(10, 5), kSentinel);
    EXPECT_EQ(Y(0, 6), kSentinel);
    EXPECT_EQ(Y(0, OH - 1), kSentinel);
}

TEST_F(Compose, NegativeRoiStartYClampsTheFirstRowOnly) {
    ProbeY(0);
    Shift(0, 0, 16, 16);
    p.ROIStartY = -3;
    Run();
    EXPECT_EQ(Y(0, 0), 16);   // table y 0
    EXPECT_EQ(Y(0, 1), kSentinel);  // table y -2 and -1 lie above the table
    EXPECT_EQ(Y(0, 2), kSentinel);
    EXPECT_EQ(Y(0, 3), 16);
    EXPECT_EQ(Y(0, 4), 32);
}

// Quadrants: TB1 gives camera 0 above and camera 1 below a doubled row,
// TB2 cameras 2 and 3 in the right half. Camera 3 is grey with its green
// gain doubled.
TEST_F(Compose, EndToEndQuadrants) {
    for (int k = 0; k < 3; ++k) Luma(k, [k](int x, int y) { return (2 * x + y + 20 * k) & 255; });
    Luma(3, [](int, int) { return 100; });
    gain[3 * 3 + 1] = 2048;
    p.H1 = 1;
    p.TableHeight += 1;
    auto quadrant = [](bool right) {
        return [right](int x, int y, int, int sy) {
            if (right ? x < OW / 2 : x > OW / 2) return kUnseen;
            return Node{16 * (x + 1) + 8 * sy, 16 * (y + 1), 256, sy};
        };
    };
    Fill(0, quadrant(false));
    Fill(1, quadrant(true));
    Run();
    for (int y = 0; y < OH; ++y)
        for (int x = 0; x < OW; ++x) {
            const int k = (x >= OW / 2 ? 2 : 0) + (y >= OH / 2);
            // Camera 1 is sampled half a pixel to the right: 2 * (x + 1.5).
            const int expect = k == 3 ? 159 : (2 * (x + 1) + y + 1 + 20 * k + (k == 1)) & 255;
            ASSERT_EQ(Y(x, y), expect) << x << "," << y;
            if (x % 2 == 0 && y % 2 == 0) {
                ASSERT_EQ(U(x, y), k == 3 ? 95 : 128);
                ASSERT_EQ(V(x, y), k == 3 ? 86 : 128);
            }
        }
}

// A refused call prints one line and leaves the output untouched.
struct Refusal {
    const char* what;
    std::function<void(tag_CtrlPara&)> mutate;
    const char* message;
};

class ComposeRefuses : public Compose, public ::testing::WithParamInterface<Refusal> {};

TEST_P(ComposeRefuses, BadTables) {
    Shift(0, 0, 16, 16);
    GetParam().mutate(p);
    testing::internal::CaptureStdout();
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string(GetParam().message) + "\n");
    for (unsigned char b : out) ASSERT_EQ(b, kSentinel);
}

INSTANTIATE_TEST_SUITE_P(
    Guards, ComposeRefuses,
    ::testing::Values(
        Refusal{"ZeroZoom", [](tag_CtrlPara& c) { c.ZoomFactorY = 0; },
                "error! ZoomFactorX and ZoomFactorY must be positive"},
        Refusal{"Interval9", [](tag_CtrlPara& c) { c.IntervalX = 9; },
                "error! IntervalX and IntervalY must be 0..8"},
        Refusal{"NegativeInterval", [](tag_CtrlPara& c) { c.IntervalY = -1; },
                "error! IntervalX and IntervalY must be 0..8"},
        Refusal{"NegativeRoiX", [](tag_CtrlPara& c) { c.ROIStartX = -2; },
                "error! negative ROIStartX"},
        Refusal{"NoTable", [](tag_CtrlPara& c) { c.TB2 = nullptr; },
                "error! missing buffer for DataProcessing"}),
    [](const auto& info) { return std::string(info.param.what); });

TEST_F(Compose, RefusesOutputWiderThanTheCache) {
    Shift(0, 0, 16, 16);
    std::vector<unsigned char> wide(1282 * 2 * 3 / 2, kSentinel);
    unsigned char* imgs[4] = {cam[0].data(), cam[1].data(), cam[2].data(), cam[3].data()};
    testing::internal::CaptureStdout();
    DataProcessing(imgs, W, H, wide.data(), 1282, 2, &p, gain, tcurve, 64, 8);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "error! output wider than 1280 pixels\n");
    for (unsigned char b : wide) ASSERT_EQ(b, kSentinel);
}

}  // namespace
