// Camera input of run and seams: four camera images, four camera videos
// (decoded in process), or one raw file or stream of YUYV frame sets. What
// comes out is full range, as the library computes.
#ifndef SVCOMPOSE_INPUTS_H
#define SVCOMPOSE_INPUTS_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

class FrameSource {
public:
    virtual ~FrameSource() = default;
    cv::Size size() const { return size_; }
    // Frame sets to come, or -1 when not known ahead (videos, streams).
    long frames() const { return frames_; }
    // Frames per second the input declares; 0 when it declares none.
    double fps() const { return fps_; }
    // Fills the next frame set (four YUYV frames back to back); false at
    // the end.
    virtual bool next(uint8_t* frame_set) = 0;
    // After the last frame: throws when a decoder failed.
    virtual void finish() {}

protected:
    cv::Size size_;
    long frames_ = -1;
    double fps_ = 0;
};

// --input-range: what the input's YUV levels are. auto: as a video is
// tagged (untagged: limited), full for raw frame sets.
enum class InputRange { kAuto, kFull, kLimited };
InputRange parse_input_range(const std::string& text);

// in: four files in camera order (front, rear, left, right), images or
// videos, or one raw frame-set file ("-": stdin). size: the camera size
// (--size), empty when not given; it is required for raw frame sets and
// checked against images and videos. max_frames < 0: all. Limited-range
// input is converted to full range, and the range a video was taken to
// have is said on stderr. Throws CommandError.
std::unique_ptr<FrameSource> open_inputs(const std::vector<std::string>& in,
                                         cv::Size size, long max_frames,
                                         InputRange range = InputRange::kAuto);

#endif
