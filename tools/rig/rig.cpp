#include "rig/rig.h"

#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <vector>

namespace rig {

namespace {

const char* const kPhysicalNames[4] = {"front", "rear", "left", "right"};
const char* const kFolderNames[4] = {"front", "back", "left", "right"};

bool is_dir(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

cv::FileStorage open_yaml(const std::string& path) {
    // Checked first: OpenCV would log its own error line on a missing file.
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) throw RigError(path + ": cannot open");
    if (st.st_size == 0) throw RigError(path + ": the file is empty");
    cv::FileStorage fs;
    try {
        fs.open(path, cv::FileStorage::READ);
    } catch (const cv::Exception& e) {
        // OpenCV reports "file(line): reason" in the function field.
        throw RigError("not a readable YAML file: " +
                       (e.func.rfind(path, 0) == 0 ? e.func : path + " (" + e.err + ")"));
    }
    if (!fs.isOpened()) throw RigError(path + ": cannot open");
    return fs;
}

// Numbers of a node written as a plain sequence, a scalar, or an
// !!opencv-matrix (as OpenCV's own calibration writes them).
std::vector<double> numbers(const cv::FileNode& n, const std::string& what, size_t count) {
    std::vector<double> v;
    if (n.isSeq()) {
        for (const auto& e : n) {
            if (!e.isReal() && !e.isInt()) throw RigError(what + ": expected numbers");
            v.push_back(static_cast<double>(e));
        }
    } else if (n.isReal() || n.isInt()) {
        v.push_back(static_cast<double>(n));
    } else if (n.isMap() && !n["data"].empty()) {
        cv::Mat m;
        try {
            n >> m;
        } catch (const cv::Exception&) {
            throw RigError(what + ": malformed !!opencv-matrix (rows, cols, dt and data disagree)");
        }
        m.convertTo(m, CV_64F);
        v.assign(m.begin<double>(), m.end<double>());
    } else {
        throw RigError(what + (n.empty() ? ": missing" : ": expected numbers"));
    }
    if (v.size() != count)
        throw RigError(what + ": expected " + std::to_string(count) + " numbers, found " +
                       std::to_string(v.size()));
    // A NaN slips through every later comparison and silently blinds a camera.
    for (double x : v)
        if (!std::isfinite(x)) throw RigError(what + ": expected finite numbers");
    return v;
}

double number(const cv::FileNode& n, const std::string& what) {
    return numbers(n, what, 1)[0];
}

double number_or(const cv::FileNode& n, const std::string& what, double fallback) {
    return n.empty() ? fallback : number(n, what);
}

// A size in pixels, checked before the cast to int.
int pixels(double v, const std::string& what) {
    if (!(v >= 1 && v <= 65536 && v == std::floor(v)))
        throw RigError(what + ": expected a whole number of pixels from 1 to 65536");
    return static_cast<int>(v);
}

// Intrinsics shared by both descriptions.
Camera read_lens(const cv::FileNode& n, const std::string& where, double fov_deg) {
    Camera c;
    c.name = where;
    const auto res = numbers(n["resolution"], where + ": resolution", 2);
    c.size = cv::Size(pixels(res[0], where + ": resolution"), pixels(res[1], where + ": resolution"));
    if (c.size.width < 4 || c.size.height < 4 || c.size.width % 2 || c.size.height % 2)
        throw RigError(where + ": resolution must be even and at least 4 x 4");
    const auto k = numbers(n["camera_matrix"], where + ": camera_matrix", 9);
    c.K = cv::Matx33d(k.data());
    if (!(c.K(0, 0) > 0 && c.K(1, 1) > 0))
        throw RigError(where + ": camera_matrix needs positive focal lengths");
    const auto d = numbers(n["dist_coeffs"], where + ": dist_coeffs", 4);
    c.D = cv::Vec4d(d[0], d[1], d[2], d[3]);
    if (!(fov_deg > 0 && fov_deg <= 360))
        throw RigError(where + ": fov must lie in (0, 360] degrees");
    c.set_fov(fov_deg);
    return c;
}

bool in_front(const cv::Matx33d& g, cv::Point2d c) {
    return (g * cv::Vec3d(c.x, c.y, 1))[2] > 0;
}

// Pose of a camera whose canvas -> ray map is g: with ground -> canvas A,
// g * A = s [r1 r2 t] for the rotation [r1 r2 r3] (vehicle -> camera).
void recover_pose(Camera* cam, const cv::Matx33d& g, const Canvas& canvas) {
    const cv::Matx33d a(1 / canvas.mpp, 0, canvas.origin.x, 0, -1 / canvas.mpp, canvas.origin.y,
                        0, 0, 1);
    const cv::Matx33d m = g * a;
    const cv::Vec3d m1(m(0, 0), m(1, 0), m(2, 0)), m2(m(0, 1), m(1, 1), m(2, 1)),
        m3(m(0, 2), m(1, 2), m(2, 2));
    const double s = (cv::norm(m1) + cv::norm(m2)) / 2;
    const cv::Vec3d r1 = m1 / s, r2 = m2 / s, r3 = r1.cross(r2);
    cv::Matx33d r(r1[0], r2[0], r3[0], r1[1], r2[1], r3[1], r1[2], r2[2], r3[2]);
    // Nearest rotation: a measured homography is never exactly rigid.
    cv::SVD svd(cv::Mat(r), cv::SVD::FULL_UV);
    cv::Mat rot = svd.u * svd.vt;
    r = cv::Matx33d(reinterpret_cast<const double*>(rot.data));
    cam->R = r.t();
    cam->C = -(r.t() * (m3 / s));
}

}  // namespace

cv::Point2d Canvas::to_ground(cv::Point2d c) const {
    return {(c.x - origin.x) * mpp, (origin.y - c.y) * mpp};
}

cv::Point2d Canvas::to_canvas(cv::Point2d g) const {
    return {origin.x + g.x / mpp, origin.y - g.y / mpp};
}

std::array<cv::Rect2d, 4> Canvas::overlaps() const {
    const double x0 = vehicle.x, y0 = vehicle.y, x1 = vehicle.br().x, y1 = vehicle.br().y;
    const double w = size.width, h = size.height;
    return {cv::Rect2d(0, 0, x0, y0), cv::Rect2d(x1, 0, w - x1, y0),
            cv::Rect2d(x1, y1, w - x1, h - y1), cv::Rect2d(0, y1, x0, h - y1)};
}

bool Rig::canvas_to_pixel(int cam, cv::Point2d c, cv::Point2d* pixel) const {
    const Camera& k = cameras[cam];
    if (!homography) {
        const cv::Point2d g = canvas.to_ground(c);
        return k.project(cv::Vec3d(g.x, g.y, 0), pixel);
    }
    const cv::Vec3d r = canvas_to_ray[cam] * cv::Vec3d(c.x, c.y, 1);
    return r[2] > 0 && k.distort(r, pixel) && k.in_image(*pixel, 0);
}

Rig load_physical_rig(const std::string& file) {
    cv::FileStorage fs = open_yaml(file);
    Rig rig;
    const cv::FileNode cams = fs["cameras"];
    if (!cams.isMap()) throw RigError(file + ": missing 'cameras' map");
    for (int i = 0; i < 4; ++i) {
        const std::string where = file + ": camera " + kPhysicalNames[i];
        const cv::FileNode n = cams[kPhysicalNames[i]];
        if (!n.isMap()) throw RigError(where + ": missing");
        Camera c = read_lens(n, where, number_or(n["fov"], where + ": fov", 180));
        const auto pos = numbers(n["position"], where + ": position", 3);
        const auto ypr = numbers(n["orientation"], where + ": orientation", 3);
        c.name = kPhysicalNames[i];
        c.C = cv::Vec3d(pos[0], pos[1], pos[2]);
        c.R = rotation_from_ypr(ypr[0], ypr[1], ypr[2]);
        rig.cameras[i] = c;
    }

    const cv::FileNode veh = fs["vehicle"];
    const double vw = number(veh["width"], file + ": vehicle width");
    const double vl = number(veh["length"], file + ": vehicle length");
    const cv::FileNode be = fs["birdseye"];
    const double ef = number(be["front"], file + ": birdseye front");
    const double er = number(be["rear"], file + ": birdseye rear");
    const double el = number(be["left"], file + ": birdseye left");
    const double eri = number(be["right"], file + ": birdseye right");
    const double ppm = number_or(be["pixels_per_metre"], file + ": birdseye pixels_per_metre", 100);
    if (!(vw > 0 && vl > 0 && ef > 0 && er > 0 && el > 0 && eri > 0 && ppm > 0))
        throw RigError(file + ": vehicle and birdseye sizes must be positive");
    Canvas& cv_ = rig.canvas;
    cv_.mpp = 1 / ppm;
    // In double: a far extent overflows int long before the area check.
    const double cw = std::round((el + vw + eri) * ppm), ch = std::round((ef + vl + er) * ppm);
    if (!(cw >= 8 && ch >= 8 && cw * ch <= 1e8)) {
        char text[96];
        std::snprintf(text, sizeof text, "%.10g x %.10g", cw, ch);
        throw RigError(file + ": birdseye canvas of " + text +
                       " pixels is unusable (8 x 8 to 100 million pixels)");
    }
    cv_.size = cv::Size(static_cast<int>(cw), static_cast<int>(ch));
    // Canvas pixel centres at integers: the left edge x = -0.5 lies el + vw/2
    // metres left of the origin.
    cv_.origin = cv::Point2d((el + vw / 2) * ppm - 0.5, (ef + vl / 2) * ppm - 0.5);
    cv_.vehicle = cv::Rect2d(cv_.origin.x - vw / 2 * ppm, cv_.origin.y - vl / 2 * ppm, vw * ppm,
                             vl * ppm);

    const cv::FileNode out = fs["output"];
    if (!out.empty()) {
        OutputDefaults& o = rig.output;
        o.size.width = pixels(number_or(out["width"], file + ": output width", o.size.width),
                              file + ": output width");
        o.size.height = pixels(number_or(out["height"], file + ": output height", o.size.height),
                               file + ": output height");
        o.rear_view = number_or(out["rear_view"], file + ": output rear_view", 0) != 0;
        o.rear_fov_deg = number_or(out["rear_fov"], file + ": output rear_fov", o.rear_fov_deg);
    }
    return rig;
}

Rig load_homography_rig(const std::string& folder, const HomographyOptions& hopt) {
    Rig rig;
    rig.homography = true;
    Canvas& canvas = rig.canvas;
    canvas.size = hopt.canvas;
    canvas.vehicle = hopt.vehicle;
    canvas.mpp = hopt.mpp;
    const double w = canvas.size.width, h = canvas.size.height;
    const double x0 = canvas.vehicle.x, y0 = canvas.vehicle.y;
    const double x1 = canvas.vehicle.br().x, y1 = canvas.vehicle.br().y;
    if (!(w >= 8 && h >= 8 && x0 > 0 && y0 > 0 && x1 > x0 && y1 > y0 && x1 < w && y1 < h))
        throw RigError("the vehicle box must lie strictly inside the canvas");
    if (!(hopt.mpp > 0)) throw RigError("metres per canvas pixel must be positive");
    canvas.origin = (canvas.vehicle.tl() + canvas.vehicle.br()) * 0.5;

    // Canvas -> patch placement per camera: the front patch as is, the rear
    // one turned by 180 degrees, the left one a quarter turn counter-
    // clockwise, the right one a quarter turn clockwise.
    const cv::Matx33d place[4] = {
        cv::Matx33d::eye(),
        cv::Matx33d(-1, 0, w - 1, 0, -1, h - 1, 0, 0, 1),
        cv::Matx33d(0, -1, h - 1, 1, 0, 0, 0, 0, 1),
        cv::Matx33d(0, 1, 0, -1, 0, w - 1, 0, 0, 1)};
    // A canvas point just outside each side of the vehicle box that its
    // camera must see: fixes the sign of the homography.
    const cv::Point2d beside[4] = {{canvas.origin.x, y0 - 1}, {canvas.origin.x, y1 + 1},
                                 {x0 - 1, canvas.origin.y}, {x1 + 1, canvas.origin.y}};

    for (int i = 0; i < 4; ++i) {
        const std::string file = folder + "/yaml/" + kFolderNames[i] + ".yaml";
        cv::FileStorage fs = open_yaml(file);
        Camera c = read_lens(fs.root(), file, hopt.fov_deg);
        c.name = kPhysicalNames[i];
        const auto hv = numbers(fs["project_matrix"], file + ": project_matrix", 9);
        const auto sc = numbers(fs["scale_xy"], file + ": scale_xy", 2);
        const auto sh = numbers(fs["shift_xy"], file + ": shift_xy", 2);
        const cv::Matx33d hm(hv.data());
        // Undistorted view: K with scaled focal lengths and shifted centre.
        const cv::Matx33d kv(c.K(0, 0) * sc[0], 0, c.K(0, 2) + sh[0], 0, c.K(1, 1) * sc[1],
                             c.K(1, 2) + sh[1], 0, 0, 1);
        if (!(std::fabs(cv::determinant(hm)) >= 1e-12) || !(sc[0] > 0 && sc[1] > 0))
            throw RigError(file + ": project_matrix or scale_xy is degenerate");
        cv::Matx33d g = kv.inv() * hm.inv() * place[i];
        if (!in_front(g, beside[i])) g = -g;
        rig.canvas_to_ray[i] = g;
        recover_pose(&c, g, canvas);
        rig.cameras[i] = c;
    }
    return rig;
}

Rig load_rig(const std::string& path, const HomographyOptions& hopt) {
    Rig rig;
    try {
        rig = is_dir(path) ? load_homography_rig(path, hopt) : load_physical_rig(path);
    } catch (const cv::Exception& e) {
        throw RigError(path + ": " + e.err);  // a malformed matrix node
    }
    // The library takes one frame size for all four cameras.
    for (const Camera& c : rig.cameras)
        if (c.size != rig.cameras[0].size)
            throw RigError(path + ": the four cameras must share one resolution");
    return rig;
}

}  // namespace rig
