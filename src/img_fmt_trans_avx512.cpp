// AVX-512 (VBMI) row pairs of the YUYV <-> 4:2:0 conversion: 64 pixels per
// step, the rest by the portable rows. vpermt2b picks any 64 of the 128
// bytes of two registers, so each result is one permute of two loads.
#include <immintrin.h>

#include "img_fmt_trans_kernels.h"

namespace svc {
namespace {

using Byte = unsigned char;

inline __m512i Load(const Byte* p) { return _mm512_loadu_si512(p); }
inline void Store(Byte* p, __m512i v) { _mm512_storeu_si512(p, v); }
// 32 bytes to or from the low half. (The masked forms spare GCC 12 its
// false "uninitialized" warnings about the plain 256-bit casts.)
inline __m512i Load32(const Byte* p) { return _mm512_maskz_loadu_epi8(0xFFFFFFFFu, p); }
inline void Store32(Byte* p, __m512i v) { _mm512_mask_storeu_epi8(p, 0xFFFFFFFFu, v); }

// Byte indices into the 128 bytes of two registers a (0..63), b (64..127).
struct Index {
    alignas(64) Byte at[64];
};

enum class Pick { kLuma, kChroma, kUThenV, kNv12Low, kNv12High, kI420Low, kI420High };

// For packed pixels in a, b: lumas (even bytes), U, V pairs (odd bytes), or
// the 32 U then the 32 V. For lumas in a and chroma in b (64 U, V pairs for
// NV12; 32 U then 32 V for I420): the first or second 64 packed bytes.
constexpr Index MakeIndex(Pick pick) {
    Index idx{};
    for (int i = 0; i < 64; ++i) {
        const int j = i + ((pick == Pick::kNv12High || pick == Pick::kI420High) ? 64 : 0);
        int from = 0;
        switch (pick) {
            case Pick::kLuma: from = 2 * i; break;
            case Pick::kChroma: from = 2 * i + 1; break;
            case Pick::kUThenV: from = i < 32 ? 4 * i + 1 : 4 * (i - 32) + 3; break;
            case Pick::kNv12Low:
            case Pick::kNv12High: from = j % 2 == 0 ? j / 2 : 64 + j / 2; break;
            case Pick::kI420Low:
            case Pick::kI420High:
                from = j % 2 == 0 ? j / 2 : (j % 4 == 1 ? 64 : 96) + j / 4;
                break;
        }
        idx.at[i] = static_cast<Byte>(from);
    }
    return idx;
}

constexpr Index kLuma = MakeIndex(Pick::kLuma);
constexpr Index kChroma = MakeIndex(Pick::kChroma);
constexpr Index kUThenV = MakeIndex(Pick::kUThenV);
constexpr Index kNv12Low = MakeIndex(Pick::kNv12Low);
constexpr Index kNv12High = MakeIndex(Pick::kNv12High);
constexpr Index kI420Low = MakeIndex(Pick::kI420Low);
constexpr Index kI420High = MakeIndex(Pick::kI420High);

inline __m512i Indices(const Index& idx) { return _mm512_load_si512(idx.at); }

inline __m512i Pick2(const Byte* p, __m512i idx) {
    return _mm512_permutex2var_epi8(Load(p), idx, Load(p + 64));
}

void PackedToNv12(const Byte* src0, const Byte* src1, Byte* y0, Byte* y1, Byte* uv, int width) {
    const __m512i luma = Indices(kLuma), chroma = Indices(kChroma);
    int x = 0;
    for (; x + 64 <= width; x += 64) {
        const __m512i a = Load(src0 + 2 * x), b = Load(src0 + 2 * x + 64);
        Store(y0 + x, _mm512_permutex2var_epi8(a, luma, b));
        Store(uv + x, _mm512_permutex2var_epi8(a, chroma, b));
        Store(y1 + x, Pick2(src1 + 2 * x, luma));
    }
    if (x < width) PackedToNv12Scalar(src0 + 2 * x, src1 + 2 * x, y0 + x, y1 + x, uv + x, width - x);
}

void PackedToI420(const Byte* src0, const Byte* src1, Byte* y0, Byte* y1, Byte* u, Byte* v,
                  int width) {
    const __m512i luma = Indices(kLuma), planes = Indices(kUThenV);
    int x = 0;
    for (; x + 64 <= width; x += 64) {
        const __m512i a = Load(src0 + 2 * x), b = Load(src0 + 2 * x + 64);
        Store(y0 + x, _mm512_permutex2var_epi8(a, luma, b));
        const __m512i chroma = _mm512_permutex2var_epi8(a, planes, b);
        Store32(u + x / 2, chroma);
        Store32(v + x / 2, _mm512_maskz_shuffle_i64x2(0xFF, chroma, chroma, _MM_SHUFFLE(3, 2, 3, 2)));
        Store(y1 + x, Pick2(src1 + 2 * x, luma));
    }
    if (x < width)
        PackedToI420Scalar(src0 + 2 * x, src1 + 2 * x, y0 + x, y1 + x, u + x / 2, v + x / 2,
                           width - x);
}

// 64 lumas and the chroma laid out as `low`, `high` expect -> 128 packed bytes.
inline void StorePacked(Byte* dst, __m512i luma, __m512i chroma, __m512i low, __m512i high) {
    Store(dst, _mm512_permutex2var_epi8(luma, low, chroma));
    Store(dst + 64, _mm512_permutex2var_epi8(luma, high, chroma));
}

void Nv12ToPacked(const Byte* y0, const Byte* y1, const Byte* uv, Byte* dst0, Byte* dst1,
                  int width) {
    const __m512i low = Indices(kNv12Low), high = Indices(kNv12High);
    int x = 0;
    for (; x + 64 <= width; x += 64) {
        const __m512i chroma = Load(uv + x);
        StorePacked(dst0 + 2 * x, Load(y0 + x), chroma, low, high);
        StorePacked(dst1 + 2 * x, Load(y1 + x), chroma, low, high);
    }
    if (x < width) Nv12ToPackedScalar(y0 + x, y1 + x, uv + x, dst0 + 2 * x, dst1 + 2 * x, width - x);
}

void I420ToPacked(const Byte* y0, const Byte* y1, const Byte* u, const Byte* v, Byte* dst0,
                  Byte* dst1, int width) {
    const __m512i low = Indices(kI420Low), high = Indices(kI420High);
    int x = 0;
    for (; x + 64 <= width; x += 64) {
        const __m512i chroma = _mm512_maskz_shuffle_i64x2(0xFF, Load32(u + x / 2), Load32(v + x / 2),
                                                          _MM_SHUFFLE(1, 0, 1, 0));  // U then V
        StorePacked(dst0 + 2 * x, Load(y0 + x), chroma, low, high);
        StorePacked(dst1 + 2 * x, Load(y1 + x), chroma, low, high);
    }
    if (x < width)
        I420ToPackedScalar(y0 + x, y1 + x, u + x / 2, v + x / 2, dst0 + 2 * x, dst1 + 2 * x,
                           width - x);
}

}  // namespace

const YuyvKernels kYuyvAvx512 = {PackedToNv12, PackedToI420, Nv12ToPacked, I420ToPacked};

}  // namespace svc
