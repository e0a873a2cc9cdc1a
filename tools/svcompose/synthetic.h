// The synthetic rig and scene shared by synth and demo.
#ifndef SVCOMPOSE_SYNTHETIC_H
#define SVCOMPOSE_SYNTHETIC_H

#include <string>

#include "rig/rig.h"
#include "rig/scene.h"
#include "rig/tables.h"

namespace CLI {
class App;
}

struct SceneArgs {
    std::string rig;
    std::string camera_size;  // --size WxH: resize the cameras, intrinsics scaled
    bool neutral = false;     // every camera with the same, neutral look
    rig::SceneOptions scene;
};

// --size --seed --speed --drift --drift-period --neutral; --rig is added by
// the caller (required for synth, defaulted for demo).
void add_scene_options(CLI::App* cmd, SceneArgs& a);

// Loads the rig and applies --size; throws CommandError.
rig::Rig load_scene_rig(const SceneArgs& a);

// The scene options with --neutral applied.
rig::SceneOptions scene_options(const SceneArgs& a);

// Creates a folder; throws CommandError when it cannot.
void make_folder(const std::string& dir);

// DIR/control.txt, statistics.txt, setting.txt for the rig's cameras as
// they are (resized or not), for an output of out_size (--out-size text;
// empty: the rig file's). Returns the layout; throws CommandError.
rig::Layout write_scene_tables(const rig::Rig& r, const std::string& out_size,
                               const std::string& dir);

// Writes a PNG; throws CommandError when it cannot.
void save_png(const std::string& path, const cv::Mat& img);

#endif
