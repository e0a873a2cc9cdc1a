// Generated tables against the rig model through the library's own mesh
// interpolation, sv_init on the files, the command, the parking-lot frames.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "common/compose_reference.h"
#include "common/scratch.h"
#include "pipe/calib_GT.h"
#include "pipe/data_processing.h"
#include "rig/frames.h"
#include "rig/scene.h"
#include "rig/tables.h"
#include "sv_interface.h"

namespace {

namespace fs = std::filesystem;

const std::string kSedan = std::string(SV_SOURCE_DIR) + "/examples/rig-sedan.yaml";
const std::string kParkingLot = std::string(SV_SHARED_DATA) + "/parking-lot-rig";

std::string temp_dir(const std::string& name) {
    const fs::path p = ScratchPath("rig_" + name);
    fs::create_directories(p);
    return p.string();
}

std::string read_file(const std::string& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

rig::Layout layout_of(const rig::Rig& r, bool rear_view) {
    rig::LayoutOptions o;
    o.rear_view = rear_view;
    return rig::make_layout(r, o);
}

// Source position (camera pixels) of table `tb` at output position o, as the
// composition interpolates it past the doubled seam lines; false where the
// cell renders nothing.
bool mesh_lookup(const rig::ControlTable& t, const rig::MeshTable& tb, cv::Point2d o,
                 cv::Point2d* src, int* cam) {
    const auto shift = [](int k, int s1, int s2) { k += s1 <= k; return k + (s2 <= k); };
    const int x16 = static_cast<int>(std::lround(o.x * 16)), y16 = static_cast<int>(std::lround(o.y * 16));
    const int cx = shift(x16 >> 7, t.L1, t.L2), cy = shift(y16 >> 7, t.H1, t.H2);
    if (x16 < 0 || y16 < 0 || cx > tb.width - 2 || cy > tb.height - 2) return false;
    int c[4][2][2];
    for (int a = 0; a < 4; ++a) {
        const int* n = tb.node(cy + a / 2, cx + a % 2);
        if (n[0] < 0 || n[1] < 0) return false;
        for (int f = 0; f < 4; ++f) c[f][a / 2][a % 2] = n[f];
    }
    EXPECT_TRUE(c[3][0][0] == c[3][0][1] && c[3][0][0] == c[3][1][0] && c[3][0][0] == c[3][1][1])
        << "cell mixes cameras at output " << o;
    *src = cv::Point2d(BilinearInterpolation(c[0], x16 & 127, y16 & 127, 7, 0) / 16.0,
                       BilinearInterpolation(c[1], x16 & 127, y16 & 127, 7, 0) / 16.0);
    *cam = c[3][0][0];
    return true;
}

// Sources stay off the image border, weights sum to 256 where both tables
// see, ground grid points land where the model projects them, and in the
// overlaps one table shows the ground point the other samples.
TEST(SedanTables, WeightsAndGroundGridFollowTheModel) {
    const rig::Rig rig = rig::load_rig(kSedan);
    const int w = rig.cameras[0].size.width, h = rig.cameras[0].size.height;
    for (const bool rear_view : {false, true}) {
        SCOPED_TRACE(rear_view ? "rear view" : "bird's-eye only");
        const rig::Layout layout = layout_of(rig, rear_view);
        const rig::ControlTable t = rig::make_control_table(rig, layout);
        int both = 0;
        for (int r = 0; r < t.tb1.height; ++r)
            for (int c = 0; c < t.tb1.width; ++c) {
                const int *a = t.tb1.node(r, c), *b = t.tb2.node(r, c);
                for (const int* n : {a, b})
                    EXPECT_TRUE(n[0] < 0 || (n[0] >= 32 && n[0] <= 16 * (w - 3) && n[1] >= 32 &&
                                             n[1] <= 16 * (h - 3))) << "node " << r << ", " << c;
                both += a[0] >= 0 && b[0] >= 0;
                ASSERT_TRUE(a[0] < 0 || b[0] < 0 || a[2] + b[2] == 256) << "node " << r << ", " << c;
            }
        EXPECT_GT(both, 400);
        int checked = 0, overlap = 0;
        double worst = 0, worst_pair = 0;
        for (double y = -5.3; y <= 5.3; y += 0.25)
            for (double x = -3.9; x <= 3.9; x += 0.25) {
                // The library's positions are 1/16 output pixel.
                const cv::Point2d o = layout.to_output(rig.canvas.to_canvas({x, y}));
                const cv::Point2d oq(std::lround(o.x * 16) / 16.0, std::lround(o.y * 16) / 16.0);
                cv::Point2d src[2], model;
                int cams[2] = {-1, -1};
                for (int k = 0; k < 2; ++k)
                    if (mesh_lookup(t, k ? t.tb2 : t.tb1, oq, &src[k], &cams[k])) {
                        cams[k] += 2 * k;
                        ASSERT_TRUE(rig.canvas_to_pixel(cams[k], layout.to_canvas(oq), &model));
                        worst = std::max(worst, cv::norm(src[k] - model));
                        ++checked;
                    }
                if (cams[0] < 0 || cams[1] < 0) continue;
                ++overlap;
                const rig::Camera& first = rig.cameras[cams[0]];
                cv::Vec3d d;
                ASSERT_TRUE(first.ray(src[0], &d));
                ASSERT_TRUE(rig.cameras[cams[1]].project(first.C + d * (-first.C[2] / d[2]), &model));
                worst_pair = std::max(worst_pair, cv::norm(model - src[1]));
            }
        EXPECT_TRUE(checked > 800 && overlap > 100) << checked << " points, " << overlap << " in overlaps";
        EXPECT_TRUE(worst <= 0.5 && worst_pair <= 1.0) << worst << ", " << worst_pair;
    }
}

// The written files pass the library's readers and fill its storage.
TEST(TableFiles, LoadThroughSvInit) {
    const rig::Rig r = rig::load_rig(kSedan);
    const rig::Layout l = layout_of(r, true);
    rig::Settings s;
    s.Spd = 3;
    s.gMgn = 0.25f;
    const std::string dir = temp_dir("sedan");
    rig::write_tables(dir, r, l, s);
    const rig::ControlTable want = rig::make_control_table(r, l);
    testing::internal::CaptureStdout();
    ASSERT_EQ(sv_init((dir + "/control.txt").c_str(), (dir + "/statistics.txt").c_str(),
                      (dir + "/setting.txt").c_str(), 1280, 720, 1280, 800), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(cv::Vec4i(Parameter.TableWidth, Parameter.TableHeight, Parameter.H2, Parameter.L2),
              cv::Vec4i(1280 / 8 + 3, 800 / 8 + 3, want.H2, want.L2));
    const size_t bytes = want.tb1.values.size() * sizeof(int);
    EXPECT_EQ(0, std::memcmp(Parameter.TB1, want.tb1.values.data(), bytes));
    EXPECT_EQ(0, std::memcmp(Parameter.TB2, want.tb2.values.data(), bytes));
    EXPECT_EQ(cv::Vec3i(ParaStat.TableWidth, ParaStat.TableHeight, ParaStat.OutImgHeight),
              cv::Vec3i(17, 22, 168));
    EXPECT_EQ(cv::Vec2i(g_S, g_VH), cv::Vec2i(3, 248));
    EXPECT_FLOAT_EQ(g_mgn, 0.25f);
    sv_deinit();
}

// A 1920 x 1080 output with the rear view, whose panel right of the
// bird's-eye reaches past column 1280, from cameras scaled down to keep the
// test quick. Camera chroma follows the source position (U the column, V
// the row) within the range where the colour conversion does not clip, so
// each output chroma pair tells where it was sampled.
TEST(WideOutput, SedanAt1920x1080MatchesTheReferenceAndItsOwnSamples) {
    rig::Rig r = rig::load_rig(kSedan);
    const cv::Size cam(320, 180), size(1920, 1080);
    rig::scale_cameras(r, cam);
    rig::LayoutOptions o;
    o.out = size;
    o.rear_view = true;
    const rig::Layout layout = rig::make_layout(r, o);
    const std::string dir = temp_dir("wide");
    rig::write_tables(dir, r, layout, rig::Settings());
    testing::internal::CaptureStdout();
    const int rc = sv_init((dir + "/control.txt").c_str(), (dir + "/statistics.txt").c_str(),
                           (dir + "/setting.txt").c_str(), cam.width, cam.height, size.width, size.height);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    ASSERT_EQ(rc, 0);
    struct Deinit { ~Deinit() { sv_deinit(); } } deinit;

    std::vector<unsigned char> frames(rig::frame_set_bytes(cam.width, cam.height));
    for (int k = 0; k < 4; ++k)
        for (int y = 0; y < cam.height; ++y)
            for (int x = 0; x < cam.width; x += 2) {
                unsigned char* q = &frames[k * rig::yuyv_bytes(cam.width, cam.height) + 2 * (y * cam.width + x)];
                q[0] = static_cast<unsigned char>(100 + (x + 2 * y + 7 * k) % 56);
                q[1] = static_cast<unsigned char>(88 + x / 4);
                q[2] = static_cast<unsigned char>(100 + (x + 1 + 2 * y + 7 * k) % 56);
                q[3] = static_cast<unsigned char>(88 + y / 4);
            }
    // The frame cycle (fitted corrections) against the reference with a
    // cache as wide as the output.
    const size_t bytes = rig::nv12_bytes(size.width, size.height);
    std::vector<unsigned char> out(bytes, 0), want(bytes, 0);
    sv_convert_image(frames.data(), 0, out.data(), 0);
    svtest::ComposeReferenceWide(YUVarray, WidthIn, HeightIn, want.data(), size.width, size.height,
                                 &Parameter, gain_cur, tcurve_cur, 64, 8);
    EXPECT_TRUE(out == want);

    // Without corrections every chroma pair past column 1280 is its own
    // sample's.
    int gains[12], curves[36];
    std::fill(gains, gains + 12, 1024);
    for (int i = 0; i < 36; ++i) curves[i] = 64 * (i % 3 + 1);
    std::fill(out.begin(), out.end(), 0);
    DataProcessing(YUVarray, WidthIn, HeightIn, out.data(), size.width, size.height, &Parameter,
                   gains, curves, 64, 8);
    const rig::ControlTable t = rig::make_control_table(r, layout);
    int checked = 0, wrong = 0;
    for (int y = 0; y < size.height; y += 2)
        for (int x = 1280; x < size.width; x += 2) {
            if (!out[y * size.width + x]) continue;
            cv::Point2d src;
            int sel;
            ASSERT_TRUE(mesh_lookup(t, t.tb1, cv::Point2d(x, y), &src, &sel)) << x << ", " << y;
            const unsigned char* uv = &out[(size.height + y / 2) * size.width + x];
            ++checked;
            wrong += std::abs(uv[0] - (88 + src.x / 4)) > 3 || std::abs(uv[1] - (88 + src.y / 4)) > 3;
        }
    EXPECT_GT(checked, 50000);
    EXPECT_EQ(wrong, 0) << "of " << checked << " chroma pairs";
}

TEST(TablesCommand, ExitCodesAndMessages) {
    const std::string bin = std::string(SV_BINARY_DIR) + "/bin/svcompose";
    if (!fs::exists(bin)) GTEST_SKIP() << "no " << bin;
    const std::string dir = temp_dir("cli"), sedan = " --rig " + kSedan + " --out " + dir;
    // "CODE STDERR" of one run.
    const auto run = [&](const std::string& args) {
        const int rc = std::system((bin + " tables" + args + " >/dev/null 2>" + dir + "/err").c_str());
        return std::to_string(WIFEXITED(rc) ? WEXITSTATUS(rc) : -1) + " " + read_file(dir + "/err");
    };
    EXPECT_EQ(run(sedan + " --rear-view --Spd 2"), "0 ");
    EXPECT_TRUE(fs::exists(dir + "/control.txt") && fs::exists(dir + "/statistics.txt"));
    EXPECT_NE(read_file(dir + "/setting.txt").find("\nSpd=2\n"), std::string::npos);
    EXPECT_EQ(run(" --rig /no/rig.yaml --out " + dir), "1 svcompose tables: /no/rig.yaml: cannot open\n");
    EXPECT_EQ(run(sedan + " --out-size 1920x1080"), "0 ");
    EXPECT_NE(read_file(dir + "/control.txt").find("OutImgWidth: 1920\nOutImgHeight: 1080\n"), std::string::npos);
    EXPECT_EQ(run(sedan + " --out-size 4098x800"),
              "1 svcompose tables: output size 4098 x 800 is unusable: sizes must be even, 64 to 4096 "
              "per side\n");
    EXPECT_EQ(run(sedan + " --out-size 1280"),
              "2 svcompose tables: --out-size: expected WIDTHxHEIGHT, e.g. 1280x800, got '1280'\n"
              "Run 'svcompose tables --help' for the options.\n");
    EXPECT_EQ(run(sedan + " --beta nan"), "2 svcompose tables: --beta: expected a finite number, got nan\n"
                                          "Run 'svcompose tables --help' for the options.\n");
    EXPECT_EQ(run(sedan + " --fov 100"), "2 svcompose tables: --fov applies to homography folders only; "
                                         "a physical rig file gives its own\n");
    EXPECT_EQ(run(sedan + " --border 1e9"), "1 svcompose tables: camera front sees none of its part of the "
                                            "output: check its lens, its pose and the border\n");
}

// Real frames through tables generated for their rig.
TEST(ParkingLot, ComposesAlignsAndSamplesTheOverlaps) {
    if (!fs::exists(kParkingLot + "/yaml/front.yaml")) GTEST_SKIP() << "no " << kParkingLot;
    const rig::Rig rig = rig::load_rig(kParkingLot);
    const rig::Layout layout = layout_of(rig, true);
    const std::string dir = temp_dir("parking_lot");
    rig::write_tables(dir, rig, layout, rig::Settings());
    testing::internal::CaptureStdout();
    const int rc = sv_init((dir + "/control.txt").c_str(), (dir + "/statistics.txt").c_str(),
                           (dir + "/setting.txt").c_str(), 960, 640, 1280, 800);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    ASSERT_EQ(rc, 0);
    struct Deinit { ~Deinit() { sv_deinit(); } } deinit;
    std::vector<unsigned char> frames(rig::frame_set_bytes(960, 640));
    const char* names[4] = {"front", "back", "left", "right"};
    for (int k = 0; k < 4; ++k) {
        const cv::Mat img = cv::imread(kParkingLot + "/images/" + names[k] + ".png");
        ASSERT_EQ(img.size(), cv::Size(960, 640));
        rig::bgr_to_yuyv(img, &frames[k * rig::yuyv_bytes(960, 640)]);
    }
    std::vector<unsigned char> out(rig::nv12_bytes(1280, 800), 128);
    sv_convert_image(frames.data(), 0, out.data(), 0);
    ASSERT_TRUE(cv::imwrite(dir + "/parking-lot.png", rig::nv12_to_bgr(out.data(), 1280, 800)));

    // Luma through both tables (or only table `keep`) and the pixels written.
    const auto render = [](int keep, cv::Mat* written) {
        const int n = Parameter.TableWidth * Parameter.TableHeight * 4;
        std::vector<int> tb[2] = {std::vector<int>(Parameter.TB1, Parameter.TB1 + n),
                                  std::vector<int>(Parameter.TB2, Parameter.TB2 + n)};
        if (keep >= 0) std::fill(tb[1 - keep].begin(), tb[1 - keep].end(), -1);
        tag_CtrlPara p = Parameter;
        p.TB1 = tb[0].data();
        p.TB2 = tb[1].data();
        cv::Mat y[2];
        for (int fill = 0; fill < 2; ++fill) {
            std::vector<unsigned char> o(rig::nv12_bytes(1280, 800), fill ? 255 : 0);
            DataProcessing(YUVarray, WidthIn, HeightIn, o.data(), 1280, 800, &p, gain_cur, tcurve_cur,
                           64, 8);
            y[fill] = cv::Mat(800, 1280, CV_8UC1, o.data()).clone();
        }
        *written = y[0] == y[1];
        return y[0];
    };
    // Everything is rendered but the vehicle box and a rim the car's body
    // hides (the ground right in front of the bumper, below the front image).
    cv::Mat written, wa, wb;
    render(-1, &written);
    const cv::Rect2d& v = layout.vehicle;
    const cv::Rect2d rim(v.x - 24, v.y - 24, v.width + 48, v.height + 48);
    int holes = 0, rim_holes = 0;
    for (int r = 0; r < layout.birdseye.height; ++r)
        for (int c = 0; c < layout.birdseye.width; ++c)
            if (!written.at<unsigned char>(r, c) && !v.contains(cv::Point2d(c, r)))
                ++(rim.contains(cv::Point2d(c, r)) ? rim_holes : holes);
    EXPECT_EQ(holes, 0);
    EXPECT_LT(rim_holes, 600);

    // The tables agree on the mat diagonally out of each vehicle corner (along
    // the sides a camera may see its own body; farther out the scene leaves
    // the ground). The left lens folds at 87 degrees, near the rear-left one.
    const cv::Mat a = render(0, &wa), b = render(1, &wb);
    for (int k = 0; k < 4; ++k) {
        const cv::Point2d ov = layout.to_output(rig.canvas.overlaps()[k].tl());
        const cv::Rect box(cv::Rect2d(ov.x < v.x ? v.x - 96 : v.br().x + 16,
                                      ov.y < v.y ? v.y - 96 : v.br().y + 16, 80, 80));
        EXPECT_EQ(cv::countNonZero(wa(box) & wb(box)), box.area()) << box;
        cv::Mat pa, pb, window;
        a(box).convertTo(pa, CV_32F);
        b(box).convertTo(pb, CV_32F);
        cv::createHanningWindow(window, pa.size(), CV_32F);
        const cv::Point2d shift = cv::phaseCorrelate(pa, pb, window);
        EXPECT_LE(cv::norm(shift), k == 3 ? 3.0 : 2.0) << "overlap " << k << " " << box << ": " << shift;
    }

    // With permissive thresholds each overlap's statistics region fills.
    std::vector<unsigned char> buf(8 * 64 * 84 * 3);
    unsigned char* planes[8];
    for (int k = 0; k < 8; ++k) planes[k] = &buf[k * 64 * 84 * 3];
    int rows = 84, cols = 64;
    GetStatData(YUVarray, WidthIn, HeightIn, ParaStat, planes, rows, cols, 64, 1, 255, 16, 255, 255, 1);
    for (int m = 0; m < 4; ++m) {
        int samples = 0;
        for (int i = 0; i < rows * cols * 3; i += 3)
            samples += planes[2 * m][i] || planes[2 * m][i + 1] || planes[2 * m][i + 2];
        EXPECT_GT(samples, 1000) << "region " << m;
    }
}

}  // namespace
