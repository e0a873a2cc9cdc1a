#include "rig/seams.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include <opencv2/imgproc.hpp>

#include "pipe/data_processing.h"
#include "rig/frames.h"

namespace rig {

namespace {

constexpr int kBox = 15;
constexpr const char* kNames[4] = {"front-left", "front-right", "rear-right",
                                   "rear-left"};
constexpr int kCamA[4] = {0, 0, 1, 1};
constexpr int kCamB[4] = {2, 3, 3, 2};

// Grey levels that tell the cameras apart in a probe render: a grey sample
// passes the colour conversions and identity corrections unchanged.
constexpr int kLevelStep = 40;

int overlap_index(int cam_a, int cam_b) {
    for (int i = 0; i < 4; ++i)
        if (kCamA[i] == cam_a && kCamB[i] == cam_b) return i;
    return -1;
}

// Four flat grey NV12 camera images.
class FlatImages {
public:
    FlatImages(int w, int h, const int (&level)[4]) {
        for (int k = 0; k < 4; ++k) {
            buf_[k].assign(nv12_bytes(w, h), 128);
            std::memset(buf_[k].data(), level[k], size_t(w) * h);
            ptr_[k] = buf_[k].data();
        }
    }
    unsigned char* const* images() const { return ptr_; }

private:
    std::vector<uint8_t> buf_[4];
    unsigned char* ptr_[4];
};

// Camera whose grey level a probe pixel shows, or -1 where nothing was
// written (the buffer starts black).
int camera_of(uint8_t level) {
    return level % kLevelStep == 0 && level > 0 && level <= 4 * kLevelStep
               ? level / kLevelStep - 1
               : -1;
}

}  // namespace

Corrections Corrections::identity() {
    Corrections c;
    for (int i = 0; i < 12; ++i) c.gain[i] = 1024;
    for (int i = 0; i < 36; ++i) c.tcurve[i] = 64 * (i % 3 + 1);
    return c;
}

size_t table_room(int out_w, int out_h) {
    return size_t(out_w / 8 + 3) * size_t(out_h / 8 + 3) * 4;
}

OverlapMismatch overall(const SeamReport& r) {
    OverlapMismatch all{"all", -1, -1};
    for (const auto& o : r) {
        all.pixels += o.pixels;
        all.raw += o.raw * double(o.pixels);
        all.lowpass += o.lowpass * double(o.pixels);
    }
    if (all.pixels > 0) {
        all.raw /= double(all.pixels);
        all.lowpass /= double(all.pixels);
    }
    return all;
}

SeamProbe::SeamProbe(const tag_CtrlPara& table, int cam_w, int cam_h,
                     int out_w, int out_h)
    : cam_w_(cam_w), cam_h_(cam_h), out_w_(out_w), out_h_(out_h) {
    const size_t room = table_room(out_w, out_h);
    a_tb1_.assign(table.TB1, table.TB1 + room);
    b_tb2_.assign(table.TB2, table.TB2 + room);
    a_tb2_ = b_tb2_;
    b_tb1_ = a_tb1_;
    for (size_t i = 0; i < room; i += 4) a_tb2_[i] = b_tb1_[i] = -1;  // SrcX
    only_a_ = table;
    only_a_.TB1 = a_tb1_.data();
    only_a_.TB2 = a_tb2_.data();
    only_b_ = table;
    only_b_.TB1 = b_tb1_.data();
    only_b_.TB2 = b_tb2_.data();
    both_ = table;
    both_.TB1 = a_tb1_.data();
    both_.TB2 = b_tb2_.data();

    const Corrections id = Corrections::identity();
    const int* gain = id.gain;
    const int* tcurve = id.tcurve;

    // Which camera each table shows, then each table's weight where both
    // show something: with the other table's cameras black, a pixel keeps
    // (255 * w) >> 8, which is nonzero for w above 1/256.
    const FlatImages cams(cam_w, cam_h,
                          {kLevelStep, 2 * kLevelStep, 3 * kLevelStep, 4 * kLevelStep});
    std::vector<uint8_t> sel_a, sel_b, w_a, w_b;
    render(only_a_, cams.images(), gain, tcurve, sel_a);
    render(only_b_, cams.images(), gain, tcurve, sel_b);
    render(both_, FlatImages(cam_w, cam_h, {255, 255, 0, 0}).images(), gain, tcurve, w_a);
    render(both_, FlatImages(cam_w, cam_h, {0, 0, 255, 255}).images(), gain, tcurve, w_b);

    map_.create(out_h, out_w, CV_8S);
    map_.setTo(-1);
    covered_ = cv::Mat::zeros(out_h, out_w, CV_8U);
    std::array<std::vector<cv::Point>, 4> points;
    for (int y = 0; y < out_h; ++y) {
        for (int x = 0; x < out_w; ++x) {
            const size_t p = size_t(y) * out_w + x;
            // Colour needs the chroma of the pixel's 2 x 2 block as well.
            const size_t q = size_t(y & ~1) * out_w + (x & ~1);
            const int a = camera_of(sel_a[p]), b = camera_of(sel_b[p]);
            if (a >= 0 || b >= 0) covered_.at<uint8_t>(y, x) = 255;
            if (a < 0 || b < 0 || camera_of(sel_a[q]) < 0 || camera_of(sel_b[q]) < 0 ||
                w_a[p] == 0 || w_b[p] == 0)
                continue;
            const int i = overlap_index(a, b);
            if (i < 0) continue;
            map_.at<int8_t>(y, x) = int8_t(i);
            points[i].emplace_back(x, y);
        }
    }
    for (int i = 0; i < 4; ++i) {
        if (points[i].empty()) continue;
        rect_[i] = cv::boundingRect(points[i]);
        mask_[i] = cv::Mat::zeros(rect_[i].size(), CV_32F);
        for (const auto& pt : points[i]) mask_[i].at<float>(pt - rect_[i].tl()) = 1.f;
        cv::boxFilter(mask_[i], count_[i], -1, cv::Size(kBox, kBox), cv::Point(-1, -1),
                      false, cv::BORDER_CONSTANT);
    }
}

void SeamProbe::render(tag_CtrlPara& table, unsigned char* const yuv[4],
                       const int* gain, const int* tcurve,
                       std::vector<uint8_t>& out) {
    out.assign(nv12_bytes(out_w_, out_h_), 128);
    std::memset(out.data(), 0, size_t(out_w_) * out_h_);
    unsigned char* cams[4] = {yuv[0], yuv[1], yuv[2], yuv[3]};
    int g[12], t[36];
    std::memcpy(g, gain, sizeof g);
    std::memcpy(t, tcurve, sizeof t);
    DataProcessing(cams, cam_w_, cam_h_, out.data(), out_w_, out_h_, &table, g, t, 64, 8);
}

void SeamProbe::compose(unsigned char* const yuv[4], const int* gain, const int* tcurve,
                        std::vector<uint8_t>& out) {
    render(both_, yuv, gain, tcurve, out);
}

cv::Mat SeamProbe::rgb_of(const std::vector<uint8_t>& nv12, const cv::Rect& r,
                          const cv::Mat& mask) const {
    cv::Mat rgb = cv::Mat::zeros(r.size(), CV_32FC3);
    const uint8_t* chroma = nv12.data() + size_t(out_w_) * out_h_;
    for (int y = 0; y < r.height; ++y) {
        for (int x = 0; x < r.width; ++x) {
            if (mask.at<float>(y, x) == 0.f) continue;
            const int ox = r.x + x, oy = r.y + y;
            const uint8_t* uv = chroma + size_t(oy / 2) * out_w_ + (ox & ~1);
            int R, G, B;
            YUV2RGB(nv12[size_t(oy) * out_w_ + ox], uv[0], uv[1], R, G, B, 8, 8);
            rgb.at<cv::Vec3f>(y, x) = cv::Vec3f(float(R), float(G), float(B));
        }
    }
    return rgb;
}

SeamReport SeamProbe::measure(unsigned char* const yuv[4], const int* gain,
                              const int* tcurve) {
    render(only_a_, yuv, gain, tcurve, out_a_);
    render(only_b_, yuv, gain, tcurve, out_b_);
    SeamReport report;
    for (int i = 0; i < 4; ++i) {
        OverlapMismatch& o = report[i];
        o = OverlapMismatch{kNames[i], kCamA[i], kCamB[i]};
        if (mask_[i].empty()) continue;
        const cv::Mat a = rgb_of(out_a_, rect_[i], mask_[i]);
        const cv::Mat b = rgb_of(out_b_, rect_[i], mask_[i]);
        cv::Mat box_a, box_b;
        cv::boxFilter(a, box_a, -1, cv::Size(kBox, kBox), cv::Point(-1, -1), false,
                      cv::BORDER_CONSTANT);
        cv::boxFilter(b, box_b, -1, cv::Size(kBox, kBox), cv::Point(-1, -1), false,
                      cv::BORDER_CONSTANT);
        double raw = 0, low = 0;
        for (int y = 0; y < a.rows; ++y) {
            for (int x = 0; x < a.cols; ++x) {
                if (mask_[i].at<float>(y, x) == 0.f) continue;
                const cv::Vec3f d = a.at<cv::Vec3f>(y, x) - b.at<cv::Vec3f>(y, x);
                const cv::Vec3f e = box_a.at<cv::Vec3f>(y, x) - box_b.at<cv::Vec3f>(y, x);
                const double n = count_[i].at<float>(y, x);  // >= 1: the pixel itself
                for (int c = 0; c < 3; ++c) {
                    raw += std::abs(d[c]);
                    low += std::abs(e[c]) / n;
                }
                ++o.pixels;
            }
        }
        o.raw = raw / (3.0 * double(o.pixels));
        o.lowpass = low / (3.0 * double(o.pixels));
    }
    return report;
}

std::string format_seams(
    const std::vector<std::pair<std::string, SeamReport>>& columns) {
    std::string s =
        "seam mismatch: mean |difference| of R, G, B between the two cameras "
        "(0..255),\nafter a 15 x 15 box mean in brackets\n";
    char cell[64];
    std::snprintf(cell, sizeof cell, "%-12s %8s", "overlap", "pixels");
    s += cell;
    for (const auto& col : columns) {
        std::snprintf(cell, sizeof cell, "  %16s", col.first.c_str());
        s += cell;
    }
    s += "\n";
    if (columns.empty()) return s;
    for (int i = 0; i <= 4; ++i) {
        const OverlapMismatch head = i < 4 ? columns[0].second[i] : overall(columns[0].second);
        std::snprintf(cell, sizeof cell, "%-12s %8ld", head.name, head.pixels);
        s += cell;
        for (const auto& col : columns) {
            const OverlapMismatch o = i < 4 ? col.second[i] : overall(col.second);
            if (o.pixels > 0)
                std::snprintf(cell, sizeof cell, "  %7.2f (%6.2f)", o.raw, o.lowpass);
            else
                std::snprintf(cell, sizeof cell, "  %16s", "-");
            s += cell;
        }
        s += "\n";
    }
    return s;
}

}  // namespace rig
