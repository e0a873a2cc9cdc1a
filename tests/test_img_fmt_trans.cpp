#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "common/yuyv_reference.h"
#include "img_fmt_trans.h"
#include "simd/isa.h"

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

// Every instruction-set level this CPU runs, each in force for one call of
// `body`; the CPU's own level is restored afterwards.
template <class Body>
void ForEachIsa(Body body) {
    for (int isa = svc::kIsaScalar; isa <= svc::kIsaNeon; ++isa) {
        if (svc::SetIsa(isa) != isa) continue;
        SCOPED_TRACE(svc::IsaName(isa));
        body();
    }
    svc::SetIsa(svc::CpuIsa());
}

using UBytes = std::vector<unsigned char>;
constexpr int kGuard = 80;  // bytes past the image, which must stay as they were

UBytes RandomBytes(std::mt19937& rng, size_t n) {
    UBytes b(n);
    for (unsigned char& c : b) c = static_cast<unsigned char>(rng());
    return b;
}

// The sizes: the vector widths and their neighbours, then random ones;
// widths are even, so a vector body always leaves a tail of 0..62 pixels.
std::vector<std::pair<int, int>> Sizes(std::mt19937& rng) {
    std::vector<std::pair<int, int>> sizes;
    for (int w : {2, 6, 14, 16, 18, 30, 32, 34, 62, 64, 66, 94, 126, 128, 130, 1282})
        sizes.push_back({w, 2 + 2 * static_cast<int>(rng() % 4)});
    for (int i = 0; i < 60; ++i)
        sizes.push_back({2 + 2 * static_cast<int>(rng() % 150), 2 + 2 * static_cast<int>(rng() % 20)});
    return sizes;
}

// All four pairs at every level against the plain loops, from a source and
// into a destination that start at odd offsets of their buffers; the
// destination starts out as noise, and the bytes after it must survive.
TEST(YuyvKernels, EveryPairAndLevelMatchesThePlainConversion) {
    std::mt19937 rng(20);
    const auto sizes = Sizes(rng);
    ForEachIsa([&] {
        for (auto [w, h] : sizes)
            for (auto [from, to] : std::initializer_list<std::pair<int, int>>{{3, 1}, {3, 0}, {1, 3}, {0, 3}}) {
                const size_t inBytes = from == 3 ? w * h * 2 : w * h * 3 / 2;
                const size_t outBytes = to == 3 ? w * h * 2 : w * h * 3 / 2;
                const size_t shift = 1 + rng() % 63;
                const UBytes src = RandomBytes(rng, shift + inBytes);
                UBytes want = RandomBytes(rng, shift + outBytes + kGuard), got = want;
                svtest::YuyvReference(src.data() + shift, want.data() + shift, w, h, from, to);
                YUYV_I420(reinterpret_cast<char*>(const_cast<unsigned char*>(src.data() + shift)),
                          reinterpret_cast<char*>(got.data() + shift), w, h, from, to);
                ASSERT_EQ(got, want) << w << " x " << h << ", " << from << " -> " << to;
            }
    });
}

// Bands that tile the frame, converted in any order, give the whole-frame
// bytes; a band off the row pairs or outside the image writes nothing.
TEST(YuyvKernels, RowBandsTileTheFrame) {
    std::mt19937 rng(21);
    ForEachIsa([&] {
        for (int trial = 0; trial < 40; ++trial) {
            const int w = 2 + 2 * static_cast<int>(rng() % 150), h = 2 + 2 * static_cast<int>(rng() % 30);
            const UBytes src = RandomBytes(rng, w * h * 2);
            UBytes whole(w * h * 3 / 2 + kGuard, 7), banded = whole;
            YUYV_I420(reinterpret_cast<char*>(const_cast<unsigned char*>(src.data())),
                      reinterpret_cast<char*>(whole.data()), w, h, 3, 1);
            std::vector<int> cuts = {0, h};
            for (int k = rng() % 5; k > 0; --k) cuts.push_back(2 * static_cast<int>(rng() % (h / 2 + 1)));
            std::sort(cuts.begin(), cuts.end());
            std::vector<size_t> order(cuts.size() - 1);
            for (size_t i = 0; i < order.size(); ++i) order[i] = i;
            std::shuffle(order.begin(), order.end(), rng);
            for (size_t i : order)
                svc::ConvertYuyvToNv12Rows(src.data(), banded.data(), w, h, cuts[i], cuts[i + 1]);
            ASSERT_EQ(banded, whole) << w << " x " << h;
        }
    });
    const UBytes src(4 * 4 * 2, 1);
    UBytes dst(4 * 4 * 3 / 2, 9);
    testing::internal::CaptureStdout();
    for (auto [begin, end] : std::initializer_list<std::pair<int, int>>{{1, 4}, {0, 3}, {-2, 2}, {2, 6}, {4, 2}})
        svc::ConvertYuyvToNv12Rows(src.data(), dst.data(), 4, 4, begin, end);
    svc::ConvertYuyvToNv12Rows(src.data(), dst.data(), 6, 3, 0, 2);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 6) << out;
    EXPECT_NE(out.find("error! ConvertYuyvToNv12Rows needs an even image size, two buffers and even "
                       "rows 0 <= begin <= end <= height (4 x 4, rows 1..4)\n"),
              std::string::npos);
    EXPECT_EQ(dst, UBytes(4 * 4 * 3 / 2, 9));
}

}  // namespace
