// A calibrated four-camera rig and its bird's-eye canvas.
//
// Two descriptions load into the same model:
// - a physical rig file (YAML, described in README.md): fisheye intrinsics and a pose
//   per camera, plus the ground extent and the vehicle box in metres;
// - a folder of per-camera homographies (yaml/front.yaml, back.yaml,
//   left.yaml, right.yaml): fisheye intrinsics, an undistorted pinhole view
//   and a homography from that view to the camera's patch of the canvas.
//   The camera poses are recovered from the homographies (with the canvas
//   scale given in HomographyOptions), so 3-D projection works for both;
//   canvas_to_pixel() uses the homographies themselves.
//
// Cameras are numbered as the library expects: 0 front, 1 rear, 2 left,
// 3 right. The canvas has the vehicle front up.
#ifndef RIG_RIG_H
#define RIG_RIG_H

#include <array>
#include <stdexcept>
#include <string>

#include <opencv2/core.hpp>

#include "rig/camera.h"

namespace rig {

enum CameraId { kFront = 0, kRear = 1, kLeft = 2, kRight = 3 };

// Every loading or layout failure; what() is a one-line message.
struct RigError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The bird's-eye canvas: a top view of the ground in canvas pixels, pixel
// (i, j) centred at the point (i, j), x to the right, y toward the rear.
struct Canvas {
    cv::Size size;          // canvas width and height in pixels
    cv::Rect2d vehicle;     // vehicle box: x in [x, x + width), y likewise
    double mpp = 0.01;      // metres per canvas pixel
    cv::Point2d origin;     // canvas position of the vehicle-frame origin

    // Canvas point <-> ground point (vehicle frame x, y in metres; z = 0).
    cv::Point2d to_ground(cv::Point2d c) const;
    cv::Point2d to_canvas(cv::Point2d g) const;

    // The four corner overlaps outside the vehicle box, in the order of the
    // statistics regions: front-left, front-right, rear-right, rear-left.
    std::array<cv::Rect2d, 4> overlaps() const;
};

// Output defaults carried by a physical rig file; command-line options
// override them.
struct OutputDefaults {
    cv::Size size{1280, 800};
    bool rear_view = false;
    double rear_fov_deg = 120.0;  // horizontal field of view of the rear panel
};

// Canvas of the homography convention (defaults: the parking-lot data set).
struct HomographyOptions {
    cv::Size canvas{1200, 1600};
    cv::Rect2d vehicle{500, 550, 200, 500};  // x0, y0, width, height
    double mpp = 0.01;       // metres per canvas pixel, for the recovered poses
    double fov_deg = 180.0;  // lens field of view: rays beyond half of it are unseen
};

struct Rig {
    bool homography = false;        // which description it was loaded from
    std::array<Camera, 4> cameras;  // indexed by CameraId
    Canvas canvas;
    OutputDefaults output;
    // Homography convention only: canvas point (homogeneous) -> camera-frame
    // ray, third component positive in front of the camera.
    std::array<cv::Matx33d, 4> canvas_to_ray;

    // Where camera `cam` sees the ground point under canvas point c; false
    // when it does not (behind it, outside its field of view or image).
    bool canvas_to_pixel(int cam, cv::Point2d c, cv::Point2d* pixel) const;
};

// Loads a physical rig file or a homography folder; throws RigError.
Rig load_rig(const std::string& path,
             const HomographyOptions& hopt = HomographyOptions());
Rig load_physical_rig(const std::string& file);
Rig load_homography_rig(const std::string& folder, const HomographyOptions& hopt);

}  // namespace rig

#endif
