// Camera frame layout conversion: packed YUYV <-> 4:2:0 (I420 or NV12).
#ifndef IMG_FMT_TRANS_H
#define IMG_FMT_TRANS_H

#include <cstddef>

#include "sv_export.h"

// Layout codes: 0 planar I420, 1 semi-planar NV12 (interleaved U,V),
// 3 packed YUYV (Y0 U Y1 V). Handled pairs: (3,1) (3,0) (1,3) (0,3);
// any other pair leaves the destination untouched.
SV_EXPORT void YUYV_I420(char* src, char* dst, int width, int height,
                         int srcCode, int dstCode);

namespace svc {

// The (3,1) conversion of YUYV_I420 restricted to the row pairs in
// [row_begin, row_end) of a width x height image: packed rows in, their luma
// rows and chroma rows out, at the places they have in the whole frame's
// NV12 image (dst points at that image's start). Bands that tile 0..height
// give exactly the whole-frame result, so threads may share one frame.
// row_begin and row_end must be even with 0 <= row_begin <= row_end <=
// height; otherwise, or for a size YUYV_I420 refuses, it prints an error
// and writes nothing.
SV_EXPORT void ConvertYuyvToNv12Rows(const unsigned char* src, unsigned char* dst, int width,
                                     int height, int row_begin, int row_end);

// The same from packed rows that lie src_stride bytes apart (at least
// 2 x width: a host's buffer may pad its rows). The NV12 image stays
// contiguous.
SV_EXPORT void ConvertYuyvToNv12RowsStrided(const unsigned char* src, std::ptrdiff_t src_stride,
                                            unsigned char* dst, int width, int height,
                                            int row_begin, int row_end);

}  // namespace svc

#endif
