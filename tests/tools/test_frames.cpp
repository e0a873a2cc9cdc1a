// Frame layouts and files of the command-line tool.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <tuple>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "common/scratch.h"
#include "img_fmt_trans.h"
#include "rig/frames.h"
#include "rig/progress.h"
#include "rig/video.h"

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

// A rotation tag must not turn the decoded frames, and the range comes as
// tagged.
TEST(Frames, VideoDecodesFramesAsStored) {
    const std::string path[2] = {ScratchPath("plain.mkv"), ScratchPath("turned.mp4")};
    if (std::system(("ffmpeg -v error -y -f lavfi -i testsrc=size=64x32:rate=5 -frames:v 1 -c:v ffv1 "
                     "-pix_fmt yuv422p -color_range tv " + path[0] + " && ffmpeg -v error -y -i " + path[0] +
                     " -c:v mpeg4 -metadata:s:v:0 rotate=90 " + path[1]).c_str()) != 0)
        GTEST_SKIP() << "no ffmpeg program to make the test videos";
    std::vector<uint8_t> frame[2];
    for (int k = 0; k < 2; ++k) {
        rig::VideoReader v;
        std::string err;
        ASSERT_TRUE(v.open(path[k], err)) << err;
        ASSERT_EQ(v.size(), cv::Size(64, 32));
        frame[k].resize(rig::yuyv_bytes(64, 32));
        ASSERT_TRUE(v.read(frame[k].data())) << v.complaint();
        EXPECT_EQ(v.range(), k == 0 ? rig::VideoRange::kLimited : rig::VideoRange::kUnspecified);
        EXPECT_FALSE(v.read(frame[k].data()));
        EXPECT_EQ(v.frames_read(), 1);
        std::remove(path[k].c_str());
    }
    // Lossless against lossy: the same picture, not the same bytes.
    double diff = 0;
    for (size_t i = 0; i < frame[0].size(); i += 2) diff += std::abs(frame[0][i] - frame[1][i]);
    EXPECT_LT(diff / (64 * 32), 3);
}

TEST(Frames, LimitedToFullRange) {
    // (Y - 16) * 255 / 219 and (C - 128) * 255 / 224 + 128, halves away from the middle.
    for (int v = 0; v < 256; ++v) {
        const double y = (v - 16) * 255.0 / 219, c = (v - 128) * 255.0 / 224;
        const long ry = std::lround(y), rc = std::lround(c) + 128;  // lround: halves away from zero
        EXPECT_EQ(rig::limited_to_full_luma(uint8_t(v)), std::clamp(ry, 0L, 255L)) << v;
        EXPECT_EQ(rig::limited_to_full_chroma(uint8_t(v)), std::clamp(rc, 0L, 255L)) << v;
    }
    uint8_t yuyv[8] = {16, 16, 235, 240, 126, 128, 0, 255};
    rig::limited_to_full_yuyv(yuyv, sizeof yuyv);
    EXPECT_EQ(std::vector<int>(yuyv, yuyv + 8), (std::vector<int>{0, 0, 255, 255, 128, 128, 0, 255}));
}

TEST(Frames, VideoReaderNamesWhatIsWrong) {
    const std::string junk = ScratchPath("junk.mkv");
    std::ofstream(junk) << "not a video";
    rig::VideoReader v;
    std::string err;
    EXPECT_FALSE(v.open(junk, err));
    EXPECT_EQ(err, "cannot read video " + junk + ": Invalid data found when processing input");
    EXPECT_FALSE(v.open(junk + "-none", err));
    EXPECT_EQ(err, "cannot read video " + junk + "-none: No such file or directory");
    std::remove(junk.c_str());
}

// Only a complete file appears; a failed write leaves nothing behind.
TEST(Frames, VideoWriterTagsFullRange) {
    const std::string path = ScratchPath("out.mkv");
    rig::VideoWriter w;
    std::string err;
    ASSERT_TRUE(w.open(path, cv::Size(64, 48), 25, err)) << err;
    std::vector<uint8_t> nv12(rig::nv12_bytes(64, 48), 128);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(w.write(nv12.data(), err)) << err;
    EXPECT_FALSE(fs::exists(path));
    ASSERT_TRUE(w.close(err)) << err;
    rig::VideoReader r;
    ASSERT_TRUE(r.open(path, err)) << err;
    std::vector<uint8_t> yuyv(rig::yuyv_bytes(64, 48));
    ASSERT_TRUE(r.read(yuyv.data()));
    EXPECT_EQ(r.range(), rig::VideoRange::kFull);
    std::remove(path.c_str());
    rig::VideoWriter bad;
    EXPECT_FALSE(bad.open(ScratchPath("out.nosuchformat"), cv::Size(64, 48), 25, err));
    EXPECT_EQ(err, "cannot write " + ScratchPath("out.nosuchformat") + ": unknown video format (name it .mp4 or .mkv)");
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
