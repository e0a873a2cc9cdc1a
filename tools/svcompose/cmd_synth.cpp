// svcompose synth: camera sequences of a synthetic ground scene.
#include <cstdio>
#include <limits>
#include <memory>
#include <vector>

#include "commands.h"
#include "options.h"
#include "rig/frames.h"
#include "rig/progress.h"
#include "synthetic.h"

namespace {

struct SynthArgs {
    SceneArgs scene;
    std::string out_dir;
    std::string out_size;
    long frames = 30;
};

void synth(const SynthArgs& a) {
    const rig::Rig r = load_scene_rig(a.scene);
    make_folder(a.out_dir);
    const rig::Scene scene(r, scene_options(a.scene), a.frames);
    const cv::Size cam = scene.camera_size();
    std::string err;

    for (int k = 0; k < 4; ++k)
        save_png(a.out_dir + "/preview_" + r.cameras[k].name + ".png", scene.render(k, 0));
    save_png(a.out_dir + "/ground_truth.png", scene.ground_truth());
    // Tables for the cameras as rendered (their size may differ from the
    // rig file's), so that run can take the frames directly.
    const rig::Layout layout = write_scene_tables(r, a.out_size, a.out_dir);

    const std::string path = a.out_dir + "/frames.yuyv";
    rig::RawWriter raw;
    if (!raw.open(path, err)) throw CommandError(kExitFailure, err);
    std::vector<uint8_t> frame(rig::frame_set_bytes(cam.width, cam.height));
    rig::Progress bar("synth", a.frames);
    for (long t = 0; t < a.frames; ++t) {
        scene.render_frame_set(t, frame.data());
        if (!raw.write(frame.data(), frame.size(), err)) throw CommandError(kExitFailure, err);
        bar.update(t + 1);
    }
    bar.finish();
    if (!raw.close(err)) throw CommandError(kExitFailure, err);

    std::printf("wrote %ld frame sets of four %dx%d cameras to %s\n", a.frames, cam.width,
                cam.height, path.c_str());
    std::printf("tables for a %dx%d output: %s/control.txt, statistics.txt, setting.txt\n",
                layout.out.width, layout.out.height, a.out_dir.c_str());
    std::printf("previews: %s/preview_{front,rear,left,right}.png; ground truth: "
                "%s/ground_truth.png (%dx%d canvas)\n",
                a.out_dir.c_str(), a.out_dir.c_str(), r.canvas.size.width,
                r.canvas.size.height);
}

}  // namespace

void add_synth_command(CLI::App& app) {
    auto a = std::make_shared<SynthArgs>();
    auto* cmd = app.add_subcommand(
        "synth", "render four fisheye camera sequences of a synthetic ground scene");
    cmd->add_option("--rig", a->scene.rig, "rig file (YAML) or homography folder")->required();
    cmd->add_option("--out", a->out_dir, "output folder")->required();
    cmd->add_option("--frames", a->frames, "frame sets to render")
        ->check(whole(1, std::numeric_limits<long>::max()))->capture_default_str();
    cmd->add_option("--out-size", a->out_size,
                    "output size WxH of the tables written beside the frames (default: the rig "
                    "file's output size)")
        ->type_name("WxH");
    add_scene_options(cmd, a->scene);
    cmd->callback([a]() { synth(*a); });
}
