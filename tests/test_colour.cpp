// Colour conversion and tone mapping: worked examples and invariants.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>

#include "pipe/data_processing.h"

namespace {

using Triple = std::array<int, 3>;
using Conversion = void (*)(int, int, int, int&, int&, int&, int, int);

// Inputs go by value, so the results may overwrite them in place.
Triple Convert(Conversion f, Triple c, int in_bits = 8, int out_bits = 8) {
    f(c[0], c[1], c[2], c[0], c[1], c[2], in_bits, out_bits);
    return c;
}

TEST(ColourConversion, WorkedExamples) {
    const struct { Conversion f; Triple in, out; int in_bits = 8, out_bits = 8; } cases[] = {
        {YUV2RGB, {0, 200, 60}, {0, 0, 0}},  // black luma ignores chroma
        {YUV2RGB, {255, 128, 128}, {255, 255, 255}},
        {YUV2RGB, {128, 128, 128}, {128, 128, 128}},
        {YUV2RGB, {16, 240, 240}, {173, 0, 215}},
        {YUV2RGB, {100, 130, 105}, {68, 116, 103}},  // blue's v term tips 104 to 103
        {YUV2RGB, {512, 512, 512}, {512, 512, 512}, 10, 10},
        {YUV2RGB, {1023, 512, 512}, {255, 255, 255}, 10, 8},
        {RGB2YUV, {0, 0, 0}, {0, 128, 128}},
        {RGB2YUV, {128, 128, 128}, {128, 128, 128}},
        {RGB2YUV, {255, 0, 0}, {76, 85, 255}},
        {RGB2YUV, {1, 1, 0}, {1, 127, 128}},  // u = -256 rounds away from zero
        {RGB2YUV, {0, 0, 1}, {0, 129, 128}},  // Y rounds to 0 but y != 0: no short cut
        {RGB2YUV, {173, 0, 215}, {76, 206, 197}},
        {RGB2YUV, {-301, 153, 0}, {0, 128, 128}},  // y = 0 short-cuts even off black
        {RGB2YUV, {255, 255, 255}, {1020, 512, 512}, 8, 10},
        {RGB2YUV, {0, 0, 0}, {0, 512, 512}, 8, 10},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Convert(c.f, c.in, c.in_bits, c.out_bits), c.out) << (c.f == YUV2RGB ? "to RGB" : "to YUV");
}

TEST(ColourConversion, GreysExactRangeKeptRoundTripClose) {
    for (int g = 0; g < 256; ++g) EXPECT_EQ(Convert(YUV2RGB, {g, 128, 128}), (Triple{g, g, g}));
    for (int g = 0; g < 256; ++g) EXPECT_EQ(Convert(RGB2YUV, {g, g, g}), (Triple{g, 128, 128}));
    for (int y = 0; y < 256; y += 5)
        for (int u = 0; u < 256; u += 5)
            for (int v = 0; v < 256; v += 5)
                for (int c : Convert(YUV2RGB, {y, u, v})) ASSERT_TRUE(c >= 0 && c <= 255);
    for (int r = 0; r < 256; ++r)
        for (int g = 0; g < 256; g += 3)
            for (int b = 0; b < 256; b += 3) {
                const Triple in = {r, g, b}, yuv = Convert(RGB2YUV, in), back = Convert(YUV2RGB, yuv);
                if (yuv[0] == 0) continue;  // black luma: the short cut drops the chroma
                for (int i = 0; i < 3; ++i)
                    ASSERT_LE(std::abs(back[i] - in[i]), 2) << r << "," << g << "," << b;
            }
}

using Knots = std::array<int, 9>;
const Triple kUnit = {1024, 1024, 1024};
const Knots kIdentity = {64, 128, 192, 64, 128, 192, 64, 128, 192};

Triple Tone(Triple gain, Knots knots, Triple v, int step = 64, int bits = 8) {
    ToneMapping(gain.data(), knots.data(), step, v[0], v[1], v[2], bits);
    return v;
}

TEST(ToneMapping, WorkedExamples) {
    const struct { Triple gain; Knots knots; Triple in, out; } cases[] = {
        {kUnit, kIdentity, {255, 255, 255}, {255, 255, 255}},
        // Clamped to 255 before the curve, whose last segment runs from K2 = 0.
        {{2048, 1024, 1024}, {64, 128, 0, 64, 128, 192, 64, 128, 192}, {200, 9, 9}, {252, 9, 9}},
        {{-1024, 1024, 1024}, kIdentity, {100, 0, 0}, {0, 0, 0}},
        // Falling segment: (-50 * 32 + 32) / 64 truncates to -24.
        {kUnit, {100, 50, 192, 64, 128, 192, 64, 128, 192}, {96, 96, 96}, {76, 96, 96}},
        // Each channel takes its own gain and knots.
        {{1024, 512, 1024}, {64, 128, 192, 64, 128, 192, 0, 0, 0}, {100, 100, 100}, {100, 50, 0}},
    };
    for (const auto& c : cases) EXPECT_EQ(Tone(c.gain, c.knots, c.in), c.out);
    for (int v = 0; v < 256; ++v) EXPECT_EQ(Tone(kUnit, kIdentity, {v, v, v}), (Triple{v, v, v}));
    const Knots ten = {256, 512, 768, 256, 512, 768, 256, 512, 768};
    for (int v = 0; v < 1024; v += 7) EXPECT_EQ(Tone(kUnit, ten, {v, v, v}, 256, 10), (Triple{v, v, v}));
    // Spacing 32 on 8 bits: segment 4 runs between the channel's knots 3 and
    // 4, which belong to the next channel: R 128 + (32 * 12 + 16) / 32 = 140,
    // G 200 + (10 * 12 + 16) / 32 = 204. B has no knots past its own and
    // keeps its last segment. A 7-bit gain clamps at 127.
    const Knots wide = {32, 64, 96, 128, 160, 192, 200, 210, 220};
    EXPECT_EQ(Tone(kUnit, wide, {140, 140, 140}, 32), (Triple{140, 204, 255}));
    EXPECT_EQ(Tone({2048, 1024, 1024}, kIdentity, {100, 0, 0}, 64, 7)[0], 127);
}

TEST(ToneMapping, RisingKnotsGiveRisingCurves) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> level(0, 256), g(256, 4096);
    for (int trial = 0; trial < 200; ++trial) {
        Knots knots;
        for (int& k : knots) k = level(rng);
        for (int ch = 0; ch < 3; ++ch) std::sort(knots.begin() + 3 * ch, knots.begin() + 3 * ch + 3);
        const Triple gain = {g(rng), g(rng), g(rng)};
        for (int v = 1; v < 256; ++v) {
            const Triple prev = Tone(gain, knots, {v - 1, v - 1, v - 1});
            const Triple cur = Tone(gain, knots, {v, v, v});
            for (int ch = 0; ch < 3; ++ch) ASSERT_GE(cur[ch], prev[ch]) << "level " << v;
        }
    }
}

}  // namespace
