// Video files in and out, in process through libavformat, libavcodec and
// libswscale: camera videos decoded to packed YUYV, composed NV12 frames
// encoded to a video file or written raw to stdout.
//
// The library computes in full-range BT.601. Decoded frames come out with
// the range they were stored in (the caller converts limited range with
// limited_to_full); everything written is tagged full range.
#ifndef SVRIG_VIDEO_H
#define SVRIG_VIDEO_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <opencv2/core.hpp>

namespace rig {

// The range a decoder reports for its frames.
enum class VideoRange { kUnspecified, kLimited, kFull };

// Limited range (luma 16..235, chroma 16..240) to full range in place:
// Y' = (Y - 16) * 255 / 219 and C' = (C - 128) * 255 / 224 + 128, rounded
// to nearest (halves away from the middle) and clamped to 0..255. Packed
// YUYV: luma at even bytes, chroma at odd ones.
void limited_to_full_yuyv(uint8_t* yuyv, size_t bytes);
// The two tables behind it, for a test to hold against a plain formula.
uint8_t limited_to_full_luma(uint8_t y);
uint8_t limited_to_full_chroma(uint8_t c);

// One video's first video stream, frames as stored (a rotation tag is
// ignored), each converted to packed YUYV without changing its range.
class VideoReader {
public:
    VideoReader();
    ~VideoReader();
    VideoReader(const VideoReader&) = delete;
    VideoReader& operator=(const VideoReader&) = delete;

    // Opens the container and the decoder; false with "cannot read video
    // PATH: reason" in err.
    bool open(const std::string& path, std::string& err);
    cv::Size size() const;
    // Frames per second the stream declares, 0 when it declares none.
    double fps() const;
    // Decodes the next frame into dst (yuyv_bytes); false at the end, or
    // when the stream breaks off (complaint() then says why).
    bool read(uint8_t* dst);
    // The range of the latest frame read.
    VideoRange range() const;
    long frames_read() const;
    const std::string& path() const;
    // The first decoding error, empty when there was none.
    const std::string& complaint() const;

private:
    struct State;
    std::unique_ptr<State> s_;
};

// Composed NV12 frames out: "-" writes them raw to stdout; any other path
// is encoded by its extension's container, H.264 where libavcodec has an
// encoder for it and the container takes it, FFV1 (lossless) otherwise.
// The file appears under its name only when close() succeeds.
class VideoWriter {
public:
    VideoWriter();
    ~VideoWriter();  // an unfinished file is removed
    VideoWriter(const VideoWriter&) = delete;
    VideoWriter& operator=(const VideoWriter&) = delete;

    bool open(const std::string& path, cv::Size size, double fps, std::string& err);
    bool write(const uint8_t* nv12, std::string& err);
    bool close(std::string& err);
    // "H.264 (libx264) in MP4", "raw NV12 on stdout", ...
    std::string description() const;

private:
    struct State;
    std::unique_ptr<State> s_;
};

}  // namespace rig

#endif
