// Records shared by the configuration readers, the composition and the
// calibration. Both are plain data: the readers fill the scalars and copy
// the mesh values into arrays that sv_init allocated beforehand.
#ifndef SV_TYPES_H
#define SV_TYPES_H

#include "sv_export.h"

#ifdef __cplusplus

// Control table: output geometry plus the two mesh tables that the
// composition samples through. A mesh node is four int32 values
// SrcX, SrcY (1/16 camera pixel, negative = not seen), Weight (256 = 1.0)
// and CamSel (TB1: camera 0/1, TB2: camera 2/3).
struct tag_CtrlPara {
    int OutImgWidth;
    int OutImgHeight;
    int TableWidth;
    int TableHeight;
    int IntervalX;
    int IntervalY;
    int DispCoorX;
    int DispCoorY;
    int ROIStartX;
    int ROIStartY;
    int ROIEndX;
    int ROIEndY;
    int ZoomFactorX;
    int ZoomFactorY;
    int L1;
    int L2;
    int H1;
    int H2;
    int* TB1;
    int* TB2;
};

// Statistics table: the small mesh through which the calibration samples
// the four cameras onto a common grid.
struct tag_StatPara {
    int OutImgWidth;
    int OutImgHeight;
    int TableWidth;
    int TableHeight;
    int IntervalX;
    int IntervalY;
    int* TB1;
    int* TB2;
};

#endif  // __cplusplus

#endif
