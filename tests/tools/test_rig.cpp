// Rig model: the lens against cv::fisheye, the mounting convention, both
// rig descriptions and their error messages.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include <opencv2/calib3d.hpp>

#include "rig/rig.h"

namespace {

const std::string kSedan = std::string(SV_SOURCE_DIR) + "/examples/rig-sedan.yaml";
const std::string kParkingLot = std::string(SV_SHARED_DATA) + "/parking-lot-rig";

rig::Camera lens(double fov_deg) {
    rig::Camera c;
    c.size = cv::Size(1280, 720);
    c.K = cv::Matx33d(330.5, 0, 641.3, 0, 330.2, 358.7, 0, 0, 1);
    c.D = cv::Vec4d(-0.015, 0.004, -0.0005, 0);
    c.R = cv::Matx33d::eye();
    c.set_fov(fov_deg);
    return c;
}

TEST(Lens, MatchesOpenCvFisheyeInFrontOfTheCamera) {
    const rig::Camera c = lens(190);
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(-2, 2);
    std::vector<cv::Point3d> pts;
    for (int i = 0; i < 500; ++i) pts.emplace_back(u(rng), u(rng), 0.05 + std::fabs(u(rng)));
    std::vector<cv::Point2d> want;
    cv::fisheye::projectPoints(pts, want, cv::Vec3d(), cv::Vec3d(), cv::Mat(c.K), cv::Mat(c.D));
    for (size_t i = 0; i < pts.size(); ++i) {
        cv::Point2d got;
        ASSERT_TRUE(c.distort(cv::Vec3d(pts[i].x, pts[i].y, pts[i].z), &got));
        EXPECT_NEAR(got.x, want[i].x, 1e-6);
        EXPECT_NEAR(got.y, want[i].y, 1e-6);
    }
}

TEST(Lens, RoundTripsBeyondNinetyDegreesAndStopsAtTheFieldOfView) {
    const rig::Camera c = lens(190);
    for (double theta = 0; theta <= 95; theta += 2.5)
        for (double phi = 0; phi < 360; phi += 30) {
            const double t = theta * CV_PI / 180, p = phi * CV_PI / 180;
            const cv::Vec3d d(std::sin(t) * std::cos(p), std::sin(t) * std::sin(p), std::cos(t));
            cv::Point2d px;
            cv::Vec3d back;
            ASSERT_TRUE(c.distort(d, &px)) << theta;
            ASSERT_TRUE(c.undistort(px, &back)) << theta;
            EXPECT_LT(cv::norm(back - d), 1e-9) << theta << " " << phi;
        }
    cv::Point2d px;
    EXPECT_FALSE(c.distort(cv::Vec3d(1, 0, -0.1), &px));  // 95.7 degrees off axis
    // A polynomial that turns back ends the field of view where it folds.
    rig::Camera folded = lens(180);
    folded.D = cv::Vec4d(-0.0355, -0.0198, 0.0261, -0.0097);
    folded.set_fov(180);
    EXPECT_NEAR(folded.max_theta, 1.516, 0.003);
}

TEST(Mounting, YawPitchRollFollowTheDocumentedOrder) {
    const auto axis = [](const cv::Matx33d& r, int col) {
        return cv::Vec3d(r(0, col), r(1, col), r(2, col));
    };
    const cv::Vec3d forward(0, 1, 0), left(-1, 0, 0), down(0, 0, -1);
    EXPECT_LT(cv::norm(axis(rig::rotation_from_ypr(0, 0, 0), 2) - forward), 1e-12);
    EXPECT_LT(cv::norm(axis(rig::rotation_from_ypr(0, 0, 0), 1) - down), 1e-12);
    EXPECT_LT(cv::norm(axis(rig::rotation_from_ypr(90, 0, 0), 2) - left), 1e-12);
    EXPECT_LT(cv::norm(axis(rig::rotation_from_ypr(0, 90, 0), 2) - down), 1e-12);
    // Roll turns the image's right side down.
    EXPECT_LT(axis(rig::rotation_from_ypr(0, 0, 10), 0)[2], 0);
    // Pitch applies before yaw: a rear camera tilted down still looks back.
    const cv::Vec3d z = axis(rig::rotation_from_ypr(180, 30, 0), 2);
    EXPECT_LT(cv::norm(z - cv::Vec3d(0, -std::cos(CV_PI / 6), -0.5)), 1e-12);
}

TEST(PhysicalRig, LoadsTheSedanExample) {
    const rig::Rig r = rig::load_rig(kSedan);
    EXPECT_FALSE(r.homography);
    EXPECT_EQ(r.canvas.size, cv::Size(785, 1070));
    EXPECT_NEAR(r.canvas.vehicle.width, 185, 1e-9);
    const cv::Point2d g = r.canvas.to_ground(r.canvas.to_canvas({1.5, -2}));
    EXPECT_LT(cv::norm(g - cv::Point2d(1.5, -2)), 1e-12);
    // Each camera sees the ground 1 m beyond its side of the vehicle.
    const cv::Vec3d ahead[4] = {{0, 3.35, 0}, {0, -3.35, 0}, {-1.9, 0.5, 0}, {1.9, 0.5, 0}};
    for (int k = 0; k < 4; ++k) {
        cv::Point2d px, via;
        EXPECT_TRUE(r.cameras[k].project(ahead[k], &px)) << k;
        EXPECT_TRUE(r.canvas_to_pixel(k, r.canvas.to_canvas({ahead[k][0], ahead[k][1]}), &via));
        EXPECT_LT(cv::norm(px - via), 1e-9);
        cv::Vec3d ray;
        ASSERT_TRUE(r.cameras[k].ray(px, &ray));
        EXPECT_LT(cv::norm(cv::normalize(ahead[k] - r.cameras[k].C) - ray), 1e-9);
    }
}

TEST(HomographyRig, RecoversPlausiblePoses) {
    if (!std::filesystem::exists(kParkingLot + "/yaml/left.yaml")) GTEST_SKIP() << "no data";
    const rig::Rig r = rig::load_rig(kParkingLot);
    EXPECT_TRUE(r.homography);
    // Cameras sit on their sides of the vehicle, roughly a metre up.
    EXPECT_GT(r.cameras[0].C[1], 1.5);
    EXPECT_LT(r.cameras[1].C[1], -1.5);
    EXPECT_LT(r.cameras[2].C[0], -0.5);
    EXPECT_GT(r.cameras[3].C[0], 0.5);
    // The recovered pose reproduces the homographies on the ground nearby.
    for (int k = 0; k < 4; ++k) {
        EXPECT_GT(r.cameras[k].C[2], 0.3) << k;
        EXPECT_LT(r.cameras[k].C[2], 3.0) << k;
        const rig::Canvas& c = r.canvas;
        const cv::Point2d p[4] = {{600, 400}, {600, 1200}, {350, 800}, {850, 800}};
        cv::Point2d h, pose;
        ASSERT_TRUE(r.canvas_to_pixel(k, p[k], &h));
        const cv::Point2d g = c.to_ground(p[k]);
        ASSERT_TRUE(r.cameras[k].project(cv::Vec3d(g.x, g.y, 0), &pose));
        EXPECT_LT(cv::norm(h - pose), 6.0) << k;
    }
}

class RigErrors : public testing::Test {
protected:
    std::string write(const std::string& text) {
        const std::string path = testing::TempDir() + "/svrig_bad.yaml";
        std::ofstream(path) << text;
        return path;
    }
    std::string error_of(const std::string& path) {
        try {
            rig::load_rig(path);
        } catch (const rig::RigError& e) {
            return e.what();
        }
        return "";
    }
};

TEST_F(RigErrors, NameTheFileAndTheEntry) {
    EXPECT_EQ(error_of("/no/such/rig.yaml"), "/no/such/rig.yaml: cannot open");
    std::ifstream in(kSedan);
    std::string sedan((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string broken = sedan;
    broken.replace(broken.find("dist_coeffs: [ -0.016, 0.0042, -0.0005, 0. ]"), 44,
                   "dist_coeffs: [ -0.016, 0.0042 ]");
    std::string path = write(broken);
    EXPECT_EQ(error_of(path), path + ": camera left: dist_coeffs: expected 4 numbers, found 2");
    broken = sedan;
    broken.replace(broken.find("[ 1280, 720 ]"), 13, "[ 1280, 800 ]");
    path = write(broken);
    EXPECT_EQ(error_of(path), path + ": the four cameras must share one resolution");
    path = write("%YAML:1.0\n---\nvehicle: { width: 1.8 }\n");
    EXPECT_EQ(error_of(path), path + ": missing 'cameras' map");
}

}  // namespace
