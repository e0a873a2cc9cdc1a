// The realistic frame of the composition bench: a 1280 x 800 output from
// four 1280 x 720 cameras, shared with the tests that compare the fast path
// with the plain one.
//
// The synthetic table is laid out like a real four-camera rig seen from
// above: TB1 holds the front camera (top band) and the rear camera (bottom
// band) with the doubled row H1 between them, TB2 the left and right cameras
// with the doubled column L1. Corners are seen by two cameras and blend; the
// centre is seen by none and stays unwritten. Every camera bends its view
// slightly (a mild barrel term), so source positions are sub-pixel and every
// mesh cell differs. L2 and H2 double lines that change nothing, as a table
// may.
#ifndef TESTS_COMMON_BENCH_RIG_H
#define TESTS_COMMON_BENCH_RIG_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "pipe/data_processing.h"

namespace svtest {

constexpr int kInW = 1280, kInH = 720, kOutW = 1280, kOutH = 800;
constexpr int kL1 = 80, kL2 = 122, kH1 = 50, kH2 = 76;

struct RigNode {
    int x, y, w, sel;
};

// Source of table point (x, y) in a camera whose view runs along `along`
// (0..1 across the band) and `depth` (0 at the rig edge, 1 at the band's far
// end), in 1/16 pixel; -1 where the camera does not see the point.
inline RigNode Project(double along, double depth, int weight, int sel) {
    if (along < 0 || along > 1 || depth < 0 || depth > 1) return {-1, -1, 0, 0};
    const double cx = along - 0.5, cy = depth - 0.5;
    const double bend = 1 - 0.12 * (cx * cx + cy * cy);
    const double sx = (0.5 + cx * 0.92 * bend) * (kInW - 1);
    const double sy = (0.5 + cy * 0.88 * bend) * (kInH - 1);
    return {static_cast<int>(sx * 16), static_cast<int>(sy * 16), weight, sel};
}

// Share of the front/rear cameras where they overlap a side camera: falls
// from 256 toward the sides.
inline int FrontRearWeight(int x, int y) {
    const double a = std::abs(y - kOutH / 2.0) / (kOutH / 2.0);
    const double b = std::abs(x - kOutW / 2.0) / (kOutW / 2.0);
    return a + b > 0 ? static_cast<int>(256 * a / (a + b) + 0.5) : 128;
}

struct BenchRig {
    tag_CtrlPara para{};
    std::vector<int> tb[2];
    std::vector<unsigned char> cams[4];
    std::vector<unsigned char> out;
    int gain[12];
    int tcurve[36];

    BenchRig() {
        para.TableWidth = kOutW / 8 + 3;
        para.TableHeight = kOutH / 8 + 3;
        para.IntervalX = para.IntervalY = 3;
        para.ROIEndX = kOutW - 1;
        para.ROIEndY = kOutH - 1;
        para.ZoomFactorX = para.ZoomFactorY = 64;
        para.L1 = kL1, para.L2 = kL2, para.H1 = kH1, para.H2 = kH2;
        for (auto& t : tb) t.resize(static_cast<size_t>(para.TableWidth) * para.TableHeight * 4);
        for (int r = 0; r < para.TableHeight; ++r) {
            for (int c = 0; c < para.TableWidth; ++c) {
                const bool right = c > kL1, below = r > kH1;
                const int x = 8 * (c - right - (c > kL2)), y = 8 * (r - below - (r > kH2));
                const int w = FrontRearWeight(x, y);
                const double u = x / double(kOutW), v = y / double(kOutH);
                // Front sees the top 45 %, rear the bottom 45 %, each side 42 %.
                const RigNode n1 = below ? Project(1 - u, (1 - v) / 0.45, w, 1)
                                         : Project(u, v / 0.45, w, 0);
                const RigNode n2 = right ? Project(v, (1 - u) / 0.42, 256 - w, 1)
                                         : Project(1 - v, u / 0.42, 256 - w, 0);
                const size_t i = (static_cast<size_t>(r) * para.TableWidth + c) * 4;
                tb[0][i] = n1.x, tb[0][i + 1] = n1.y, tb[0][i + 2] = n1.w, tb[0][i + 3] = n1.sel;
                tb[1][i] = n2.x, tb[1][i + 1] = n2.y, tb[1][i + 2] = n2.w, tb[1][i + 3] = n2.sel;
            }
        }
        para.TB1 = tb[0].data();
        para.TB2 = tb[1].data();

        uint32_t seed = 12345;
        for (auto& img : cams) {
            img.resize(kInW * kInH * 3 / 2);
            for (size_t i = 0; i < img.size(); ++i) {
                seed = seed * 1664525u + 1013904223u;
                // Smooth content plus a little noise.
                const int base = i < size_t(kInW) * kInH ? int(i % kInW) / 6 + int(i / kInW) / 5 : 120;
                img[i] = static_cast<unsigned char>(std::min(255, base + int(seed >> 28)));
            }
        }
        for (int k = 0; k < 4; ++k) {
            for (int ch = 0; ch < 3; ++ch) {
                gain[3 * k + ch] = 1000 + 15 * k + 10 * ch;
                for (int j = 0; j < 3; ++j) tcurve[9 * k + 3 * ch + j] = 64 * (j + 1) - 3 + k;
            }
        }
        out.assign(kOutW * kOutH * 3 / 2, 0);
    }

    using Compose = int (*)(unsigned char**, int, int, unsigned char*, int, int,
                            tag_CtrlPara*, int*, int*, int, int);
    Compose compose = DataProcessing;

    void Render() {
        unsigned char* imgs[4] = {cams[0].data(), cams[1].data(), cams[2].data(), cams[3].data()};
        compose(imgs, kInW, kInH, out.data(), kOutW, kOutH, &para, gain, tcurve, 64, 8);
    }
};


// The statistics table of the same rig: a 128 x 168 statistics image with a
// node every 8 pixels and no seam lines, TB1 front over rear, TB2 left
// beside right, so that all four corner regions find samples.
struct StatRig {
    static constexpr int kW = 128, kH = 168, kInterval = 3;
    static constexpr int kTW = kW / 8 + 1, kTH = kH / 8 + 1;
    tag_StatPara stat{};
    std::vector<int> tb[2];

    StatRig() {
        for (auto& t : tb) t.resize(static_cast<size_t>(kTW) * kTH * 4);
        for (int r = 0; r < kTH; ++r) {
            for (int c = 0; c < kTW; ++c) {
                const double u = 8.0 * c / kW, v = 8.0 * r / kH;
                const bool right = 8 * c >= kW / 2, below = 8 * r >= kH / 2;
                const int w = FrontRearWeight(static_cast<int>(u * kOutW), static_cast<int>(v * kOutH));
                const RigNode n1 = below ? Project(1 - u, (1 - v) / 0.45, w, 1)
                                         : Project(u, v / 0.45, w, 0);
                const RigNode n2 = right ? Project(v, (1 - u) / 0.42, 256 - w, 1)
                                         : Project(1 - v, u / 0.42, 256 - w, 0);
                const size_t i = (static_cast<size_t>(r) * kTW + c) * 4;
                tb[0][i] = n1.x, tb[0][i + 1] = n1.y, tb[0][i + 2] = n1.w, tb[0][i + 3] = n1.sel;
                tb[1][i] = n2.x, tb[1][i + 1] = n2.y, tb[1][i + 2] = n2.w, tb[1][i + 3] = n2.sel;
            }
        }
        stat = {kW, kH, kTW, kTH, kInterval, kInterval, tb[0].data(), tb[1].data()};
    }
};

}  // namespace svtest

#endif
