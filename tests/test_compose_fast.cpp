// The library's composition against the plain pixel-by-pixel reference:
// byte for byte, over random frames, tables and corrections, and over the
// bench's realistic rig.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <random>
#include <vector>

#include "../bench/bench_rig.h"
#include "common/compose_reference.h"
#include "pipe/data_processing.h"
#include "simd/isa.h"
#include "sv_interface.h"

namespace {

using Compose = int (*)(unsigned char**, int, int, unsigned char*, int, int,
                        tag_CtrlPara*, int*, int*, int, int);

struct RandomFrame {
    std::mt19937 rng;
    int in_w = 0, in_h = 0, out_w = 0, out_h = 0, step = 64, bits = 8;
    tag_CtrlPara p{};
    std::vector<int> tb[2];
    std::vector<unsigned char> cams[4], prefill;
    int gain[12], tcurve[36];

    // wide: an output of 1282 to 2400 columns and a few rows.
    explicit RandomFrame(unsigned seed, bool wide = false) : rng(seed) {
        in_w = 2 * Pick(4, 48), in_h = 2 * Pick(4, 40);
        out_w = wide ? 2 * Pick(641, 1200) : 2 * Pick(4, 80);
        out_h = wide ? 2 * Pick(4, 12) : 2 * Pick(4, 60);
        // Bytes often at 0 and 255: black luma and clamped colours.
        for (auto& img : cams) {
            img.resize(in_w * in_h * 3 / 2);
            for (auto& b : img) b = static_cast<unsigned char>(Chance(4) ? 0 : Chance(4) ? 255 : Pick(0, 255));
        }
        prefill.resize(out_w * out_h * 3 / 2);
        for (auto& b : prefill) b = static_cast<unsigned char>(Pick(0, 255));

        // Tables ought to keep IntervalX == IntervalY; a few do not.
        p.IntervalX = p.IntervalY = Pick(1, 5);
        if (Chance(10)) p.IntervalX = Pick(1, 5);
        p.TableWidth = (out_w >> p.IntervalX) + Pick(1, 4);
        p.TableHeight = (out_h >> p.IntervalY) + Pick(1, 4);
        p.L1 = Pick(-1, p.TableWidth), p.L2 = p.L1 + Pick(1, 6);
        p.H1 = Pick(-1, p.TableHeight), p.H2 = p.H1 + Pick(1, 6);
        p.ROIStartX = Pick(0, 21), p.ROIStartY = Pick(-24, 21);
        p.ROIEndX = Chance(3) ? Pick(0, out_w) : INT_MAX;
        p.ROIEndY = Chance(3) ? Pick(-2, out_h) : INT_MAX;
        p.DispCoorX = Pick(-11, 11), p.DispCoorY = Pick(-11, 11);
        p.ZoomFactorX = Pick(33, 200), p.ZoomFactorY = Pick(33, 200);
        // Room for the first cell of a row and the last table row reaching
        // one node past the table.
        const int sel_mode = Pick(0, 3), huge = Chance(8);
        for (int t = 0; t < 2; ++t) {
            tb[t].resize((p.TableHeight + 2) * p.TableWidth * 4);
            for (size_t i = 0; i < tb[t].size(); i += 4) {
                tb[t][i] = Chance(12) ? -Pick(1, 40) : Pick(0, 16 * in_w + 8);
                tb[t][i + 1] = Chance(12) ? -Pick(1, 40) : Pick(0, 16 * in_h + 8);
                tb[t][i + 2] = Chance(4) ? Pick(-40, 400) : Pick(0, 256);
                tb[t][i + 3] = sel_mode == 0 ? Pick(0, 2) : sel_mode == 1 ? t : int(i / 4 % 7 < 4);
                // Corners far beyond 32-bit interpolation.
                if (huge && Chance(5))
                    tb[t][i + Pick(0, 2)] = Chance(3) ? Pick(INT_MIN, INT_MAX) : Pick(-1, 1) * (1 << Pick(18, 30));
            }
        }
        p.TB1 = tb[0].data(), p.TB2 = tb[1].data();
        // Gains and knots, curves rising or falling; now and then a spacing
        // or depth off the frame cycle's 64 and 8.
        for (int& g : gain) g = Pick(600, 1600);
        for (int i = 0; i < 36; ++i) tcurve[i] = 64 * (i % 3 + 1) + Pick(-80, 80);
        if (Chance(6)) step = Pick(20, 90);
        if (Chance(6)) bits = Pick(9, 10);
    }
    int Pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }
    bool Chance(int n) { return Pick(1, n) == 1; }

    std::vector<unsigned char> Render(Compose compose) {
        std::vector<unsigned char> out = prefill;
        unsigned char* imgs[4] = {cams[0].data(), cams[1].data(), cams[2].data(), cams[3].data()};
        EXPECT_EQ(compose(imgs, in_w, in_h, out.data(), out_w, out_h, &p, gain, tcurve, step, bits), 1);
        return out;
    }
};

// Index and values of the first byte where two frames differ, for the message.
::testing::AssertionResult SameBytes(const std::vector<unsigned char>& a,
                                     const std::vector<unsigned char>& b) {
    if (a.size() != b.size()) return ::testing::AssertionFailure() << "sizes differ";
    for (size_t i = 0; i < a.size(); ++i)
        if (a[i] != b[i])
            return ::testing::AssertionFailure()
                   << "byte " << i << ": " << int(a[i]) << " vs " << int(b[i]);
    return ::testing::AssertionSuccess();
}

// Every instruction-set level this CPU runs, the scalar one first.
std::vector<int> Levels() {
    std::vector<int> levels;
    for (int isa = svc::kIsaScalar; isa <= svc::kIsaNeon; ++isa)
        if (svc::SetIsa(isa) == isa) levels.push_back(isa);
    svc::SetIsa(svc::CpuIsa());
    return levels;
}

class ComposeFast : public ::testing::TestWithParam<unsigned> {
protected:
    void TearDown() override { svc::SetIsa(svc::CpuIsa()); }
};

TEST_P(ComposeFast, MatchesReferenceOnRandomFrames) {
    for (int isa : Levels()) {
        svc::SetIsa(isa);
        for (unsigned i = 0; i < 30; ++i) {
            RandomFrame f(GetParam() * 1000 + i);
            EXPECT_TRUE(SameBytes(f.Render(DataProcessing), f.Render(svtest::ComposeReference)))
                << "seed " << GetParam() * 1000 + i << ", " << svc::IsaName(isa);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, ComposeFast, ::testing::Range(0u, 8u));

// Past the first cache width every column keeps its own chroma pair, as in
// the reference with a cache as wide as the output; the narrow reference
// refuses such a frame like the library above its widest output.
class ComposeFastWide : public ::testing::Test {
protected:
    void TearDown() override { svc::SetIsa(svc::CpuIsa()); }
};

TEST_F(ComposeFastWide, MatchesWideReferenceBeyond1280Columns) {
    for (int isa : Levels()) {
        svc::SetIsa(isa);
        long written_past = 0;  // the frames must reach past the old width
        for (unsigned i = 0; i < 12; ++i) {
            RandomFrame f(9000 + i, true);
            const std::vector<unsigned char> fast = f.Render(DataProcessing);
            EXPECT_TRUE(SameBytes(fast, f.Render(svtest::ComposeReferenceWide)))
                << "seed " << 9000 + i << ", " << svc::IsaName(isa);
            EXPECT_TRUE(SameBytes(f.prefill, f.Render(svtest::ComposeReference))) << "seed " << 9000 + i;
            for (int y = 0; y < f.out_h; ++y)
                for (int x = 1280; x < f.out_w; ++x)
                    written_past += fast[y * f.out_w + x] != f.prefill[y * f.out_w + x];
        }
        EXPECT_GT(written_past, 3000) << svc::IsaName(isa);
    }
}

class ComposeFastRig : public ::testing::Test {
protected:
    void TearDown() override {
        svc::SetIsa(svc::CpuIsa());
        sv_set_threads(1);
    }
    svtest::BenchRig rig;
    std::vector<unsigned char> prefill = std::vector<unsigned char>(rig.out.size());
    void SetUp() override {
        std::mt19937 rng(7);
        for (auto& b : prefill) b = static_cast<unsigned char>(rng());
    }
    std::vector<unsigned char> Render(svtest::BenchRig::Compose compose) {
        rig.out = prefill;
        rig.compose = compose;
        rig.Render();
        return rig.out;
    }
};

TEST_F(ComposeFastRig, MatchesReferenceOnEveryLevelAndThreadCount) {
    const std::vector<unsigned char> want = Render(svtest::ComposeReference);
    for (int isa : Levels())
        for (int threads = 1; threads <= 4; ++threads) {
            svc::SetIsa(isa);
            ASSERT_EQ(sv_set_threads(threads), threads);
            EXPECT_TRUE(SameBytes(Render(DataProcessing), want)) << svc::IsaName(isa) << ", " << threads << " threads";
        }
}

// A host may rewrite the tables in place between frames: the same pointers,
// new geometry, never the old picture.
TEST_F(ComposeFastRig, TablesChangedInPlaceAreSeen) {
    Render(DataProcessing);
    const tag_CtrlPara& p = rig.para;
    for (int round = 0; round < 4; ++round) {
        // A node's source column, row or weight inside the picture, or a
        // scalar of the walk.
        const size_t node = static_cast<size_t>(p.TableHeight / (2 + round)) * p.TableWidth + p.TableWidth / 3;
        if (round == 3)
            rig.para.ZoomFactorX += 7;
        else
            rig.tb[round % 2][4 * node + round] += 37;
        const std::vector<unsigned char> fast = Render(DataProcessing);
        EXPECT_TRUE(SameBytes(fast, Render(svtest::ComposeReference))) << "round " << round;
    }
}

// The colour tables follow every change of the corrections, and only a change.
TEST_F(ComposeFastRig, NewCorrectionsAreSeen) {
    for (int round = 0; round < 3; ++round) {
        if (round == 1) rig.gain[4] += 90;
        if (round == 2) rig.tcurve[13] -= 20;
        const std::vector<unsigned char> fast = Render(DataProcessing);
        EXPECT_TRUE(SameBytes(fast, Render(svtest::ComposeReference))) << "round " << round;
    }
}

}  // namespace
