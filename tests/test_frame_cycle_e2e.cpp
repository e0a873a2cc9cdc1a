// The photometric calibration inside the frame cycle, on a synthetic rig:
// one textured scene seen by four cameras with their own gains and gamma.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "common/scratch.h"
#include "common/synthetic_rig.h"
#include "sv_interface.h"

using namespace svtest;

namespace {

constexpr int W = 160, H = 192;
// Where each camera sees scene point (0, 0), in 1/16 pixel.
const int kOff[4][2] = {{256, 192}, {296, 164}, {236, 216}, {276, 176}};
const double kGain[4][3] = {{1.05, 1.0, 0.96}, {0.86, 0.85, 0.82},
                            {1.2, 1.16, 1.12}, {0.92, 0.9, 0.88}};
const double kGamma[4] = {1.0, 1.0, 1.05, 0.95};

// Overlap m: its two cameras and the statistics pixels clear of mixed cells.
struct Overlap { int camA, camB, i0, i1, j0, j1; };
const Overlap kOverlaps[4] = {{2, 0, 0, 80, 0, 56}, {0, 3, 0, 80, 72, 128},
                              {3, 1, 88, 168, 72, 128}, {1, 2, 88, 168, 0, 56}};

std::string Path(const char* name) { return ScratchPath(std::string("e2e_") + name + ".txt"); }

void Identity(int* g, int* tc) { for (int i = 0; i < 36; ++i) tc[i] = 64 * (i % 3 + 1), g[i / 3] = 1024; }

class FrameCycle : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        frames.resize(8 * W * H);
        for (int c = 0; c < 4; ++c)
            Nv12(W, H, [c](int x, int y) {
                const double X = x - kOff[c][0] / 16.0, Y = y - kOff[c][1] / 16.0;
                const Rgb s = {(int)(115 + 60 * std::sin(X / 19 + Y / 29)),
                               (int)(115 + 55 * std::cos(X / 23 - Y / 17)),
                               (int)(110 + 45 * std::sin((X + 2 * Y) / 27) + 0.1 * X)};
                Rgb v;
                for (int ch = 0; ch < 3; ++ch)
                    v[ch] = std::min(255, (int)(255 * std::pow(kGain[c][ch] * s[ch] / 255, kGamma[c])));
                return v;
            }, &frames[c * 2 * W * H]);
        WriteTable(Path("tables"), QuadMesh(kOff));
    }
    void Start(int statFreq = 1, int spd = 1)
    {
        WriteSettings(Path("setting"), statFreq, spd);
        Identity(gain_cur, tcurve_cur);
        const std::string tables = Path("tables");
        ASSERT_EQ(sv_init(tables.c_str(), tables.c_str(), Path("setting").c_str(), W, H, kSW, kSH), 0);
    }
    void Frame() { sv_convert_image(frames.data(), 0, out.data(), 0); }
    void TearDown() override { sv_deinit(); }

    // Mean absolute RGB difference of the two cameras of overlap o, both
    // corrected with the given gains and curves.
    static double Mismatch(const Overlap& o, int* g, int* tc)
    {
        double sum = 0;
        for (int i = o.i0; i < o.i1; ++i)
            for (int j = o.j0; j < o.j1; ++j) {
                int rgb[2][3];
                for (int s = 0; s < 2; ++s) {
                    const int c = s ? o.camB : o.camA, sx = 16 * j + kOff[c][0], sy = 16 * i + kOff[c][1];
                    const int x = sx >> 4, y = sy >> 4;
                    const unsigned char* l = YUVarray[c] + y * W + x;
                    int luma[2][2] = {{l[0], l[1]}, {l[W], l[W + 1]}}, *v = rgb[s];
                    const unsigned char* uv = YUVarray[c] + W * H + (y / 2) * W + x / 2 * 2;
                    YUV2RGB(BilinearInterpolation(luma, sx & 15, sy & 15, 4, 0), uv[0], uv[1], v[0], v[1],
                            v[2], 8, 8);
                    ToneMapping(g + 3 * c, tc + 9 * c, 64, v[0], v[1], v[2], 8);
                }
                for (int ch = 0; ch < 3; ++ch) sum += std::abs(rgb[0][ch] - rgb[1][ch]);
            }
        return sum / (3.0 * (o.i1 - o.i0) * (o.j1 - o.j0));
    }

    static std::vector<unsigned char> frames;
    std::vector<unsigned char> out = std::vector<unsigned char>(kSW * kSH * 3 / 2);
};
std::vector<unsigned char> FrameCycle::frames;

TEST_F(FrameCycle, CalibrationAtLeastHalvesEveryOverlapMismatch)
{
    Start();
    Frame();
    int identityGain[12], identityCurve[36];
    Identity(identityGain, identityCurve);
    for (const Overlap& o : kOverlaps)
        EXPECT_LE(Mismatch(o, gain_cur, tcurve_cur), 0.5 * Mismatch(o, identityGain, identityCurve))
            << "cameras " << o.camA << ", " << o.camB;
}

TEST_F(FrameCycle, CalibratesOnEveryStatFreqthCall)
{
    Start(3);
    for (int call = 0; call < 8; ++call) {
        std::fill(std::begin(gain), std::end(gain), -7);
        Frame();
        EXPECT_EQ(gain[0] != -7, call % 3 == 0) << "call " << call;
    }
}

TEST_F(FrameCycle, SpdBlendsTowardTheFit)
{
    Start(1, 4);
    for (int frame = 0; frame < 40; ++frame) {
        std::vector<int> g(gain_cur, gain_cur + 12), tc(tcurve_cur, tcurve_cur + 36);
        Frame();
        for (int i = 0; i < 12; ++i) ASSERT_EQ(gain_cur[i], (g[i] * 3 + gain[i] + 2) / 4);
        for (int i = 0; i < 36; ++i) ASSERT_EQ(tcurve_cur[i], (tc[i] * 3 + tcurve[i] + 2) / 4);
    }
    // Integer rounding parks each value within [fit - 1, fit + 2].
    for (int i = 0; i < 12; ++i) EXPECT_NEAR(gain_cur[i], gain[i] + 0.5, 1.5);
    EXPECT_NE(std::vector<int>(gain, gain + 12), std::vector<int>(12, 1024));
}

// Helper threads cut the conversions and the composition into parts: every
// byte the cycle leaves behind is the same for any number of them.
TEST_F(FrameCycle, ThreadsLeaveTheSameBytes)
{
    std::vector<unsigned char> first;
    for (int threads = 1; threads <= 4; ++threads) {
        ASSERT_EQ(sv_set_threads(threads), threads);
        Start();
        std::fill(out.begin(), out.end(), 7);
        for (int frame = 0; frame < 3; ++frame) Frame();
        std::vector<unsigned char> state = out;
        for (unsigned char* image : YUVarray) state.insert(state.end(), image, image + W * H * 3 / 2);
        for (const int* values : {gain, gain_cur, tcurve, tcurve_cur}) {
            const unsigned char* bytes = reinterpret_cast<const unsigned char*>(values);
            state.insert(state.end(), bytes, bytes + (values == gain || values == gain_cur ? 12 : 36) * sizeof(int));
        }
        if (threads == 1)
            first = state;
        else
            EXPECT_TRUE(state == first) << threads << " threads";
        sv_deinit();
    }
    sv_set_threads(1);
    Start();
}

}  // namespace
