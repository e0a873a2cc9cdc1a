// Camera frame layout conversion: packed YUYV <-> 4:2:0 (I420 or NV12).
#ifndef IMG_FMT_TRANS_H
#define IMG_FMT_TRANS_H

#include "sv_export.h"

// Layout codes: 0 planar I420, 1 semi-planar NV12 (interleaved U,V),
// 3 packed YUYV (Y0 U Y1 V). Handled pairs: (3,1) (3,0) (1,3) (0,3);
// any other pair leaves the destination untouched.
SV_EXPORT void YUYV_I420(char* src, char* dst, int width, int height,
                         int srcCode, int dstCode);

#endif
