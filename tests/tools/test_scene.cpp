// The synthetic scene the tool renders its camera frames from.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include <opencv2/imgproc.hpp>

#include "rig/scene.h"

namespace {

const std::string kSedan = SV_SOURCE_DIR "/examples/rig-sedan.yaml";

class SceneTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        rig_ = std::make_unique<rig::Rig>(rig::load_rig(kSedan));
        rig::scale_cameras(*rig_, cv::Size(320, 180));
        scene_ = std::make_unique<rig::Scene>(*rig_, rig::SceneOptions(), 1);
    }
    static inline std::unique_ptr<rig::Rig> rig_;
    static inline std::unique_ptr<rig::Scene> scene_;
};

// Each camera's view, carried back onto the canvas through the rig's own
// projection, matches the ground truth on its side of the vehicle (both
// blurred: the cameras resolve less than the canvas).
TEST_F(SceneTest, CameraViewsShowTheGroundTruth) {
    const cv::Mat truth = scene_->ground_truth();
    ASSERT_EQ(truth.size(), rig_->canvas.size);
    const cv::Rect2d v = rig_->canvas.vehicle;
    for (int k = 0; k < 4; ++k) {
        const cv::Mat view = scene_->render(k, 0, false);
        cv::Mat warped(truth.size(), CV_8UC3, cv::Scalar::all(0)), mask(truth.size(), CV_8U, cv::Scalar(0));
        for (int y = 0; y < truth.rows; ++y)
            for (int x = 0; x < truth.cols; ++x) {
                const bool side[4] = {y < v.y, y > v.br().y, x < v.x, x > v.br().x};
                cv::Point2d p;
                if (!side[k] || !rig_->canvas_to_pixel(k, cv::Point2d(x, y), &p)) continue;
                warped.at<cv::Vec3b>(y, x) = view.at<cv::Vec3b>(int(std::lround(p.y)), int(std::lround(p.x)));
                mask.at<uint8_t>(y, x) = 255;
            }
        cv::Mat a, b, diff;
        cv::blur(warped, a, cv::Size(15, 15));
        cv::blur(truth, b, cv::Size(15, 15));
        cv::erode(mask, mask, cv::Mat::ones(15, 15, CV_8U));
        cv::absdiff(a, b, diff);
        ASSERT_GT(cv::countNonZero(mask), 50000) << rig_->cameras[k].name;
        const cv::Scalar m = cv::mean(diff, mask);
        // About 7 here; a 4 cm misplacement already gives 10.
        EXPECT_LT((m[0] + m[1] + m[2]) / 3, 9.0) << rig_->cameras[k].name;
    }
}

TEST_F(SceneTest, LooksFollowGainGammaAndVignetting) {
    const rig::Camera& cam = rig_->cameras[rig::kLeft];
    const cv::Point centre(int(cam.K(0, 2)), int(cam.K(1, 2)));
    const cv::Vec3b plain = scene_->render(rig::kLeft, 0, false).at<cv::Vec3b>(centre);
    const cv::Vec3b looked = scene_->render(rig::kLeft, 0).at<cv::Vec3b>(centre);
    const rig::CameraLook look = rig::distinct_looks()[rig::kLeft];
    for (int c = 0; c < 3; ++c) {
        const double expect = 255 * look.gain[2 - c] * std::pow(plain[c] / 255.0, look.gamma);
        EXPECT_NEAR(looked[c], std::min(255.0, expect), 1.0) << "channel " << c;
    }
}

// A long drive loops over a ground that repeats every whole 24 m (48 m for
// the sedan's 30.7 m canvas) instead of painting the whole way.
TEST_F(SceneTest, LongDriveLoopsOverTheGround) {
    rig::SceneOptions o;
    o.speed = 24;
    const rig::Scene drive(*rig_, o, 1000000000000L);
    const cv::Mat start = drive.render(rig::kFront, 0);
    EXPECT_GT(cv::norm(drive.render(rig::kFront, 1), start, cv::NORM_INF), 0);
    EXPECT_EQ(cv::norm(drive.render(rig::kFront, 2), start, cv::NORM_INF), 0);
    EXPECT_EQ(cv::norm(drive.render(rig::kFront, 999999999998L), start, cv::NORM_INF), 0);
}

TEST_F(SceneTest, ResizedCamerasKeepPixelCentres) {
    const cv::Vec3d ground(0.4, 3.5, 0);
    cv::Point2d a, b;
    ASSERT_TRUE(rig::load_rig(kSedan).cameras[rig::kFront].project(ground, &a));
    ASSERT_TRUE(rig_->cameras[rig::kFront].project(ground, &b));
    EXPECT_NEAR(b.x, (a.x + 0.5) / 4 - 0.5, 1e-9);
    EXPECT_NEAR(b.y, (a.y + 0.5) / 4 - 0.5, 1e-9);
}

}  // namespace
