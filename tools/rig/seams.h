// Seam mismatch: how much the two cameras of each corner overlap disagree
// in colour once the corrections are applied.
//
// An overlap pixel is one that both mesh tables cover, each camera with a
// weight above 1/256. There, each camera's colour-corrected contribution is
// taken from the library itself: the frame is rendered once through a copy
// of the control table whose TB2 sees nothing (SrcX -1) and once through
// one whose TB1 sees nothing. The mismatch is the mean absolute difference
// of the two contributions in R, G and B, averaged over the channels; the
// low-pass figure does the same after a 15 x 15 box mean of each
// contribution within the overlap, which discounts small misregistration
// and leaves photometry.
#ifndef SVRIG_SEAMS_H
#define SVRIG_SEAMS_H

#include <array>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "sv_types.h"

namespace rig {

struct OverlapMismatch {
    const char* name;  // "front-left", "front-right", "rear-right", "rear-left"
    int cam_a;         // TB1 camera: 0 front, 1 rear
    int cam_b;         // TB2 camera: 2 left, 3 right
    long pixels = 0;
    double raw = 0;
    double lowpass = 0;
};

using SeamReport = std::array<OverlapMismatch, 4>;

// Gains 1.0 and straight tone curves: the corrections before any fit.
struct Corrections {
    int gain[12];
    int tcurve[36];
    static Corrections identity();
};

// Pixel-weighted means over the four overlaps.
OverlapMismatch overall(const SeamReport& r);

// Mesh-table room that sv_init allocates for an output size, in ints.
size_t table_room(int out_w, int out_h);

class SeamProbe {
public:
    // table: a loaded control table whose TB1 and TB2 hold table_room ints
    // (the library's Parameter after sv_init). Everything is copied.
    SeamProbe(const tag_CtrlPara& table, int cam_w, int cam_h, int out_w,
              int out_h);

    // yuv: the four NV12 camera images of one frame (YUVarray); gain and
    // tcurve: the corrections to render with (12 and 36 values).
    SeamReport measure(unsigned char* const yuv[4], const int* gain,
                       const int* tcurve);

    // The whole frame composed with the given corrections (NV12, black
    // where no camera is composed).
    void compose(unsigned char* const yuv[4], const int* gain, const int* tcurve,
                 std::vector<uint8_t>& out);

    // Overlap index 0..3 per output pixel, -1 outside (CV_8S).
    const cv::Mat& overlap_map() const { return map_; }
    // 255 where some camera is composed, 0 elsewhere (CV_8U).
    const cv::Mat& covered() const { return covered_; }

private:
    void render(tag_CtrlPara& table, unsigned char* const yuv[4],
                const int* gain, const int* tcurve, std::vector<uint8_t>& out);
    cv::Mat rgb_of(const std::vector<uint8_t>& nv12, const cv::Rect& r,
                   const cv::Mat& mask) const;

    int cam_w_, cam_h_, out_w_, out_h_;
    std::vector<int> a_tb1_, a_tb2_, b_tb1_, b_tb2_;
    tag_CtrlPara only_a_{}, only_b_{}, both_{};
    cv::Mat map_, covered_;
    std::array<cv::Rect, 4> rect_;
    std::array<cv::Mat, 4> mask_;   // CV_32F 0/1 inside rect_
    std::array<cv::Mat, 4> count_;  // box sums of mask_
    std::vector<uint8_t> out_a_, out_b_;
};

// A table of named reports side by side, e.g. {"before", r0}, {"after", r1}.
std::string format_seams(
    const std::vector<std::pair<std::string, SeamReport>>& columns);

}  // namespace rig

#endif
