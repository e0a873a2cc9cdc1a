// The library's calibration against the plain sample-by-sample reference:
// planes, counts, gains and curves byte for byte over random statistics
// tables, images and settings, over tables that change between calls, and
// over the bench's realistic rig.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "../bench/bench_rig.h"
#include "common/calib_reference.h"
#include "pipe/calib_GT.h"

namespace {

struct Settings {
    int VL = 8, VH = 248, rto = 14, TolL = 16, TolH = 128, DS = 4, nData = 4;
    float beta = 0.1f;
    int bdr = 4, bdh = 16;
    float mgn = 0.05f;
};

struct RandomCalib {
    std::mt19937 rng;
    int W, H, rows, cols, stride;
    tag_StatPara st{};
    std::vector<int> tb[2];
    std::vector<unsigned char> cams[4], prefill;
    Settings set;

    int Pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }
    bool Chance(int n) { return Pick(0, n - 1) == 0; }

    explicit RandomCalib(unsigned seed) : rng(seed) {
        W = Pick(3, 48), H = Pick(3, 40);
        for (auto& img : cams) {
            img.resize(W * H * 3 / 2);
            for (auto& b : img) b = static_cast<unsigned char>(Chance(8) ? 0 : Chance(8) ? 255 : Pick(0, 255));
        }
        st.OutImgWidth = Pick(1, 140), st.OutImgHeight = Pick(1, 180);
        st.IntervalX = st.IntervalY = Pick(0, 4);
        if (Chance(6)) st.IntervalX = Pick(0, 4);
        if (Chance(30)) st.IntervalY = Chance(2) ? -1 : 16;
        // Often exactly the nodes the walk needs, sometimes fewer or more.
        st.TableWidth = std::max(1, ((st.OutImgWidth - 1) >> std::max(st.IntervalX, 0)) + Pick(0, 3));
        st.TableHeight = std::max(1, ((st.OutImgHeight - 1) >> std::max(st.IntervalY, 0)) + Pick(0, 3));
        const int selMode = Chance(8) ? 0 : Pick(1, 2);
        for (int t = 0; t < 2; ++t) {
            tb[t].resize(st.TableWidth * st.TableHeight * 4);  // exact: ASan sees over-reads
            for (int n = 0; n < st.TableWidth * st.TableHeight; ++n) {
                // Mixed per node, one camera per table, or split as on a rig.
                const int r = n / st.TableWidth, c = n % st.TableWidth;
                const int sel = selMode == 0 ? Pick(0, 2) : selMode == 1 ? t
                              : t == 0 ? 2 * r >= st.TableHeight : 2 * c >= st.TableWidth;
                RandomNode(sel, &tb[t][4 * n]);
            }
        }
        st.TB1 = tb[0].data(), st.TB2 = tb[1].data();
        rows = st.OutImgHeight / 2, cols = st.OutImgWidth / 2, stride = cols;
        if (Chance(5)) stride += Pick(1, 5);
        if (Chance(10)) rows = Pick(0, st.OutImgHeight), cols = Pick(0, st.OutImgWidth), stride = cols;
        if (Chance(10)) stride = std::max(1, cols - Pick(1, 3));
        prefill.resize(8 * (std::max(rows, 0) * std::max({stride, cols, 0}) * 3 + 8));
        for (auto& b : prefill) b = static_cast<unsigned char>(Pick(0, 255));
        set.VL = Chance(6) ? Pick(0, 255) : Pick(0, 30);
        set.VH = Chance(6) ? Pick(0, 255) : Pick(220, 255);
        // Mostly every pair passes the consistency test.
        set.rto = Pick(0, 40), set.TolL = Chance(4) ? Pick(0, 60) : 255, set.TolH = Pick(0, 255);
        set.DS = Chance(8) ? Pick(-1, 0) : Pick(1, 6);
    }
    // Positions inside the image, in its outer bands, or off it.
    void RandomNode(int sel, int* n) {
        n[0] = Chance(20) ? -Pick(1, 40) : Pick(0, 16 * W + 8) + (Chance(6) ? 16 * W * Pick(1, 4) : 0);
        n[1] = Chance(20) ? -Pick(1, 40) : Pick(0, 16 * H + 8);
        n[2] = Chance(4) ? Pick(-40, 400) : Pick(0, 256);
        n[3] = sel;
    }
    void Touch() {  // one node the walk reads, rewritten in place
        const int nodes = std::min(st.TableWidth, 3) * std::min(st.TableHeight, 3);
        RandomNode(Pick(0, 2), &tb[Pick(0, 1)][4 * Pick(0, nodes - 1)]);
    }
};

// GetStatData and the reference on the same inputs give the same planes,
// including the bytes past the counts, and the same counts.
void ExpectSameStatistics(RandomCalib& c, const char* what) {
    std::vector<unsigned char> got = c.prefill, want = c.prefill;
    const size_t size = got.size() / 8;
    unsigned char *pg[8], *pw[8], *yuv[4];
    for (int p = 0; p < 8; ++p) pg[p] = &got[p * size], pw[p] = &want[p * size];
    for (int k = 0; k < 4; ++k) yuv[k] = c.cams[k].data();
    int rg = c.rows, cg = c.cols, rw = c.rows, cw = c.cols;
    const Settings& s = c.set;
    GetStatData(yuv, c.W, c.H, c.st, pg, rg, cg, c.stride, s.VL, s.VH, s.rto, s.TolL, s.TolH, s.DS);
    svtest::RefGetStatData(yuv, c.W, c.H, c.st, pw, rw, cw, c.stride, s.VL, s.VH, s.rto, s.TolL,
                           s.TolH, s.DS);
    ASSERT_EQ(std::make_pair(rg, cg), std::make_pair(rw, cw)) << what;
    ASSERT_EQ(got, want) << what;
}

TEST(CalibExact, RandomTablesImagesAndSettings) {
    for (unsigned seed = 1; seed <= 400; ++seed) {
        SCOPED_TRACE(seed);
        RandomCalib c(seed);
        ExpectSameStatistics(c, "first call");
        // The second call either reuses the first one's work or must notice
        // what changed since.
        switch (seed % 5) {
            case 0: for (auto& b : c.cams[c.Pick(0, 3)]) b = static_cast<unsigned char>(c.Pick(0, 255)); break;
            case 1: c.Touch(); break;
            case 2: c.st.IntervalX = c.st.IntervalY = c.Pick(0, 4); break;
            case 3: c.W = std::max(3, c.W - c.Pick(0, 2)); break;
            case 4: c.stride = std::max(c.cols, c.stride - 1); c.set.DS = c.Pick(1, 6); break;
        }
        ExpectSameStatistics(c, "second call");
    }
}

TEST(CalibExact, TablesAlternatingOrRewrittenInPlace) {
    // Same scalars and sizes, different nodes: only the contents tell them
    // apart. One camera per table, and every pair stays.
    RandomCalib a(1001);
    a.set = Settings{0, 255, 14, 255, 255, 1};
    RandomCalib b = a;
    b.rng.discard(1);
    for (RandomCalib* c : {&a, &b}) {
        for (int t = 0; t < 2; ++t)
            for (size_t i = 0; i < c->tb[t].size(); i += 4) c->RandomNode(t, &c->tb[t][i]);
        c->st.TB1 = c->tb[0].data(), c->st.TB2 = c->tb[1].data();
    }
    for (int round = 0; round < 6; ++round) {
        ExpectSameStatistics(round % 2 ? b : a, "alternating");
        a.Touch();
        ExpectSameStatistics(a, "rewritten");
    }
}

// The whole calibration on the realistic rig and on random tables, from a
// first call (zero arrays) and from a previous fit.
TEST(CalibExact, GainsAndCurves) {
    svtest::BenchRig rig;
    svtest::StatRig st;
    unsigned char* cams[4] = {rig.cams[0].data(), rig.cams[1].data(), rig.cams[2].data(), rig.cams[3].data()};
    std::mt19937 rng(5);
    for (int iter = 0; iter < 24; ++iter) {
        SCOPED_TRACE(iter);
        Settings s;
        RandomCalib c(2000 + iter);
        const bool realistic = iter % 3 != 2;
        if (realistic && iter > 0) {
            s.DS = 1 + iter % 6, s.nData = iter % 5, s.VL = iter % 4 * 5, s.VH = 255 - iter % 7;
            s.beta = 0.05f * (iter % 4), s.bdr = iter % 8, s.bdh = 4 + iter, s.mgn = 0.01f * (iter % 9);
            s.rto = 10 + iter % 8, s.TolL = 8 + iter, s.TolH = 200 - 3 * iter;
        }
        if (!realistic) s = c.set;
        unsigned char** yuv = realistic ? cams : nullptr;
        unsigned char* rnd[4] = {c.cams[0].data(), c.cams[1].data(), c.cams[2].data(), c.cams[3].data()};
        if (!realistic) yuv = rnd;
        tag_StatPara& table = realistic ? st.stat : c.st;
        const int W = realistic ? svtest::kInW : c.W, H = realistic ? svtest::kInH : c.H;
        std::vector<int> got(48, 0), want(48, 0);
        if (iter % 2) {
            for (int i = 0; i < 48; ++i) got[i] = want[i] = static_cast<int>(rng() % 2000);
        }
        CalibGT(yuv, W, H, table, &got[0], &got[12], s.VL, s.VH, s.rto, s.TolL, s.TolH, s.DS,
                s.nData, s.beta, s.bdr, s.bdh, s.mgn);
        svtest::RefCalibGT(yuv, W, H, table, &want[0], &want[12], s.VL, s.VH, s.rto, s.TolL,
                           s.TolH, s.DS, s.nData, s.beta, s.bdr, s.bdh, s.mgn);
        ASSERT_EQ(got, want);
        if (iter == 0) {
            EXPECT_NE(got[9], 1024);  // the rig's default run really fits
        }
    }
}

// The fit alone on random planes whose cameras differ by a gain, a gamma
// and noise, with holes; settings from the usual to the extreme.
TEST(CalibExact, FitOnRandomPlanes) {
    std::mt19937 rng(77);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    for (int iter = 0; iter < 200; ++iter) {
        SCOPED_TRACE(iter);
        const int rows = pick(1, 24), cols = pick(1, 20), stride = cols + pick(0, 2);
        std::vector<unsigned char> store(8 * rows * stride * 3);
        unsigned char* planes[8];
        for (int p = 0; p < 8; ++p) planes[p] = &store[p * rows * stride * 3];
        double g[4], gamma[4];
        for (int k = 0; k < 4; ++k) g[k] = 0.7 + 0.1 * pick(0, 6), gamma[k] = 0.8 + 0.1 * pick(0, 4);
        for (int m = 0; m < 4; ++m)
            for (int i = 0; i < rows * stride * 3; ++i) {
                const double v = pick(1, 255) / 255.0;
                const bool hole = pick(0, 9) == 0;
                for (int side = 0; side < 2; ++side) {
                    const int cam = side ? m : (m + 3) % 4;
                    const int x = static_cast<int>(255 * g[cam] * std::pow(v, gamma[cam])) + pick(-3, 3);
                    planes[2 * m + side][i] = hole ? 0 : static_cast<unsigned char>(std::min(255, std::max(0, x)));
                }
            }
        const int nData = pick(-1, 30), bdr = pick(-2, 20), bdh = pick(-5, 300);
        const float beta = 0.05f * pick(-2, 40), mgn = 0.01f * pick(-5, 60);
        std::vector<int> got(48), want(48);
        for (int i = 0; i < 48; ++i) got[i] = want[i] = iter % 3 ? pick(0, 2000) : 0;
        optimize4GT(planes, rows, cols, stride, &got[0], &got[12], nData, beta, bdr, bdh, mgn);
        svtest::RefOptimize4GT(planes, rows, cols, stride, &want[0], &want[12], nData, beta, bdr, bdh,
                               mgn);
        ASSERT_EQ(got, want);
    }
}

}  // namespace
