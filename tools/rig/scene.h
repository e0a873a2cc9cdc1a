// A synthetic ground scene seen through a rig's fisheye cameras.
//
// The ground is a textured plane (asphalt with grain, a tiled pavement
// either side of the road, lane markings, a zebra crossing, a checkerboard
// mat with colour patches in every corner overlap); above the horizon is
// sky. Each camera's view is precomputed as remap tables from its pixels to
// the texture, so a frame costs one cv::remap per camera. Each camera then
// gets its own photometric look (per-channel gain, gamma, vignetting),
// optionally drifting over the frames, which is what the library's
// calibration has to undo.
#ifndef RIG_SCENE_H
#define RIG_SCENE_H

#include <array>
#include <cstdint>

#include <opencv2/core.hpp>

#include "rig/rig.h"

namespace rig {

// Photometric response of one camera: out = 255 * gain * vignetting *
// (in / 255)^gamma per channel.
struct CameraLook {
    cv::Vec3d gain{1, 1, 1};  // R, G, B
    double gamma = 1.0;
    double vignetting = 0.0;  // fraction of brightness lost in the image corners
};

// Four looks that disagree clearly in brightness and colour.
std::array<CameraLook, 4> distinct_looks();

struct SceneOptions {
    unsigned seed = 1;
    double texture_mpp = 0.02;  // metres per texture pixel
    double speed = 0;           // metres the vehicle moves forward per frame
    double drift = 0;           // relative amplitude of the exposure drift
    int drift_period = 60;      // frames per drift cycle
    std::array<CameraLook, 4> looks = distinct_looks();
};

// Resizes every camera image to `size`, scaling the intrinsics with it
// (e.g. 1280 x 720 to 320 x 180 for quick runs).
void scale_cameras(Rig& rig, cv::Size size);

class Scene {
public:
    // frames: how many frames will be rendered. The texture covers the
    // vehicle's travel, or, for a longer drive, one lap of a ground that
    // repeats every whole 24 m beyond the canvas' length. Throws RigError
    // when the canvas' ground is too large to paint.
    Scene(const Rig& rig, const SceneOptions& opt, long frames);

    // Camera k's view of frame t, BGR, before (`looks` false) or after its
    // photometric look.
    cv::Mat render(int k, long t, bool looks = true) const;
    // The four looked views of frame t as a YUYV frame set.
    void render_frame_set(long t, uint8_t* frame_set) const;
    // The ground as the bird's-eye canvas shows it at frame 0.
    cv::Mat ground_truth() const;

    cv::Size camera_size() const { return rig_.cameras[0].size; }

private:
    // Texture position of a ground point at frame 0 (pixel centres at
    // integers).
    cv::Point2f to_texture(cv::Point2d ground) const;
    // Per-pixel remap tables and backdrop of one camera, or of the canvas.
    void build_view(int k);
    void paint_texture(unsigned seed);
    cv::Mat texture_at(long t) const;

    Rig rig_;
    SceneOptions opt_;
    cv::Rect2d extent_;  // ground covered by the texture at frame 0, metres
    int lap_rows_ = 0;   // texture rows after which the ground repeats
    int lead_rows_ = 0;  // texture rows ahead of frame 0, for the travel (at most a lap)
    cv::Mat texture_;
    std::array<cv::Mat, 4> map_x_, map_y_, backdrop_, vignette_;
};

}  // namespace rig

#endif
