#include "synthetic.h"

#include <filesystem>
#include <limits>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "options.h"
#include "rig/frames.h"
#include "rig/outputs.h"
#include "session.h"

void add_scene_options(CLI::App* cmd, SceneArgs& a) {
    const char* g = "Synthetic scene";
    cmd->add_option("--size", a.camera_size,
                    "camera size WxH; the rig's intrinsics are scaled to it (e.g. 320x180 for "
                    "quick runs)")
        ->type_name("WxH")
        ->group(g);
    cmd->add_option("--seed", a.scene.seed, "seed of the ground texture")
        ->check(whole(0, std::numeric_limits<unsigned>::max()))->group(g)->capture_default_str();
    cmd->add_option("--speed", a.scene.speed, "metres the vehicle moves forward per frame")
        ->check(at_least(0))->group(g)->capture_default_str();
    cmd->add_option("--drift", a.scene.drift,
                    "exposure drift: relative amplitude of a slow per-camera gain wave "
                    "(e.g. 0.2)")
        ->check(between(0, 0.9))->group(g)->capture_default_str();
    cmd->add_option("--drift-period", a.scene.drift_period, "frames per drift cycle")
        ->check(whole(1, std::numeric_limits<int>::max()))->group(g)->capture_default_str();
    cmd->add_flag("--neutral", a.neutral,
                  "give every camera the same neutral look (no photometric disagreement)")
        ->group(g);
}

rig::Rig load_scene_rig(const SceneArgs& a) {
    std::error_code ec;
    if (!std::filesystem::exists(a.rig, ec))
        throw CommandError(kExitFailure, "cannot read " + a.rig + ": no such file");
    rig::Rig r;
    try {
        r = rig::load_rig(a.rig);
    } catch (const rig::RigError& e) {
        throw CommandError(kExitFailure, e.what());
    }
    if (!a.camera_size.empty()) {
        const cv::Size s = size_option(a.camera_size, "--size");
        if (s.width % 2 || s.height % 2 || s.width < 8 || s.height < 8)
            throw CommandError(kExitUsage, "--size " + a.camera_size +
                                               ": cameras need an even width and height, at "
                                               "least 8");
        // The library's own limit on a frame set; the renderer needs several
        // times that, so larger cameras could only exhaust the memory.
        if (rig::frame_set_bytes(s.width, s.height) >= (size_t(1) << 31))
            throw CommandError(kExitUsage, "--size " + a.camera_size +
                                               ": a frame set of four such cameras (8 x width x "
                                               "height bytes) must stay below 2 GiB");
        rig::scale_cameras(r, s);
    }
    return r;
}

rig::SceneOptions scene_options(const SceneArgs& a) {
    rig::SceneOptions o = a.scene;
    if (a.neutral) o.looks.fill(rig::CameraLook());
    return o;
}

void make_folder(const std::string& dir) {
    std::string err;
    if (!rig::make_folders(dir, err)) throw CommandError(kExitFailure, err);
}

rig::Layout write_scene_tables(const rig::Rig& r, const std::string& out_size,
                               const std::string& dir) {
    rig::LayoutOptions lo;
    lo.out = out_size.empty() ? r.output.size : size_option(out_size, "--out-size");
    lo.rear_view = r.output.rear_view;
    lo.rear_fov_deg = r.output.rear_fov_deg;
    try {
        const rig::Layout layout = rig::make_layout(r, lo);
        rig::write_tables(dir, r, layout, rig::Settings());
        return layout;
    } catch (const rig::RigError& e) {
        throw CommandError(kExitFailure, e.what());
    }
}

void save_png(const std::string& path, const cv::Mat& img) {
    std::string err;
    if (!rig::write_png(path, img, err)) throw CommandError(kExitFailure, err);
}
