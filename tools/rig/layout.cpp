#include <algorithm>
#include <cmath>
#include <string>

#include "rig/tables.h"

namespace rig {

namespace {

int floor8(double v) { return static_cast<int>(std::floor(v / 8)) * 8; }
int ceil8(double v) { return static_cast<int>(std::ceil(v / 8)) * 8; }

std::string size_text(cv::Size s) {
    return std::to_string(s.width) + " x " + std::to_string(s.height);
}

}  // namespace

cv::Point2d Layout::to_canvas(cv::Point2d o) const {
    // Pixel centres on both sides: output pixel o covers canvas
    // [o / scale - 0.5, (o + 1) / scale - 0.5].
    return {(o.x + 0.5) / scale - 0.5, (o.y + 0.5) / scale - 0.5};
}

cv::Point2d Layout::to_output(cv::Point2d c) const {
    return {(c.x + 0.5) * scale - 0.5, (c.y + 0.5) * scale - 0.5};
}

Layout make_layout(const Rig& rig, const LayoutOptions& opt) {
    const cv::Size out = opt.out;
    if (out.width < 64 || out.height < 64 || out.width > 4096 || out.width % 2 || out.height % 2 ||
        out.height > 4096)
        throw RigError("output size " + size_text(out) +
                       " is unusable: sizes must be even, 64 to 4096 per side");
    if (!(opt.border >= 1))
        throw RigError("the image border must be at least 1 pixel: the library never samples "
                       "the first and last columns and rows");
    const Canvas& canvas = rig.canvas;
    const cv::Point2d centre(canvas.size.width / 2.0, canvas.size.height / 2.0);
    if (!canvas.vehicle.contains(centre))
        throw RigError("the vehicle box must contain the canvas centre, so that each overlap "
                       "lies in its own quarter of the canvas");

    Layout l;
    l.out = out;
    l.border = opt.border;
    // Mesh nodes end at the last multiple of 8; pixels beyond stay unrendered.
    const int mesh_w = out.width / 8 * 8, mesh_h = out.height / 8 * 8;
    l.scale = std::min(static_cast<double>(mesh_h) / canvas.size.height,
                       static_cast<double>(mesh_w) / canvas.size.width);
    l.birdseye = cv::Rect(0, 0, static_cast<int>(std::lround(canvas.size.width * l.scale)),
                          static_cast<int>(std::lround(canvas.size.height * l.scale)));
    const cv::Point2d v0 = l.to_output(canvas.vehicle.tl()), v1 = l.to_output(canvas.vehicle.br());
    l.vehicle = cv::Rect2d(v0, v1);
    // Seams go on node lines strictly inside the vehicle box, with room for
    // the one-node extension of each camera on either side.
    if (floor8(v1.x) - ceil8(v0.x) < 16 || floor8(v1.y) - ceil8(v0.y) < 16)
        throw RigError("the vehicle box spans too few mesh nodes in a " + size_text(out) +
                       " output; use a larger output or a smaller bird's-eye extent");

    if (opt.rear_view) {
        const int x0 = ceil8(l.birdseye.width);
        const int w = mesh_w - x0;
        if (w < 64)
            throw RigError("no room for the rear view: the bird's-eye fills the " +
                           size_text(out) + " output");
        if (!(opt.rear_fov_deg > 1 && opt.rear_fov_deg < 170))
            throw RigError("the rear view's field of view must lie between 1 and 170 degrees");
        // A 4:3 panel, vertically centred, on node lines.
        const int h = std::min(mesh_h, std::max(8, floor8(w * 3 / 4.0)));
        l.rear_panel = cv::Rect(x0, floor8((mesh_h - h) / 2.0), w, h);
        l.rear_focal = (w / 2.0) / std::tan(opt.rear_fov_deg * CV_PI / 360);
    }
    return l;
}

}  // namespace rig
