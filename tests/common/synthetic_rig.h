// Synthetic four-camera rig for tests: mesh tables, configuration files and
// camera images built from a scene function.
#ifndef TESTS_COMMON_SYNTHETIC_RIG_H
#define TESTS_COMMON_SYNTHETIC_RIG_H

#include <array>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "pipe/data_processing.h"
#include "sv_types.h"

namespace svtest {

using Rgb = std::array<int, 3>;

// Setting file values; defaults are the library's initial values.
struct Settings {
    int StatFreq = 1, StatL = 8, StatH = 248, ThresRatio = 14, ThresL = 16,
        ThresH = 128, DSIntvl = 4, nDataL = 4;
    float beta = 0.1f;
    int tcRatio = 4, tcH = 16;
    float gMgn = 0.05f;
    int Spd = 1;
};

inline void WriteSettings(const std::string& path, const Settings& s)
{
    FILE* f = std::fopen(path.c_str(), "w");
    std::fprintf(f,
                 "StatFreq=%d\nStatL=%d\nStatH=%d\nThresRatio=%d\nThresL=%d\n"
                 "ThresH=%d\nDSIntvl=%d\nnDataL=%d\nbeta=%g\ntcRatio=%d\n"
                 "tcH=%d\ngMgn=%g\nSpd=%d\n",
                 s.StatFreq, s.StatL, s.StatH, s.ThresRatio, s.ThresL, s.ThresH,
                 s.DSIntvl, s.nDataL, s.beta, s.tcRatio, s.tcH, s.gMgn, s.Spd);
    std::fclose(f);
}

// Two mesh tables (TB1, TB2) of w x h nodes: SrcX, SrcY, Weight, CamSel.
struct Mesh {
    int w, h;
    std::vector<int> tb[2];
    Mesh(int w_, int h_) : w(w_), h(h_)
    {
        tb[0].assign(w * h * 4, 0);
        tb[1].assign(w * h * 4, 0);
    }
    int* Node(int t, int r, int c) { return &tb[t][(r * w + c) * 4]; }
    void Set(int t, int r, int c, int sx, int sy, int wgt, int cam)
    {
        int* n = Node(t, r, c);
        n[0] = sx, n[1] = sy, n[2] = wgt, n[3] = cam;
    }
};

// Statistics image of the rig: 128 x 168 with a node every 8 pixels.
constexpr int kSW = 128, kSH = 168, kTW = 17, kTH = 22, kInterval = 3;

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
                const int cam = 2 * t + sel[t];
                m.Set(t, r, c, 128 * c + off[cam][0], 128 * r + off[cam][1], 128,
                      sel[t]);
            }
        }
    return m;
}

inline tag_StatPara StatPara(Mesh& m, int sw = kSW, int sh = kSH)
{
    return {sw, sh, m.w, m.h, kInterval, kInterval, m.tb[0].data(), m.tb[1].data()};
}

inline void WriteTables(FILE* f, const Mesh& m)
{
    for (int t = 0; t < 2; ++t) {
        std::fprintf(f, "TB%d:\n{\n", t + 1);
        for (size_t i = 0; i < m.tb[t].size(); ++i)
            std::fprintf(f, "%d,%s", m.tb[t][i], i % 4 == 3 ? "\n" : " ");
        std::fprintf(f, "}\n");
    }
}

inline void WriteStatTable(const std::string& path, const Mesh& m)
{
    FILE* f = std::fopen(path.c_str(), "w");
    std::fprintf(f, "OutImgWidth: %d\nOutImgHeight: %d\nTableWidth: %d\n"
                 "TableHeight: %d\nIntervalX: %d\nIntervalY: %d\n",
                 kSW, kSH, m.w, m.h, kInterval, kInterval);
    WriteTables(f, m);
    std::fclose(f);
}

// Renders the mesh 1:1 onto a kSW x kSH output without seams.
inline void WriteCtrlTable(const std::string& path, const Mesh& m)
{
    FILE* f = std::fopen(path.c_str(), "w");
    std::fprintf(f, "OutImgWidth: %d\nOutImgHeight: %d\nDispCoorX: 0\n"
                 "DispCoorY: 0\nROIStartX: 0\nROIStartY: 0\nROIEndX: %d\n"
                 "ROIEndY: %d\nZoomFactorX: 64\nZoomFactorY: 64\n"
                 "TableWidth: %d\nTableHeight: %d\nIntervalX: %d\n"
                 "IntervalY: %d\nL1: %d\nL2: %d\nH1: %d\nH2: %d\n",
                 kSW, kSH, kSW - 1, kSH - 1, m.w, m.h, kInterval, kInterval,
                 m.w, m.w, m.h, m.h);
    WriteTables(f, m);
    std::fclose(f);
}

// W x H NV12 image of rgb(x, y); chroma from the top-left pixel of each
// 2 x 2 block, as the YUYV conversion keeps it.
inline std::vector<unsigned char> Nv12(int W, int H,
                                       const std::function<Rgb(int, int)>& rgb)
{
    std::vector<unsigned char> img(W * H * 3 / 2);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const Rgb p = rgb(x, y);
            int Y, U, V;
            RGB2YUV(p[0], p[1], p[2], Y, U, V, 8, 8);
            img[y * W + x] = (unsigned char)Y;
            if (x % 2 == 0 && y % 2 == 0) {
                img[W * H + (y / 2) * W + x] = (unsigned char)U;
                img[W * H + (y / 2) * W + x + 1] = (unsigned char)V;
            }
        }
    return img;
}

// The packed YUYV frame whose conversion gives back an NV12 image.
inline void Nv12ToYuyv(const std::vector<unsigned char>& img, int W, int H,
                       unsigned char* out)
{
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; x += 2) {
            const unsigned char* c = &img[W * H + (y / 2) * W + x];
            unsigned char* o = out + (y * W + x) * 2;
            o[0] = img[y * W + x], o[1] = c[0], o[2] = img[y * W + x + 1], o[3] = c[1];
        }
}

}  // namespace svtest

#endif
