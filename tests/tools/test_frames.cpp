// Frame layouts and files of the command-line tool.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "img_fmt_trans.h"
#include "rig/frames.h"
#include "rig/progress.h"

namespace {

namespace fs = std::filesystem;

TEST(Frames, YuyvPairSharesTheRoundedMeanChroma) {
    // RGB2YUV: red is (76, 85, 255), black (0, 128, 128).
    cv::Mat bgr(1, 2, CV_8UC3);
    bgr.at<cv::Vec3b>(0, 0) = cv::Vec3b(0, 0, 255);
    bgr.at<cv::Vec3b>(0, 1) = cv::Vec3b(0, 0, 0);
    uint8_t yuyv[4];
    rig::bgr_to_yuyv(bgr, yuyv);
    EXPECT_EQ(yuyv[0], 76);
    EXPECT_EQ(yuyv[1], (85 + 128 + 1) / 2);
    EXPECT_EQ(yuyv[2], 0);
    EXPECT_EQ(yuyv[3], (255 + 128 + 1) / 2);
}

// Grey survives the trip through the library's own YUYV -> NV12 conversion
// byte for byte, whatever the image: a misplaced byte would not.
TEST(Frames, GreyRoundTripThroughTheLibraryLayout) {
    cv::Mat grey(6, 8, CV_8UC1);
    cv::randu(grey, 1, 256);
    cv::Mat bgr;
    cv::cvtColor(grey, bgr, cv::COLOR_GRAY2BGR);
    std::vector<uint8_t> yuyv(rig::yuyv_bytes(8, 6)), nv12(rig::nv12_bytes(8, 6));
    rig::bgr_to_yuyv(bgr, yuyv.data());
    YUYV_I420(reinterpret_cast<char*>(yuyv.data()), reinterpret_cast<char*>(nv12.data()), 8, 6, 3, 1);
    EXPECT_EQ(cv::norm(rig::nv12_to_bgr(nv12.data(), 8, 6), bgr, cv::NORM_INF), 0);
    EXPECT_EQ(cv::norm(rig::yuyv_to_bgr(yuyv.data(), 8, 6), bgr, cv::NORM_INF), 0);
    rig::bgr_to_nv12(bgr, nv12.data());
    EXPECT_EQ(cv::norm(rig::nv12_to_bgr(nv12.data(), 8, 6), bgr, cv::NORM_INF), 0);
}

class RawFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() /
               ("svcompose-frames-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }
    std::string Write(const char* name, size_t bytes) {
        const std::string path = (dir_ / name).string();
        std::ofstream(path, std::ios::binary) << std::string(bytes, '\x7f');
        return path;
    }
    fs::path dir_;
};

TEST_F(RawFileTest, ReadsWholeFrameSetsOnly) {
    rig::RawFrameSetReader r;
    std::string err;
    ASSERT_TRUE(r.open(Write("two.yuyv", 2 * rig::frame_set_bytes(4, 2)), 4, 2, err)) << err;
    EXPECT_EQ(r.frames(), 2);
    std::vector<uint8_t> buf(rig::frame_set_bytes(4, 2));
    EXPECT_TRUE(r.read(buf.data()));
    EXPECT_TRUE(r.read(buf.data()));
    EXPECT_FALSE(r.read(buf.data()));
}

TEST_F(RawFileTest, RejectsTruncatedEmptyAndMissingFiles) {
    std::string err;
    rig::RawFrameSetReader a, b, c;
    EXPECT_FALSE(a.open(Write("cut.yuyv", rig::frame_set_bytes(4, 2) + 3), 4, 2, err));
    EXPECT_NE(err.find("is truncated: 67 bytes is not a whole number of 4x2 frame sets (64 bytes each)"),
              std::string::npos) << err;
    EXPECT_FALSE(b.open(Write("empty.yuyv", 0), 4, 2, err));
    EXPECT_NE(err.find("is empty"), std::string::npos) << err;
    EXPECT_FALSE(c.open((dir_ / "none").string(), 4, 2, err));
    EXPECT_NE(err.find("none: no such file"), std::string::npos) << err;
}

TEST(Frames, ParseSize) {
    cv::Size s;
    EXPECT_TRUE(rig::parse_size("1280x720", s));
    EXPECT_EQ(s, cv::Size(1280, 720));
    for (const char* bad : {"1280", "1280x", "x720", "0x720", "-2x4", "1280x720p", "12 x 7"})
        EXPECT_FALSE(rig::parse_size(bad, s)) << bad;
}

TEST(Frames, TimesUseNearestRank) {
    std::vector<double> ms;
    for (int i = 20; i >= 1; --i) ms.push_back(i);
    const rig::FrameTimes t = rig::summarize_times(ms);
    EXPECT_EQ(t.frames, 20);
    EXPECT_EQ(t.median_ms, 10);
    EXPECT_EQ(t.p95_ms, 19);
    EXPECT_DOUBLE_EQ(t.fps, 1000.0 * 20 / 210);
    EXPECT_EQ(rig::summarize_times({}).frames, 0);
}

}  // namespace
