// Gain and tone-curve fit on hand-made region planes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <tuple>
#include <vector>

#include "pipe/calib_GT.h"

namespace {

constexpr int kRows = 21, kCols = 16, kN = kRows * kCols;

// A strong gamma that no gain can absorb.
int Gamma2(int, int v) { return (int)(255 * std::pow(v / 255.0, 2.0)); }

class GainFit : public ::testing::Test {
protected:
    GainFit() : store(8 * kN * 3)
    {
        for (int p = 0; p < 8; ++p) planes[p] = &store[p * kN * 3];
        // A ramp over 10..250 seen identically by every camera.
        Fill([](int ch, int i) { return 10 + (i * 7 + ch * 50) % 241; });
        std::fill_n(gain, 12, -1);
        std::fill_n(tcurve, 36, -1);
    }
    // v(channel, position) on every plane.
    void Fill(const std::function<int(int, int)>& v)
    {
        for (int i = 0; i < 8 * kN * 3; ++i) store[i] = v(i % 3, i / 3 % kN);
    }
    // Camera whose two planes (B of region m, A of region m + 1) see f(v).
    void Distort(int ring, const std::function<int(int, int)>& f)
    {
        for (int p : {2 * ring + 1, (2 * ring + 2) % 8})
            for (int i = 0; i < kN * 3; ++i) planes[p][i] = f(i % 3, planes[p][i]);
    }
    void Fit(int nData = 4, int bdr = 4, int bdh = 16)
    {
        optimize4GT(planes, kRows, kCols, kCols, gain, tcurve, nData, 0.1f, bdr, bdh, 0.05f);
    }
    int Tc(int cam, int ch, int k) { return tcurve[cam * 9 + ch * 3 + k]; }
    bool Untouched() { return std::count(gain, gain + 12, -1) + std::count(tcurve, tcurve + 36, -1) == 48; }

    std::vector<unsigned char> store;
    unsigned char* planes[8];
    int gain[12], tcurve[36];
};

TEST_F(GainFit, IdenticalPlanesGiveIdentity)
{
    Fit();
    for (int v : gain) EXPECT_EQ(v, 1024);
    for (int i = 0; i < 36; ++i) EXPECT_EQ(tcurve[i], 64 * (i % 3 + 1));
}

TEST_F(GainFit, ChannelsStayWithinMgnOfTheCameraMeanButAreNotCapped)
{
    // Camera 3 (ring 1) sees red at 1/1.2: fitted gains 1.2, 1.0, 1.0, mean
    // 1.0667, limited to 1.12 * 1024 = 1146.9 and 1.0133 * 1024 = 1037.7.
    Fill([](int, int) { return 120; });
    Distort(1, [](int ch, int v) { return ch == 0 ? v * 10 / 12 : v; });
    Fit();
    EXPECT_EQ(std::vector<int>(gain, gain + 9), std::vector<int>(9, 1024));
    EXPECT_EQ(std::vector<int>(gain + 9, gain + 12), (std::vector<int>{1146, 1037, 1037}));
    Fill([](int, int) { return 120; });
    Distort(1, [](int, int v) { return v / 2; });
    Fit();
    // Gain 2.0 is written as is, but the tone fit saw camera 3 through a gain
    // of 1.5: it lifts its curve.
    for (int ch = 0; ch < 3; ++ch) {
        EXPECT_NEAR(gain[9 + ch], 2048, 1);
        EXPECT_EQ(Tc(3, ch, 0), 64 + 16);
        EXPECT_EQ(Tc(3, ch, 1), 128 + 16);
    }
}

TEST_F(GainFit, TonePointsMoveAtMostTheirLimit)
{
    Distort(1, Gamma2);
    // tcRatio, tcH, then the widest move at the points 64, 128, 192.
    const int cases[3][5] = {{4, 16, 16, 16, 16}, {1, 16, 4, 8, 12}, {4, 10, 10, 10, 10}};
    for (const auto& t : cases) {
        Fit(4, t[0], t[1]);
        for (int k = 0; k < 3; ++k) {
            int widest = 0;
            for (int i = 0; i < 12; ++i) widest = std::max(widest, std::abs(tcurve[3 * i + k] - 64 * (k + 1)));
            EXPECT_EQ(widest, t[2 + k]) << "bdr " << t[0] << " bdh " << t[1] << " point " << k;
        }
    }
}

TEST_F(GainFit, TooFewSamplesResetThePointForAllCameras)
{
    Distort(1, Gamma2);
    // Region 0 green: only `usable` positions fall around 128.
    auto region0 = [&](int usable) {
        for (int p : {0, 1})
            for (int i = 0; i < kN; ++i) planes[p][i * 3 + 1] = i < usable ? 128 : i % 2 ? 30 : 230;
    };
    auto at128 = [&] { int n = 0; for (int cam = 0; cam < 4; ++cam) n += Tc(cam, 1, 1) == 128; return n; };
    region0(4);
    Fit();
    EXPECT_LT(at128(), 4);
    region0(3);
    Fit();
    EXPECT_EQ(at128(), 4);
    EXPECT_NE(Tc(3, 1, 2), 192);  // the other points are still fitted
}

TEST_F(GainFit, EmptyRegionOrSingularSystemKeepsThePreviousFit)
{
    std::fill_n(planes[5], kN * 3, 0);  // region 2 has no B samples
    Fit();
    EXPECT_TRUE(Untouched());
    // Every value 64: the point at 128 sees only its left knot, all slopes 0.
    Fill([](int, int) { return 64; });
    Fit();
    EXPECT_TRUE(Untouched());
    Fill([](int, int) { return 96; });
    Fit(0);  // nData 0 no longer protects empty points from dividing by zero
    EXPECT_TRUE(Untouched());
    // Before any fit the arrays hold zeros, which would fade the picture to
    // black: a failed first fit leaves the identity instead.
    std::fill_n(gain, 12, 0);
    std::fill_n(tcurve, 36, 0);
    std::fill_n(planes[5], kN * 3, 0);
    Fit();
    EXPECT_EQ(std::count(gain, gain + 12, 1024), 12);
    for (int i = 0; i < 36; ++i) EXPECT_EQ(tcurve[i], 64 * (i % 3 + 1)) << i;
}

TEST(Tmapping, ExpressesTheCurveThroughTheMiddleKnot)
{
    int knots[3] = {0, 64, 128}, ok = 0;
    float vals[3] = {0, 64, 128}, a = -1, b = -1;
    Tmapping(knots, vals, 32, &a, &b, ok);
    EXPECT_EQ(std::make_tuple(a, b, ok), std::make_tuple(0.0f, 0.5f, 1));
    Tmapping(knots, vals, 80, &a, &b, ok);  // 16 / 64 * 128, (80 - 128) / -64
    EXPECT_EQ(std::make_tuple(a, b, ok), std::make_tuple(32.0f, 0.75f, 1));
    for (int x : {0, 128, -5}) {
        Tmapping(knots, vals, x, &a, &b, ok);
        EXPECT_EQ(std::make_tuple(a, b, ok), std::make_tuple(32.0f, 0.75f, 0)) << x;  // left as they were
    }
}

}  // namespace
