// One run of the library over camera input: the configuration files, the
// sizes, sv_init .. sv_deinit, and the timed frame loop. Shared by run,
// seams and demo.
#ifndef SVCOMPOSE_SESSION_H
#define SVCOMPOSE_SESSION_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "inputs.h"
#include "rig/seams.h"

namespace CLI {
class App;
}

struct LibraryFiles {
    std::string ctrl, stat, setting;
};

// sv_init for one run, sv_deinit when it ends. The library keeps its state
// in globals: one instance at a time.
class Library {
public:
    // Checks what the library itself would not (output size even and at
    // most 4096 wide, mesh tables within the room sv_init allocates), then
    // loads the three files. Throws CommandError.
    Library(const LibraryFiles& files, cv::Size camera, cv::Size out);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    // One sv_convert_image; returns its wall time in milliseconds.
    double convert(uint8_t* frame_set, uint8_t* out);
    rig::SeamProbe seam_probe() const;
    // The four NV12 camera images of the latest frame (YUVarray).
    unsigned char* const* camera_images() const;

private:
    void warn_if_tables_mismatch(cv::Size camera) const;

    cv::Size camera_, out_;
};

// The output size a control table file declares (OutImgWidth,
// OutImgHeight); throws CommandError when it cannot be read.
cv::Size ctrl_out_size(const std::string& ctrl);

// Options of run and seams: --ctrl --stat --setting --in --size --out-size
// --frames --input-range.
struct InputOptions {
    LibraryFiles files;
    std::vector<std::string> in;
    std::string size, out_size;
    long frames = -1;
    std::string input_range = "auto";
};
void add_input_options(CLI::App* cmd, InputOptions& o);

struct Session {
    std::unique_ptr<FrameSource> source;
    cv::Size out;
    std::unique_ptr<Library> library;
};
Session open_session(const InputOptions& o);

// Runs every frame set of the session through the library. before(out)
// prepares the output buffer, after(index, out) consumes the result. Shows
// a progress bar; returns the per-frame times. Throws CommandError when the
// input holds no frame or its decoding failed.
std::vector<double> run_frames(Session& s, const char* label,
                               const std::function<void(uint8_t*)>& before,
                               const std::function<void(long, const uint8_t*)>& after);

// "WxH" option text to an even size; throws a usage error naming the
// option.
cv::Size size_option(const std::string& text, const char* option);

#endif
