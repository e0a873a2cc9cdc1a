// svcompose tables: control table, statistics table and setting file from a
// calibrated rig.
#include <cfloat>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>

#include "commands.h"
#include "options.h"
#include "rig/frames.h"
#include "rig/outputs.h"
#include "rig/tables.h"

namespace {

struct TablesArgs {
    std::string rig_path, out_dir;
    cv::Size out_size{1280, 800};
    bool rear_view = false;
    double rear_fov = 120;
    double border = 2;
    rig::HomographyOptions hopt;
    rig::Settings settings;
};

std::string parse_box(const std::string& text, cv::Rect2d* box) {
    double x0, y0, x1, y1;
    char tail = 0;
    if (std::sscanf(text.c_str(), "%lf,%lf,%lf,%lf%c", &x0, &y0, &x1, &y1, &tail) != 4)
        return "expected X0,Y0,X1,Y1, got '" + text + "'";
    *box = cv::Rect2d(x0, y0, x1 - x0, y1 - y0);
    return "";
}

// "WxH"; CLI11 reports a bad value as a usage error.
void add_size_option(CLI::App* cmd, const std::string& name, cv::Size* size,
                     const std::string& help) {
    cmd->add_option_function<std::string>(
           name,
           [size, name](const std::string& v) {
               if (!rig::parse_size(v, *size))
                   throw CLI::ValidationError(name, "expected WIDTHxHEIGHT, e.g. 1280x800, got '" + v + "'");
           },
           help)
        ->type_name("WxH");
}

void add_setting_options(CLI::App* cmd, rig::Settings* s) {
    const char* g = "Setting overrides";
    constexpr long long kInt = std::numeric_limits<int>::max();
    // The pair tolerance is the brighter sample (up to 255) times the ratio
    // in 32 bits: beyond this it overflows.
    constexpr long long kMaxThresRatio = kInt / 255;
    cmd->add_option("--StatFreq", s->StatFreq, "calibrate every N-th frame")
        ->check(whole(1, kInt))->group(g)->capture_default_str();
    cmd->add_option("--StatL", s->StatL, "lowest channel value a statistics sample may hold")
        ->check(whole(0, 255))->group(g)->capture_default_str();
    cmd->add_option("--StatH", s->StatH, "highest channel value a statistics sample may hold")
        ->check(whole(0, 255))->group(g)->capture_default_str();
    cmd->add_option("--ThresRatio", s->ThresRatio, "pair tolerance in 1/16 of the brighter value")
        ->check(whole(0, kMaxThresRatio))->group(g)->capture_default_str();
    cmd->add_option("--ThresL", s->ThresL, "smallest pair tolerance")
        ->check(whole(0, kInt))->group(g)->capture_default_str();
    cmd->add_option("--ThresH", s->ThresH, "largest pair tolerance")
        ->check(whole(0, kInt))->group(g)->capture_default_str();
    cmd->add_option("--DSIntvl", s->DSIntvl, "statistics down-sampling block size")
        ->check(whole(1, kInt))->group(g)->capture_default_str();
    cmd->add_option("--nDataL", s->nDataL, "fewest samples a region needs for the fit")
        ->check(whole(0, kInt))->group(g)->capture_default_str();
    cmd->add_option("--beta", s->beta, "regularisation of the fit")
        ->check(between(0, FLT_MAX))->group(g)->capture_default_str();
    cmd->add_option("--tcRatio", s->tcRatio, "tone-curve bound ratio")
        ->check(whole(-kInt - 1, kInt))->group(g)->capture_default_str();
    cmd->add_option("--tcH", s->tcH, "tone-curve bound")
        ->check(whole(-kInt - 1, kInt))->group(g)->capture_default_str();
    cmd->add_option("--gMgn", s->gMgn, "gain margin")
        ->check(between(-FLT_MAX, FLT_MAX))->group(g)->capture_default_str();
    cmd->add_option("--Spd", s->Spd, "temporal smoothing divisor (1 = no smoothing)")
        ->check(whole(1, kInt))->group(g)->capture_default_str();
}

[[noreturn]] void fail(const std::string& message, int code = kExitFailure) {
    std::fprintf(stderr, "svcompose tables: %s\n", message.c_str());
    throw CLI::RuntimeError(code);
}

void run_tables(const TablesArgs& a, const CLI::App& cmd) {
    try {
        const rig::Rig r = rig::load_rig(a.rig_path, a.hopt);
        if (!r.homography)
            for (const char* o : {"--canvas", "--vehicle-box", "--canvas-mpp", "--fov"})
                if (cmd.count(o))
                    fail(std::string(o) + " applies to homography folders only; a physical rig "
                                          "file gives its own",
                         kExitUsage);

        rig::LayoutOptions lo;
        lo.out = cmd.count("--out-size") ? a.out_size : r.output.size;
        lo.rear_view = a.rear_view || r.output.rear_view;
        lo.rear_fov_deg = cmd.count("--rear-fov") ? a.rear_fov : r.output.rear_fov_deg;
        lo.border = a.border;
        const rig::Layout l = rig::make_layout(r, lo);

        std::string err;
        if (!rig::make_folders(a.out_dir, err)) fail(err);
        rig::write_tables(a.out_dir, r, l, a.settings);

        std::printf("wrote %s/control.txt, statistics.txt, setting.txt for %d x %d cameras\n",
                    a.out_dir.c_str(), r.cameras[0].size.width, r.cameras[0].size.height);
        std::printf("output %d x %d: bird's-eye at x 0..%d, y 0..%d; vehicle box x %.1f..%.1f, "
                    "y %.1f..%.1f\n",
                    l.out.width, l.out.height, l.birdseye.width - 1, l.birdseye.height - 1,
                    l.vehicle.x, l.vehicle.br().x, l.vehicle.y, l.vehicle.br().y);
        if (!l.rear_panel.empty())
            std::printf("rear view at x %d..%d, y %d..%d\n", l.rear_panel.x,
                        l.rear_panel.br().x - 1, l.rear_panel.y, l.rear_panel.br().y - 1);
    } catch (const rig::RigError& e) {
        fail(e.what());
    } catch (const cv::Exception& e) {
        fail(e.what());
    }
}

}  // namespace

void add_tables_command(CLI::App& app) {
    auto args = std::make_shared<TablesArgs>();
    auto* cmd = app.add_subcommand(
        "tables",
        "generate control table, statistics table and setting file for sv_init from a "
        "calibrated rig");
    cmd->add_option("--rig", args->rig_path,
                    "physical rig file (YAML), or a folder with yaml/front.yaml, back.yaml, "
                    "left.yaml, right.yaml (homography convention)")
        ->required();
    cmd->add_option("--out", args->out_dir, "folder that receives control.txt, statistics.txt, "
                                            "setting.txt (created if missing)")
        ->required();
    add_size_option(cmd, "--out-size", &args->out_size,
                    "output image size, even, 64 to 4096 per side (default 1280x800, or the rig "
                    "file's output size)");
    cmd->add_flag("--rear-view", args->rear_view,
                  "show an undistorted, mirrored rear-camera view beside the bird's-eye");
    cmd->add_option("--rear-fov", args->rear_fov,
                    "horizontal field of view of the rear view in degrees (default 120)")
        ->check(finite());
    cmd->add_option("--border", args->border,
                    "camera pixels kept clear of the image edges")
        ->check(finite())->capture_default_str();

    const char* h = "Homography convention (rig folders)";
    add_size_option(cmd, "--canvas", &args->hopt.canvas,
                    "bird's-eye canvas size in canvas pixels (default 1200x1600)");
    cmd->get_option("--canvas")->group(h);
    cmd->add_option_function<std::string>(
           "--vehicle-box",
           [args](const std::string& v) {
               const std::string err = parse_box(v, &args->hopt.vehicle);
               if (!err.empty()) throw CLI::ValidationError("--vehicle-box", err);
           },
           "vehicle box on the canvas as X0,Y0,X1,Y1 (default 500,550,700,1050)")
        ->type_name("X0,Y0,X1,Y1")->group(h);
    cmd->add_option("--canvas-mpp", args->hopt.mpp,
                    "metres per canvas pixel (only for the camera poses)")
        ->check(bound(0, true))->group(h)->capture_default_str();
    cmd->add_option("--fov", args->hopt.fov_deg, "lens field of view in degrees")
        ->check(between(1, 360))->group(h)->capture_default_str();

    add_setting_options(cmd, &args->settings);
    cmd->callback([args, cmd]() { run_tables(*args, *cmd); });
}
