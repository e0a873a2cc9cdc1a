// Output composition and the per-sample colour pipeline.
#ifndef PIPE_DATA_PROCESSING_H
#define PIPE_DATA_PROCESSING_H

#include "sv_types.h"

// Renders one output frame (NV12, OutW x OutH) from the four NV12 camera
// images through the control table's two mesh tables, correcting every
// sample with its camera's gains and tone curves. Returns 1.
SV_EXPORT int DataProcessing(unsigned char** YUV, int WidthIn, int HeightIn,
                             unsigned char* out, int OutW, int OutH,
                             tag_CtrlPara* para, int* gain, int* tcurve,
                             int step, int bits);

// 2 x 2 fixed-point interpolation: corners[top/bottom][left/right],
// fractions dx, dy in units of 2^-(shift + extra), arithmetic shifts.
SV_EXPORT int BilinearInterpolation(int corners[2][2], int dx, int dy,
                                    int shift, int extra);

// Per-channel Q10 gain, then a three-knot piecewise-linear tone curve.
SV_EXPORT void ToneMapping(int* gain, int* tcurve, int step, int& R, int& G,
                           int& B, int bits);

// Full-range YUV <-> RGB with weights scaled by 512.
SV_EXPORT void YUV2RGB(int Y, int U, int V, int& R, int& G, int& B,
                       int inBits, int outBits);
SV_EXPORT void RGB2YUV(int R, int G, int B, int& Y, int& U, int& V,
                       int inBits, int outBits);

#endif
