// Colour conversion and tone mapping: worked examples and invariants.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>

#include "pipe/data_processing.h"

namespace {

using Triple = std::array<int, 3>;

Triple ToRgb(Triple yuv, int in_bits = 8, int out_bits = 8) {
    Triple rgb;
    YUV2RGB(yuv[0], yuv[1], yuv[2], rgb[0], rgb[1], rgb[2], in_bits, out_bits);
    return rgb;
}

Triple ToYuv(Triple rgb, int in_bits = 8, int out_bits = 8) {
    Triple yuv;
    RGB2YUV(rgb[0], rgb[1], rgb[2], yuv[0], yuv[1], yuv[2], in_bits, out_bits);
    return yuv;
}

struct Example {
    Triple in, out;
};

TEST(Yuv2Rgb, WorkedExamples) {
    const Example cases[] = {
        {{0, 200, 60}, {0, 0, 0}},          // black luma ignores chroma
        {{255, 128, 128}, {255, 255, 255}},
        {{128, 128, 128}, {128, 128, 128}},
        {{16, 240, 240}, {173, 0, 215}},
        {{100, 130, 105}, {68, 116, 103}},  // blue's v term tips 104 to 103
    };
    for (const Example& e : cases) EXPECT_EQ(ToRgb(e.in), e.out);
}

TEST(Rgb2Yuv, WorkedExamples) {
    const Example cases[] = {
        {{0, 0, 0}, {0, 128, 128}},
        {{128, 128, 128}, {128, 128, 128}},
        {{255, 0, 0}, {76, 85, 255}},
        {{1, 1, 0}, {1, 127, 128}},    // u = -256 rounds away from zero
        {{0, 0, 1}, {0, 129, 128}},    // Y rounds to 0 but y != 0: no short cut
        {{173, 0, 215}, {76, 206, 197}},
        {{-301, 153, 0}, {0, 128, 128}},  // y = 0 short-cuts even off black
    };
    for (const Example& e : cases) EXPECT_EQ(ToYuv(e.in), e.out);
}

TEST(ColourDepth, ScalesHonourBothDepths) {
    EXPECT_EQ(ToRgb({512, 512, 512}, 10, 10), (Triple{512, 512, 512}));
    EXPECT_EQ(ToRgb({1023, 512, 512}, 10, 8), (Triple{255, 255, 255}));
    EXPECT_EQ(ToYuv({255, 255, 255}, 8, 10), (Triple{1020, 512, 512}));
    EXPECT_EQ(ToYuv({0, 0, 0}, 8, 10), (Triple{0, 512, 512}));
}

TEST(ColourConversion, GreysAreExactAndResultsStayInRange) {
    for (int g = 0; g < 256; ++g) {
        EXPECT_EQ(ToRgb({g, 128, 128}), (Triple{g, g, g}));
        EXPECT_EQ(ToYuv({g, g, g}), (Triple{g, 128, 128}));
    }
    for (int y = 0; y < 256; y += 5)
        for (int u = 0; u < 256; u += 5)
            for (int v = 0; v < 256; v += 5)
                for (int c : ToRgb({y, u, v})) ASSERT_TRUE(c >= 0 && c <= 255);
}

TEST(ColourConversion, RoundTripOfRgbStaysClose) {
    int worst = 0;
    for (int r = 0; r < 256; ++r)
        for (int g = 0; g < 256; g += 3)
            for (int b = 0; b < 256; b += 3) {
                const Triple in = {r, g, b}, yuv = ToYuv(in);
                if (yuv[0] == 0) continue;  // black luma: the short cut drops the chroma
                const Triple back = ToRgb(yuv);
                for (int i = 0; i < 3; ++i) worst = std::max(worst, std::abs(back[i] - in[i]));
            }
    EXPECT_LE(worst, 2);
}

struct ToneCase {
    std::array<int, 3> gain;
    std::array<int, 9> knots;
    Triple in, out;
};

const std::array<int, 3> kUnit = {1024, 1024, 1024};
const std::array<int, 9> kIdentity = {64, 128, 192, 64, 128, 192, 64, 128, 192};

Triple Tone(std::array<int, 3> gain, std::array<int, 9> knots, Triple v, int step = 64,
            int bits = 8) {
    ToneMapping(gain.data(), knots.data(), step, v[0], v[1], v[2], bits);
    return v;
}

TEST(ToneMapping, WorkedExamples) {
    const ToneCase cases[] = {
        {kUnit, kIdentity, {255, 255, 255}, {255, 255, 255}},
        // Clamped to 255 before the curve, whose last segment runs from K2 = 0.
        {{2048, 1024, 1024}, {64, 128, 0, 64, 128, 192, 64, 128, 192}, {200, 9, 9}, {252, 9, 9}},
        {{-1024, 1024, 1024}, kIdentity, {100, 0, 0}, {0, 0, 0}},
        // Falling segment: (-50 * 32 + 32) / 64 truncates to -24.
        {kUnit, {100, 50, 192, 64, 128, 192, 64, 128, 192}, {96, 96, 96}, {76, 96, 96}},
        // Each channel takes its own gain and knots.
        {{1024, 512, 1024}, {64, 128, 192, 64, 128, 192, 0, 0, 0}, {100, 100, 100}, {100, 50, 0}},
    };
    for (const ToneCase& c : cases) EXPECT_EQ(Tone(c.gain, c.knots, c.in), c.out);
}

TEST(ToneMapping, IdentityKnotsKeepEveryLevel) {
    for (int v = 0; v < 256; ++v) EXPECT_EQ(Tone(kUnit, kIdentity, {v, v, v}), (Triple{v, v, v}));
    const std::array<int, 9> ten = {256, 512, 768, 256, 512, 768, 256, 512, 768};
    for (int v = 0; v < 1024; v += 7)
        EXPECT_EQ(Tone(kUnit, ten, {v, v, v}, 256, 10), (Triple{v, v, v}));
}

TEST(ToneMapping, RisingKnotsGiveRisingCurves) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> level(0, 256), g(256, 4096);
    for (int trial = 0; trial < 200; ++trial) {
        std::array<int, 9> knots;
        for (int ch = 0; ch < 3; ++ch) {
            std::array<int, 3> k = {level(rng), level(rng), level(rng)};
            std::sort(k.begin(), k.end());
            std::copy(k.begin(), k.end(), knots.begin() + 3 * ch);
        }
        const std::array<int, 3> gain = {g(rng), g(rng), g(rng)};
        Triple prev = Tone(gain, knots, {0, 0, 0});
        for (int v = 1; v < 256; ++v) {
            const Triple cur = Tone(gain, knots, {v, v, v});
            for (int ch = 0; ch < 3; ++ch) ASSERT_GE(cur[ch], prev[ch]) << "level " << v;
            prev = cur;
        }
    }
}

}  // namespace
