// The enhanced photometric fit (FitMode=1): per-camera gains and tone curves
// that match the cameras to one another while the picture as a whole keeps
// its brightness, colour and contrast. It writes the same 12 gains and 36
// tone-curve levels as CalibGT, so the frame cycle blends and renders them
// unchanged.
#ifndef PIPE_CALIB_ENHANCED_H
#define PIPE_CALIB_ENHANCED_H

#include "sv_types.h"

// One overlap sample pair: the RGB of the region's first camera (a) and of
// its second (b) at the same scene point, and how many pixels it stands for.
struct EnhancedPair {
    float a[3], b[3];
    int weight;
};

// What the fit works from: per corner region m (cameras 2 and 0, 0 and 3,
// 3 and 1, 1 and 2 for m = 0..3, as the statistics planes hold them) its
// pairs, and per camera and channel how many pixels of the composed picture
// show each level (all zero: the overlap samples stand in for the picture).
struct EnhancedData {
    const EnhancedPair* pairs[4];
    int counts[4];
    const int (*picture)[3][256];  // [camera][channel][level]
};

// The fit alone: gains and curve levels in the library's format. False
// (and nothing written) when an overlap has fewer than nData samples (at
// least one) or a system cannot be solved. bdr and bdh limit how far a
// curve level may move from the straight line, as in CalibGT.
SV_EXPORT bool FitEnhanced(const EnhancedData& data, int nData, int bdr,
                           int bdh, int* gain, int* tcurve);

// One calibration: the overlap samples through the statistics table (every
// pair both cameras see, unthinned and unfiltered: VL, VH, rto, TolL and
// TolH are taken for the standard fit's sake and not used; each pair
// smoothed with its neighbours and weighted by how evenly the control table
// blends the two cameras at its ground point, so that pairs the picture
// shows from one camera only do not count; all alike when the control
// table blends nowhere), the picture's levels through the control table,
// then FitEnhanced. restart drops what earlier calibrations left
// (the first calibration after sv_init); otherwise the fit is averaged with
// the earlier ones and a written value changes only when the average has
// moved from it by more than a rounding step, so on a still scene the
// values settle.
// When no fit can be made the previous values stay (the identity before the
// first).
SV_EXPORT void CalibEnhanced(unsigned char** YUV, int W, int H,
                             tag_StatPara& stat, const tag_CtrlPara& ctrl,
                             int* gain, int* tcurve, int VL, int VH, int rto,
                             int TolL, int TolH, int nData, int bdr, int bdh,
                             bool restart);

#endif
