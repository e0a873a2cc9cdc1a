// Camera input of run and seams: four camera images, four camera videos
// (decoded by ffmpeg), or one raw file of YUYV frame sets.
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
    // Frame sets to come, or -1 when not known ahead (videos).
    long frames() const { return frames_; }
    // Fills the next frame set (four YUYV frames back to back); false at
    // the end.
    virtual bool next(uint8_t* frame_set) = 0;
    // After the last frame: throws when a decoder failed.
    virtual void finish() {}

protected:
    cv::Size size_;
    long frames_ = -1;
};

// in: four files in camera order (front, rear, left, right), images or
// videos, or one raw frame-set file. size: the camera size (--size), empty
// when not given; it is required for a raw file and checked against images
// and videos. max_frames < 0: all. Throws CommandError.
std::unique_ptr<FrameSource> open_inputs(const std::vector<std::string>& in,
                                         cv::Size size, long max_frames);

#endif
