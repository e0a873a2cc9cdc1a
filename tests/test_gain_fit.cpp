// Gain and tone-curve fit on hand-made region planes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "pipe/calib_GT.h"

namespace {

constexpr int kRows = 21, kCols = 16, kN = kRows * kCols;
const int kCam[4] = {0, 3, 1, 2};  // ring position -> camera

class GainFit : public ::testing::Test {
protected:
    GainFit() : store(8 * kN * 3)
    {
        for (int p = 0; p < 8; ++p) planes[p] = &store[p * kN * 3];
        // A ramp over 10..250 seen identically by every camera.
        Fill([](int, int ch, int i) { return 10 + (i * 7 + ch * 50) % 241; });
        std::fill(std::begin(gain), std::end(gain), -1);
        std::fill(std::begin(tcurve), std::end(tcurve), -1);
    }
    // v(plane, channel, position) for every plane.
    void Fill(const std::function<int(int, int, int)>& v)
    {
        for (int p = 0; p < 8; ++p)
            for (int i = 0; i < kN; ++i)
                for (int ch = 0; ch < 3; ++ch) planes[p][i * 3 + ch] = v(p, ch, i);
    }
    // Camera whose two planes (B of region m, A of region m + 1) see f(v).
    void Distort(int ring, const std::function<int(int, int)>& f)
    {
        for (int p : {2 * ring + 1, (2 * ring + 2) % 8})
            for (int i = 0; i < kN; ++i)
                for (int ch = 0; ch < 3; ++ch)
                    planes[p][i * 3 + ch] = f(ch, planes[p][i * 3 + ch]);
    }
    void Fit(int nData = 4, int bdr = 4, int bdh = 16, float mgn = 0.05f)
    {
        optimize4GT(planes, kRows, kCols, kCols, gain, tcurve, nData, 0.1f, bdr,
                    bdh, mgn);
    }
    int Tc(int cam, int ch, int k) { return tcurve[cam * 9 + ch * 3 + k]; }
    bool Untouched()
    {
        auto unset = [](int v) { return v == -1; };
        return std::all_of(gain, gain + 12, unset) && std::all_of(tcurve, tcurve + 36, unset);
    }

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

TEST_F(GainFit, ChannelsStayWithinMgnOfTheCameraMean)
{
    // Camera 3 (ring 1) sees red at 1/1.2: fitted gains 1.2, 1.0, 1.0, mean
    // 1.0667, limited to 1.12 and 1.0133.
    Fill([](int, int, int) { return 120; });
    Distort(1, [](int ch, int v) { return ch == 0 ? v * 10 / 12 : v; });
    Fit();
    EXPECT_EQ(gain[9], 1146);   // 1.12 * 1024 = 1146.9
    EXPECT_EQ(gain[10], 1037);  // 1.0133 * 1024 = 1037.7
    EXPECT_EQ(gain[11], 1037);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(gain[i], 1024);
}

TEST_F(GainFit, FinalGainIsNotCapped)
{
    Fill([](int, int, int) { return 120; });
    Distort(1, [](int, int v) { return v / 2; });
    Fit();
    for (int ch = 0; ch < 3; ++ch) EXPECT_NEAR(gain[9 + ch], 2048, 1);
    // The tone fit saw camera 3 through a gain of 1.5: it lifts its curve.
    for (int ch = 0; ch < 3; ++ch) {
        EXPECT_EQ(Tc(3, ch, 0), 64 + 16);
        EXPECT_EQ(Tc(3, ch, 1), 128 + 16);
    }
}

// (tcRatio, tcH): limits at the points 64, 128, 192.
class ToneLimits : public GainFit,
                   public ::testing::WithParamInterface<std::tuple<int, int, int, int, int>> {};

TEST_P(ToneLimits, PointsMoveAtMostTheirLimit)
{
    const auto [bdr, bdh, d1, d2, d3] = GetParam();
    // Camera 3 sees a strong gamma that no gain can absorb.
    Distort(1, [](int, int v) { return (int)(255 * std::pow(v / 255.0, 2.0)); });
    Fit(4, bdr, bdh);
    const int d[3] = {d1, d2, d3};
    for (int k = 0; k < 3; ++k) {
        int widest = 0;
        for (int cam = 0; cam < 4; ++cam)
            for (int ch = 0; ch < 3; ++ch) {
                const int move = std::abs(Tc(cam, ch, k) - 64 * (k + 1));
                EXPECT_LE(move, d[k]);
                widest = std::max(widest, move);
            }
        EXPECT_EQ(widest, d[k]) << "point " << k;
    }
}
INSTANTIATE_TEST_SUITE_P(Settings, ToneLimits,
                         ::testing::Values(std::make_tuple(4, 16, 16, 16, 16),
                                           std::make_tuple(1, 16, 4, 8, 12),
                                           std::make_tuple(4, 10, 10, 10, 10)));

TEST_F(GainFit, TooFewSamplesResetThePointForAllCameras)
{
    Distort(1, [](int, int v) { return (int)(255 * std::pow(v / 255.0, 2.0)); });
    // Region 0 green: only `usable` positions fall around 128.
    auto region0 = [&](int usable) {
        for (int p : {0, 1})
            for (int i = 0; i < kN; ++i)
                planes[p][i * 3 + 1] = i < usable ? 128 : i % 2 ? 30 : 230;
    };
    region0(4);
    Fit();
    bool moved = false;
    for (int cam = 0; cam < 4; ++cam) moved = moved || Tc(cam, 1, 1) != 128;
    EXPECT_TRUE(moved);
    region0(3);
    Fit();
    for (int cam = 0; cam < 4; ++cam) EXPECT_EQ(Tc(cam, 1, 1), 128) << cam;
    EXPECT_NE(Tc(kCam[1], 1, 2), 192);  // the other points are still fitted
}

TEST_F(GainFit, EmptyRegionKeepsThePreviousFit)
{
    std::fill_n(planes[5], kN * 3, 0);  // region 2 has no B samples
    Fit();
    EXPECT_TRUE(Untouched());
}

TEST_F(GainFit, SingularToneSystemKeepsThePreviousFit)
{
    // Every value 64: the point at 128 sees only its left knot, all slopes 0.
    Fill([](int, int, int) { return 64; });
    Fit();
    EXPECT_TRUE(Untouched());
    Fill([](int, int, int) { return 96; });
    Fit(0);  // nData 0 no longer protects empty points from dividing by zero
    EXPECT_TRUE(Untouched());
}

TEST(Tmapping, ExpressesTheCurveThroughTheMiddleKnot)
{
    int knots[3] = {0, 64, 128}, ok = 0;
    float vals[3] = {0, 64, 128}, a = -1, b = -1;
    Tmapping(knots, vals, 32, &a, &b, ok);
    EXPECT_EQ(ok, 1);
    EXPECT_EQ(std::make_pair(a, b), std::make_pair(0.0f, 0.5f));
    Tmapping(knots, vals, 80, &a, &b, ok);  // 16 / 64 * 128, (80 - 128) / -64
    EXPECT_EQ(std::make_pair(a, b), std::make_pair(32.0f, 0.75f));
    for (int x : {0, 128, -5}) {
        Tmapping(knots, vals, x, &a, &b, ok);
        EXPECT_EQ(ok, 0);
        EXPECT_EQ(a, 32.0f);  // left as it was
    }
}

}  // namespace
