// Portable row pairs of the YUYV <-> 4:2:0 conversion: two pixels (four
// packed bytes Y0 U Y1 V) per step.
#include "img_fmt_trans_kernels.h"

namespace svc {

using Byte = unsigned char;

void PackedToNv12Scalar(const Byte* __restrict src0, const Byte* __restrict src1,
                        Byte* __restrict y0, Byte* __restrict y1, Byte* __restrict uv,
                        int width) {
    for (int x = 0; x < width; x += 2) {
        y0[x] = src0[2 * x];
        uv[x] = src0[2 * x + 1];
        y0[x + 1] = src0[2 * x + 2];
        uv[x + 1] = src0[2 * x + 3];
        y1[x] = src1[2 * x];
        y1[x + 1] = src1[2 * x + 2];
    }
}

void PackedToI420Scalar(const Byte* __restrict src0, const Byte* __restrict src1,
                        Byte* __restrict y0, Byte* __restrict y1, Byte* __restrict u,
                        Byte* __restrict v, int width) {
    for (int x = 0; x < width; x += 2) {
        y0[x] = src0[2 * x];
        u[x / 2] = src0[2 * x + 1];
        y0[x + 1] = src0[2 * x + 2];
        v[x / 2] = src0[2 * x + 3];
        y1[x] = src1[2 * x];
        y1[x + 1] = src1[2 * x + 2];
    }
}

void Nv12ToPackedScalar(const Byte* __restrict y0, const Byte* __restrict y1,
                        const Byte* __restrict uv, Byte* __restrict dst0,
                        Byte* __restrict dst1, int width) {
    for (int x = 0; x < width; x += 2) {
        dst0[2 * x] = y0[x];
        dst0[2 * x + 1] = uv[x];
        dst0[2 * x + 2] = y0[x + 1];
        dst0[2 * x + 3] = uv[x + 1];
        dst1[2 * x] = y1[x];
        dst1[2 * x + 1] = uv[x];
        dst1[2 * x + 2] = y1[x + 1];
        dst1[2 * x + 3] = uv[x + 1];
    }
}

void I420ToPackedScalar(const Byte* __restrict y0, const Byte* __restrict y1,
                        const Byte* __restrict u, const Byte* __restrict v,
                        Byte* __restrict dst0, Byte* __restrict dst1, int width) {
    for (int x = 0; x < width; x += 2) {
        dst0[2 * x] = y0[x];
        dst0[2 * x + 1] = u[x / 2];
        dst0[2 * x + 2] = y0[x + 1];
        dst0[2 * x + 3] = v[x / 2];
        dst1[2 * x] = y1[x];
        dst1[2 * x + 1] = u[x / 2];
        dst1[2 * x + 2] = y1[x + 1];
        dst1[2 * x + 3] = v[x / 2];
    }
}

const YuyvKernels kYuyvScalar = {PackedToNv12Scalar, PackedToI420Scalar,
                                 Nv12ToPackedScalar, I420ToPackedScalar};

}  // namespace svc
