#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "img_fmt_trans.h"

namespace {

using Bytes = std::vector<char>;

TEST(YuyvConversion, FourByTwoExample) {
    Bytes src = {10, 20, 11, 30, 12, 21, 13, 31, 50, 60, 51, 70, 52, 61, 53, 71}, dst(12, 0);
    YUYV_I420(src.data(), dst.data(), 4, 2, 3, 1);
    EXPECT_EQ(dst, (Bytes{10, 11, 12, 13, 50, 51, 52, 53, 20, 30, 21, 31}));
}

class YuyvRandom : public testing::TestWithParam<std::tuple<int, int, int>> {};

// Both directions against the per-pixel offsets of each layout; the round
// trip keeps every pair's first row and gives its second row the first's chroma.
TEST_P(YuyvRandom, MatchesLayoutFormulas) {
    const auto [w, h, code] = GetParam();
    std::mt19937 rng(w * 131 + h * 7 + code);
    Bytes packed(w * h * 2), planar(w * h * 3 / 2), back(w * h * 2);
    for (char& b : packed) b = static_cast<char>(rng());
    YUYV_I420(packed.data(), planar.data(), w, h, 3, code);
    YUYV_I420(planar.data(), back.data(), w, h, code, 3);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int py = y * 2 * w + 2 * x, pu = y * 2 * w + (x / 2) * 4 + 1, top = pu - (y % 2) * 2 * w;
            const int u = w * h + (y / 2) * (code == 1 ? w : w / 2) + (code == 1 ? (x / 2) * 2 : x / 2);
            const int v = code == 1 ? u + 1 : u + w * h / 4;
            const auto want = std::make_tuple(packed[py], packed[top], packed[top + 2]);
            ASSERT_EQ(std::make_tuple(planar[y * w + x], planar[u], planar[v]), want) << x << "," << y;
            ASSERT_EQ(std::make_tuple(back[py], back[pu], back[pu + 2]), want) << x << "," << y;
        }
}

INSTANTIATE_TEST_SUITE_P(Sizes, YuyvRandom, testing::Combine(testing::Values(2, 6, 64), testing::Values(2, 4, 48),
                                                             testing::Values(0, 1)));

TEST(YuyvConversion, UnknownPairsAndOddSizesLeaveTheDestination) {
    Bytes src(64, 1), dst(64, 9);
    for (auto [from, to] : std::initializer_list<std::pair<int, int>>{{3, 2}, {0, 1}, {2, 3}, {1, 0}, {3, 3}, {1, 1}})
        YUYV_I420(src.data(), dst.data(), 4, 4, from, to);
    testing::internal::CaptureStdout();
    YUYV_I420(src.data(), dst.data(), 3, 4, 3, 1);
    YUYV_I420(src.data(), dst.data(), 4, 0, 1, 3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "error! YUYV_I420 needs an even image size and two buffers (3 x 4)\n"
              "error! YUYV_I420 needs an even image size and two buffers (4 x 0)\n");
    EXPECT_EQ(dst, Bytes(64, 9));
}

}  // namespace
