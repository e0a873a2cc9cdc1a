// Every instruction-set variant of the composition's row kernels against the
// portable one, on random rows of every length: bilinear samples at the
// camera's last interior column and row, black luma, colour tables, weights
// beyond 256 and below 0. Buffers have exactly the size a call may touch,
// so the sanitizer build catches any read or write past them.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "pipe/compose_kernels.h"
#include "simd/isa.h"

namespace {

using svc::ComposeKernels;
using Bytes = std::vector<unsigned char>;

struct Variant {
    const char* name;
    const ComposeKernels* k;
};

std::vector<Variant> Variants() {
    std::vector<Variant> v;
    const svc::Isa cpu = svc::CpuIsa();
    (void)cpu;
#if defined(SV_HAVE_X86_KERNELS)
    if (cpu != svc::kIsaNeon && cpu >= svc::kIsaSse41) v.push_back({"sse4.1", &svc::kComposeSse41});
    if (cpu != svc::kIsaNeon && cpu >= svc::kIsaAvx2) v.push_back({"avx2", &svc::kComposeAvx2});
    if (cpu != svc::kIsaNeon && cpu >= svc::kIsaAvx512) v.push_back({"avx512", &svc::kComposeAvx512});
#endif
#if defined(SV_HAVE_NEON_KERNELS)
    if (cpu == svc::kIsaNeon) v.push_back({"neon", &svc::kComposeNeon});
#endif
    return v;
}

class Rows : public ::testing::Test {
protected:
    std::mt19937 rng{20261123};
    int Pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }
    // Bytes often at the ends of the range: black luma, clamped colours.
    Bytes Random(size_t n) {
        Bytes b(n);
        for (auto& x : b) x = static_cast<unsigned char>(Pick(0, 5) == 0 ? 0 : Pick(0, 5) == 0 ? 255 : Pick(0, 255));
        return b;
    }
    // A position inside the camera's interior, often on its last column or row.
    uint32_t Position(int w, int h) {
        const int sx = Pick(0, 4) == 0 ? 16 * (w - 2) + Pick(0, 15) : Pick(16, 16 * (w - 1) - 1);
        const int sy = Pick(0, 4) == 0 ? 16 * (h - 2) + Pick(0, 15) : Pick(16, 16 * (h - 1) - 1);
        return static_cast<uint32_t>(sx) | static_cast<uint32_t>(sy) << 16;
    }
    static constexpr int kTrials = 400;
};

TEST_F(Rows, SamplesMatchThePortableKernels) {
    for (const Variant& v : Variants()) {
        for (int trial = 0; trial < kTrials; ++trial) {
            const int w = 2 * Pick(2, 40), h = 2 * Pick(2, 24), n = Pick(0, 70);
            const Bytes img = Random(static_cast<size_t>(w) * h * 3 / 2);
            std::vector<uint32_t> pos(static_cast<size_t>(n));
            for (auto& p : pos) p = Position(w, h);
            Bytes want(n), got(n);
            svc::kComposeScalar.sample_luma(pos.data(), n, img.data(), w, want.data());
            v.k->sample_luma(pos.data(), n, img.data(), w, got.data());
            ASSERT_EQ(got, want) << v.name << " luma, trial " << trial;

            // Pairs read the even positions only: the last odd one may be absent.
            const int pairs = (n + 1) / 2;
            std::vector<uint32_t> even(pos.begin(), pos.begin() + (pairs ? 2 * pairs - 1 : 0));
            Bytes uv_want(2 * pairs), uv_got(2 * pairs);
            svc::kComposeScalar.sample_chroma(even.data(), pairs, img.data(), w, h, uv_want.data());
            v.k->sample_chroma(even.data(), pairs, img.data(), w, h, uv_got.data());
            ASSERT_EQ(uv_got, uv_want) << v.name << " chroma, trial " << trial;
        }
    }
}

TEST_F(Rows, ColourCorrectionMatchesThePortableKernel) {
    for (const Variant& v : Variants()) {
        for (int trial = 0; trial < kTrials; ++trial) {
            const int n = Pick(0, 100), pairs = (n + 1) / 2;
            const Bytes y = Random(n), uv = Random(2 * pairs), lut = Random(3 * 256);
            const bool chroma = trial % 2 == 0;
            Bytes y_want(n), y_got(n);
            Bytes uv_want = Random(2 * pairs), uv_got = uv_want;
            svc::kComposeScalar.correct(y.data(), uv.data(), n, lut.data(), y_want.data(),
                                        chroma ? uv_want.data() : nullptr);
            v.k->correct(y.data(), uv.data(), n, lut.data(), y_got.data(), chroma ? uv_got.data() : nullptr);
            ASSERT_EQ(y_got, y_want) << v.name << " luma, trial " << trial;
            ASSERT_EQ(uv_got, uv_want) << v.name << " chroma, trial " << trial;
        }
    }
}

TEST_F(Rows, BlendsMatchThePortableKernels) {
    for (const Variant& v : Variants()) {
        for (int trial = 0; trial < kTrials; ++trial) {
            const int n = Pick(0, 70), pairs = (n + 1) / 2;
            const Bytes a = Random(n), b = Random(n);
            std::vector<uint32_t> w(static_cast<size_t>(n));
            // Weights usually summing to 256, now and then anything 16 bits hold.
            for (auto& x : w) {
                const int w0 = Pick(0, 3) == 0 ? Pick(-32768, 32767) : Pick(0, 256);
                const int w1 = Pick(0, 3) == 0 ? Pick(-32768, 32767) : 256 - w0;
                x = static_cast<uint16_t>(w0) | static_cast<uint32_t>(static_cast<uint16_t>(w1)) << 16;
            }
            Bytes want(n), got(n);
            svc::kComposeScalar.blend(a.data(), b.data(), w.data(), n, want.data());
            v.k->blend(a.data(), b.data(), w.data(), n, got.data());
            ASSERT_EQ(got, want) << v.name << " blend, trial " << trial;

            const Bytes ua = Random(2 * pairs), ub = Random(2 * pairs);
            std::vector<uint32_t> pw(w.begin(), w.begin() + (pairs ? 2 * pairs - 1 : 0));
            Bytes pwant(2 * pairs), pgot(2 * pairs);
            svc::kComposeScalar.blend_pairs(ua.data(), ub.data(), pw.data(), pairs, pwant.data());
            v.k->blend_pairs(ua.data(), ub.data(), pw.data(), pairs, pgot.data());
            ASSERT_EQ(pgot, pwant) << v.name << " pairs, trial " << trial;
        }
    }
}

// The portable kernel itself, on values worked out by hand.
TEST(RowsPortable, WorkedValues) {
    // Luma 10 20 / 30 40 at fractions 8/16, 8/16: top 15, bottom 35, 25.
    const unsigned char img[] = {0, 0, 0, 0, 0, 10, 20, 0, 0, 30, 40, 0, 0, 0, 0, 0,
                                 128, 128, 128, 128, 128, 128, 128, 128};
    const uint32_t pos = (16 + 8) | (16 + 8) << 16;
    unsigned char y = 0;
    svc::kComposeScalar.sample_luma(&pos, 1, img, 4, &y);
    EXPECT_EQ(y, 25);

    // Identity tables: grey stays grey, black luma gives 0, 128, 128, and a
    // saturated red (Y 76, U 85, V 255) keeps its luma.
    unsigned char lut[3 * 256];
    for (int i = 0; i < 3 * 256; ++i) lut[i] = static_cast<unsigned char>(i & 255);
    const unsigned char yin[4] = {128, 0, 76, 76}, uv[4] = {128, 128, 85, 255};
    unsigned char yout[4], uvout[4];
    svc::kComposeScalar.correct(yin, uv, 4, lut, yout, uvout);
    EXPECT_EQ(yout[0], 128);
    EXPECT_EQ(yout[1], 0);
    EXPECT_EQ(uvout[0], 128);
    EXPECT_EQ(uvout[1], 128);
    EXPECT_EQ(yout[2], 76);
    EXPECT_EQ(uvout[2], 85);
    EXPECT_EQ(uvout[3], 255);

    // 200 * 128 + 100 * 128 = 38400, >> 8 = 150; 255 * 512 >> 8 = 510, low byte 254.
    const unsigned char a[2] = {200, 255}, b[2] = {100, 0};
    const uint32_t w[2] = {128u | 128u << 16, 512u};
    unsigned char out[2];
    svc::kComposeScalar.blend(a, b, w, 2, out);
    EXPECT_EQ(out[0], 150);
    EXPECT_EQ(out[1], 254);
}

}  // namespace
