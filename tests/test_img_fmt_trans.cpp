#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "img_fmt_trans.h"

namespace {

using Bytes = std::vector<char>;

void Convert(Bytes& src, Bytes& dst, int w, int h, int from, int to) {
    YUYV_I420(src.data(), dst.data(), w, h, from, to);
}

// Offsets of pixel (x, y) in each layout, straight from the layout table.
int PackedY(int w, int x, int y) { return y * 2 * w + 2 * x; }
int PackedU(int w, int x, int y) { return y * 2 * w + (x / 2) * 4 + 1; }
int PlanarU(int w, int h, int x, int y, int code) {
    return code == 1 ? w * h + (y / 2) * w + (x / 2) * 2 : w * h + (y / 2) * (w / 2) + x / 2;
}
int PlanarV(int w, int h, int x, int y, int code) {
    return code == 1 ? PlanarU(w, h, x, y, 1) + 1 : (w * h * 5) / 4 + (y / 2) * (w / 2) + x / 2;
}

TEST(YuyvConversion, FourByTwoExample) {
    Bytes src = {10, 20, 11, 30, 12, 21, 13, 31, 50, 60, 51, 70, 52, 61, 53, 71};
    Bytes dst(12, 0);
    Convert(src, dst, 4, 2, 3, 1);
    EXPECT_EQ(dst, (Bytes{10, 11, 12, 13, 50, 51, 52, 53, 20, 30, 21, 31}));
}

class YuyvRandom : public testing::TestWithParam<std::tuple<int, int, int>> {};

// Both directions against the per-pixel layout formulas; the round trip
// keeps every pair's first row and gives its second row the first's chroma.
TEST_P(YuyvRandom, MatchesLayoutFormulas) {
    const auto [w, h, code] = GetParam();
    std::mt19937 rng(w * 131 + h * 7 + code);
    Bytes packed(w * h * 2), planar(w * h * 3 / 2), back(w * h * 2);
    for (char& b : packed) b = static_cast<char>(rng());
    Convert(packed, planar, w, h, 3, code);
    Convert(planar, back, w, h, code, 3);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int top = y & ~1;
            ASSERT_EQ(planar[y * w + x], packed[PackedY(w, x, y)]) << x << "," << y;
            ASSERT_EQ(planar[PlanarU(w, h, x, y, code)], packed[PackedU(w, x, top)]);
            ASSERT_EQ(planar[PlanarV(w, h, x, y, code)], packed[PackedU(w, x, top) + 2]);
            ASSERT_EQ(back[PackedY(w, x, y)], packed[PackedY(w, x, y)]);
            ASSERT_EQ(back[PackedU(w, x, y)], packed[PackedU(w, x, top)]);
            ASSERT_EQ(back[PackedU(w, x, y) + 2], packed[PackedU(w, x, top) + 2]);
        }
}

INSTANTIATE_TEST_SUITE_P(Sizes, YuyvRandom,
                         testing::Combine(testing::Values(2, 6, 64), testing::Values(2, 4, 48),
                                          testing::Values(0, 1)));

TEST(YuyvConversion, UnknownPairsAndOddSizesLeaveTheDestination) {
    Bytes src(64, 1), dst(64, 9);
    for (auto [from, to] : std::initializer_list<std::pair<int, int>>{{3, 2}, {0, 1}, {2, 3}, {1, 0}, {3, 3}, {1, 1}})
        Convert(src, dst, 4, 4, from, to);
    testing::internal::CaptureStdout();
    Convert(src, dst, 3, 4, 3, 1);
    Convert(src, dst, 4, 0, 1, 3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "error! YUYV_I420 needs an even image size and two buffers (3 x 4)\n"
              "error! YUYV_I420 needs an even image size and two buffers (4 x 0)\n");
    EXPECT_EQ(dst, Bytes(64, 9));
}

}  // namespace
