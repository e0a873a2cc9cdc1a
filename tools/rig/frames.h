// Camera and output frames between OpenCV images and the library's layouts:
// packed YUYV frame sets in, NV12 out, raw frame-set files and PNG writing
// (video files: rig/video.h).
#ifndef SVRIG_FRAMES_H
#define SVRIG_FRAMES_H

#include <cstdint>
#include <cstdio>
#include <string>

#include <opencv2/core.hpp>

#include "rig/outputs.h"

namespace rig {

// Bytes of one packed YUYV camera frame, of a frame set of four, and of
// an NV12 image.
inline size_t yuyv_bytes(int w, int h) { return size_t(w) * size_t(h) * 2; }
inline size_t frame_set_bytes(int w, int h) { return 4 * yuyv_bytes(w, h); }
inline size_t nv12_bytes(int w, int h) { return size_t(w) * size_t(h) * 3 / 2; }

// Colour conversions go through the library's own RGB2YUV / YUV2RGB so
// that a round trip through the tool adds no error of its own. Widths and
// heights must be even.
//
// YUYV: each pixel pair shares the rounded mean of the two pixels' U and V.
void bgr_to_yuyv(const cv::Mat& bgr, uint8_t* dst);
cv::Mat yuyv_to_bgr(const uint8_t* src, int w, int h);
// NV12: each 2 x 2 block takes the chroma of its top-left pixel, the
// pixel the library itself samples chroma at.
void bgr_to_nv12(const cv::Mat& bgr, uint8_t* dst);
cv::Mat nv12_to_bgr(const uint8_t* src, int w, int h);

// False, with "cannot read PATH: no such file" (or ": is a directory") in
// err, unless path names something to read from: a regular file, or a
// FIFO or device that streams.
bool check_file(const std::string& path, std::string& err);

// "1280x720"
std::string size_text(cv::Size size);

// Reads "WxH" (e.g. "1280x720"); false on anything else, including sizes
// beyond int.
bool parse_size(const std::string& text, cv::Size& size);

// A file of YUYV frame sets back to back, as sv_convert_image takes them;
// "-" reads them from stdin, and a FIFO is read as the stream it is.
class RawFrameSetReader {
public:
    RawFrameSetReader() = default;
    ~RawFrameSetReader();
    RawFrameSetReader(const RawFrameSetReader&) = delete;
    RawFrameSetReader& operator=(const RawFrameSetReader&) = delete;

    // Fails on an unreadable, empty or truncated file (size not a whole
    // number of frame sets), with the reason in err. A stream is checked
    // as it is read (see ending()).
    bool open(const std::string& path, int w, int h, std::string& err);
    // Frame sets in the file; -1 for a stream.
    long frames() const { return frames_; }
    // Reads the next frame set into dst (frame_set_bytes); false at the end.
    bool read(uint8_t* dst);
    // After the end of a stream: empty when it ended between two frame
    // sets, else how much of the last one came.
    std::string ending() const;

private:
    FILE* file_ = nullptr;
    std::string name_;
    size_t bytes_ = 0, partial_ = 0;
    long frames_ = 0;
};

// Appends frames to a raw file, which appears under its name only when
// close() succeeds (see OutputFile).
class RawWriter {
public:
    bool open(const std::string& path, std::string& err) {
        opened_ = true;
        return file_.open(path, err);
    }
    bool write(const uint8_t* data, size_t bytes, std::string& err) {
        return file_.write(data, bytes, err);
    }
    // True, doing nothing, when never opened.
    bool close(std::string& err) { return !opened_ || file_.commit(err); }

private:
    OutputFile file_;
    bool opened_ = false;
};

// Writes an 8-bit BGR image as PNG, creating nothing but the file (through
// OutputFile).
bool write_png(const std::string& path, const cv::Mat& bgr, std::string& err);

// Writes a text file; false with "cannot write PATH" in err.
bool write_text(const std::string& path, const std::string& text, std::string& err);

// Reads an image as 8-bit BGR; false with a reason when it cannot. A PNG
// is checked for completeness first, so that the decoder never gets to
// print its own complaint.
bool read_image(const std::string& path, cv::Mat& bgr, std::string& err);

}  // namespace rig

#endif
