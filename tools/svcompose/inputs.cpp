#include "inputs.h"

#include <cctype>
#include <filesystem>
#include <initializer_list>

#include <opencv2/imgcodecs.hpp>

#include "commands.h"
#include "rig/frames.h"
#include "rig/video.h"

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
    RawSource(const std::string& path, cv::Size size, long max_frames, InputRange range)
        : limited_(range == InputRange::kLimited) {
        std::string err;
        if (!reader_.open(path, size.width, size.height, err))
            throw CommandError(kExitFailure, err);
        size_ = size;
        max_ = max_frames;
        frames_ = reader_.frames() < 0 ? -1 : max_frames < 0 ? reader_.frames()
                                                             : std::min(max_frames, reader_.frames());
        if (limited_)
            note((path == "-" ? std::string("stdin") : path) +
                 ": limited range (--input-range), converted to full range");
    }
    bool next(uint8_t* frame_set) override {
        if ((max_ >= 0 && read_ >= max_) || !reader_.read(frame_set)) return false;
        if (limited_) rig::limited_to_full_yuyv(frame_set, rig::frame_set_bytes(size_.width, size_.height));
        ++read_;
        return true;
    }
    void finish() override {
        const std::string ending = reader_.ending();
        if (!ending.empty()) throw CommandError(kExitFailure, ending);
    }

private:
    rig::RawFrameSetReader reader_;
    long read_ = 0, max_ = -1;
    bool limited_;
};

class VideoSource : public FrameSource {
public:
    VideoSource(const std::vector<std::string>& in, cv::Size size, long max_frames, InputRange range)
        : range_(range), max_(max_frames) {
        std::string err;
        for (int k = 0; k < 4; ++k) {
            if (!video_[k].open(in[k], err)) throw CommandError(kExitFailure, err);
            check_camera_size(in[k], video_[k].size(), size);
        }
        size_ = size;
        fps_ = video_[0].fps();
    }
    bool next(uint8_t* frame_set) override {
        if (max_ >= 0 && read_ >= max_) return false;
        // The shortest video ends the run.
        const size_t bytes = rig::yuyv_bytes(size_.width, size_.height);
        for (int k = 0; k < 4; ++k) {
            uint8_t* frame = frame_set + k * bytes;
            if (!video_[k].read(frame)) {
                ended_ = k;
                return false;
            }
            if (is_limited(video_[k].range())) rig::limited_to_full_yuyv(frame, bytes);
        }
        if (read_++ == 0) say_ranges();
        return true;
    }
    void finish() override {
        for (const auto& v : video_)
            if (v.frames_read() == 0)
                throw CommandError(kExitFailure,
                                   "cannot decode video " + v.path() + ": " +
                                       (v.complaint().empty() ? "no frames" : v.complaint()));
        if (ended_ < 0) return;
        const rig::VideoReader& v = video_[ended_];
        if (!v.complaint().empty())
            warn("camera " + std::string(kCameraNames[ended_]) + " (" + v.path() + ") ended after " +
                 std::to_string(v.frames_read()) + " frames: " + v.complaint());
    }

private:
    static constexpr const char* kCameraNames[4] = {"front", "rear", "left", "right"};

    bool is_limited(rig::VideoRange r) const {
        if (range_ != InputRange::kAuto) return range_ == InputRange::kLimited;
        return r != rig::VideoRange::kFull;
    }
    // What range each video was taken to have, one line when all agree.
    void say_ranges() const {
        std::string said[4];
        for (int k = 0; k < 4; ++k) {
            const rig::VideoRange r = video_[k].range();
            if (range_ != InputRange::kAuto)
                said[k] = range_ == InputRange::kLimited ? "limited range (--input-range), converted to full range"
                                                         : "full range (--input-range)";
            else if (r == rig::VideoRange::kFull)
                said[k] = "full range (as tagged)";
            else if (r == rig::VideoRange::kLimited)
                said[k] = "limited range (as tagged), converted to full range";
            else
                said[k] = "range not tagged, taken as limited and converted to full range "
                          "(--input-range full if it is not)";
        }
        if (said[0] == said[1] && said[0] == said[2] && said[0] == said[3]) {
            note("camera videos: " + said[0]);
            return;
        }
        for (int k = 0; k < 4; ++k)
            note("camera " + std::string(kCameraNames[k]) + " (" + video_[k].path() + "): " + said[k]);
    }

    rig::VideoReader video_[4];
    InputRange range_;
    long max_, read_ = 0;
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
    // Peeking into a FIFO would eat what it holds: streams go by name.
    std::error_code ec;
    const bool regular = std::filesystem::is_regular_file(path, ec);
    return (regular && cv::haveImageReader(path)) ||
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

InputRange parse_input_range(const std::string& text) {
    if (text == "full") return InputRange::kFull;
    if (text == "limited") return InputRange::kLimited;
    return InputRange::kAuto;
}

std::unique_ptr<FrameSource> open_inputs(const std::vector<std::string>& in,
                                         cv::Size size, long max_frames, InputRange range) {
    if (in.size() != 1 && in.size() != 4)
        throw CommandError(kExitUsage,
                           "--in takes four camera files (front, rear, left, right) or one raw "
                           "frame-set file, not " + std::to_string(in.size()));
    std::string err;
    for (const auto& path : in)
        if (path != "-" && !rig::check_file(path, err)) throw CommandError(kExitFailure, err);

    if (in.size() == 1) {
        if (in[0] != "-" && is_image(in[0]))
            throw CommandError(kExitUsage, in[0] + " is an image: give the four camera images "
                                                   "(front, rear, left, right)");
        if (in[0] != "-" && is_video(in[0]))
            throw CommandError(kExitUsage, in[0] + " is a video: give the four camera videos "
                                                   "(front, rear, left, right)");
        if (size.empty())
            throw CommandError(kExitUsage, "a raw frame-set file needs the camera size: --size WxH");
        return std::make_unique<RawSource>(in[0], size, max_frames, range);
    }

    int images = 0;
    for (const auto& path : in) {
        if (path == "-")
            throw CommandError(kExitUsage, "- (stdin) carries raw frame sets: give it alone");
        images += is_image(path) ? 1 : 0;
    }
    if (images == 4) return std::make_unique<ImageSource>(in, size);
    if (images == 0) return std::make_unique<VideoSource>(in, size, max_frames, range);
    throw CommandError(kExitUsage, "--in mixes images and videos: give four of one kind");
}
