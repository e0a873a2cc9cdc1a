// Synthetic four-camera rig for tests: mesh tables, configuration files and
// camera images built from a scene function.
#ifndef TESTS_COMMON_SYNTHETIC_RIG_H
#define TESTS_COMMON_SYNTHETIC_RIG_H

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "pipe/data_processing.h"
#include "sv_types.h"

namespace svtest {

using Rgb = std::array<int, 3>;

// Statistics image of the rig: 128 x 168 with a node every 8 pixels.
constexpr int kSW = 128, kSH = 168, kTW = 17, kTH = 22, kInterval = 3;

// The library's initial settings except for the two the frame cycle tests vary.
inline void WriteSettings(const std::string& path, int statFreq, int spd)
{
    FILE* f = std::fopen(path.c_str(), "w");
    std::fprintf(f, "StatFreq=%d\nStatL=8\nStatH=248\nThresRatio=14\nThresL=16\nThresH=128\n"
                 "DSIntvl=4\nnDataL=4\nbeta=0.1\ntcRatio=4\ntcH=16\ngMgn=0.05\nSpd=%d\n", statFreq, spd);
    std::fclose(f);
}

// Two mesh tables (TB1, TB2) of w x h nodes: SrcX, SrcY, Weight, CamSel.
struct Mesh {
    int w, h;
    std::vector<int> tb[2];
    Mesh(int w_, int h_) : w(w_), h(h_) { tb[0].assign(w * h * 4, 0), tb[1] = tb[0]; }
    int* Node(int t, int r, int c) { return &tb[t][(r * w + c) * 4]; }
    void Set(int t, int r, int c, std::array<int, 4> v) { std::copy(v.begin(), v.end(), Node(t, r, c)); }
};

// Camera = TB1/TB2 camera pair per quadrant, as the fit expects: TB1 sees
// camera 0 on top and 1 below; TB2 camera 2 on the left and 3 on the right.
// Camera c sees scene point (X, Y) at (X, Y) + off[c] (1/16 pixel).
inline Mesh QuadMesh(const int off[4][2])
{
    Mesh m(kTW, kTH);
    for (int r = 0; r < kTH; ++r)
        for (int c = 0; c < kTW; ++c) {
            const int sel[2] = {8 * r < kSH / 2 ? 0 : 1, 8 * c < kSW / 2 ? 0 : 1};
            for (int t = 0; t < 2; ++t) {
                const int* o = off[2 * t + sel[t]];
                m.Set(t, r, c, {128 * c + o[0], 128 * r + o[1], 128, sel[t]});
            }
        }
    return m;
}

// Control table that renders the mesh 1:1 onto a kSW x kSH output without
// seams. The statistics reader ignores the extra tags, so it serves as the
// statistics table too.
inline void WriteTable(const std::string& path, const Mesh& m)
{
    FILE* f = std::fopen(path.c_str(), "w");
    std::fprintf(f, "OutImgWidth: %d\nOutImgHeight: %d\nTableWidth: %d\nTableHeight: %d\nIntervalX: %d\n"
                 "IntervalY: %d\nDispCoorX: 0\nDispCoorY: 0\nROIStartX: 0\nROIStartY: 0\nROIEndX: %d\n"
                 "ROIEndY: %d\nZoomFactorX: 64\nZoomFactorY: 64\nL1: %d\nL2: %d\nH1: %d\nH2: %d\n",
                 kSW, kSH, m.w, m.h, kInterval, kInterval, kSW - 1, kSH - 1, m.w, m.w, m.h, m.h);
    for (int t = 0; t < 2; ++t) {
        std::fprintf(f, "TB%d:\n{\n", t + 1);
        for (size_t i = 0; i < m.tb[t].size(); ++i)
            std::fprintf(f, "%d,%s", m.tb[t][i], i % 4 == 3 ? "\n" : " ");
        std::fputs("}\n", f);
    }
    std::fclose(f);
}

// W x H NV12 image of rgb(x, y); chroma from the top-left pixel of each
// 2 x 2 block, as the YUYV conversion keeps it. With yuyv, also the packed
// frame whose conversion gives this image back.
inline std::vector<unsigned char> Nv12(int W, int H, const std::function<Rgb(int, int)>& rgb,
                                       unsigned char* yuyv = nullptr)
{
    std::vector<unsigned char> img(W * H * 3 / 2);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const Rgb p = rgb(x, y);
            int Y, U, V;
            RGB2YUV(p[0], p[1], p[2], Y, U, V, 8, 8);
            img[y * W + x] = (unsigned char)Y;
            unsigned char* c = &img[W * H + (y / 2) * W + x / 2 * 2];
            if (x % 2 == 0 && y % 2 == 0) c[0] = (unsigned char)U, c[1] = (unsigned char)V;
            // Y0 U Y1 V: even pixels carry U, odd ones V.
            if (yuyv) yuyv[(y * W + x) * 2] = img[y * W + x], yuyv[(y * W + x) * 2 + 1] = c[x % 2];
        }
    return img;
}

}  // namespace svtest

#endif
