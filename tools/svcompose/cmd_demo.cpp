// svcompose demo: the whole pipeline on a synthetic rig, before and after.
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "commands.h"
#include "corrections.h"
#include "options.h"
#include "rig/frames.h"
#include "rig/progress.h"
#include "rig/seams.h"
#include "session.h"
#include "sv_interface.h"
#include "synthetic.h"

namespace {

struct DemoArgs {
    SceneArgs scene;
    std::string out_dir = "svcompose-demo";
    std::string out_size;
    std::string corrections_out;
    long frames = 60;
};

// Labels a picture in its top-left corner.
void label(cv::Mat& img, const std::string& text) {
    const double scale = std::max(0.35, img.cols / 1200.0);
    const int thick = std::max(1, int(scale * 2));
    int base = 0;
    const cv::Size ts = cv::getTextSize(text, cv::FONT_HERSHEY_SIMPLEX, scale, thick, &base);
    cv::rectangle(img, cv::Rect(0, 0, ts.width + 12, ts.height + base + 12), cv::Scalar::all(0),
                  cv::FILLED);
    cv::putText(img, text, cv::Point(6, ts.height + 6), cv::FONT_HERSHEY_SIMPLEX, scale,
                cv::Scalar::all(255), thick, cv::LINE_AA);
}

std::string gains_text(const rig::Rig& r, const int* gain) {
    std::string s = "gains in use (R G B):";
    char cell[64];
    for (int k = 0; k < 4; ++k) {
        std::snprintf(cell, sizeof cell, "  %s %.2f %.2f %.2f", r.cameras[k].name.c_str(),
                      gain[3 * k] / 1024.0,
                      gain[3 * k + 1] / 1024.0, gain[3 * k + 2] / 1024.0);
        s += cell;
    }
    return s + "\n";
}

void demo(const DemoArgs& a) {
    const rig::Rig r = load_scene_rig(a.scene);
    const std::string& dir = a.out_dir;
    make_folder(dir);
    const rig::Layout layout = write_scene_tables(r, a.out_size, dir);

    const rig::Scene scene(r, scene_options(a.scene), a.frames);
    const cv::Size cam = scene.camera_size(), out = layout.out;
    Library lib({dir + "/control.txt", dir + "/statistics.txt", dir + "/setting.txt"}, cam, out);
    rig::SeamProbe probe = lib.seam_probe();
    const rig::Corrections identity = rig::Corrections::identity();

    std::vector<uint8_t> frame(rig::frame_set_bytes(cam.width, cam.height));
    // The library writes only what the cameras cover, the same pixels every
    // frame: the rest stays black.
    std::vector<uint8_t> composed(rig::nv12_bytes(out.width, out.height));
    rig::bgr_to_nv12(cv::Mat(out, CV_8UC3, cv::Scalar::all(0)), composed.data());
    std::vector<uint8_t> before_nv12;
    rig::SeamReport before, after;
    std::vector<double> ms;
    rig::Progress bar("demo", a.frames);
    for (long t = 0; t < a.frames; ++t) {
        scene.render_frame_set(t, frame.data());
        ms.push_back(lib.convert(frame.data(), composed.data()));
        if (t == 0) {
            before = probe.measure(lib.camera_images(), identity.gain, identity.tcurve);
            probe.compose(lib.camera_images(), identity.gain, identity.tcurve, before_nv12);
        }
        bar.update(t + 1);
    }
    bar.finish();
    after = probe.measure(lib.camera_images(), gain_cur, tcurve_cur);

    cv::Mat before_img = rig::nv12_to_bgr(before_nv12.data(), out.width, out.height);
    cv::Mat after_img = rig::nv12_to_bgr(composed.data(), out.width, out.height);
    save_png(dir + "/before.png", before_img);
    save_png(dir + "/after.png", after_img);
    // Side by side, only the part of the output the cameras fill.
    const cv::Rect shown = (layout.birdseye | layout.rear_panel) & cv::Rect(cv::Point(), out);
    before_img = before_img(shown).clone();
    after_img = after_img(shown).clone();
    label(before_img, "before: no correction");
    label(after_img, "after " + std::to_string(a.frames) + " frames");
    cv::Mat side;
    cv::hconcat(std::vector<cv::Mat>{before_img, cv::Mat(shown.height, 8, CV_8UC3, cv::Scalar::all(255)),
                                     after_img},
                side);
    save_png(dir + "/side_by_side.png", side);

    char head[256];
    std::snprintf(head, sizeof head,
                  "svcompose demo: four %dx%d fisheye cameras (%s), output %dx%d, %ld frames\n",
                  cam.width, cam.height, a.scene.rig.c_str(), out.width, out.height, a.frames);
    std::string report = head;
    report += rig::format_seams({{"before", before}, {"after", after}});
    report += gains_text(r, gain_cur);
    report += "sv_convert_image: " +
              rig::format_times(rig::summarize_times(ms)) + "\n";
    report += "wrote " + dir + "/before.png, after.png, side_by_side.png, control.txt, "
              "statistics.txt, setting.txt, report.txt\n";
    std::string err;
    if (!a.corrections_out.empty()) {
        Corrections used;
        sv_get_corrections(used.gain, used.tcurve);
        if (!rig::write_text(a.corrections_out, corrections_json(used), err))
            throw CommandError(kExitFailure, err);
    }
    if (!rig::write_text(dir + "/report.txt", report, err)) throw CommandError(kExitFailure, err);
    std::fputs(report.c_str(), stdout);
}

// The example rig: the current folder's examples/ (a checkout), else the
// installed tree's share/svcompose beside this program's bin/, else the
// source tree the program was built from.
std::string default_rig() {
    namespace fs = std::filesystem;
    std::error_code ec;
    const char* here = "examples/rig-sedan.yaml";
    if (fs::is_regular_file(here, ec)) return here;
    const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    if (!ec) {
        const fs::path installed = (exe.parent_path() / SV_DATA_FROM_BIN / "rig-sedan.yaml").lexically_normal();
        if (fs::is_regular_file(installed, ec)) return installed.string();
    }
    return SV_SOURCE_DIR "/examples/rig-sedan.yaml";
}

}  // namespace

void add_demo_command(CLI::App& app) {
    auto a = std::make_shared<DemoArgs>();
    a->scene.rig = default_rig();
    a->scene.scene.speed = 0.02;
    auto* cmd = app.add_subcommand(
        "demo", "run the library on a synthetic rig whose cameras disagree; show before/after");
    cmd->add_option("--out", a->out_dir, "output folder")->capture_default_str();
    cmd->add_option("--frames", a->frames, "frames to run")
        ->check(whole(1, std::numeric_limits<long>::max()))->capture_default_str();
    cmd->add_option("--rig", a->scene.rig, "rig file (YAML) or homography folder")
        ->capture_default_str();
    cmd->add_option("--out-size", a->out_size,
                    "output size WxH (default: the rig file's output size)")
        ->type_name("WxH");
    add_scene_options(cmd, a->scene);
    cmd->add_option("--corrections-out", a->corrections_out,
                    "write the corrections in use after the last frame as JSON (as run does)");
    cmd->callback([a]() { demo(*a); });
}
