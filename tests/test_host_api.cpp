// The calls a head-unit host uses beside the three basic ones: strided
// frames in and out, and the log sink.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "common/scratch.h"
#include "bmp_io.h"
#include "common/synthetic_rig.h"
#include "sv_interface.h"

using namespace svtest;

namespace {

constexpr int W = 160, H = 192;
const int kOff[4][2] = {{256, 192}, {296, 164}, {236, 216}, {276, 176}};
const double kGain[4] = {1.05, 0.86, 1.2, 0.92};

std::string Path(const char* name) { return ScratchPath(std::string("host_") + name + ".txt"); }

// Frame f of a moving scene, the cameras at their own gains: every frame
// calibrates to something new.
std::vector<unsigned char> FrameSet(int f) {
    std::vector<unsigned char> frames(8 * W * H);
    for (int c = 0; c < 4; ++c)
        Nv12(W, H, [c, f](int x, int y) {
            const double X = x - kOff[c][0] / 16.0 + 3 * f, Y = y - kOff[c][1] / 16.0;
            const Rgb s = {(int)(115 + 60 * std::sin(X / 19 + Y / 29)), (int)(115 + 55 * std::cos(X / 23 - Y / 17)),
                           (int)(110 + 45 * std::sin((X + 2 * Y) / 27))};
            Rgb v;
            for (int ch = 0; ch < 3; ++ch) v[ch] = std::min(255, (int)(kGain[c] * (s[ch] + 10 * f)));
            return v;
        }, &frames[c * 2 * W * H]);
    return frames;
}

class HostApi : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        Mesh m = QuadMesh(kOff);
        for (int r = 9; r < 13; ++r)  // a vehicle in the middle that no camera sees
            for (int c = 6; c < 10; ++c)
                for (int t = 0; t < 2; ++t) m.Set(t, r, c, {-1, -1, 128, 0});
        WriteTable(Path("tables"), m);
        WriteSettings(Path("setting"), 2, 3);  // calibrates every other frame, blends a third of the way
    }
    void Start() {
        int g[12], t[36];
        for (int i = 0; i < 36; ++i) t[i] = 64 * (i % 3 + 1), g[i / 3] = 1024;
        ASSERT_EQ(sv_set_corrections(g, t), 0);
        const std::string tables = Path("tables");
        ASSERT_EQ(sv_init(tables.c_str(), tables.c_str(), Path("setting").c_str(), W, H, kSW, kSH), 0);
    }
    void TearDown() override { sv_deinit(); sv_set_threads(1); }
};

// Output, padding and corrections after every frame of a short run.
struct Trace {
    std::vector<std::vector<unsigned char>> out;
    std::vector<std::array<int, 48>> corrections;
    void Record(std::vector<unsigned char> image) {
        out.push_back(std::move(image));
        std::array<int, 48> c;
        sv_get_corrections(c.data(), c.data() + 12);
        corrections.push_back(c);
    }
};

const int kFrames = 4;

// Four separate cameras with padded rows and a padded two-plane output give
// the bytes of one packed frame set into one NV12 buffer, frame after frame,
// calibration and blending included; no padding byte is touched.
TEST_F(HostApi, StridedFramesGiveTheSameBytes) {
    std::mt19937 rng(7);
    for (int threads : {1, 3}) {
        sv_set_threads(threads);
        Trace ref;
        Start();
        std::vector<unsigned char> out(kSW * kSH * 3 / 2, 7);
        for (int f = 0; f < kFrames; ++f) {
            sv_convert_image(FrameSet(f).data(), 0, out.data(), 0);
            ref.Record(out);
        }
        for (int layout = 0; layout < 2; ++layout) {
            Trace got;
            Start();
            // Layout 0: padded rows everywhere; layout 1: a plain NV12 buffer.
            const int camStride[4] = {2 * W + (layout ? 0 : 6), 2 * W + (layout ? 0 : 64), 2 * W,
                                      2 * W + (layout ? 0 : 1)};
            const int yStride = kSW + (layout ? 0 : 10), uvStride = kSW + (layout ? 0 : 3);
            std::vector<unsigned char> plane(yStride * kSH + uvStride * kSH / 2);
            for (auto& b : plane) b = static_cast<unsigned char>(rng());
            for (int y = 0; y < kSH * 3 / 2; ++y)
                std::fill_n(&plane[y < kSH ? y * yStride : kSH * yStride + (y - kSH) * uvStride], kSW, 7);
            const std::vector<unsigned char> before = plane;
            for (int f = 0; f < kFrames; ++f) {
                const std::vector<unsigned char> frames = FrameSet(f);
                std::vector<unsigned char> cams[4];
                const unsigned char* cam[4];
                for (int k = 0; k < 4; ++k) {
                    cams[k].resize(camStride[k] * H);
                    for (auto& b : cams[k]) b = static_cast<unsigned char>(rng());
                    for (int y = 0; y < H; ++y)
                        std::copy_n(&frames[(k * H + y) * 2 * W], 2 * W, &cams[k][y * camStride[k]]);
                    cam[k] = cams[k].data();
                }
                ASSERT_EQ(sv_convert_frames(cam, camStride, plane.data(), yStride, plane.data() + yStride * kSH,
                                            uvStride), 0);
                std::vector<unsigned char> image;
                for (int y = 0; y < kSH * 3 / 2; ++y) {
                    const size_t at = y < kSH ? y * yStride : kSH * yStride + (y - kSH) * uvStride;
                    image.insert(image.end(), &plane[at], &plane[at] + kSW);
                    const size_t pad = (y < kSH ? yStride : uvStride) - kSW;
                    EXPECT_TRUE(std::equal(&plane[at + kSW], &plane[at + kSW] + pad, &before[at + kSW]))
                        << "padding of row " << y;
                }
                got.Record(image);
            }
            for (int f = 0; f < kFrames; ++f) {
                EXPECT_TRUE(got.out[f] == ref.out[f]) << threads << " threads, layout " << layout << ", frame " << f;
                EXPECT_EQ(got.corrections[f], ref.corrections[f]) << "frame " << f;
            }
            EXPECT_NE(ref.corrections[0], ref.corrections[kFrames - 1]);  // the corrections did move
            EXPECT_NE(std::count(ref.out[0].begin(), ref.out[0].end(), 7), 0);  // and some pixels stayed the caller's
        }
    }
}

template <typename F>
std::string Printed(F f) { testing::internal::CaptureStdout(); f(); return testing::internal::GetCapturedStdout(); }

// Every refusal names what is wrong, returns -1 and writes nothing.
TEST_F(HostApi, StridedFramesRefuseBadArguments) {
    std::vector<unsigned char> cams(2 * W * H, 1), out(kSW * kSH * 3 / 2, 7);
    const unsigned char* cam[4] = {cams.data(), cams.data(), cams.data(), cams.data()};
    int stride[4] = {2 * W, 2 * W, 2 * W, 2 * W};
    unsigned char* uv = out.data() + kSW * kSH;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_convert_frames(cam, stride, out.data(), kSW, uv, kSW), -1); }),
              "error! sv_convert_frames called without a successful sv_init\n");
    Start();
    const std::string needs = "error! sv_convert_frames needs four camera buffers, their strides and two output planes\n";
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_convert_frames(nullptr, stride, out.data(), kSW, uv, kSW), -1); }), needs);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_convert_frames(cam, nullptr, out.data(), kSW, uv, kSW), -1); }), needs);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_convert_frames(cam, stride, out.data(), kSW, nullptr, kSW), -1); }), needs);
    cam[3] = nullptr;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_convert_frames(cam, stride, out.data(), kSW, uv, kSW), -1); }), needs);
    cam[3] = cams.data();
    stride[2] = 2 * W - 1;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_convert_frames(cam, stride, out.data(), kSW, uv, kSW), -1); }),
              "error! sv_convert_frames: camera 2 stride 319 is less than a row of 320 bytes\n");
    stride[2] = 2 * W;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_convert_frames(cam, stride, out.data(), kSW - 2, uv, kSW), -1); }),
              "error! sv_convert_frames: luma stride 126 is not a row of 128 bytes or more\n");
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_convert_frames(cam, stride, out.data(), kSW, uv, -kSW), -1); }),
              "error! sv_convert_frames: chroma stride -128 is not a row of 128 bytes or more\n");
    EXPECT_EQ(out, std::vector<unsigned char>(out.size(), 7));
    EXPECT_EQ(g_iter, 0);
    EXPECT_EQ(sv_convert_frames(cam, stride, out.data(), kSW, uv, kSW), 0);
    EXPECT_EQ(g_iter, 1);
}

using Lines = std::vector<std::string>;

void Collect(const char* line, void* user) { static_cast<Lines*>(user)->push_back(line); }

// Every message reaches the host's sink a line at a time, without its line
// feed, long ones whole; NULL silences; the stdout sink gives back the
// default bytes.
TEST_F(HostApi, LogSinkGetsEveryLine) {
    const std::string missing = ScratchPath(std::string(300, 'm'));
    const std::string missingBmp = ScratchPath("missing.bmp");
    auto report = [&] {
        sv_init(missing.c_str(), "s", "p", W, H, kSW, kSH);
        int w, h, *r, *g, *b;
        bmp_read(const_cast<char*>(missingBmp.c_str()), &w, &h, &r, &g, &b);
        sv_set_threads(-2);
    };
    const Lines expected = {"Load table file error!", "Read setting file " + missing + " error!", "",
                            "BMP_READ - Fatal error!", "  Could not open the input file.",
                            "error! sv_set_threads needs 0 or more threads, not -2"};
    std::string byDefault;
    for (const auto& l : expected) byDefault += l + "\n";
    EXPECT_EQ(Printed(report), byDefault);

    Lines got;
    sv_set_log(Collect, &got);
    EXPECT_EQ(Printed(report), "");
    EXPECT_EQ(got, expected);
    sv_set_log(nullptr, &got);
    EXPECT_EQ(Printed(report), "");
    EXPECT_EQ(got.size(), expected.size());
    sv_set_log(sv_log_stdout, nullptr);
    EXPECT_EQ(Printed(report), byDefault);
}

}  // namespace
