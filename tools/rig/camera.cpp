#include "rig/camera.h"

#include <algorithm>
#include <cmath>

namespace rig {

namespace {

// theta_d(theta) of the cv::fisheye model and its derivative.
double lens(const cv::Vec4d& D, double t, double* slope) {
    const double t2 = t * t;
    const double poly = 1 + t2 * (D[0] + t2 * (D[1] + t2 * (D[2] + t2 * D[3])));
    if (slope)
        *slope = 1 + t2 * (3 * D[0] + t2 * (5 * D[1] + t2 * (7 * D[2] + t2 * 9 * D[3])));
    return t * poly;
}

cv::Matx33d rot_z(double a) {
    const double c = std::cos(a), s = std::sin(a);
    return {c, -s, 0, s, c, 0, 0, 0, 1};
}

cv::Matx33d rot_x(double a) {
    const double c = std::cos(a), s = std::sin(a);
    return {1, 0, 0, 0, c, -s, 0, s, c};
}

}  // namespace

bool Camera::distort(const cv::Vec3d& dir, cv::Point2d* pixel) const {
    const double rho = std::hypot(dir[0], dir[1]);
    const double theta = std::atan2(rho, dir[2]);
    if (theta > max_theta || (rho == 0 && dir[2] <= 0)) return false;
    const double td = lens(D, theta, nullptr);
    // Near the axis theta_d / rho tends to 1 / z.
    const double k = rho > 1e-12 ? td / rho : 1.0 / dir[2];
    pixel->x = K(0, 0) * dir[0] * k + K(0, 2);
    pixel->y = K(1, 1) * dir[1] * k + K(1, 2);
    return true;
}

bool Camera::undistort(cv::Point2d pixel, cv::Vec3d* dir) const {
    const double xd = (pixel.x - K(0, 2)) / K(0, 0);
    const double yd = (pixel.y - K(1, 2)) / K(1, 1);
    const double td = std::hypot(xd, yd);
    if (td < 1e-12) {
        *dir = cv::Vec3d(0, 0, 1);
        return true;
    }
    // Newton on theta_d(theta) = td; the lens is monotonic up to max_theta
    // (checked when the rig loads), so start there at worst.
    double t = std::min(td, max_theta);
    for (int i = 0; i < 20; ++i) {
        double slope;
        const double f = lens(D, t, &slope) - td;
        if (slope <= 0) return false;
        const double step = f / slope;
        t = std::max(0.0, t - step);
        if (std::fabs(step) < 1e-12) break;
    }
    if (t > max_theta + 1e-9 || std::fabs(lens(D, t, nullptr) - td) > 1e-9) return false;
    const double s = std::sin(t) / td;
    *dir = cv::Vec3d(xd * s, yd * s, std::cos(t));
    return true;
}

void Camera::set_fov(double fov_deg) {
    max_theta = fov_deg * CV_PI / 360;
    // A calibrated polynomial often stops growing beyond the angles it was
    // fitted on; rays past that fold would alias nearer ones.
    double prev = -1;
    for (double t = 0; t <= max_theta; t += 0.001) {
        const double td = lens(D, t, nullptr);
        if (td <= prev) {
            max_theta = t - 0.002;
            return;
        }
        prev = td;
    }
}

bool Camera::project(const cv::Vec3d& p, cv::Point2d* pixel) const {
    return distort(R.t() * (p - C), pixel) && in_image(*pixel, 0);
}

bool Camera::ray(cv::Point2d pixel, cv::Vec3d* dir) const {
    cv::Vec3d d;
    if (!undistort(pixel, &d)) return false;
    *dir = R * d;
    return true;
}

bool Camera::in_image(cv::Point2d p, double border) const {
    return p.x >= border && p.y >= border && p.x <= size.width - 1 - border &&
           p.y <= size.height - 1 - border;
}

bool Camera::sees(cv::Point2d p, double border) const {
    const double td = std::hypot((p.x - K(0, 2)) / K(0, 0), (p.y - K(1, 2)) / K(1, 1));
    return in_image(p, border) &&
           td <= lens(D, max_theta, nullptr) - border / std::min(K(0, 0), K(1, 1));
}

cv::Matx33d rotation_from_ypr(double yaw_deg, double pitch_deg, double roll_deg) {
    const double rad = CV_PI / 180;
    // Level camera looking forward: image right = +x, image down = -z,
    // optical axis = +y (columns of the matrix).
    const cv::Matx33d level(1, 0, 0, 0, 0, 1, 0, -1, 0);
    return rot_z(yaw_deg * rad) * rot_x(-pitch_deg * rad) * level * rot_z(roll_deg * rad);
}

}  // namespace rig
