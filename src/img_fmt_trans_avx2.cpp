// AVX2 row pairs of the YUYV <-> 4:2:0 conversion: 32 pixels per step
// (two 32-byte packed loads per row), the rest by the portable rows. The
// byte shuffles work within 128-bit lanes; one cross-lane permute per
// result puts the lanes back in pixel order.
#include <immintrin.h>

#include "img_fmt_trans_kernels.h"

namespace svc {
namespace {

using Byte = unsigned char;

inline __m256i Load(const Byte* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
inline __m128i Load16(const Byte* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void Store(Byte* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
inline void Store16(Byte* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// Per lane, 8 packed pixels -> 8 lumas, then their 4 U, V pairs.
inline __m256i SplitLumaChroma(__m256i packed) {
    const __m256i order = _mm256_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15,
                                           0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15);
    return _mm256_shuffle_epi8(packed, order);
}

// Per lane, 8 packed pixels -> 8 lumas, then the 4 U, then the 4 V.
inline __m256i SplitPlanes(__m256i packed) {
    const __m256i order = _mm256_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 5, 9, 13, 3, 7, 11, 15,
                                           0, 2, 4, 6, 8, 10, 12, 14, 1, 5, 9, 13, 3, 7, 11, 15);
    return _mm256_shuffle_epi8(packed, order);
}

// 64-bit groups (a0 b0 | a1 b1) -> (a0 a1 | b0 b1): pixel order again.
inline __m256i InOrder(__m256i v) { return _mm256_permute4x64_epi64(v, 0xD8); }

inline __m256i Luma32(const Byte* packed) {
    return InOrder(_mm256_unpacklo_epi64(SplitLumaChroma(Load(packed)),
                                         SplitLumaChroma(Load(packed + 32))));
}

void PackedToNv12(const Byte* src0, const Byte* src1, Byte* y0, Byte* y1, Byte* uv, int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const __m256i a = SplitLumaChroma(Load(src0 + 2 * x));
        const __m256i b = SplitLumaChroma(Load(src0 + 2 * x + 32));
        Store(y0 + x, InOrder(_mm256_unpacklo_epi64(a, b)));
        Store(uv + x, InOrder(_mm256_unpackhi_epi64(a, b)));
        Store(y1 + x, Luma32(src1 + 2 * x));
    }
    if (x < width) PackedToNv12Scalar(src0 + 2 * x, src1 + 2 * x, y0 + x, y1 + x, uv + x, width - x);
}

void PackedToI420(const Byte* src0, const Byte* src1, Byte* y0, Byte* y1, Byte* u, Byte* v,
                  int width) {
    // 32-bit groups per lane (Ua Ub Va Vb): the four U groups first, in
    // pixel order, then the four V groups.
    const __m256i chromaOrder = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const __m256i a = SplitPlanes(Load(src0 + 2 * x));
        const __m256i b = SplitPlanes(Load(src0 + 2 * x + 32));
        Store(y0 + x, InOrder(_mm256_unpacklo_epi64(a, b)));
        const __m256i chroma = _mm256_permutevar8x32_epi32(_mm256_unpackhi_epi32(a, b), chromaOrder);
        Store16(u + x / 2, _mm256_castsi256_si128(chroma));
        Store16(v + x / 2, _mm256_extracti128_si256(chroma, 1));
        Store(y1 + x, Luma32(src1 + 2 * x));
    }
    if (x < width)
        PackedToI420Scalar(src0 + 2 * x, src1 + 2 * x, y0 + x, y1 + x, u + x / 2, v + x / 2,
                           width - x);
}

// 32 lumas and their 16 U, V pairs -> 64 packed bytes. Both come with
// their 64-bit groups swapped by InOrder (0 2 | 1 3, it is its own
// inverse), so that the in-lane unpacks yield the packed bytes in order.
inline void StorePacked(Byte* dst, __m256i luma, __m256i chroma) {
    Store(dst, _mm256_unpacklo_epi8(luma, chroma));
    Store(dst + 32, _mm256_unpackhi_epi8(luma, chroma));
}

void Nv12ToPacked(const Byte* y0, const Byte* y1, const Byte* uv, Byte* dst0, Byte* dst1,
                  int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const __m256i chroma = InOrder(Load(uv + x));
        StorePacked(dst0 + 2 * x, InOrder(Load(y0 + x)), chroma);
        StorePacked(dst1 + 2 * x, InOrder(Load(y1 + x)), chroma);
    }
    if (x < width) Nv12ToPackedScalar(y0 + x, y1 + x, uv + x, dst0 + 2 * x, dst1 + 2 * x, width - x);
}

void I420ToPacked(const Byte* y0, const Byte* y1, const Byte* u, const Byte* v, Byte* dst0,
                  Byte* dst1, int width) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        // U in the low byte of each 16-bit group, V in the high one: the
        // 16 pairs in pixel order.
        const __m256i pairs = _mm256_or_si256(_mm256_cvtepu8_epi16(Load16(u + x / 2)),
                                              _mm256_slli_epi16(_mm256_cvtepu8_epi16(Load16(v + x / 2)), 8));
        const __m256i chroma = InOrder(pairs);
        StorePacked(dst0 + 2 * x, InOrder(Load(y0 + x)), chroma);
        StorePacked(dst1 + 2 * x, InOrder(Load(y1 + x)), chroma);
    }
    if (x < width)
        I420ToPackedScalar(y0 + x, y1 + x, u + x / 2, v + x / 2, dst0 + 2 * x, dst1 + 2 * x,
                           width - x);
}

}  // namespace

const YuyvKernels kYuyvAvx2 = {PackedToNv12, PackedToI420, Nv12ToPacked, I420ToPacked};

}  // namespace svc
