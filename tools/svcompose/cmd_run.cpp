// svcompose run: the library over camera images, videos or a raw file.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

#include <opencv2/imgproc.hpp>

#include "commands.h"
#include "corrections.h"
#include "rig/frames.h"
#include "rig/progress.h"
#include "rig/video.h"
#include "session.h"
#include "sv_interface.h"
#include "synthetic.h"

namespace {

// Bounding box of the largest uncovered region not connected to the image
// border; the whole output when there is none.
cv::Rect vehicle_box(const cv::Mat& covered) {
    cv::Mat holes;
    cv::bitwise_not(covered, holes);
    cv::Mat labels, stats, centroids;
    const int n = cv::connectedComponentsWithStats(holes, labels, stats, centroids, 4);
    cv::Rect best(cv::Point(), covered.size());
    int best_area = 0;
    for (int i = 1; i < n; ++i) {
        const cv::Rect r(stats.at<int>(i, cv::CC_STAT_LEFT), stats.at<int>(i, cv::CC_STAT_TOP),
                         stats.at<int>(i, cv::CC_STAT_WIDTH), stats.at<int>(i, cv::CC_STAT_HEIGHT));
        const bool inner = r.x > 0 && r.y > 0 && r.br().x < covered.cols && r.br().y < covered.rows;
        if (inner && stats.at<int>(i, cv::CC_STAT_AREA) > best_area) {
            best_area = stats.at<int>(i, cv::CC_STAT_AREA);
            best = r;
        }
    }
    return best;
}

struct RunOptions {
    InputOptions input;
    std::string out_dir;
    std::string video_out;
    std::string format = "png";
    std::string background;
    bool report = false;
    std::string corrections_in, corrections_out;
};

// The output buffer's content before each frame: the library writes only
// the pixels some camera covers. An image of the output size fills it; a
// smaller one (a picture of the vehicle) is scaled to cover the vehicle
// box, the largest uncovered region that the composed view encloses, and
// the composed view hides what spills over.
std::vector<uint8_t> background_nv12(const std::string& path, cv::Size out,
                                     const cv::Mat& covered) {
    cv::Mat canvas(out, CV_8UC3, cv::Scalar::all(0));
    if (!path.empty()) {
        cv::Mat img;
        std::string err;
        if (!rig::read_image(path, img, err)) throw CommandError(kExitFailure, err);
        if (img.size() == out) {
            canvas = img;
        } else {
            const cv::Rect box = vehicle_box(covered);
            const double s = std::max(double(box.width) / img.cols, double(box.height) / img.rows);
            cv::Mat scaled;
            cv::resize(img, scaled, cv::Size(), s, s, cv::INTER_AREA);
            const cv::Point centre = (box.tl() + box.br()) / 2;
            const cv::Rect at(centre.x - scaled.cols / 2, centre.y - scaled.rows / 2, scaled.cols,
                              scaled.rows);
            const cv::Rect clipped = at & cv::Rect(cv::Point(), out);
            scaled(clipped - at.tl()).copyTo(canvas(clipped));
        }
    }
    std::vector<uint8_t> nv12(rig::nv12_bytes(out.width, out.height));
    rig::bgr_to_nv12(canvas, nv12.data());
    return nv12;
}

void run(const RunOptions& o) {
    if (o.out_dir.empty() && o.video_out.empty())
        throw CommandError(kExitUsage, "run needs --out DIR, --video-out FILE or both");
    std::string err;
    Corrections start;
    if (!o.corrections_in.empty() && !read_corrections(o.corrections_in, start, err))
        throw CommandError(kExitFailure, err);
    Session s = open_session(o.input);
    // Before the first frame, so its calibration moves on from them.
    if (!o.corrections_in.empty() && sv_set_corrections(start.gain, start.tcurve) != 0)
        throw CommandError(kExitFailure, "the library refused the corrections of " + o.corrections_in);
    // The probe costs a few renders: only for a report or a vehicle picture.
    std::unique_ptr<rig::SeamProbe> probe;
    if (o.report || !o.background.empty())
        probe = std::make_unique<rig::SeamProbe>(s.library->seam_probe());
    const std::vector<uint8_t> background =
        background_nv12(o.background, s.out, probe ? probe->covered() : cv::Mat());
    if (!o.out_dir.empty()) make_folder(o.out_dir);

    const bool png = !o.out_dir.empty() && o.format != "nv12";
    const bool nv12 = !o.out_dir.empty() && o.format != "png";
    const bool single = s.source->frames() == 1;
    rig::RawWriter raw;
    const std::string raw_path = o.out_dir + "/out.nv12";
    if (nv12 && !raw.open(raw_path, err)) throw CommandError(kExitFailure, err);
    rig::VideoWriter video;
    const std::filesystem::path video_dir = std::filesystem::path(o.video_out).parent_path();
    if (o.video_out != "-" && !video_dir.empty()) make_folder(video_dir.string());
    if (!o.video_out.empty() &&
        !video.open(o.video_out, s.out, s.source->fps() > 0 ? s.source->fps() : 25, err))
        throw CommandError(kExitFailure, err);

    const auto times = run_frames(
        s, "run",
        [&](uint8_t* out) { std::memcpy(out, background.data(), background.size()); },
        [&](long index, const uint8_t* out) {
            if (nv12 && !raw.write(out, background.size(), err))
                throw CommandError(kExitFailure, err);
            if (!o.video_out.empty() && !video.write(out, err)) throw CommandError(kExitFailure, err);
            if (!png) return;
            char name[32];
            std::snprintf(name, sizeof name, single ? "out.png" : "out_%05ld.png", index);
            if (!rig::write_png(o.out_dir + "/" + name,
                                rig::nv12_to_bgr(out, s.out.width, s.out.height), err))
                throw CommandError(kExitFailure, err);
        });
    if (!raw.close(err)) throw CommandError(kExitFailure, err);
    if (!o.video_out.empty() && !video.close(err)) throw CommandError(kExitFailure, err);

    std::string summary = rig::format_times(rig::summarize_times(times)) + "\n";
    if (png || nv12) {
        summary += "wrote " + o.out_dir + "/";
        if (png) summary += single ? "out.png" : "out_00000.png ...";
        if (png && nv12) summary += " and ";
        if (nv12) summary += "out.nv12 (NV12 frames back to back)";
        summary += "\n";
    }
    if (!o.video_out.empty())
        summary += "wrote " + (o.video_out == "-" ? std::string("stdout") : o.video_out) + ": " +
                   video.description() + ", full range\n";
    if (!o.corrections_out.empty()) {
        Corrections used;
        sv_get_corrections(used.gain, used.tcurve);
        if (!rig::write_text(o.corrections_out, corrections_json(used), err))
            throw CommandError(kExitFailure, err);
        summary += "wrote the corrections in use to " + o.corrections_out + "\n";
    }
    if (o.report) {
        // The corrections in use and the camera images are the last frame's.
        summary += rig::format_seams(
            {{"last frame", probe->measure(s.library->camera_images(), gain_cur, tcurve_cur)}});
        if (!o.out_dir.empty() && !rig::write_text(o.out_dir + "/report.txt", summary, err))
            throw CommandError(kExitFailure, err);
    }
    std::fputs(summary.c_str(), stdout);
}

}  // namespace

void add_run_command(CLI::App& app) {
    auto o = std::make_shared<RunOptions>();  // bound options live with the callback
    auto* cmd = app.add_subcommand("run", "compose camera images, videos or raw frame sets");
    add_input_options(cmd, o->input);
    cmd->add_option("--out", o->out_dir, "output folder (PNG or NV12 files, report.txt)");
    cmd->add_option("--video-out", o->video_out,
                    "composed frames as a video: H.264 in .mp4 or .mkv (FFV1, lossless, where no "
                    "H.264 encoder is available), tagged full range; - writes raw NV12 frames to "
                    "stdout")
        ->type_name("FILE");
    cmd->add_option("--format", o->format, "png (one file per frame), nv12 (one raw file), both")
        ->check(CLI::IsMember({"png", "nv12", "both"}))->capture_default_str();
    cmd->add_option("--background", o->background,
                    "image shown where no camera is composed: one of the output's size, or a "
                    "vehicle picture, scaled over the vehicle box");
    cmd->add_flag("--report", o->report, "measure the seam mismatch of the last frame");
    cmd->add_option("--corrections-in", o->corrections_in,
                    "start from the gains and tone curves of this JSON file (as written by "
                    "--corrections-out)");
    cmd->add_option("--corrections-out", o->corrections_out,
                    "write the corrections in use after the last frame as JSON: per camera its "
                    "gains, tone curves and RGB lookup tables");
    cmd->callback([o]() { run(*o); });
}
