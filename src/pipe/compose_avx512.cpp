// AVX-512 row kernels of the planned composition (F, BW, VL, VBMI):
// sixteen samples per gather, the colour tables held in registers and read
// with byte permutes, tails under masks instead of scalar loops.
// GCC 12 reports its own undefined-vector placeholders inside the AVX-512
// conversion intrinsics as maybe-uninitialized.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#include <immintrin.h>

#include "pipe/compose_kernels.h"

namespace svc {
namespace {

inline __m512i Lane(int x) { return _mm512_set1_epi32(x); }

// The first n of 16 lanes.
inline __mmask16 First16(int n) {
    return n >= 16 ? 0xffff : n <= 0 ? 0 : static_cast<__mmask16>((1u << n) - 1);
}
inline __mmask32 First32(int n) { return n >= 32 ? 0xffffffffu : n <= 0 ? 0 : (1u << n) - 1; }

// Loads and stores of a block: plain for whole blocks, masked only for the
// tail. Masked loads in the main loop cost this CPU more than the gathers.
template <bool kTail>
inline __m512i Load32x16(const void* p, __mmask16 m) {
    return kTail ? _mm512_maskz_loadu_epi32(m, p) : _mm512_loadu_si512(p);
}
template <bool kTail>
inline __m128i Load8x16(const void* p, __mmask16 m) {
    return kTail ? _mm_maskz_loadu_epi8(m, p) : _mm_loadu_si128(static_cast<const __m128i*>(p));
}
template <bool kTail>
inline __m256i Load8x32(const void* p, __mmask32 m) {
    return kTail ? _mm256_maskz_loadu_epi8(m, p) : _mm256_loadu_si256(static_cast<const __m256i*>(p));
}
template <bool kTail>
inline void Store8x16(void* p, __mmask16 m, __m128i v) {
    if (kTail)
        _mm_mask_storeu_epi8(p, m, v);
    else
        _mm_storeu_si128(static_cast<__m128i*>(p), v);
}
template <bool kTail>
inline void Store8x32(void* p, __mmask32 m, __m256i v) {
    if (kTail)
        _mm256_mask_storeu_epi8(p, m, v);
    else
        _mm256_storeu_si256(static_cast<__m256i*>(p), v);
}
template <bool kTail>
inline void Store16x16(void* p, __mmask16 m, __m256i v) {
    if (kTail)
        _mm256_mask_storeu_epi16(p, m, v);
    else
        _mm256_storeu_si256(static_cast<__m256i*>(p), v);
}
template <bool kTail>
inline __m512i Gather(__m512i at, const void* base, __mmask16 m) {
    return kTail ? _mm512_mask_i32gather_epi32(_mm512_setzero_si512(), m, at, base, 1)
                 : _mm512_i32gather_epi32(at, base, 1);
}

// a + ((b - a) * f >> s), lanes 32-bit, arithmetic shift.
inline __m512i Lerp(__m512i a, __m512i b, __m512i f, int s) {
    return _mm512_add_epi32(a, _mm512_srai_epi32(_mm512_mullo_epi32(_mm512_sub_epi32(b, a), f), s));
}

inline __m512i Byte(__m512i v, int k) { return _mm512_and_si512(_mm512_srli_epi32(v, 8 * k), Lane(255)); }

template <bool kTail>
inline void LumaBlock(const uint32_t* pos, __mmask16 m, const unsigned char* img, int w, unsigned char* y) {
    const __m512i v = Load32x16<kTail>(pos, m);
    const __m512i sx = _mm512_and_si512(v, Lane(0xffff)), sy = _mm512_srli_epi32(v, 16);
    const __m512i at = _mm512_add_epi32(_mm512_mullo_epi32(_mm512_srli_epi32(sy, 4), Lane(w)),
                                        _mm512_srli_epi32(sx, 4));
    const __m512i ex = _mm512_and_si512(sx, Lane(15)), ey = _mm512_and_si512(sy, Lane(15));
    // Four bytes from each of the two rows; the first two are the samples.
    const __m512i g0 = Gather<kTail>(at, img, m);
    const __m512i g1 = Gather<kTail>(at, img + w, m);
    const __m512i top = Lerp(Byte(g0, 0), Byte(g0, 1), ex, 4);
    const __m512i bottom = Lerp(Byte(g1, 0), Byte(g1, 1), ex, 4);
    Store8x16<kTail>(y, m, _mm512_cvtepi32_epi8(Lerp(top, bottom, ey, 4)));
}

void SampleLuma(const uint32_t* pos, int n, const unsigned char* img, int w, unsigned char* y) {
    int i = 0;
    for (; i + 16 <= n; i += 16) LumaBlock<false>(pos + i, 0xffff, img, w, y + i);
    if (i < n) LumaBlock<true>(pos + i, First16(n - i), img, w, y + i);
}

template <bool kTail>
inline void ChromaBlock(const uint32_t* pos, int pairs, const unsigned char* plane, int w, int h,
                        unsigned char* uv) {
    const __mmask16 m = First16(pairs);
    // Pair k's position is pos[2k]; the last pair's odd neighbour may not
    // exist. A whole block reads its second half one position early, a
    // tail only what its pairs need.
    const __m512i evens = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
    const __m512i early = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 17, 19, 21, 23, 25, 27, 29, 31);
    const int need = 2 * pairs - 1;
    const __m512i a = Load32x16<kTail>(pos, First16(need));
    const __m512i v = kTail ? _mm512_permutex2var_epi32(a, evens, Load32x16<kTail>(pos + 16, First16(need - 16)))
                            : _mm512_permutex2var_epi32(a, early, _mm512_loadu_si512(pos + 15));
    const __m512i sx = _mm512_and_si512(v, Lane(0xffff)), sy = _mm512_srli_epi32(v, 16);
    const __m512i px = _mm512_srli_epi32(sx, 4), py = _mm512_srli_epi32(sy, 4);
    // A chroma sample sits on the even luma sample: fractions in 1/32.
    const __m512i ex = _mm512_add_epi32(_mm512_and_si512(sx, Lane(15)),
                                        _mm512_slli_epi32(_mm512_and_si512(px, Lane(1)), 4));
    const __m512i ey = _mm512_add_epi32(_mm512_and_si512(sy, Lane(15)),
                                        _mm512_slli_epi32(_mm512_and_si512(py, Lane(1)), 4));
    // The last interior column and row use their chroma sample twice; there
    // the four bytes come from the pair before, so that no read passes the
    // end of the row.
    const __mmask16 last_x = _mm512_cmpgt_epi32_mask(px, Lane(w - 3));
    const __m512i dy = _mm512_maskz_mov_epi32(_mm512_cmple_epi32_mask(py, Lane(h - 3)), Lane(w));
    const __m512i cell = _mm512_add_epi32(_mm512_mullo_epi32(_mm512_srli_epi32(py, 1), Lane(w)),
                                          _mm512_slli_epi32(_mm512_srli_epi32(px, 1), 1));
    const __m512i at = _mm512_mask_sub_epi32(cell, last_x, cell, Lane(2));
    const __m512i g0 = Gather<kTail>(at, plane, m);
    const __m512i g1 = Gather<kTail>(_mm512_add_epi32(at, dy), plane, m);
    __m512i out[2];
    for (int c = 0; c < 2; ++c) {
        const __m512i l0 = _mm512_mask_mov_epi32(Byte(g0, c), last_x, Byte(g0, 2 + c));
        const __m512i l1 = _mm512_mask_mov_epi32(Byte(g1, c), last_x, Byte(g1, 2 + c));
        out[c] = Lerp(Lerp(l0, Byte(g0, 2 + c), ex, 5), Lerp(l1, Byte(g1, 2 + c), ex, 5), ey, 5);
    }
    // U | V << 8 per lane: sixteen pairs as 32 bytes U, V, U, V ...
    Store16x16<kTail>(uv, m, _mm512_cvtepi32_epi16(_mm512_or_si512(out[0], _mm512_slli_epi32(out[1], 8))));
}

void SampleChroma(const uint32_t* pos, int pairs, const unsigned char* img, int w, int h,
                  unsigned char* uv) {
    const unsigned char* plane = img + w * h;
    int i = 0;
    for (; i + 16 <= pairs; i += 16) ChromaBlock<false>(pos + 2 * i, 16, plane, w, h, uv + 2 * i);
    if (i < pairs) ChromaBlock<true>(pos + 2 * i, pairs - i, plane, w, h, uv + 2 * i);
}

// Colour tables of one channel: 256 bytes in four registers, read with two
// two-register permutes and a choice on the index's top bit.
struct Table {
    __m512i q[4];
    explicit Table(const unsigned char* t) {
        for (int k = 0; k < 4; ++k) q[k] = _mm512_loadu_si512(t + 64 * k);
    }
    __m512i operator()(__m512i idx) const {
        const __m512i lo = _mm512_permutex2var_epi8(q[0], idx, q[1]);
        const __m512i hi = _mm512_permutex2var_epi8(q[2], idx, q[3]);
        return _mm512_mask_blend_epi8(_mm512_movepi8_mask(idx), lo, hi);
    }
};

// Two 16-bit weights per 32-bit lane, low then high.
inline __m512i Weights(int lo, int hi) {
    return Lane(static_cast<int>((lo & 0xffff) | (static_cast<unsigned>(hi) << 16)));
}

// (x + 256 - (x < 0)) >> 9 recentred on 128 and capped at 255: division by
// 512 rounding half away from zero.
inline __m512i Chroma(__m512i x) {
    const __m512i q = _mm512_srai_epi32(_mm512_add_epi32(_mm512_add_epi32(x, Lane(256)), _mm512_srai_epi32(x, 31)), 9);
    return _mm512_min_epi32(_mm512_add_epi32(q, Lane(128)), Lane(255));
}

// Sixteen pixels' channel bytes (lanes 0..15 of r, g, b) as 32-bit lanes
// r | g << 16 and b | 1 << 16, ready for the weighted sums.
struct Rgb16 {
    __m512i rg, b1;
    Rgb16(__m128i r, __m128i g, __m128i b)
        : rg(_mm512_or_si512(_mm512_cvtepu8_epi32(r), _mm512_slli_epi32(_mm512_cvtepu8_epi32(g), 16))),
          b1(_mm512_or_si512(_mm512_cvtepu8_epi32(b), Lane(1 << 16))) {}
    __m512i Sum(int cr, int cg, int cb, int one) const {
        return _mm512_add_epi32(_mm512_madd_epi16(rg, Weights(cr, cg)), _mm512_madd_epi16(b1, Weights(cb, one)));
    }
};

// Thirty-two pixels from an even column.
template <bool kTail>
inline void CorrectBlock(const unsigned char* y, const unsigned char* uv, int n, const Table table[3],
                         unsigned char* y_out, unsigned char* uv_out) {
    const __m512i evens = _mm512_set_epi8(
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 30, 28, 26, 24, 22, 20, 18, 16, 14, 12, 10, 8, 6, 4, 2, 0);
    const int coef[3][2] = {{0, 718}, {-176, -366}, {907, 1}};
    const __mmask32 m = First32(n);
    const int pairs = (n + 1) / 2;
    const __m512i Y = _mm512_cvtepu8_epi16(Load8x32<kTail>(y, m));
    // Sixteen pairs (U - 128, V - 128) as signed 16-bit halves of 32-bit lanes.
    const __m512i c = _mm512_sub_epi16(_mm512_cvtepu8_epi16(Load8x32<kTail>(uv, First32(2 * pairs))),
                                       _mm512_set1_epi16(128));
    const __mmask32 black = _mm512_cmpeq_epi16_mask(Y, _mm512_setzero_si512());
    __m512i rgb[3];
    for (int ch = 0; ch < 3; ++ch) {
        // The pair's whole-level offset, in both 16-bit halves: one per pixel.
        const __m512i off = _mm512_srai_epi32(
            _mm512_add_epi32(_mm512_madd_epi16(c, Weights(coef[ch][0], coef[ch][1])), Lane(256)), 9);
        const __m512i both = _mm512_or_si512(_mm512_and_si512(off, Lane(0xffff)), _mm512_slli_epi32(off, 16));
        // Clamped to 0..255; black luma stays black whatever the chroma says.
        const __m256i idx = _mm512_cvtusepi16_epi8(_mm512_max_epi16(_mm512_add_epi16(Y, both), _mm512_setzero_si512()));
        rgb[ch] = table[ch](_mm512_castsi256_si512(_mm256_maskz_mov_epi8(~black, idx)));
    }
    // (153 R + 301 G + 58 B + 256) >> 9 in 16-bit lanes: the sum less
    // 256 (G + 1) stays below 2^16, and the dropped low byte cannot carry.
    const __m512i r = _mm512_cvtepu8_epi16(_mm512_castsi512_si256(rgb[0]));
    const __m512i g = _mm512_cvtepu8_epi16(_mm512_castsi512_si256(rgb[1]));
    const __m512i b = _mm512_cvtepu8_epi16(_mm512_castsi512_si256(rgb[2]));
    const __m512i part = _mm512_add_epi16(_mm512_add_epi16(_mm512_mullo_epi16(r, _mm512_set1_epi16(153)),
                                                           _mm512_mullo_epi16(g, _mm512_set1_epi16(45))),
                                          _mm512_mullo_epi16(b, _mm512_set1_epi16(58)));
    const __m512i luma = _mm512_srli_epi16(
        _mm512_add_epi16(_mm512_add_epi16(_mm512_srli_epi16(part, 8), g), _mm512_set1_epi16(1)), 1);
    Store8x32<kTail>(y_out, m, _mm512_cvtepi16_epi8(luma));
    if (uv_out) {
        // The even pixels' channels: sixteen pairs.
        const Rgb16 px(_mm512_castsi512_si128(_mm512_permutexvar_epi8(evens, rgb[0])),
                       _mm512_castsi512_si128(_mm512_permutexvar_epi8(evens, rgb[1])),
                       _mm512_castsi512_si128(_mm512_permutexvar_epi8(evens, rgb[2])));
        const __m512i u = Chroma(px.Sum(-87, -169, 256, 0));
        const __m512i v = Chroma(px.Sum(256, -215, -41, 0));
        Store16x16<kTail>(uv_out, First16(pairs), _mm512_cvtepi32_epi16(_mm512_or_si512(u, _mm512_slli_epi32(v, 8))));
    }
}

void Correct(const unsigned char* y, const unsigned char* uv, int n, const unsigned char* lut,
             unsigned char* y_out, unsigned char* uv_out) {
    const Table table[3] = {Table(lut), Table(lut + 256), Table(lut + 512)};
    int i = 0;
    for (; i + 32 <= n; i += 32)
        CorrectBlock<false>(y + i, uv + i, 32, table, y_out + i, uv_out ? uv_out + i : nullptr);
    if (i < n) CorrectBlock<true>(y + i, uv + i, n - i, table, y_out + i, uv_out ? uv_out + i : nullptr);
}

// (a * w0 + b * w1) >> 8 per lane; the low byte is what is stored.
inline __m128i Mix(__m128i a, __m128i b, __m512i w) {
    const __m512i ab = _mm512_or_si512(_mm512_cvtepu8_epi32(a), _mm512_slli_epi32(_mm512_cvtepu8_epi32(b), 16));
    return _mm512_cvtepi32_epi8(_mm512_srli_epi32(_mm512_madd_epi16(ab, w), 8));
}

template <bool kTail>
inline void BlendBlock(const unsigned char* a, const unsigned char* b, __m512i w, __mmask16 m,
                       unsigned char* out) {
    Store8x16<kTail>(out, m, Mix(Load8x16<kTail>(a, m), Load8x16<kTail>(b, m), w));
}

void Blend(const unsigned char* a, const unsigned char* b, const uint32_t* w, int n,
           unsigned char* out) {
    int i = 0;
    for (; i + 16 <= n; i += 16) BlendBlock<false>(a + i, b + i, _mm512_loadu_si512(w + i), 0xffff, out + i);
    if (i < n) {
        const __mmask16 m = First16(n - i);
        BlendBlock<true>(a + i, b + i, _mm512_maskz_loadu_epi32(m, w + i), m, out + i);
    }
}

void BlendPairs(const unsigned char* a, const unsigned char* b, const uint32_t* w, int pairs,
                unsigned char* out) {
    // Both bytes of pair k take the weights of its even pixel, w[2k].
    const __m512i even = _mm512_setr_epi32(0, 0, 2, 2, 4, 4, 6, 6, 8, 8, 10, 10, 12, 12, 14, 14);
    int i = 0;
    // A whole block reads weights up to 2i + 15: a pair follows it.
    for (; i + 8 < pairs; i += 8) {
        const __m512i ws = _mm512_permutexvar_epi32(even, _mm512_loadu_si512(w + 2 * i));
        BlendBlock<false>(a + 2 * i, b + 2 * i, ws, 0xffff, out + 2 * i);
    }
    if (i < pairs) {
        const int left = pairs - i;
        const __m512i ws = _mm512_permutexvar_epi32(even, _mm512_maskz_loadu_epi32(First16(2 * left - 1), w + 2 * i));
        BlendBlock<true>(a + 2 * i, b + 2 * i, ws, First16(2 * left), out + 2 * i);
    }
}

}  // namespace

const ComposeKernels kComposeAvx512 = {SampleLuma, SampleChroma, Correct, Blend, BlendPairs};

}  // namespace svc
