// Control table, statistics table and setting file for sv_init, generated
// from a rig.
//
// Output layout: the bird's-eye canvas scaled to the output height (or
// width, if narrower) at the output's top-left; optionally an undistorted,
// mirrored rear-camera view in the free part to its right. Mesh nodes lie
// every 8 output pixels at zoom 1:1. TB1 renders the front camera above
// seam row H1 and the rear camera below it; TB2 the left camera left of
// seam column L1 and the right camera right of it; seam column L2 starts
// the rear panel (TB1, rear camera). The seams sit inside the vehicle box
// so no rendered cell mixes cameras.
#ifndef RIG_TABLES_H
#define RIG_TABLES_H

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "rig/rig.h"

namespace rig {

struct LayoutOptions {
    cv::Size out{1280, 800};  // even, 64 to 4096 per side
    bool rear_view = false;
    double rear_fov_deg = 120.0;
    double border = 2.0;  // nodes closer than this to an image edge are unseen
};

// Where the rig's canvas and the rear panel sit in the output image.
struct Layout {
    cv::Size out;
    double scale = 1.0;      // output pixels per canvas pixel
    cv::Rect birdseye;       // output pixels covered by the canvas
    cv::Rect2d vehicle;      // vehicle box in output pixels
    cv::Rect rear_panel;     // empty without a rear view
    double rear_focal = 0;   // focal length of the rear panel's pinhole
    double border = 2.0;

    // Output pixel centre <-> canvas point.
    cv::Point2d to_canvas(cv::Point2d o) const;
    cv::Point2d to_output(cv::Point2d c) const;
};

// Throws RigError when the sizes are unusable or the vehicle box does not
// contain the canvas centre.
Layout make_layout(const Rig& rig, const LayoutOptions& opt);

// One mesh table: rows of nodes of four ints SrcX, SrcY, Weight, CamSel.
struct MeshTable {
    int width = 0, height = 0;
    std::vector<int> values;  // width * height * 4
    int* node(int row, int col) { return &values[(row * width + col) * 4]; }
    const int* node(int row, int col) const { return &values[(row * width + col) * 4]; }
};

struct ControlTable {
    int OutImgWidth = 0, OutImgHeight = 0;
    int IntervalX = 3, IntervalY = 3;
    int DispCoorX = 0, DispCoorY = 0;
    int ROIStartX = 0, ROIStartY = 0, ROIEndX = 0, ROIEndY = 0;
    int ZoomFactorX = 64, ZoomFactorY = 64;
    int L1 = 0, L2 = 0, H1 = 0, H2 = 0;
    MeshTable tb1, tb2;
};

struct StatTable {
    int OutImgWidth = 128, OutImgHeight = 168;
    int IntervalX = 3, IntervalY = 3;
    MeshTable tb1, tb2;
};

// The thirteen values of the setting file, at their documented defaults.
struct Settings {
    int StatFreq = 1, StatL = 8, StatH = 248, ThresRatio = 14, ThresL = 16,
        ThresH = 128, DSIntvl = 4, nDataL = 4;
    float beta = 0.1f;
    int tcRatio = 4, tcH = 16;
    float gMgn = 0.05f;
    int Spd = 1;
};

ControlTable make_control_table(const Rig& rig, const Layout& layout);
StatTable make_stat_table(const Rig& rig, double border = 2.0);

// Statistics pixel centre -> canvas point (the statistics grid stretches
// over the whole canvas).
cv::Point2d stat_to_canvas(const Rig& rig, cv::Point2d s);

// File writers; throw RigError when the file cannot be written.
void write_control_table(const std::string& path, const ControlTable& t);
void write_stat_table(const std::string& path, const StatTable& t);
void write_settings(const std::string& path, const Settings& s);

// DIR/control.txt, DIR/statistics.txt, DIR/setting.txt. Throws RigError,
// writing nothing, when a camera would render no node at all.
void write_tables(const std::string& dir, const Rig& rig, const Layout& layout,
                  const Settings& settings);

}  // namespace rig

#endif
