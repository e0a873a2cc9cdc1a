// Photometric calibration: overlap statistics, gain and tone-curve fit.
#ifndef PIPE_CALIB_GT_H
#define PIPE_CALIB_GT_H

#include "sv_types.h"

// One calibration on the current image set: gathers the overlap statistics
// through the statistics table and fits all 12 gains and 36 tone-curve
// values into gain and tcurve.
SV_EXPORT void CalibGT(unsigned char** YUV, int W, int H, tag_StatPara& stat,
                       int* gain, int* tcurve, int VL, int VH, int rto,
                       int TolL, int TolH, int DS, int nData, float beta,
                       int bdr, int bdh, float mgn);

// Samples the four corner overlaps into eight RGB planes (two per region),
// thins them by DS and drops pairs that disagree grossly. rows and cols come
// back as the thinned counts; stride is unchanged.
SV_EXPORT void GetStatData(unsigned char** YUV, int W, int H,
                           tag_StatPara& stat, unsigned char** planes,
                           int& rows, int& cols, int stride, int VL, int VH,
                           int rto, int TolL, int TolH, int DS);

// Block means of DS x DS (DS rounded down to even) over all eight planes.
SV_EXPORT void DownSample(unsigned char** planes, int& rows, int& cols,
                          int& stride, int DS);

// Tone-curve value at x as a + b * t, t the unknown value at knots[1].
SV_EXPORT void Tmapping(int* knots, float* vals, int x, float* a, float* b,
                        int& ok);

// Fits gains and tone curves from the eight region planes.
SV_EXPORT void optimize4GT(unsigned char** planes, int rows, int cols,
                           int stride, int* gain, int* tcurve, int nData,
                           float beta, int bdr, int bdh, float mgn);

#endif
