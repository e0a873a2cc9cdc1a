// Seam mismatch through the library's own composition, on a hand-made
// quadrant table: TB1 shows the front camera in the top 24 rows and the
// rear one below, TB2 the left camera in the left 32 columns and the right
// one beyond; every pixel is seen by both tables at weight 128.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <vector>

#include "rig/frames.h"
#include "rig/seams.h"

namespace {

constexpr int kOutW = 64, kOutH = 48, kCamW = 80, kCamH = 64;

class SeamProbeTest : public ::testing::Test {
protected:
    void SetUp() override {
        const int tw = kOutW / 8 + 1, th = kOutH / 8 + 1;
        for (auto* tb : {&tb1_, &tb2_}) tb->assign(rig::table_room(kOutW, kOutH), -1);
        for (int i = 0; i < tw * th; ++i) {
            // Output pixel (x, y) samples camera pixel (x + 1, y + 1).
            const int c = i % tw, r = i / tw;
            const int node[2][4] = {{16 * (8 * c + 1), 16 * (8 * r + 1), 128, 8 * r < 24 ? 0 : 1},
                                    {16 * (8 * c + 1), 16 * (8 * r + 1), 128, 8 * c < 32 ? 0 : 1}};
            std::memcpy(&tb1_[4 * i], node[0], sizeof node[0]);
            std::memcpy(&tb2_[4 * i], node[1], sizeof node[1]);
        }
        para_ = tag_CtrlPara{kOutW, kOutH, tw, th, 3, 3, 0, 0, 0, 0, kOutW - 1, kOutH - 1,
                             64, 64, 1000, 1001, 1000, 1001, tb1_.data(), tb2_.data()};
    }

    // Flat grey cameras (camera 0 in columns alternating `stripe` around its
    // level) measured with the rear camera's gain at rear_gain / 1024.
    rig::SeamReport Measure(const int (&level)[4], int stripe = 0, int rear_gain = 1024) {
        std::vector<uint8_t> cam[4];
        unsigned char* ptr[4];
        for (int k = 0; k < 4; ++k) {
            cam[k].assign(rig::nv12_bytes(kCamW, kCamH), 128);
            for (int i = 0; i < kCamW * kCamH; ++i)
                cam[k][i] = uint8_t(level[k] + (k == 0 ? (i % 2 ? stripe : -stripe) : 0));
            ptr[k] = cam[k].data();
        }
        auto c = rig::Corrections::identity();
        for (int ch = 0; ch < 3; ++ch) c.gain[3 + ch] = rear_gain;
        probe_.emplace(para_, kCamW, kCamH, kOutW, kOutH);
        return probe_->measure(ptr, c.gain, c.tcurve);
    }

    std::vector<int> tb1_, tb2_;
    tag_CtrlPara para_{};
    std::optional<rig::SeamProbe> probe_;
};

TEST_F(SeamProbeTest, OverlapsFollowTheCameraPairsAndSkipMixedCells) {
    const rig::SeamReport r = Measure({60, 100, 140, 200});
    // The mesh cells across row 24 and column 32 mix cameras: weight 0.
    const long pixels[4] = {16 * 24, 16 * 32, 24 * 32, 24 * 24};
    const double diff[4] = {80, 140, 100, 40};  // |front - left| ...
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(r[i].name);
        EXPECT_EQ(r[i].pixels, pixels[i]);
        EXPECT_DOUBLE_EQ(r[i].raw, diff[i]);
        EXPECT_NEAR(r[i].lowpass, diff[i], 1e-4);
    }
    EXPECT_EQ(cv::countNonZero(probe_->covered()), kOutW * kOutH);
    EXPECT_EQ(rig::overall(r).pixels, 16 * 24 + 16 * 32 + 24 * 32 + 24 * 24);
}

TEST_F(SeamProbeTest, CorrectionsAndLowPassShapeTheMismatch) {
    const rig::SeamReport gained = Measure({60, 100, 140, 200}, 0, 2048);  // rear x 2
    EXPECT_DOUBLE_EQ(gained[2].raw, 0.0);   // rear 200 against right 200
    EXPECT_DOUBLE_EQ(gained[3].raw, 60.0);  // rear 200 against left 140
    EXPECT_DOUBLE_EQ(gained[0].raw, 80.0);  // front untouched
    const rig::SeamReport striped = Measure({60, 100, 60, 200}, 20);  // front alternates 40 / 80
    EXPECT_DOUBLE_EQ(striped[0].raw, 20.0);
    EXPECT_LT(striped[0].lowpass, 5.0);
}

TEST_F(SeamProbeTest, UnseenTableLeavesNoOverlap) {
    for (size_t i = 0; i < tb2_.size(); i += 4) tb2_[i] = -1;
    const rig::SeamReport r = Measure({60, 100, 140, 200});
    for (const auto& o : r) EXPECT_EQ(o.pixels, 0);
    EXPECT_NE(rig::format_seams({{"x", r}}).find(" -\n"), std::string::npos);
}

}  // namespace
