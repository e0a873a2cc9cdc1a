// The enhanced fit (FitMode=1): its setting key, what it promises about the
// picture (level kept, cameras matched, no new clipping) and that a still
// scene settles.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "common/scratch.h"
#include "common/synthetic_rig.h"
#include "pipe/calib_enhanced.h"
#include "sv_interface.h"

using namespace svtest;

namespace {

std::string Path(const char* name) { return ScratchPath(std::string("enh_") + name + ".txt"); }

// The thirteen settings plus extra lines.
std::string Settings(const std::string& extra, int spd = 1)
{
    const std::string p = Path("setting");
    WriteSettings(p, 1, spd);
    FILE* f = std::fopen(p.c_str(), "a");
    std::fputs(extra.c_str(), f);
    std::fclose(f);
    return p;
}

template <typename F>
std::string Printed(F f)
{
    testing::internal::CaptureStdout();
    f();
    return testing::internal::GetCapturedStdout();
}

int ReadFitMode(const std::string& path, int start, bool* ok)
{
    int freq, thr, tl, th, ds, nd, bdr, bdh, spd, mode = start;
    unsigned char vl, vh;
    float beta, mgn;
    *ok = ReadInSetting(const_cast<char*>(path.c_str()), freq, vl, vh, thr, tl, th, ds, nd, beta, bdr,
                        bdh, mgn, spd, mode);
    return mode;
}

TEST(FitModeKey, OptionalZeroOrOne)
{
    bool ok;
    // Absent (or only in a comment) means 0, whatever the previous file said.
    EXPECT_EQ(ReadFitMode(Settings(""), 1, &ok), 0);
    EXPECT_TRUE(ok);
    EXPECT_EQ(ReadFitMode(Settings("# FitMode=1\n"), 1, &ok), 0);
    EXPECT_TRUE(ok);
    EXPECT_EQ(ReadFitMode(Settings("FitMode= 1   # enhanced\n"), 0, &ok), 1);
    EXPECT_TRUE(ok);
    EXPECT_EQ(Printed([&] { ReadFitMode(Settings("FitMode=2\n"), 0, &ok); }),
              "error! FitMode 2 outside 0..1 in parameter file\n");
    EXPECT_FALSE(ok);
    EXPECT_EQ(Printed([&] { ReadFitMode(Settings("FitMode=on\n"), 0, &ok); }),
              "error! FitMode is not a number in parameter file\n");
    EXPECT_FALSE(ok);
    // A missing required key is still reported, and the file fails with it.
    EXPECT_EQ(Printed([&] {
                  FILE* f = std::fopen(Path("setting").c_str(), "w");
                  std::fputs("FitMode=1\n", f);
                  std::fclose(f);
                  EXPECT_EQ(ReadFitMode(Path("setting"), 0, &ok), 1);
              }).find("error! miss StatFreq tag in parameter file\n"),
              0u);
    EXPECT_FALSE(ok);
}

TEST(FitModeKey, SvInitRefusesOtherValues)
{
    Mesh m(kTW, kTH);
    const std::string tables = Path("tables"), setting = Settings("FitMode=-1\n");
    WriteTable(tables, m);
    std::string printed = Printed([&] {
        EXPECT_EQ(sv_init(tables.c_str(), tables.c_str(), setting.c_str(), 64, 64, kSW, kSH), -1);
    });
    EXPECT_NE(printed.find("error! FitMode -1 outside 0..1 in parameter file\nRead setting file " + setting +
                           " error!\n"),
              std::string::npos)
        << printed;
    sv_deinit();
    g_fitMode = 1;
    Settings("");
    ASSERT_EQ(sv_init(tables.c_str(), tables.c_str(), setting.c_str(), 64, 64, kSW, kSH), 0);
    EXPECT_EQ(g_fitMode, 0);
    // A host that sets the global out of range gets a word and no frame.
    g_fitMode = 3;
    std::vector<unsigned char> in(8 * 64 * 64, 128), out(kSW * kSH * 3 / 2, 7);
    EXPECT_EQ(Printed([&] { sv_convert_image(in.data(), 0, out.data(), 0); }),
              "error! FitMode 3 must be 0 or 1\n");
    EXPECT_EQ(out[0], 7);
    g_fitMode = 0;
    sv_deinit();
}

// What ToneMapping makes of one level of one channel.
int Mapped(const int* gain, const int* tcurve, int cam, int ch, int v)
{
    int rgb[3] = {v, v, v};
    ToneMapping(const_cast<int*>(gain) + 3 * cam, const_cast<int*>(tcurve) + 9 * cam, 64, rgb[0], rgb[1],
                rgb[2], 8);
    return rgb[ch];
}

// Four cameras that see the same ground through their own channel gains;
// the picture is their own levels. Pure gains: the fit must undo them up to
// one common factor per channel that keeps the picture's mean.
TEST(FitEnhancedFit, MatchesTheCamerasAndKeepsThePicture)
{
    const double camGain[4][3] = {{1.12, 1.0, 0.9}, {0.8, 0.86, 0.95}, {0.95, 1.08, 1.2}, {1.2, 0.97, 0.85}};
    const int regionCam[4][2] = {{2, 0}, {0, 3}, {3, 1}, {1, 2}};
    std::vector<EnhancedPair> pairs[4];
    static int picture[4][3][256];
    std::mt19937 rng(7);
    for (int m = 0; m < 4; ++m)
        for (int i = 0; i < 600; ++i) {
            EnhancedPair p;
            for (int ch = 0; ch < 3; ++ch) {
                const double scene = 30 + (rng() % 160);
                p.a[ch] = (float)std::floor(scene * camGain[regionCam[m][0]][ch] + 0.5);
                p.b[ch] = (float)std::floor(scene * camGain[regionCam[m][1]][ch] + 0.5);
                ++picture[regionCam[m][0]][ch][(int)p.a[ch]];
                ++picture[regionCam[m][1]][ch][(int)p.b[ch]];
            }
            p.weight = 1;
            pairs[m].push_back(p);
        }
    EnhancedData d;
    for (int m = 0; m < 4; ++m) d.pairs[m] = pairs[m].data(), d.counts[m] = (int)pairs[m].size();
    d.picture = picture;
    int g[12], tc[36];
    ASSERT_TRUE(FitEnhanced(d, 4, 4, 16, g, tc));

    for (int ch = 0; ch < 3; ++ch) {
        double before = 0, after = 0, n = 0;
        for (int k = 0; k < 4; ++k) {
            // A gain above 1 would clip highlights: it is carried by the
            // curve, whose top keeps 255 apart from the levels below it.
            EXPECT_LE(g[3 * k + ch], 1024) << "camera " << k;
            EXPECT_LT(Mapped(g, tc, k, ch, 240), 255) << "camera " << k;
            for (int v = 0; v < 256; ++v) {
                before += picture[k][ch][v] * v;
                after += picture[k][ch][v] * Mapped(g, tc, k, ch, v);
                n += picture[k][ch][v];
            }
        }
        EXPECT_NEAR(after / before, 1.0, 0.005) << "channel " << ch;
        for (int m = 0; m < 4; ++m) {
            double diff = 0;
            for (const EnhancedPair& p : pairs[m])
                diff += std::abs(Mapped(g, tc, regionCam[m][0], ch, (int)p.a[ch]) -
                                 Mapped(g, tc, regionCam[m][1], ch, (int)p.b[ch]));
            EXPECT_LT(diff / pairs[m].size(), 1.0) << "region " << m << " channel " << ch;
        }
    }
    // Too few samples in one overlap: no fit, nothing written.
    d.counts[2] = 3;
    int untouched[12] = {};
    EXPECT_FALSE(FitEnhanced(d, 4, 4, 16, untouched, tc));
    EXPECT_EQ(untouched[0], 0);
}

// A still scene with sensor noise: every frame fits slightly different
// values. The enhanced fit's corrections in use settle and stop moving,
// where the standard fit, even smoothed with Spd=4, keeps stepping.
// A smooth scene that the four cameras see through their own gains, as one
// frame set; the tables that go with it are written to tables.
constexpr int kW = 160, kH = 192;
const double kCamGain[4] = {1.08, 0.85, 1.15, 0.93};

std::vector<unsigned char> StillScene(const std::string& tables)
{
    const int off[4][2] = {{256, 192}, {296, 164}, {236, 216}, {276, 176}};
    WriteTable(tables, QuadMesh(off));
    std::vector<unsigned char> frames(8 * kW * kH);
    for (int c = 0; c < 4; ++c)
        Nv12(kW, kH, [&](int x, int y) {
            const double X = x - off[c][0] / 16.0, Y = y - off[c][1] / 16.0;
            const double s[3] = {115 + 60 * std::sin(X / 19 + Y / 29), 115 + 55 * std::cos(X / 23 - Y / 17),
                                 110 + 45 * std::sin((X + 2 * Y) / 27)};
            Rgb v;
            for (int ch = 0; ch < 3; ++ch) v[ch] = std::min(255, (int)(kCamGain[c] * s[ch]));
            return v;
        }, &frames[c * 2 * kW * kH]);
    return frames;
}

// The sample range and the consistency test would leave nothing here (every
// pair has a channel above 60 and no two cameras agree exactly); the
// enhanced fit uses every pair the cameras both see and still matches them.
TEST(FitEnhancedCycle, UsesEveryPairTheCamerasSee)
{
    const std::string tables = Path("every_pair_tables");
    std::vector<unsigned char> frames = StillScene(tables);
    const std::string setting = Path("every_pair_setting");
    FILE* f = std::fopen(setting.c_str(), "w");
    std::fputs("StatFreq=1\nStatL=8\nStatH=60\nThresRatio=0\nThresL=0\nThresH=0\nDSIntvl=4\nnDataL=4\n"
               "beta=0.1\ntcRatio=4\ntcH=16\ngMgn=0.05\nSpd=1\nFitMode=1\n", f);
    std::fclose(f);
    ASSERT_EQ(sv_init(tables.c_str(), tables.c_str(), setting.c_str(), kW, kH, kSW, kSH), 0);
    std::vector<unsigned char> out(kSW * kSH * 3 / 2);
    sv_convert_image(frames.data(), 0, out.data(), 0);
    for (int ch = 0; ch < 3; ++ch) {
        int lo = 255, hi = 0;
        for (int k = 0; k < 4; ++k) {
            const int v = Mapped(gain_cur, tcurve_cur, k, ch, (int)(kCamGain[k] * 115));
            lo = std::min(lo, v);
            hi = std::max(hi, v);
        }
        // Uncorrected the cameras lie 35 levels apart.
        EXPECT_LE(hi - lo, 4) << "channel " << ch;
    }
    sv_deinit();
}

// The picture shows both cameras of an overlap only where the control table
// blends them. Here it blends only the outer columns of the statistics
// image (nodes 0..3 and 13..16) and cuts hard in between; there each
// camera sees the scene through an extra, inconsistent gain (a moved car,
// a reflection), which must not move the fit.
constexpr int kBlendCols[2] = {4, 13};

// The four cameras' NV12 images, one after the other.
std::vector<unsigned char> SceneWithMiddle(const int off[4][2], const double middle[4])
{
    std::vector<unsigned char> frames;
    for (int c = 0; c < 4; ++c) {
        const std::vector<unsigned char> img = Nv12(kW, kH, [&](int x, int y) {
            const double X = x - off[c][0] / 16.0, Y = y - off[c][1] / 16.0;
            // Statistics columns 36..92: beyond the smoothing of any sample
            // the blend reaches.
            const double extra = X >= 36 && X <= 92 ? middle[c] : 1.0;
            const double s[3] = {115 + 60 * std::sin(X / 19 + Y / 29), 115 + 55 * std::cos(X / 23 - Y / 17),
                                 110 + 45 * std::sin((X + 2 * Y) / 27)};
            Rgb v;
            for (int ch = 0; ch < 3; ++ch) v[ch] = std::min(255, (int)(kCamGain[c] * extra * s[ch]));
            return v;
        });
        frames.insert(frames.end(), img.begin(), img.end());
    }
    return frames;
}

std::vector<int> Calibrated(std::vector<unsigned char>& frames, Mesh& stat, Mesh& ctrl)
{
    unsigned char* yuv[4];
    for (int c = 0; c < 4; ++c) yuv[c] = &frames[c * kW * kH * 3 / 2];
    tag_StatPara sp = {kSW, kSH, stat.w, stat.h, kInterval, kInterval, stat.tb[0].data(), stat.tb[1].data()};
    tag_CtrlPara cp = {kSW, kSH, ctrl.w, ctrl.h, kInterval, kInterval, 0, 0, 0, 0, kSW - 1, kSH - 1, 64, 64,
                       ctrl.w, ctrl.w, ctrl.h, ctrl.h, ctrl.tb[0].data(), ctrl.tb[1].data()};
    std::vector<int> v(48, 0);
    CalibEnhanced(yuv, kW, kH, sp, cp, v.data(), v.data() + 12, 8, 248, 14, 16, 128, 4, 4, 16, true);
    return v;
}

// Blend (128 / 128) at node columns outside [from, to), a hard cut
// (256 / 0) inside.
void CutBetween(Mesh& ctrl, int from, int to)
{
    for (int r = 0; r < ctrl.h; ++r)
        for (int c = 0; c < ctrl.w; ++c) {
            const bool cut = c >= from && c < to;
            ctrl.Node(0, r, c)[2] = cut ? 256 : 128;
            ctrl.Node(1, r, c)[2] = cut ? 0 : 128;
        }
}

// How far apart the corrected cameras put the scene's mid level, over the
// channels: 35 levels uncorrected.
int Spread(const std::vector<int>& fit)
{
    int worst = 0;
    for (int ch = 0; ch < 3; ++ch) {
        int lo = 255, hi = 0;
        for (int k = 0; k < 4; ++k) {
            const int v = Mapped(fit.data(), fit.data() + 12, k, ch, (int)(kCamGain[k] * 115));
            lo = std::min(lo, v);
            hi = std::max(hi, v);
        }
        worst = std::max(worst, hi - lo);
    }
    return worst;
}

TEST(FitEnhancedCycle, SamplesOutsideTheBlendDoNotMoveTheFit)
{
    const int off[4][2] = {{256, 192}, {296, 164}, {236, 216}, {276, 176}};
    Mesh stat = QuadMesh(off), ctrl = QuadMesh(off);
    const double odd[4] = {0.6, 1.3, 1.25, 0.7};
    std::vector<unsigned char> disturbed = SceneWithMiddle(off, odd);

    CutBetween(ctrl, kBlendCols[0], kBlendCols[1]);
    EXPECT_LE(Spread(Calibrated(disturbed, stat, ctrl)), 3);
    // Blending everywhere (the same table, changed in place, so a kept
    // result would be stale): the middle counts and spoils the match.
    CutBetween(ctrl, 0, 0);
    EXPECT_GE(Spread(Calibrated(disturbed, stat, ctrl)), 8);
}

// Hard seams everywhere leave no sample in any blend: then all samples
// count alike rather than no fit being made.
TEST(FitEnhancedCycle, TablesWithoutBlendStillFit)
{
    const int off[4][2] = {{256, 192}, {296, 164}, {236, 216}, {276, 176}};
    Mesh stat = QuadMesh(off), ctrl = QuadMesh(off);
    const double same[4] = {1, 1, 1, 1};
    std::vector<unsigned char> frames = SceneWithMiddle(off, same);
    CutBetween(ctrl, 0, ctrl.w);
    EXPECT_LE(Spread(Calibrated(frames, stat, ctrl)), 4);
}

TEST(FitEnhancedCycle, StillSceneSettles)
{
    const std::string tables = Path("cycle_tables");
    const std::vector<unsigned char> clean = StillScene(tables);

    auto changes = [&](const std::string& extra, int spd) {
        const std::string setting = Settings(extra, spd);
        EXPECT_EQ(sv_init(tables.c_str(), tables.c_str(), setting.c_str(), kW, kH, kSW, kSH), 0);
        std::mt19937 rng(11);
        std::vector<unsigned char> frame(clean.size()), out(kSW * kSH * 3 / 2);
        std::vector<int> last;
        int moved = 0;
        for (int t = 0; t < 60; ++t) {
            for (size_t i = 0; i < frame.size(); ++i)
                frame[i] = (unsigned char)std::min(255, std::max(0, clean[i] + (int)(rng() % 5) - 2));
            sv_convert_image(frame.data(), 0, out.data(), 0);
            std::vector<int> now(gain_cur, gain_cur + 12);
            now.insert(now.end(), tcurve_cur, tcurve_cur + 36);
            if (t >= 20 && now != last) ++moved;
            last = now;
        }
        sv_deinit();
        return moved;
    };
    EXPECT_GT(changes("", 4), 5);
    EXPECT_EQ(changes("FitMode=1\n", 1), 0);
    EXPECT_EQ(changes("FitMode=1\n", 4), 0);
}

}  // namespace
