// Rig model: the lens against cv::fisheye, the mounting convention, both
// rig descriptions and their error messages.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include <opencv2/calib3d.hpp>

#include "common/scratch.h"
#include "rig/rig.h"

namespace {

const std::string kSedan = std::string(SV_SOURCE_DIR) + "/examples/rig-sedan.yaml";
const std::string kParkingLot = std::string(SV_SHARED_DATA) + "/parking-lot-rig";

rig::Camera lens(double fov_deg, cv::Vec4d D = cv::Vec4d(-0.015, 0.004, -0.0005, 0)) {
    rig::Camera c;
    c.size = cv::Size(1280, 720);
    c.K = cv::Matx33d(330.5, 0, 641.3, 0, 330.2, 358.7, 0, 0, 1);
    c.D = D;
    c.R = cv::Matx33d::eye();
    c.set_fov(fov_deg);
    return c;
}

// Matches cv::fisheye in front of the camera, round-trips beyond 90 degrees
// and stops at the field of view.
TEST(Lens, MatchesOpenCvAndRoundTripsToTheFieldOfView) {
    const rig::Camera c = lens(190);
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(-2, 2);
    std::vector<cv::Point3d> pts;
    for (int i = 0; i < 500; ++i) pts.emplace_back(u(rng), u(rng), 0.05 + std::fabs(u(rng)));
    std::vector<cv::Point2d> want;
    cv::fisheye::projectPoints(pts, want, cv::Vec3d(), cv::Vec3d(), cv::Mat(c.K), cv::Mat(c.D));
    cv::Point2d px;
    cv::Vec3d back;
    for (size_t i = 0; i < pts.size(); ++i) {
        ASSERT_TRUE(c.distort(cv::Vec3d(pts[i].x, pts[i].y, pts[i].z), &px));
        EXPECT_LT(cv::norm(px - want[i]), 1e-6) << pts[i];
    }
    for (double theta = 0; theta <= 95; theta += 2.5)
        for (double phi = 0; phi < 360; phi += 30) {
            const double t = theta * CV_PI / 180, p = phi * CV_PI / 180;
            const cv::Vec3d d(std::sin(t) * std::cos(p), std::sin(t) * std::sin(p), std::cos(t));
            ASSERT_TRUE(c.distort(d, &px) && c.undistort(px, &back)) << theta << " " << phi;
            EXPECT_LT(cv::norm(back - d), 1e-9) << theta << " " << phi;
        }
    EXPECT_FALSE(c.distort(cv::Vec3d(1, 0, -0.1), &px));  // 95.7 degrees off axis
    // A polynomial that turns back ends the field of view where it folds.
    EXPECT_NEAR(lens(180, cv::Vec4d(-0.0355, -0.0198, 0.0261, -0.0097)).max_theta, 1.516, 0.003);
}

// Roll, then pitch, then yaw: a rear camera tilted down still looks back.
TEST(Mounting, YawPitchRollFollowTheDocumentedOrder) {
    const cv::Vec3d forward(0, 1, 0), left(-1, 0, 0), down(0, 0, -1);
    const struct { double yaw, pitch, roll; int axis; cv::Vec3d want; } rows[] = {
        {0, 0, 0, 2, forward}, {0, 0, 0, 1, down},     {90, 0, 0, 2, left},
        {0, 90, 0, 2, down},   {0, 0, 90, 0, down},  // roll turns the image's right side down
        {180, 30, 0, 2, cv::Vec3d(0, -std::cos(CV_PI / 6), -0.5)}};
    for (const auto& r : rows) {
        const cv::Matx31d got = rig::rotation_from_ypr(r.yaw, r.pitch, r.roll).col(r.axis);
        EXPECT_LT(cv::norm(got - cv::Matx31d(r.want)), 1e-12) << cv::Vec3d(r.yaw, r.pitch, r.roll);
    }
}

TEST(PhysicalRig, LoadsTheSedanExample) {
    const rig::Rig r = rig::load_rig(kSedan);
    EXPECT_FALSE(r.homography);
    EXPECT_EQ(r.canvas.size, cv::Size(785, 1070));
    EXPECT_NEAR(r.canvas.vehicle.width, 185, 1e-9);
    EXPECT_LT(cv::norm(r.canvas.to_ground(r.canvas.to_canvas({1.5, -2})) - cv::Point2d(1.5, -2)), 1e-12);
    // Each camera sees the ground 1 m beyond its side of the vehicle.
    const cv::Vec3d ahead[4] = {{0, 3.35, 0}, {0, -3.35, 0}, {-1.9, 0.5, 0}, {1.9, 0.5, 0}};
    for (int k = 0; k < 4; ++k) {
        cv::Point2d px, via;
        cv::Vec3d ray;
        ASSERT_TRUE(r.cameras[k].project(ahead[k], &px) && r.cameras[k].ray(px, &ray)) << k;
        EXPECT_TRUE(r.canvas_to_pixel(k, r.canvas.to_canvas({ahead[k][0], ahead[k][1]}), &via) &&
                    cv::norm(px - via) < 1e-9) << k << ": " << px << " vs " << via;
        EXPECT_LT(cv::norm(cv::normalize(ahead[k] - r.cameras[k].C) - ray), 1e-9) << k;
    }
}

// Cameras sit on their sides of the vehicle, 0.3 to 3 m up, and their
// recovered poses reproduce the homographies on the ground nearby.
TEST(HomographyRig, RecoversPlausiblePoses) {
    if (!std::filesystem::exists(kParkingLot + "/yaml/left.yaml")) GTEST_SKIP() << "no data";
    const rig::Rig r = rig::load_rig(kParkingLot);
    EXPECT_TRUE(r.homography);
    const double outward[4] = {r.cameras[0].C[1] - 1.5, -r.cameras[1].C[1] - 1.5,
                               -r.cameras[2].C[0] - 0.5, r.cameras[3].C[0] - 0.5};
    const cv::Point2d p[4] = {{600, 400}, {600, 1200}, {350, 800}, {850, 800}};
    for (int k = 0; k < 4; ++k) {
        const cv::Vec3d& C = r.cameras[k].C;
        EXPECT_TRUE(outward[k] > 0 && C[2] > 0.3 && C[2] < 3.0) << k << ": " << C;
        cv::Point2d h, pose;
        const cv::Point2d g = r.canvas.to_ground(p[k]);
        ASSERT_TRUE(r.canvas_to_pixel(k, p[k], &h) && r.cameras[k].project(cv::Vec3d(g.x, g.y, 0), &pose));
        EXPECT_LT(cv::norm(h - pose), 6.0) << k;
    }
}

std::string error_of(const std::string& path) {
    try { rig::load_rig(path); } catch (const rig::RigError& e) { return e.what(); }
    return "";
}

TEST(RigErrors, NameTheFileAndTheEntry) {
    EXPECT_EQ(error_of("/no/such/rig.yaml"), "/no/such/rig.yaml: cannot open");
    std::ifstream in(kSedan);
    const std::string sedan((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string path = ScratchPath("bad_rig.yaml");
    const struct { std::string from, to, error; } rows[] = {
        {"dist_coeffs: [ -0.016, 0.0042, -0.0005, 0. ]", "dist_coeffs: [ -0.016, 0.0042 ]",
         ": camera left: dist_coeffs: expected 4 numbers, found 2"},
        {"[ 1280, 720 ]", "[ 1280, 800 ]", ": the four cameras must share one resolution"},
        {sedan, "%YAML:1.0\n---\nvehicle: { width: 1.8 }\n", ": missing 'cameras' map"},
        {sedan, "", ": the file is empty"},
        {"2.38, 0.70", ".nan, 0.70", ": camera front: position: expected finite numbers"},
        {"[ 330.5, 0., 641.3, 0., 330.2, 358.7, 0., 0., 1. ]",
         "!!opencv-matrix { rows: 3, cols: 3, dt: d, data: [ 330.5, 0. ] }",
         ": camera front: camera_matrix: malformed !!opencv-matrix (rows, cols, dt and data disagree)"},
        {"front: 3.0", "front: 1e6", ": birdseye canvas of 785 x 100000770 pixels is unusable (8 x 8 to 100 million pixels)"},
        {"width: 1280", "width: 1e20", ": output width: expected a whole number of pixels from 1 to 65536"}};
    for (const auto& row : rows) {
        std::string text = sedan;
        std::ofstream(path) << text.replace(text.find(row.from), row.from.size(), row.to);
        EXPECT_EQ(error_of(path), path + row.error);
    }
}

}  // namespace
