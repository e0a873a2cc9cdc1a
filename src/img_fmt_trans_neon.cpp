// NEON row pairs of the YUYV <-> 4:2:0 conversion. The structured loads
// and stores (de)interleave as they move: LD2 splits packed bytes into
// lumas and U, V pairs, LD4 into even lumas, U, odd lumas, V; ST2 and ST4
// interleave back. 16 pixels per step for NV12, 32 for I420; the rest by
// the portable rows.
#include <arm_neon.h>

#include "img_fmt_trans_kernels.h"

namespace svc {
namespace {

using Byte = unsigned char;

void PackedToNv12(const Byte* src0, const Byte* src1, Byte* y0, Byte* y1, Byte* uv, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8x16x2_t top = vld2q_u8(src0 + 2 * x);  // lumas, U V pairs
        vst1q_u8(y0 + x, top.val[0]);
        vst1q_u8(uv + x, top.val[1]);
        vst1q_u8(y1 + x, vld2q_u8(src1 + 2 * x).val[0]);
    }
    if (x < width) PackedToNv12Scalar(src0 + 2 * x, src1 + 2 * x, y0 + x, y1 + x, uv + x, width - x);
}

void PackedToI420(const Byte* src0, const Byte* src1, Byte* y0, Byte* y1, Byte* u, Byte* v,
                  int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const uint8x16x4_t top = vld4q_u8(src0 + 2 * x);  // even lumas, U, odd lumas, V
        const uint8x16x4_t bottom = vld4q_u8(src1 + 2 * x);
        uint8x16x2_t luma = {{top.val[0], top.val[2]}};
        vst2q_u8(y0 + x, luma);
        vst1q_u8(u + x / 2, top.val[1]);
        vst1q_u8(v + x / 2, top.val[3]);
        luma.val[0] = bottom.val[0];
        luma.val[1] = bottom.val[2];
        vst2q_u8(y1 + x, luma);
    }
    if (x < width)
        PackedToI420Scalar(src0 + 2 * x, src1 + 2 * x, y0 + x, y1 + x, u + x / 2, v + x / 2,
                           width - x);
}

void Nv12ToPacked(const Byte* y0, const Byte* y1, const Byte* uv, Byte* dst0, Byte* dst1,
                  int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        uint8x16x2_t packed = {{vld1q_u8(y0 + x), vld1q_u8(uv + x)}};
        vst2q_u8(dst0 + 2 * x, packed);
        packed.val[0] = vld1q_u8(y1 + x);
        vst2q_u8(dst1 + 2 * x, packed);
    }
    if (x < width) Nv12ToPackedScalar(y0 + x, y1 + x, uv + x, dst0 + 2 * x, dst1 + 2 * x, width - x);
}

void I420ToPacked(const Byte* y0, const Byte* y1, const Byte* u, const Byte* v, Byte* dst0,
                  Byte* dst1, int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const uint8x16x2_t top = vld2q_u8(y0 + x), bottom = vld2q_u8(y1 + x);  // even, odd lumas
        const uint8x16_t cu = vld1q_u8(u + x / 2), cv = vld1q_u8(v + x / 2);
        uint8x16x4_t packed = {{top.val[0], cu, top.val[1], cv}};
        vst4q_u8(dst0 + 2 * x, packed);
        packed.val[0] = bottom.val[0];
        packed.val[2] = bottom.val[1];
        vst4q_u8(dst1 + 2 * x, packed);
    }
    if (x < width)
        I420ToPackedScalar(y0 + x, y1 + x, u + x / 2, v + x / 2, dst0 + 2 * x, dst1 + 2 * x,
                           width - x);
}

}  // namespace

const YuyvKernels kYuyvNeon = {PackedToNv12, PackedToI420, Nv12ToPacked, I420ToPacked};

}  // namespace svc
