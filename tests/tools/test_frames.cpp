// Frame layouts and files of the command-line tool.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <tuple>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "common/scratch.h"
#include "img_fmt_trans.h"
#include "rig/frames.h"
#include "rig/progress.h"

namespace {

namespace fs = std::filesystem;

TEST(Frames, YuyvPairSharesTheRoundedMeanChroma) {
    // RGB2YUV: red is (76, 85, 255), black (0, 128, 128).
    const cv::Mat bgr = (cv::Mat_<cv::Vec3b>(1, 2) << cv::Vec3b(0, 0, 255), cv::Vec3b(0, 0, 0));
    uint8_t yuyv[4];
    rig::bgr_to_yuyv(bgr, yuyv);
    EXPECT_EQ(std::vector<int>(yuyv, yuyv + 4), (std::vector<int>{76, (85 + 128 + 1) / 2, 0, (255 + 128 + 1) / 2}));
}

// Grey survives the library's own YUYV -> NV12 conversion byte for byte; a misplaced byte would not.
TEST(Frames, GreyRoundTripThroughTheLibraryLayout) {
    cv::Mat grey(6, 8, CV_8UC1), bgr;
    cv::randu(grey, 1, 256);
    cv::cvtColor(grey, bgr, cv::COLOR_GRAY2BGR);
    std::vector<uint8_t> yuyv(rig::yuyv_bytes(8, 6)), nv12(rig::nv12_bytes(8, 6));
    rig::bgr_to_yuyv(bgr, yuyv.data());
    YUYV_I420(reinterpret_cast<char*>(yuyv.data()), reinterpret_cast<char*>(nv12.data()), 8, 6, 3, 1);
    EXPECT_EQ(cv::norm(rig::nv12_to_bgr(nv12.data(), 8, 6), bgr, cv::NORM_INF), 0);
    EXPECT_EQ(cv::norm(rig::yuyv_to_bgr(yuyv.data(), 8, 6), bgr, cv::NORM_INF), 0);
    rig::bgr_to_nv12(bgr, nv12.data());
    EXPECT_EQ(cv::norm(rig::nv12_to_bgr(nv12.data(), 8, 6), bgr, cv::NORM_INF), 0);
}

TEST(Frames, RawFileReadsWholeFrameSetsOnly) {
    const fs::path dir = fs::temp_directory_path() / ("svcompose-frames-" + std::to_string(getpid()));
    fs::create_directories(dir);
    auto write = [&](const char* name, long bytes) {
        if (bytes >= 0) std::ofstream(dir / name, std::ios::binary) << std::string(size_t(bytes), '\x7f');
        return (dir / name).string();
    };
    std::string err;
    rig::RawFrameSetReader two;
    EXPECT_TRUE(two.open(write("two.yuyv", 2 * 64), 4, 2, err)) << err;
    EXPECT_EQ(two.frames(), 2);
    std::vector<uint8_t> buf(rig::frame_set_bytes(4, 2));
    EXPECT_TRUE(two.read(buf.data()));
    EXPECT_TRUE(two.read(buf.data()));
    EXPECT_FALSE(two.read(buf.data()));
    for (const auto& [name, bytes, message] : {std::tuple<const char*, long, const char*>{
             "cut.yuyv", 67, "is truncated: 67 bytes is not a whole number of 4x2 frame sets (64 bytes each)"},
             {"empty.yuyv", 0, "is empty"}, {"none", -1, "none: no such file"}}) {
        rig::RawFrameSetReader r;
        EXPECT_FALSE(r.open(write(name, bytes), 4, 2, err)) << name;
        EXPECT_NE(err.find(message), std::string::npos) << err;
    }
    fs::remove_all(dir);
}

TEST(Frames, ParseSize) {
    cv::Size s;
    EXPECT_TRUE(rig::parse_size("1280x720", s));
    EXPECT_EQ(s, cv::Size(1280, 720));
    for (const char* bad : {"1280", "1280x", "x720", "0x720", "-2x4", "1280x720p", "12 x 7", "99999999999x2"})
        EXPECT_FALSE(rig::parse_size(bad, s)) << bad;
}

// A rotation tag must not turn the decoded frames: ffprobe reports the stored size.
TEST(Frames, VideoDecodesFramesAsStored) {
    if (!rig::have_program("ffmpeg") || !rig::have_program("ffprobe")) GTEST_SKIP() << "no ffmpeg";
    const std::string path[2] = {ScratchPath("plain.mp4"), ScratchPath("turned.mp4")};
    ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i testsrc=size=64x32:rate=5 -frames:v 1 -c:v mpeg4 " +
                           path[0] + " && ffmpeg -v error -y -i " + path[0] +
                           " -c copy -metadata:s:v:0 rotate=90 " + path[1]).c_str()), 0);
    std::vector<uint8_t> frame[2];
    for (int k = 0; k < 2; ++k) {
        cv::Size size;
        std::string err;
        ASSERT_TRUE(rig::probe_video_size(path[k], size, err)) << err;
        ASSERT_EQ(size, cv::Size(64, 32));
        rig::VideoDecoder v;
        frame[k].resize(rig::yuyv_bytes(64, 32));
        ASSERT_TRUE(v.open(path[k], size, -1, err) && v.read(frame[k].data())) << err;
        std::remove(path[k].c_str());
    }
    EXPECT_TRUE(frame[0] == frame[1]);
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
