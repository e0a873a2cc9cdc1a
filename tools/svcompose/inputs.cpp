#include "inputs.h"

#include <cctype>
#include <filesystem>
#include <initializer_list>

#include <opencv2/imgcodecs.hpp>

#include "commands.h"
#include "rig/frames.h"

namespace {

// Every camera frame must have the common size, which must be even (the
// library walks pixel pairs and row pairs).
void check_camera_size(const std::string& path, cv::Size got, cv::Size& want) {
    if (want.empty()) want = got;
    if (got != want)
        throw CommandError(kExitFailure, path + " is " + rig::size_text(got) + ", expected " +
                                             rig::size_text(want));
    if (got.width % 2 || got.height % 2)
        throw CommandError(kExitFailure, path + " is " + rig::size_text(got) +
                                             ": camera frames need an even width and height");
}

class ImageSource : public FrameSource {
public:
    ImageSource(const std::vector<std::string>& in, cv::Size size) {
        cv::Mat img[4];
        for (int k = 0; k < 4; ++k) {
            std::string err;
            if (!rig::read_image(in[k], img[k], err)) throw CommandError(kExitFailure, err);
            check_camera_size(in[k], img[k].size(), size);
        }
        size_ = size;
        frames_ = 1;
        frame_.resize(rig::frame_set_bytes(size.width, size.height));
        for (int k = 0; k < 4; ++k)
            rig::bgr_to_yuyv(img[k], frame_.data() + k * rig::yuyv_bytes(size.width, size.height));
    }
    bool next(uint8_t* frame_set) override {
        if (done_) return false;
        std::copy(frame_.begin(), frame_.end(), frame_set);
        done_ = true;
        return true;
    }

private:
    std::vector<uint8_t> frame_;
    bool done_ = false;
};

class RawSource : public FrameSource {
public:
    RawSource(const std::string& path, cv::Size size, long max_frames) {
        std::string err;
        if (!reader_.open(path, size.width, size.height, err))
            throw CommandError(kExitFailure, err);
        size_ = size;
        frames_ = max_frames < 0 ? reader_.frames() : std::min(max_frames, reader_.frames());
    }
    bool next(uint8_t* frame_set) override {
        if (read_ >= frames_ || !reader_.read(frame_set)) return false;
        ++read_;
        return true;
    }

private:
    rig::RawFrameSetReader reader_;
    long read_ = 0;
};

class VideoSource : public FrameSource {
public:
    VideoSource(const std::vector<std::string>& in, cv::Size size, long max_frames) {
        for (const char* tool : {"ffmpeg", "ffprobe"})
            if (!rig::have_program(tool))
                throw CommandError(kExitFailure, std::string(tool) +
                                                     " not found: it is needed to read video "
                                                     "files (install the ffmpeg package)");
        std::string err;
        for (int k = 0; k < 4; ++k) {
            cv::Size got;
            if (!rig::probe_video_size(in[k], got, err)) throw CommandError(kExitFailure, err);
            check_camera_size(in[k], got, size);
        }
        size_ = size;
        for (int k = 0; k < 4; ++k)
            if (!video_[k].open(in[k], size, max_frames, err))
                throw CommandError(kExitFailure, err);
    }
    bool next(uint8_t* frame_set) override {
        // The shortest video ends the run.
        const size_t bytes = rig::yuyv_bytes(size_.width, size_.height);
        for (int k = 0; k < 4; ++k)
            if (!video_[k].read(frame_set + k * bytes)) {
                ended_ = k;
                return false;
            }
        return true;
    }
    void finish() override {
        for (auto& v : video_) {
            std::string err;
            if (!v.close(err)) throw CommandError(kExitFailure, err);
        }
        // Only the video that ended the run: the others complain of the
        // pipe closed under them.
        if (ended_ < 0) return;
        const rig::VideoDecoder& v = video_[ended_];
        if (!v.complaint().empty())
            warn("camera " + std::string(kCameraNames[ended_]) + " (" + v.path() + ") ended after " +
                 std::to_string(v.frames_read()) + " frames: " + v.complaint());
    }

private:
    static constexpr const char* kCameraNames[4] = {"front", "rear", "left", "right"};
    rig::VideoDecoder video_[4];
    int ended_ = -1;
};

bool has_extension(const std::string& path, std::initializer_list<const char*> known) {
    std::string ext = std::filesystem::path(path).extension().string();
    for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
    for (const char* k : known)
        if (ext == k) return true;
    return false;
}

// By content, or by name for files too damaged for that (they then fail
// as images, not as videos).
bool is_image(const std::string& path) {
    return cv::haveImageReader(path) ||
           has_extension(path, {".png", ".jpg", ".jpeg", ".bmp", ".tif", ".tiff", ".ppm", ".pgm",
                                ".webp"});
}

// By name: a raw frame-set file has no header to tell it by.
bool is_video(const std::string& path) {
    return has_extension(path, {".mp4", ".mkv", ".avi", ".mov", ".webm", ".m4v", ".ts", ".mts",
                                ".flv", ".wmv", ".mpg", ".mpeg", ".h264", ".h265", ".hevc",
                                ".y4m"});
}

}  // namespace

std::unique_ptr<FrameSource> open_inputs(const std::vector<std::string>& in,
                                         cv::Size size, long max_frames) {
    if (in.size() != 1 && in.size() != 4)
        throw CommandError(kExitUsage,
                           "--in takes four camera files (front, rear, left, right) or one raw "
                           "frame-set file, not " + std::to_string(in.size()));
    std::string err;
    for (const auto& path : in)
        if (!rig::check_file(path, err)) throw CommandError(kExitFailure, err);

    if (in.size() == 1) {
        if (is_image(in[0]))
            throw CommandError(kExitUsage, in[0] + " is an image: give the four camera images "
                                                   "(front, rear, left, right)");
        if (is_video(in[0]))
            throw CommandError(kExitUsage, in[0] + " is a video: give the four camera videos "
                                                   "(front, rear, left, right)");
        if (size.empty())
            throw CommandError(kExitUsage, "a raw frame-set file needs the camera size: --size WxH");
        return std::make_unique<RawSource>(in[0], size, max_frames);
    }

    int images = 0;
    for (const auto& path : in) images += is_image(path) ? 1 : 0;
    if (images == 4) return std::make_unique<ImageSource>(in, size);
    if (images == 0) return std::make_unique<VideoSource>(in, size, max_frames);
    throw CommandError(kExitUsage, "--in mixes images and videos: give four of one kind");
}
