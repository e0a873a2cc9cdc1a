// Row-pair kernels of the YUYV <-> 4:2:0 conversion, one table per
// instruction set; dispatch.cpp picks the table in force.
//
// A call converts one pair of image rows; `width` is the pixel count of a
// row, even and positive. Packed rows hold 2 x width bytes, luma rows width
// bytes, an NV12 chroma row width bytes (U, V pairs), I420 chroma rows
// width / 2 bytes each. The 4:2:0 chroma of a pair is the first packed
// row's, copied (vertical decimation); going back to packed, both rows carry
// it. Source and destination rows must not overlap.
#ifndef IMG_FMT_TRANS_KERNELS_H
#define IMG_FMT_TRANS_KERNELS_H

namespace svc {

struct YuyvKernels {
    void (*packed_to_nv12)(const unsigned char* src0, const unsigned char* src1,
                           unsigned char* y0, unsigned char* y1, unsigned char* uv,
                           int width);
    void (*packed_to_i420)(const unsigned char* src0, const unsigned char* src1,
                           unsigned char* y0, unsigned char* y1, unsigned char* u,
                           unsigned char* v, int width);
    void (*nv12_to_packed)(const unsigned char* y0, const unsigned char* y1,
                           const unsigned char* uv, unsigned char* dst0,
                           unsigned char* dst1, int width);
    void (*i420_to_packed)(const unsigned char* y0, const unsigned char* y1,
                           const unsigned char* u, const unsigned char* v,
                           unsigned char* dst0, unsigned char* dst1, int width);
};

extern const YuyvKernels kYuyvScalar, kYuyvSse41, kYuyvAvx2, kYuyvNeon;

// The portable rows: kYuyvScalar, and the tails the vector variants leave
// (called with pointers advanced past the vector body).
void PackedToNv12Scalar(const unsigned char* src0, const unsigned char* src1,
                        unsigned char* y0, unsigned char* y1, unsigned char* uv, int width);
void PackedToI420Scalar(const unsigned char* src0, const unsigned char* src1,
                        unsigned char* y0, unsigned char* y1, unsigned char* u,
                        unsigned char* v, int width);
void Nv12ToPackedScalar(const unsigned char* y0, const unsigned char* y1,
                        const unsigned char* uv, unsigned char* dst0, unsigned char* dst1,
                        int width);
void I420ToPackedScalar(const unsigned char* y0, const unsigned char* y1,
                        const unsigned char* u, const unsigned char* v, unsigned char* dst0,
                        unsigned char* dst1, int width);

// The table for the instruction set in force (src/simd/dispatch.cpp).
const YuyvKernels& YuyvKernelsInUse();

}  // namespace svc

#endif
