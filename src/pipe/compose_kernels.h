// Library-internal: the row kernels of the planned composition.
//
// A source position is packed as sx | sy << 16, both in 1/16 camera pixel
// (cameras up to 4096 pixels); the plan stores only positions that sample
// inside the camera's interior, so kernels never test bounds. Chroma pairs
// travel as two bytes U, V, the layout of an NV12 chroma row; a pair's
// index is its even column / 2.
#ifndef PIPE_COMPOSE_KERNELS_H
#define PIPE_COMPOSE_KERNELS_H

#include <cstdint>

namespace svc {

// Per camera: R, G and B tables, each the gain and tone curve applied to an
// 8-bit level; kLutPad spare bytes let 32-bit gathers read past the last
// entry.
const int kLutPad = 4;
struct ColourLut {
    unsigned char rgb[4][3][256];
    unsigned char pad[kLutPad];
};

struct ComposeKernels {
    // y[i] = bilinear luma of img (row stride w) at pos[i].
    void (*sample_luma)(const uint32_t* pos, int n, const unsigned char* img, int w,
                        unsigned char* y);
    // uv[2i], uv[2i + 1] = bilinear U, V at pos[2i] (the even columns of a
    // run); img is the camera image, its chroma plane after w * h luma bytes.
    void (*sample_chroma)(const uint32_t* pos, int pairs, const unsigned char* img, int w,
                          int h, unsigned char* uv);
    // Colour correction of n pixels, pixel 0 on an even column: y[i] with
    // the pair uv[2 (i / 2)], through one camera's tables (lut = 3 x 256).
    // Writes y_out[i] and, when uv_out is not null, the corrected pair of
    // each even pixel at uv_out[i], uv_out[i + 1].
    void (*correct)(const unsigned char* y, const unsigned char* uv, int n,
                    const unsigned char* lut, unsigned char* y_out, unsigned char* uv_out);
    // out[i] = low 8 bits of (a[i] * w0 + b[i] * w1) >> 8 with w[i] = w0 & 0xffff | w1 << 16
    // (signed 16-bit weights), step = 1 for luma; for chroma pairs step = 2:
    // out[2i], out[2i + 1] from a, b at 2i, 2i + 1 weighted by w[2i].
    void (*blend)(const unsigned char* a, const unsigned char* b, const uint32_t* w, int n,
                  unsigned char* out);
    void (*blend_pairs)(const unsigned char* a, const unsigned char* b, const uint32_t* w,
                        int pairs, unsigned char* out);
};

extern const ComposeKernels kComposeScalar;
extern const ComposeKernels kComposeSse41;
extern const ComposeKernels kComposeAvx2;
extern const ComposeKernels kComposeAvx512;
extern const ComposeKernels kComposeNeon;

// The table for the instruction set in force (simd/dispatch.cpp).
const ComposeKernels& ComposeKernelsActive();

}  // namespace svc

#endif
