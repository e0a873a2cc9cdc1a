#include "rig/scene.h"

#include <cmath>
#include <cstdio>
#include <functional>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "rig/frames.h"

namespace rig {

namespace {

// Ground beyond the texture, sky and vehicle body (BGR).
const cv::Vec3b kFarGround(96, 100, 104);
const cv::Vec3b kHorizon(235, 222, 205);
const cv::Vec3b kZenith(205, 150, 90);
const cv::Vec3b kVehicle(70, 45, 35);
const cv::Scalar kAsphalt(88, 90, 92);
const cv::Scalar kWhite(235, 235, 235);
const cv::Scalar kYellow(40, 200, 235);

constexpr double kMargin = 10.0;    // texture beyond the canvas, metres
constexpr double kRoadHalf = 3.3;   // road from -3.3 m to 3.3 m across
constexpr double kPattern = 24.0;   // paving tiles (0.8 m) and lane dashes (6 m) repeat
constexpr float kOffTexture = -1e4f;  // remap source for backdrop pixels

cv::Vec3b mix(cv::Vec3b a, cv::Vec3b b, double f) {
    cv::Vec3b c;
    for (int i = 0; i < 3; ++i) c[i] = cv::saturate_cast<uint8_t>(a[i] + (b[i] - a[i]) * f);
    return c;
}

// What a pixel of a view sees: ground at a point (vehicle frame, frame 0),
// or a fixed backdrop colour.
struct Hit {
    bool ground = false;
    cv::Point2d point;
    cv::Vec3b colour;
};

}  // namespace

std::array<CameraLook, 4> distinct_looks() {
    // front warm and bright, rear dark and flat, left cool, right reddish
    // with strong vignetting.
    return {CameraLook{{1.18, 1.04, 0.88}, 0.95, 0.20},
            CameraLook{{0.78, 0.84, 0.92}, 1.15, 0.25},
            CameraLook{{0.90, 1.06, 1.22}, 0.90, 0.15},
            CameraLook{{1.22, 0.96, 0.84}, 1.08, 0.35}};
}

void scale_cameras(Rig& rig, cv::Size size) {
    for (Camera& c : rig.cameras) {
        const double sx = double(size.width) / c.size.width;
        const double sy = double(size.height) / c.size.height;
        // Pixel centres at integers: the image edge -0.5 stays the edge.
        c.K(0, 0) *= sx;
        c.K(1, 1) *= sy;
        c.K(0, 2) = (c.K(0, 2) + 0.5) * sx - 0.5;
        c.K(1, 2) = (c.K(1, 2) + 0.5) * sy - 0.5;
        c.size = size;
    }
}

Scene::Scene(const Rig& rig, const SceneOptions& opt, long frames) : rig_(rig), opt_(opt) {
    const Canvas& cv_ = rig.canvas;
    const cv::Point2d a = cv_.to_ground({-0.5, -0.5});
    const cv::Point2d b = cv_.to_ground({cv_.size.width - 0.5, cv_.size.height - 0.5});
    extent_ = cv::Rect2d(std::min(a.x, b.x) - kMargin, std::min(a.y, b.y) - kMargin,
                         std::fabs(b.x - a.x) + 2 * kMargin, std::fabs(b.y - a.y) + 2 * kMargin);
    const double extent_rows = std::ceil(extent_.height / opt.texture_mpp);
    if (std::ceil(extent_.width / opt.texture_mpp) * extent_rows > 5e7) {
        char text[128];
        std::snprintf(text, sizeof text, "the ground of %.10g x %.10g m is too large for the "
                      "synthetic scene", extent_.width, extent_.height);
        throw RigError(text);
    }
    // A longer drive runs round a loop of whole pattern periods, so that the
    // texture does not grow with the frames.
    lap_rows_ = int(std::lround(std::ceil(extent_rows * opt.texture_mpp / kPattern) * kPattern /
                                opt.texture_mpp));
    const double travel = std::max(0.0, opt.speed) * double(std::max(frames, 1L)) / opt.texture_mpp;
    lead_rows_ = travel + 1 < lap_rows_ ? int(std::ceil(travel)) + 1 : lap_rows_;
    paint_texture(opt.seed);
    if (lead_rows_ == lap_rows_) {
        // The top copies frame 0's ground, one lap on.
        const int rows = texture_.rows - lead_rows_;
        texture_.rowRange(lead_rows_, texture_.rows).copyTo(texture_.rowRange(0, rows));
    }
    for (int k = 0; k < 4; ++k) build_view(k);
}

cv::Point2f Scene::to_texture(cv::Point2d g) const {
    return {float((g.x - extent_.x) / opt_.texture_mpp - 0.5),
            float((extent_.br().y - g.y) / opt_.texture_mpp - 0.5)};
}

cv::Mat Scene::texture_at(long t) const {
    const double travel = std::fmod(opt_.speed * double(t) / opt_.texture_mpp, lap_rows_);
    const int shift = std::min(lead_rows_, int(std::lround(travel)));
    return texture_(cv::Rect(0, lead_rows_ - shift, texture_.cols, texture_.rows - lead_rows_));
}

namespace {

// Remap tables and backdrop of a view whose pixels `see` the scene.
void make_view(cv::Size size, const std::function<Hit(int, int)>& see,
               const std::function<cv::Point2f(cv::Point2d)>& to_texture, cv::Rect2d extent,
               cv::Mat& map_x, cv::Mat& map_y, cv::Mat& backdrop) {
    map_x.create(size, CV_32F);
    map_y.create(size, CV_32F);
    backdrop.create(size, CV_8UC3);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            Hit h = see(x, y);
            cv::Point2f tex(kOffTexture, kOffTexture);
            if (h.ground) {
                if (extent.contains(h.point)) {
                    tex = to_texture(h.point);
                    h.colour = cv::Vec3b(uint8_t(kAsphalt[0]), uint8_t(kAsphalt[1]),
                                         uint8_t(kAsphalt[2]));
                } else {
                    h.colour = kFarGround;
                }
            }
            map_x.at<float>(y, x) = tex.x;
            map_y.at<float>(y, x) = tex.y;
            backdrop.at<cv::Vec3b>(y, x) = h.colour;
        }
    }
}

}  // namespace

void Scene::build_view(int k) {
    const Camera& cam = rig_.cameras[k];
    const cv::Point2d v0 = rig_.canvas.to_ground(rig_.canvas.vehicle.tl());
    const cv::Point2d v1 = rig_.canvas.to_ground(rig_.canvas.vehicle.br());
    const cv::Rect2d vehicle(cv::Point2d(std::min(v0.x, v1.x), std::min(v0.y, v1.y)),
                             cv::Point2d(std::max(v0.x, v1.x), std::max(v0.y, v1.y)));
    auto see = [&](int x, int y) {
        Hit h;
        cv::Vec3d d;
        if (!cam.ray(cv::Point2d(x, y), &d)) {
            h.colour = cv::Vec3b(0, 0, 0);  // outside the lens' field of view
        } else if (d[2] > -1e-6 || cam.C[2] <= 0) {
            const double elevation = std::asin(std::min(1.0, std::max(0.0, d[2])));
            h.colour = mix(kHorizon, kZenith, std::sqrt(elevation / (CV_PI / 2)));
        } else {
            const double s = -cam.C[2] / d[2];
            h.point = cv::Point2d(cam.C[0] + s * d[0], cam.C[1] + s * d[1]);
            h.ground = !vehicle.contains(h.point);
            h.colour = kVehicle;
        }
        return h;
    };
    make_view(cam.size, see, [this](cv::Point2d g) { return to_texture(g); }, extent_,
              map_x_[k], map_y_[k], backdrop_[k]);

    // Brightness falls with the squared distance from the principal point.
    const double cx = cam.K(0, 2), cy = cam.K(1, 2);
    const double rmax2 = std::max({cx * cx + cy * cy,
                                   std::pow(cam.size.width - cx, 2) + cy * cy,
                                   cx * cx + std::pow(cam.size.height - cy, 2),
                                   std::pow(cam.size.width - cx, 2) + std::pow(cam.size.height - cy, 2)});
    vignette_[k].create(cam.size, CV_32F);
    for (int y = 0; y < cam.size.height; ++y)
        for (int x = 0; x < cam.size.width; ++x)
            vignette_[k].at<float>(y, x) = float(
                1.0 - opt_.looks[k].vignetting * ((x - cx) * (x - cx) + (y - cy) * (y - cy)) / rmax2);
}

cv::Mat Scene::ground_truth() const {
    const Canvas& c = rig_.canvas;
    auto see = [&](int x, int y) {
        Hit h;
        h.point = c.to_ground(cv::Point2d(x, y));
        h.ground = !c.vehicle.contains(cv::Point2d(x, y));
        h.colour = kVehicle;
        return h;
    };
    cv::Mat map_x, map_y, img;
    make_view(c.size, see, [this](cv::Point2d g) { return to_texture(g); }, extent_, map_x,
              map_y, img);
    cv::remap(texture_at(0), img, map_x, map_y, cv::INTER_LINEAR, cv::BORDER_TRANSPARENT);
    return img;
}

cv::Mat Scene::render(int k, long t, bool looks) const {
    cv::Mat img = backdrop_[k].clone();
    cv::remap(texture_at(t), img, map_x_[k], map_y_[k], cv::INTER_LINEAR, cv::BORDER_TRANSPARENT);
    if (!looks) return img;

    const CameraLook& look = opt_.looks[k];
    const double drift =
        1.0 + opt_.drift * std::sin(2 * CV_PI * double(t) / std::max(1, opt_.drift_period) +
                                    k * CV_PI / 2);
    float lut[3][256];  // BGR order
    for (int c = 0; c < 3; ++c)
        for (int v = 0; v < 256; ++v)
            lut[c][v] = float(255.0 * look.gain[2 - c] * drift * std::pow(v / 255.0, look.gamma));
    for (int y = 0; y < img.rows; ++y) {
        uint8_t* p = img.ptr<uint8_t>(y);
        const float* vig = vignette_[k].ptr<float>(y);
        for (int x = 0; x < img.cols; ++x, p += 3)
            for (int c = 0; c < 3; ++c) p[c] = cv::saturate_cast<uint8_t>(lut[c][p[c]] * vig[x]);
    }
    return img;
}

void Scene::render_frame_set(long t, uint8_t* frame_set) const {
    const cv::Size s = camera_size();
    for (int k = 0; k < 4; ++k)
        bgr_to_yuyv(render(k, t), frame_set + k * yuyv_bytes(s.width, s.height));
}

void Scene::paint_texture(unsigned seed) {
    const double mpp = opt_.texture_mpp;
    const int w = int(std::ceil(extent_.width / mpp));
    const int h = int(std::ceil(extent_.height / mpp)) + lead_rows_;
    cv::RNG rng(seed);

    // Asphalt: fine grain plus broad stains.
    texture_.create(h, w, CV_8UC3);
    texture_.setTo(kAsphalt);
    cv::Mat grain(h, w, CV_16SC3);
    rng.fill(grain, cv::RNG::NORMAL, 0, 9);
    cv::Mat stains(std::max(2, h / 40), std::max(2, w / 40), CV_16SC1);
    rng.fill(stains, cv::RNG::UNIFORM, -8, 8);
    cv::resize(stains, stains, texture_.size(), 0, 0, cv::INTER_CUBIC);
    cv::merge(std::vector<cv::Mat>(3, stains), stains);
    cv::Mat base;
    texture_.convertTo(base, CV_16SC3);
    cv::GaussianBlur(grain, grain, cv::Size(3, 3), 0);
    texture_ = cv::Mat();
    cv::Mat(base + grain + stains).convertTo(texture_, CV_8UC3);

    // Ground rectangle (metres, frame-0 vehicle frame) -> texture pixels;
    // the painted area runs lead_rows_ beyond the extent ahead.
    const double top = extent_.br().y + lead_rows_ * mpp;
    auto px = [&](double x, double y) {
        const cv::Point2f p = to_texture({x, y});
        return cv::Point(int(std::lround(p.x)), int(std::lround(p.y)) + lead_rows_);
    };
    auto box = [&](double x0, double y0, double x1, double y1, const cv::Scalar& colour) {
        cv::rectangle(texture_, cv::Rect(px(x0, y1), px(x1, y0)), colour, cv::FILLED);
    };

    // Paving tiles beside the road, each its own shade of sandstone.
    const double tile = 0.8, grout = 0.04;
    for (double y = std::floor(extent_.y / tile) * tile; y < top; y += tile) {
        for (double x = std::floor(extent_.x / tile) * tile; x < extent_.br().x; x += tile) {
            // Tiles that reach into the road are cut at its edge.
            const double shade = rng.uniform(-18.0, 18.0);
            const cv::Scalar colour(150 + shade + rng.uniform(-6.0, 6.0),
                                    172 + shade + rng.uniform(-6.0, 6.0),
                                    192 + shade + rng.uniform(-6.0, 6.0));
            for (const auto& [l, r] : {std::pair(x, std::min(x + tile, -kRoadHalf)),
                                       std::pair(std::max(x, kRoadHalf), x + tile)}) {
                if (r <= l) continue;
                box(l, y, r, y + tile, cv::Scalar(70, 74, 78));
                box(std::max(l, x + grout), y + grout, std::min(r, x + tile - grout),
                    y + tile - grout, colour);
            }
        }
    }

    // Road markings: solid edge lines, dashed lane lines, a zebra crossing
    // ahead and a stop line behind.
    const double y_lo = extent_.y, y_hi = top;
    for (double side : {-1.0, 1.0}) {
        box(side * 3.1 - 0.075, y_lo, side * 3.1 + 0.075, y_hi, kWhite);
        for (double y = std::floor(y_lo / 6) * 6; y < y_hi; y += 6)
            box(side * 1.7 - 0.06, y, side * 1.7 + 0.06, y + 3, kWhite);
    }
    box(-0.06, y_lo, 0.06, y_hi, kYellow);
    for (double x = -1.4; x < 1.4; x += 0.8) box(x, 3.3, x + 0.4, 5.1, kWhite);
    box(-kRoadHalf, -5.25, kRoadHalf, -4.95, kWhite);

    // A checkerboard mat and a row of colour patches in every corner
    // overlap, where the two cameras' looks meet.
    const cv::Scalar patches[4] = {cv::Scalar(40, 40, 210), cv::Scalar(60, 170, 50),
                                   cv::Scalar(190, 80, 30), cv::Scalar(30, 210, 230)};
    for (const cv::Rect2d& o : rig_.canvas.overlaps()) {
        const cv::Point2d a = rig_.canvas.to_ground(o.tl()), b = rig_.canvas.to_ground(o.br());
        const cv::Point2d centre = (a + b) * 0.5;
        const double size = std::min(1.4, 0.5 * std::min(std::fabs(b.x - a.x), std::fabs(b.y - a.y)));
        const double sq = size / 7;
        const double x0 = centre.x - size / 2, y0 = centre.y - size / 2;
        box(x0 - sq / 3, y0 - sq / 3, x0 + size + sq / 3, y0 + size + sq / 3, kWhite);
        for (int i = 0; i < 7; ++i)
            for (int j = 0; j < 7; ++j)
                box(x0 + i * sq, y0 + j * sq, x0 + (i + 1) * sq, y0 + (j + 1) * sq,
                    (i + j) % 2 ? kWhite : cv::Scalar(30, 30, 30));
        // Patches on the mat's far side from the vehicle.
        const double py = centre.y > 0 ? y0 + size + sq : y0 - 2 * sq;
        for (int i = 0; i < 4; ++i)
            box(x0 + i * size / 4, py, x0 + (i + 1) * size / 4 - sq / 4, py + sq, patches[i]);
    }
}

}  // namespace rig
