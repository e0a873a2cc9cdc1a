// The plain calibration, sample by sample, that the library's planned
// statistics and fit must match byte for byte.
#ifndef TESTS_COMMON_CALIB_REFERENCE_H
#define TESTS_COMMON_CALIB_REFERENCE_H

#include "sv_types.h"

namespace svtest {

// Same arguments and effects as GetStatData, DownSample, optimize4GT and
// CalibGT.
void RefGetStatData(unsigned char** YUV, int W, int H, tag_StatPara& stat,
                    unsigned char** planes, int& rows, int& cols, int stride,
                    int VL, int VH, int rto, int TolL, int TolH, int DS);
void RefDownSample(unsigned char** planes, int& rows, int& cols, int& stride,
                   int DS);
void RefOptimize4GT(unsigned char** planes, int rows, int cols, int stride,
                    int* gain, int* tcurve, int nData, float beta, int bdr,
                    int bdh, float mgn);
void RefCalibGT(unsigned char** YUV, int W, int H, tag_StatPara& stat,
                int* gain, int* tcurve, int VL, int VH, int rto, int TolL,
                int TolH, int DS, int nData, float beta, int bdr, int bdh,
                float mgn);

}  // namespace svtest

#endif
