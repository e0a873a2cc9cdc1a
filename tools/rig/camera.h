// One fisheye camera of a rig: lens model and pose in the vehicle frame.
//
// Vehicle frame: metres, x right, y forward, z up, origin on the ground
// under the vehicle centre. Camera frame: x image right, y image down,
// z along the optical axis (the OpenCV convention).
#ifndef RIG_CAMERA_H
#define RIG_CAMERA_H

#include <string>

#include <opencv2/core.hpp>

namespace rig {

struct Camera {
    std::string name;
    cv::Size size;        // image width and height in pixels
    cv::Matx33d K;        // fx, fy, cx, cy as in cv::fisheye (skew unused)
    cv::Vec4d D;          // k1..k4: theta_d = theta (1 + k1 t^2 + k2 t^4 + k3 t^6 + k4 t^8)
    double max_theta;     // half field of view, radians from the optical axis
    cv::Matx33d R;        // camera -> vehicle rotation (columns: camera x, y, z axes)
    cv::Vec3d C;          // optical centre in the vehicle frame

    // Sets max_theta to half of fov_deg, or less where the lens polynomial
    // stops growing (needs D).
    void set_fov(double fov_deg);

    // Lens model on a camera-frame direction, valid up to max_theta (also
    // beyond 90 degrees, which cv::fisheye::projectPoints cannot express).
    // distort() fails when the direction lies outside the field of view;
    // undistort() when the pixel lies outside it. The pixel need not be
    // inside the image: use in_image() for that.
    bool distort(const cv::Vec3d& dir, cv::Point2d* pixel) const;
    bool undistort(cv::Point2d pixel, cv::Vec3d* dir) const;

    // Vehicle-frame point -> pixel; true when the camera sees the point:
    // inside the field of view and inside the image.
    bool project(const cv::Vec3d& p, cv::Point2d* pixel) const;
    // Pixel -> unit ray direction in the vehicle frame (starting at C);
    // false outside the field of view.
    bool ray(cv::Point2d pixel, cv::Vec3d* dir) const;

    // Inside the image with at least `border` pixels to every edge, edges
    // being the centres of the first and last columns and rows.
    bool in_image(cv::Point2d pixel, double border) const;
    // Inside the image and at least `border` pixels inside the edge of the
    // field of view (the image circle of a wide lens).
    bool sees(cv::Point2d pixel, double border) const;
};

// Camera -> vehicle rotation from a mounting in degrees. At zero the camera
// looks forward, level, image right = vehicle right. Applied in this order:
// roll about the optical axis (positive turns the image's right side down),
// pitch (positive tilts the optical axis down below the horizon), yaw about
// the vertical (positive turns the camera to the left, counter-clockwise
// seen from above: 90 looks left, 180 backward, -90 right).
cv::Matx33d rotation_from_ypr(double yaw_deg, double pitch_deg, double roll_deg);

}  // namespace rig

#endif
