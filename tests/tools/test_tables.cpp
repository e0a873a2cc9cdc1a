// Generated tables: storage fit, seams and weights, geometry against the rig
// model through the library's own mesh interpolation, sv_init on the files,
// and seam alignment on the real parking-lot frames.
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

#include "pipe/calib_GT.h"
#include "pipe/data_processing.h"
#include "rig/tables.h"
#include "sv_interface.h"

namespace {

namespace fs = std::filesystem;

const std::string kSedan = std::string(SV_SOURCE_DIR) + "/examples/rig-sedan.yaml";
const std::string kParkingLot = std::string(SV_SHARED_DATA) + "/parking-lot-rig";

std::string temp_dir(const std::string& name) {
    const fs::path p = fs::path(testing::TempDir()) / ("svrig_" + name);
    fs::create_directories(p);
    return p.string();
}

// Table-index of a cell's first node line, past the doubled lines, exactly
// as the composition shifts it.
int shift_cell(int k, int s1, int s2) {
    if (s1 <= k) ++k;
    if (s2 <= k) ++k;
    return k;
}

// Source position (camera pixels) of table `tb` at output position o, as
// the composition interpolates it; false where the cell renders nothing.
bool mesh_lookup(const rig::ControlTable& t, const rig::MeshTable& tb, cv::Point2d o,
                 cv::Point2d* src, int* cam) {
    const int x16 = static_cast<int>(std::lround(o.x * 16)), y16 = static_cast<int>(std::lround(o.y * 16));
    const int cx = shift_cell(x16 >> 7, t.L1, t.L2), cy = shift_cell(y16 >> 7, t.H1, t.H2);
    if (x16 < 0 || y16 < 0 || cx > tb.width - 2 || cy > tb.height - 2) return false;
    int c[4][2][2];
    for (int a = 0; a < 2; ++a)
        for (int b = 0; b < 2; ++b) {
            const int* n = tb.node(cy + a, cx + b);
            if (n[0] < 0 || n[1] < 0) return false;
            for (int f = 0; f < 4; ++f) c[f][a][b] = n[f];
        }
    EXPECT_TRUE(c[3][0][0] == c[3][0][1] && c[3][0][0] == c[3][1][0] && c[3][0][0] == c[3][1][1])
        << "cell mixes cameras at output " << o;
    *src = cv::Point2d(BilinearInterpolation(c[0], x16 & 127, y16 & 127, 7, 0) / 16.0,
                       BilinearInterpolation(c[1], x16 & 127, y16 & 127, 7, 0) / 16.0);
    *cam = c[3][0][0];
    return true;
}

cv::Point2d ground_hit(const rig::Camera& cam, cv::Point2d px) {
    cv::Vec3d d;
    EXPECT_TRUE(cam.ray(px, &d));
    const cv::Vec3d g = cam.C + d * (-cam.C[2] / d[2]);
    return {g[0], g[1]};
}

struct Case {
    const char* name;
    bool rear_view;
};

class SedanTables : public testing::TestWithParam<Case> {
protected:
    void SetUp() override {
        rig_ = rig::load_rig(kSedan);
        rig::LayoutOptions o;
        o.rear_view = GetParam().rear_view;
        layout_ = rig::make_layout(rig_, o);
        table_ = rig::make_control_table(rig_, layout_);
    }
    rig::Rig rig_;
    rig::Layout layout_;
    rig::ControlTable table_;
};

TEST_P(SedanTables, WeightsSumTo256WhereBothTablesSee) {
    const int w = rig_.cameras[0].size.width, h = rig_.cameras[0].size.height;
    int both = 0;
    for (int r = 0; r < table_.tb1.height; ++r)
        for (int c = 0; c < table_.tb1.width; ++c) {
            const int* a = table_.tb1.node(r, c);
            const int* b = table_.tb2.node(r, c);
            for (const int* n : {a, b})
                if (n[0] >= 0) {
                    EXPECT_GE(n[0], 16 * 2);
                    EXPECT_LE(n[0], 16 * (w - 3));
                    EXPECT_LE(n[1], 16 * (h - 3));
                }
            if (a[0] >= 0 && b[0] >= 0) {
                ++both;
                ASSERT_EQ(a[2] + b[2], 256) << "node " << r << ", " << c;
            }
        }
    EXPECT_GT(both, 400);
}

// Ground grid points through the mesh land where the rig model projects
// them; in the overlaps the ground point one table shows is the point the
// other table samples.
TEST_P(SedanTables, GroundGridLandsOnTheModel) {
    int checked = 0, overlap = 0;
    double worst = 0, worst_pair = 0;
    for (double y = -5.3; y <= 5.3; y += 0.25)
        for (double x = -3.9; x <= 3.9; x += 0.25) {
            const cv::Point2d o = layout_.to_output(rig_.canvas.to_canvas({x, y}));
            // The library's positions are 1/16 output pixel.
            const cv::Point2d oq(std::lround(o.x * 16) / 16.0, std::lround(o.y * 16) / 16.0);
            cv::Point2d src[2];
            int cams[2] = {-1, -1};
            for (int t = 0; t < 2; ++t) {
                cv::Point2d model;
                if (!mesh_lookup(table_, t ? table_.tb2 : table_.tb1, oq, &src[t], &cams[t]))
                    continue;
                cams[t] += 2 * t;
                ASSERT_TRUE(rig_.canvas_to_pixel(cams[t], layout_.to_canvas(oq), &model));
                worst = std::max(worst, cv::norm(src[t] - model));
                ++checked;
            }
            if (cams[0] < 0 || cams[1] < 0) continue;
            ++overlap;
            const cv::Point2d g = ground_hit(rig_.cameras[cams[0]], src[0]);
            cv::Point2d back;
            ASSERT_TRUE(rig_.cameras[cams[1]].project(cv::Vec3d(g.x, g.y, 0), &back));
            worst_pair = std::max(worst_pair, cv::norm(back - src[1]));
        }
    EXPECT_GT(checked, 800);
    EXPECT_GT(overlap, 100);
    EXPECT_LE(worst, 0.5);
    EXPECT_LE(worst_pair, 1.0);
}

INSTANTIATE_TEST_SUITE_P(Layouts, SedanTables,
                         testing::Values(Case{"birdseye", false}, Case{"rear_view", true}),
                         [](const testing::TestParamInfo<Case>& i) { return std::string(i.param.name); });

// The written files pass the library's readers and fill its storage.
TEST(TableFiles, LoadThroughSvInit) {
    const rig::Rig r = rig::load_rig(kSedan);
    rig::LayoutOptions o;
    o.rear_view = true;
    const rig::Layout l = rig::make_layout(r, o);
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
    EXPECT_EQ(Parameter.TableWidth * Parameter.TableHeight, (1280 / 8 + 3) * (800 / 8 + 3));
    EXPECT_EQ(Parameter.H2, want.H2);
    EXPECT_EQ(Parameter.L2, want.L2);
    const size_t n = want.tb1.values.size();
    EXPECT_EQ(0, std::memcmp(Parameter.TB1, want.tb1.values.data(), n * sizeof(int)));
    EXPECT_EQ(0, std::memcmp(Parameter.TB2, want.tb2.values.data(), n * sizeof(int)));
    EXPECT_EQ(ParaStat.TableWidth, 17);
    EXPECT_EQ(ParaStat.TableHeight, 22);
    EXPECT_EQ(ParaStat.OutImgHeight, 168);
    EXPECT_EQ(g_S, 3);
    EXPECT_FLOAT_EQ(g_mgn, 0.25f);
    EXPECT_EQ(g_VH, 248);
    sv_deinit();
}

// The command: exit codes 0 / 1 / 2 and its message prefix.
TEST(TablesCommand, ExitCodesAndMessages) {
    const std::string bin = std::string(SV_BINARY_DIR) + "/bin/svcompose";
    if (!fs::exists(bin)) GTEST_SKIP() << "no " << bin;
    const std::string dir = temp_dir("cli");
    const auto run = [&](const std::string& args, std::string* err) {
        const std::string log = dir + "/stderr.txt";
        const int rc = std::system((bin + " tables " + args + " >/dev/null 2>" + log).c_str());
        std::ifstream in(log);
        err->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    };
    std::string err;
    EXPECT_EQ(run("--rig " + kSedan + " --out " + dir + " --rear-view --Spd 2", &err), 0) << err;
    EXPECT_TRUE(fs::exists(dir + "/control.txt") && fs::exists(dir + "/statistics.txt"));
    std::ifstream set(dir + "/setting.txt");
    EXPECT_NE(std::string(std::istreambuf_iterator<char>(set), {}).find("\nSpd=2\n"), std::string::npos);
    EXPECT_EQ(run("--rig /no/rig.yaml --out " + dir, &err), 1);
    EXPECT_EQ(err, "svcompose tables: /no/rig.yaml: cannot open\n");
    EXPECT_EQ(run("--rig " + kSedan + " --out " + dir + " --out-size 1282x800", &err), 1);
    EXPECT_EQ(run("--rig " + kSedan + " --out " + dir + " --out-size 1280", &err), 2);
}

// Real frames: compose, save the picture, and measure how far the two
// tables' renders of each corner overlap are apart.
class ParkingLot : public testing::Test {
protected:
    void SetUp() override {
        if (!fs::exists(kParkingLot + "/yaml/front.yaml")) GTEST_SKIP() << "no " << kParkingLot;
        rig_ = rig::load_rig(kParkingLot);
        rig::LayoutOptions o;
        o.rear_view = true;
        layout_ = rig::make_layout(rig_, o);
        dir_ = temp_dir("parking_lot");
        rig::write_tables(dir_, rig_, layout_, rig::Settings());
        testing::internal::CaptureStdout();
        const int rc = sv_init((dir_ + "/control.txt").c_str(), (dir_ + "/statistics.txt").c_str(),
                               (dir_ + "/setting.txt").c_str(), 960, 640, 1280, 800);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        ASSERT_EQ(rc, 0);
        const char* names[4] = {"front", "back", "left", "right"};
        std::vector<unsigned char> frames;
        for (const char* name : names) {
            const cv::Mat img = cv::imread(kParkingLot + "/images/" + name + ".png");
            ASSERT_EQ(img.size(), cv::Size(960, 640));
            append_yuyv(img, &frames);
        }
        out_.assign(1280 * 800 * 3 / 2, 0);
        std::fill(out_.begin() + 1280 * 800, out_.end(), 128);
        sv_convert_image(frames.data(), 0, out_.data(), 0);
    }
    void TearDown() override { sv_deinit(); }

    static void append_yuyv(const cv::Mat& bgr, std::vector<unsigned char>* out) {
        for (int y = 0; y < bgr.rows; ++y)
            for (int x = 0; x < bgr.cols; x += 2) {
                int yy[2], u[2], v[2];
                for (int k = 0; k < 2; ++k) {
                    const cv::Vec3b p = bgr.at<cv::Vec3b>(y, x + k);
                    RGB2YUV(p[2], p[1], p[0], yy[k], u[k], v[k], 8, 8);
                }
                out->insert(out->end(), {static_cast<unsigned char>(yy[0]),
                                         static_cast<unsigned char>((u[0] + u[1] + 1) / 2),
                                         static_cast<unsigned char>(yy[1]),
                                         static_cast<unsigned char>((v[0] + v[1] + 1) / 2)});
            }
    }

    // Luma of a render through the tables (one of them alone when keep is 0
    // or 1) and the mask of the pixels it writes.
    cv::Mat render(int keep, cv::Mat* written) {
        const int n = Parameter.TableWidth * Parameter.TableHeight * 4;
        std::vector<int> tb[2] = {std::vector<int>(Parameter.TB1, Parameter.TB1 + n),
                                  std::vector<int>(Parameter.TB2, Parameter.TB2 + n)};
        if (keep >= 0) std::fill(tb[1 - keep].begin(), tb[1 - keep].end(), -1);
        tag_CtrlPara p = Parameter;
        p.TB1 = tb[0].data();
        p.TB2 = tb[1].data();
        cv::Mat y[2];
        for (int fill = 0; fill < 2; ++fill) {
            std::vector<unsigned char> out(1280 * 800 * 3 / 2, fill ? 255 : 0);
            DataProcessing(YUVarray, WidthIn, HeightIn, out.data(), 1280, 800, &p, gain_cur,
                           tcurve_cur, 64, 8);
            y[fill] = cv::Mat(800, 1280, CV_8UC1, out.data()).clone();
        }
        *written = y[0] == y[1];
        return y[0];
    }

    rig::Rig rig_;
    rig::Layout layout_;
    std::string dir_;
    std::vector<unsigned char> out_;
};

TEST_F(ParkingLot, ComposesAndSavesThePicture) {
    cv::Mat bgr(800, 1280, CV_8UC3);
    for (int y = 0; y < 800; ++y)
        for (int x = 0; x < 1280; ++x) {
            const int c = 1280 * 800 + (y / 2) * 1280 + (x / 2) * 2;
            int r, g, b;
            YUV2RGB(out_[y * 1280 + x], out_[c], out_[c + 1], r, g, b, 8, 8);
            bgr.at<cv::Vec3b>(y, x) = cv::Vec3b(b, g, r);
        }
    ASSERT_TRUE(cv::imwrite(dir_ + "/parking-lot.png", bgr));
    cv::imwrite("/tmp/parking-lot.png", bgr);
    // Everything is rendered but the vehicle box and a rim round it that
    // the cameras cannot see past the car's own body (here: the ground right
    // in front of the bumper, below the front camera's image).
    cv::Mat written;
    render(-1, &written);
    const cv::Rect2d& v = layout_.vehicle;
    const cv::Rect2d rim(v.x - 24, v.y - 24, v.width + 48, v.height + 48);
    int holes = 0, rim_holes = 0;
    for (int r = 0; r < layout_.birdseye.height; ++r)
        for (int c = 0; c < layout_.birdseye.width; ++c)
            if (!written.at<unsigned char>(r, c) && !v.contains(cv::Point2d(c, r)))
                ++(rim.contains(cv::Point2d(c, r)) ? rim_holes : holes);
    EXPECT_EQ(holes, 0);
    EXPECT_LT(rim_holes, 600);
}

// Where the blend mixes the two cameras: a patch on the diagonal out of
// the vehicle corner, on the calibration mat. (Along the vehicle's sides a
// side camera may see its own body; farther out the scene leaves the
// ground plane.)
cv::Rect seam_patch(const cv::Rect2d& ov, const cv::Rect2d& vehicle) {
    const double cx = ov.x < vehicle.x ? vehicle.x - 56 : vehicle.br().x + 56;
    const double cy = ov.y < vehicle.y ? vehicle.y - 56 : vehicle.br().y + 56;
    return cv::Rect(cv::Rect2d(cx - 40, cy - 40, 80, 80));
}

// Phase correlation of the two tables' renders on the calibration mat next
// to each vehicle corner. The rear-left corner gets more room: the data
// set's left camera sees it near the edge of its field of view (its lens
// polynomial folds at 87 degrees), where its calibration is weakest.
TEST_F(ParkingLot, OverlapsAlignWithinTwoPixels) {
    cv::Mat wa, wb;
    const cv::Mat a = render(0, &wa), b = render(1, &wb);
    const double limit[4] = {2.0, 2.0, 2.0, 3.0};
    const auto overlaps = rig_.canvas.overlaps();
    for (int k = 0; k < 4; ++k) {
        const cv::Rect2d ov(layout_.to_output(overlaps[k].tl()), layout_.to_output(overlaps[k].br()));
        const cv::Rect box = seam_patch(ov, layout_.vehicle);
        ASSERT_EQ(cv::countNonZero(wa(box) & wb(box)), box.area()) << box;
        cv::Mat pa, pb, window;
        a(box).convertTo(pa, CV_32F);
        b(box).convertTo(pb, CV_32F);
        cv::createHanningWindow(window, pa.size(), CV_32F);
        const cv::Point2d shift = cv::phaseCorrelate(pa, pb, window);
        EXPECT_LE(cv::norm(shift), limit[k]) << "overlap " << k << " " << box;
        std::printf("overlap %d, %d x %d at %d, %d: tables %.2f, %.2f pixels apart\n", k,
                    box.width, box.height, box.x, box.y, shift.x, shift.y);
    }
}

// The statistics table puts each corner overlap into its own quarter with
// both tables valid: with permissive thresholds every region collects
// samples.
TEST_F(ParkingLot, StatisticsSampleAllFourOverlaps) {
    std::vector<unsigned char> buf(8 * 64 * 84 * 3);
    unsigned char* planes[8];
    for (int k = 0; k < 8; ++k) planes[k] = &buf[k * 64 * 84 * 3];
    int rows = 84, cols = 64;
    GetStatData(YUVarray, WidthIn, HeightIn, ParaStat, planes, rows, cols, 64, 1, 255, 16, 255,
                255, 1);
    for (int m = 0; m < 4; ++m) {
        int samples = 0;
        for (int i = 0; i < rows * cols; ++i)
            samples += planes[2 * m][i * 3] || planes[2 * m][i * 3 + 1] || planes[2 * m][i * 3 + 2];
        EXPECT_GT(samples, 1000) << "region " << m;
    }
}

}  // namespace
