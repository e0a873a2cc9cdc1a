#include "session.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

#include "commands.h"
#include "options.h"
#include "rig/frames.h"
#include "rig/progress.h"
#include "sv_interface.h"

namespace {

// The widest output sv_init accepts.
constexpr int kMaxOutWidth = 4096;

// The control file's scalar tags, read the way the library reads them: "#"
// comments blanked, first occurrence anywhere, "Tag: %d". -1 when absent.
struct CtrlHeader {
    int out_w = -1, out_h = -1, table_w = -1, table_h = -1;
};

std::string read_table_file(const std::string& path) {
    std::string err;
    if (!rig::check_file(path, err)) throw CommandError(kExitFailure, err);
    std::ifstream in(path, std::ios::binary);
    std::stringstream buf;
    buf << in.rdbuf();
    std::string text = buf.str();
    // The library takes a carriage return inside a table for a value of 0
    // and shifts every node after it: the tables would render garbage
    // without a word.
    if (text.find("\r\n") != std::string::npos)
        throw CommandError(kExitFailure,
                           path + " has Windows line ends (CR LF), which the library reads as "
                                  "extra table values: convert it first, e.g. sed -i 's/\\r$//' " +
                               path);
    return text;
}

CtrlHeader read_ctrl_header(const std::string& path) {
    std::string text = read_table_file(path);
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] == '#')
            for (; i < text.size() && text[i] != '\n'; ++i) text[i] = ' ';
    auto scan = [&](const char* tag) {
        const size_t at = text.find(tag);
        int v = -1;
        if (at != std::string::npos)
            std::sscanf(text.c_str() + at + std::strlen(tag), " %d", &v);
        return v;
    };
    CtrlHeader h;
    h.out_w = scan("OutImgWidth:");
    h.out_h = scan("OutImgHeight:");
    h.table_w = scan("TableWidth:");
    h.table_h = scan("TableHeight:");
    return h;
}

}  // namespace

cv::Size ctrl_out_size(const std::string& ctrl) {
    const CtrlHeader h = read_ctrl_header(ctrl);
    if (h.out_w <= 0 || h.out_h <= 0)
        throw CommandError(kExitFailure,
                           ctrl + " declares no output size (OutImgWidth, OutImgHeight): "
                                  "give --out-size WxH");
    return {h.out_w, h.out_h};
}

Library::Library(const LibraryFiles& files, cv::Size camera, cv::Size out)
    : camera_(camera), out_(out) {
    if (out.width % 2 || out.height % 2 || out.width > kMaxOutWidth)
        throw CommandError(kExitFailure, "output size " + rig::size_text(out) +
                                             ": needs an even width and height, width at most " +
                                             std::to_string(kMaxOutWidth));
    const CtrlHeader h = read_ctrl_header(files.ctrl);
    if (h.table_w > 0 && h.table_h > 0 &&
        size_t(h.table_w) * size_t(h.table_h) * 4 > rig::table_room(out.width, out.height))
        throw CommandError(kExitFailure,
                           files.ctrl + ": its " + std::to_string(h.table_w) + "x" +
                               std::to_string(h.table_h) + " mesh nodes do not fit a " +
                               rig::size_text(out) + " output (tables made for another size?)");
    read_table_file(files.stat);
    std::string err;
    if (!rig::check_file(files.setting, err)) throw CommandError(kExitFailure, err);
    if (sv_init(files.ctrl.c_str(), files.stat.c_str(), files.setting.c_str(), camera.width,
                camera.height, out.width, out.height) != 0) {
        sv_deinit();
        throw CommandError(kExitFailure,
                           "the library rejected its configuration files (its messages are "
                           "on stdout)");
    }
    warn_if_tables_mismatch(camera);
}

// Tables carry no camera size, so frames of another size compose silently
// into nonsense; the reach of the source positions gives it away.
void Library::warn_if_tables_mismatch(cv::Size camera) const {
    int max_x = -1, max_y = -1;
    for (const int* tb : {Parameter.TB1, Parameter.TB2}) {
        const long nodes = long(Parameter.TableWidth) * Parameter.TableHeight;
        for (long i = 0; i < nodes; ++i) {
            const int* n = tb + 4 * i;
            if (n[0] < 0 || n[1] < 0) continue;
            max_x = std::max(max_x, n[0] >> 4);
            max_y = std::max(max_y, n[1] >> 4);
        }
    }
    if (max_x < 0) {
        warn("the control table lets no camera see anything: the output stays background");
        return;
    }
    const bool beyond = max_x >= camera.width || max_y >= camera.height;
    const bool small = max_x < camera.width / 2 && max_y < camera.height / 2;
    if (beyond || small)
        warn("the control table samples camera pixels up to x " + std::to_string(max_x) +
             ", y " + std::to_string(max_y) + ", but the camera frames are " +
             rig::size_text(camera) + ": were the tables made for these cameras?");
}

Library::~Library() { sv_deinit(); }

double Library::convert(uint8_t* frame_set, uint8_t* out) {
    const auto t0 = std::chrono::steady_clock::now();
    sv_convert_image(frame_set, 0, out, 0);
    const auto t1 = std::chrono::steady_clock::now();
    return std::chrono::duration<double, std::milli>(t1 - t0).count();
}

rig::SeamProbe Library::seam_probe() const {
    return rig::SeamProbe(Parameter, camera_.width, camera_.height, out_.width, out_.height);
}

unsigned char* const* Library::camera_images() const { return YUVarray; }

cv::Size size_option(const std::string& text, const char* option) {
    cv::Size s;
    if (!rig::parse_size(text, s))
        throw CommandError(kExitUsage, std::string(option) + " " + text +
                                           ": expected WIDTHxHEIGHT, e.g. 1280x720");
    // The library walks pixel pairs and row pairs.
    if (s.width % 2 || s.height % 2)
        throw CommandError(kExitUsage,
                           std::string(option) + " " + text + ": needs an even width and height");
    return s;
}

void add_input_options(CLI::App* cmd, InputOptions& o) {
    cmd->add_option("--ctrl", o.files.ctrl, "control table file")->required();
    cmd->add_option("--stat", o.files.stat, "statistics table file")->required();
    cmd->add_option("--setting", o.files.setting, "setting file")->required();
    cmd->add_option("--in", o.in,
                    "four camera files in the order front, rear, left, right (images or "
                    "videos), or one raw file of YUYV frame sets (- for stdin)")
        ->required();
    cmd->add_option("--size", o.size, "camera frame size WxH (needed for a raw file)")
        ->type_name("WxH");
    cmd->add_option("--out-size", o.out_size,
                    "output size WxH (default: the control table's OutImgWidth x OutImgHeight)")
        ->type_name("WxH");
    cmd->add_option("--frames", o.frames, "stop after this many frame sets")
        ->check(whole(1, std::numeric_limits<long>::max()));
    cmd->add_option("--input-range", o.input_range,
                    "YUV levels of videos and raw frame sets: limited ones are converted to the "
                    "full range the library computes in; auto takes a video's tag (untagged: "
                    "limited) and raw frame sets as full")
        ->check(CLI::IsMember({"auto", "full", "limited"}))
        ->capture_default_str();
}

Session open_session(const InputOptions& o) {
    Session s;
    const cv::Size camera = o.size.empty() ? cv::Size() : size_option(o.size, "--size");
    s.out = o.out_size.empty() ? ctrl_out_size(o.files.ctrl)
                               : size_option(o.out_size, "--out-size");
    s.source = open_inputs(o.in, camera, o.frames, parse_input_range(o.input_range));
    s.library = std::make_unique<Library>(o.files, s.source->size(), s.out);
    return s;
}

std::vector<double> run_frames(Session& s, const char* label,
                               const std::function<void(uint8_t*)>& before,
                               const std::function<void(long, const uint8_t*)>& after) {
    const cv::Size cam = s.source->size();
    std::vector<uint8_t> frame(rig::frame_set_bytes(cam.width, cam.height));
    std::vector<uint8_t> out(rig::nv12_bytes(s.out.width, s.out.height));
    std::vector<double> ms;
    rig::Progress bar(label, s.source->frames());
    while (s.source->next(frame.data())) {
        before(out.data());
        ms.push_back(s.library->convert(frame.data(), out.data()));
        after(long(ms.size()) - 1, out.data());
        bar.update(long(ms.size()));
    }
    bar.finish();
    s.source->finish();
    if (ms.empty()) throw CommandError(kExitFailure, "the input holds no complete frame set");
    return ms;
}
