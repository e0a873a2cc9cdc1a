// SSE4.1 row pairs of the YUYV <-> 4:2:0 conversion: 16 pixels per step
// (two 16-byte packed loads per row), the rest by the portable rows.
#include <immintrin.h>

#include "img_fmt_trans_kernels.h"

namespace svc {
namespace {

using Byte = unsigned char;

inline __m128i Load(const Byte* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void Store(Byte* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
inline void Store8(Byte* p, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }

// 8 packed pixels -> their 8 lumas in the low half, the 4 U, V pairs in the
// high half.
inline __m128i SplitLumaChroma(__m128i packed) {
    const __m128i order = _mm_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15);
    return _mm_shuffle_epi8(packed, order);
}

// 8 packed pixels -> 8 lumas, then the 4 U, then the 4 V.
inline __m128i SplitPlanes(__m128i packed) {
    const __m128i order = _mm_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 5, 9, 13, 3, 7, 11, 15);
    return _mm_shuffle_epi8(packed, order);
}

inline __m128i Luma16(const Byte* packed) {
    return _mm_unpacklo_epi64(SplitLumaChroma(Load(packed)), SplitLumaChroma(Load(packed + 16)));
}

void PackedToNv12(const Byte* src0, const Byte* src1, Byte* y0, Byte* y1, Byte* uv, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i a = SplitLumaChroma(Load(src0 + 2 * x));
        const __m128i b = SplitLumaChroma(Load(src0 + 2 * x + 16));
        Store(y0 + x, _mm_unpacklo_epi64(a, b));
        Store(uv + x, _mm_unpackhi_epi64(a, b));
        Store(y1 + x, Luma16(src1 + 2 * x));
    }
    if (x < width) PackedToNv12Scalar(src0 + 2 * x, src1 + 2 * x, y0 + x, y1 + x, uv + x, width - x);
}

void PackedToI420(const Byte* src0, const Byte* src1, Byte* y0, Byte* y1, Byte* u, Byte* v,
                  int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i a = SplitPlanes(Load(src0 + 2 * x));
        const __m128i b = SplitPlanes(Load(src0 + 2 * x + 16));
        Store(y0 + x, _mm_unpacklo_epi64(a, b));
        const __m128i chroma = _mm_unpackhi_epi32(a, b);  // U of a, U of b, V of a, V of b
        Store8(u + x / 2, chroma);
        Store8(v + x / 2, _mm_unpackhi_epi64(chroma, chroma));
        Store(y1 + x, Luma16(src1 + 2 * x));
    }
    if (x < width)
        PackedToI420Scalar(src0 + 2 * x, src1 + 2 * x, y0 + x, y1 + x, u + x / 2, v + x / 2,
                           width - x);
}

// 16 lumas and their 8 U, V pairs -> 32 packed bytes.
inline void StorePacked(Byte* dst, __m128i luma, __m128i chroma) {
    Store(dst, _mm_unpacklo_epi8(luma, chroma));
    Store(dst + 16, _mm_unpackhi_epi8(luma, chroma));
}

void Nv12ToPacked(const Byte* y0, const Byte* y1, const Byte* uv, Byte* dst0, Byte* dst1,
                  int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i chroma = Load(uv + x);
        StorePacked(dst0 + 2 * x, Load(y0 + x), chroma);
        StorePacked(dst1 + 2 * x, Load(y1 + x), chroma);
    }
    if (x < width) Nv12ToPackedScalar(y0 + x, y1 + x, uv + x, dst0 + 2 * x, dst1 + 2 * x, width - x);
}

void I420ToPacked(const Byte* y0, const Byte* y1, const Byte* u, const Byte* v, Byte* dst0,
                  Byte* dst1, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i chroma =
            _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(u + x / 2)),
                              _mm_loadl_epi64(reinterpret_cast<const __m128i*>(v + x / 2)));
        StorePacked(dst0 + 2 * x, Load(y0 + x), chroma);
        StorePacked(dst1 + 2 * x, Load(y1 + x), chroma);
    }
    if (x < width)
        I420ToPackedScalar(y0 + x, y1 + x, u + x / 2, v + x / 2, dst0 + 2 * x, dst1 + 2 * x,
                           width - x);
}

}  // namespace

const YuyvKernels kYuyvSse41 = {PackedToNv12, PackedToI420, Nv12ToPacked, I420ToPacked};

}  // namespace svc
