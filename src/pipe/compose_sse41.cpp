// SSE4.1 row kernels of the planned composition. Without gathers, offsets
// and fractions are computed in vectors and the samples and colour tables
// read with scalar loads; everything else runs in 128-bit lanes, 16-bit
// wherever the products fit. Tails run the same blocks on padded copies,
// except the blends' few bytes, which the portable kernels finish.
#include <smmintrin.h>

#include <cstdint>

#include "pipe/compose_kernels.h"

namespace svc {
namespace {

inline __m128i Lane16(int x) { return _mm_set1_epi16(static_cast<short>(x)); }
inline __m128i Lane32(int x) { return _mm_set1_epi32(x); }

// Two 16-bit weights per 32-bit lane, low then high, for madd.
inline __m128i Weights(int lo, int hi) {
    return Lane32(static_cast<int>((lo & 0xffff) | (static_cast<unsigned>(hi) << 16)));
}

inline int Load16(const unsigned char* p) {
    uint16_t v;
    __builtin_memcpy(&v, p, 2);
    return v;
}
inline int Load32(const unsigned char* p) {
    int v;
    __builtin_memcpy(&v, p, 4);
    return v;
}

// a + ((b - a) * f >> s) in 16-bit lanes: differences of bytes times
// fractions below 32 never leave 16 bits, so this is the 32-bit result.
inline __m128i Lerp(__m128i a, __m128i b, __m128i f, int s) {
    return _mm_add_epi16(a, _mm_srai_epi16(_mm_mullo_epi16(_mm_sub_epi16(b, a), f), s));
}

// Eight 16-bit lanes holding byte pairs p[0] | p[1] << 8 from base + at[k].
inline __m128i Pairs(const unsigned char* base, const int* at) {
    return _mm_setr_epi16(static_cast<short>(Load16(base + at[0])), static_cast<short>(Load16(base + at[1])),
                          static_cast<short>(Load16(base + at[2])), static_cast<short>(Load16(base + at[3])),
                          static_cast<short>(Load16(base + at[4])), static_cast<short>(Load16(base + at[5])),
                          static_cast<short>(Load16(base + at[6])), static_cast<short>(Load16(base + at[7])));
}

// Eight pixels; positions as 32-bit lanes sx | sy << 16.
inline void LumaBlock(const uint32_t* pos, const unsigned char* img, int w, unsigned char* y) {
    const __m128i v0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pos));
    const __m128i v1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pos + 4));
    // Whole pixels px | py << 16, then py * w + px in one multiply-add.
    alignas(16) int at[8];
    _mm_store_si128(reinterpret_cast<__m128i*>(at), _mm_madd_epi16(_mm_srli_epi16(v0, 4), Weights(1, w)));
    _mm_store_si128(reinterpret_cast<__m128i*>(at + 4), _mm_madd_epi16(_mm_srli_epi16(v1, 4), Weights(1, w)));
    const __m128i f0 = _mm_and_si128(v0, Lane16(15)), f1 = _mm_and_si128(v1, Lane16(15));
    const __m128i ex = _mm_packus_epi32(_mm_blend_epi16(f0, _mm_setzero_si128(), 0xaa),
                                        _mm_blend_epi16(f1, _mm_setzero_si128(), 0xaa));
    const __m128i ey = _mm_packus_epi32(_mm_srli_epi32(f0, 16), _mm_srli_epi32(f1, 16));
    const __m128i t0 = Pairs(img, at), t1 = Pairs(img + w, at);
    const __m128i top = Lerp(_mm_and_si128(t0, Lane16(255)), _mm_srli_epi16(t0, 8), ex, 4);
    const __m128i bottom = Lerp(_mm_and_si128(t1, Lane16(255)), _mm_srli_epi16(t1, 8), ex, 4);
    const __m128i out = Lerp(top, bottom, ey, 4);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(y), _mm_packus_epi16(out, out));
}

void SampleLuma(const uint32_t* pos, int n, const unsigned char* img, int w, unsigned char* y) {
    int i = 0;
    for (; i + 8 <= n; i += 8) LumaBlock(pos + i, img, w, y + i);
    if (i < n) {
        // Spare lanes repeat the first position, which is inside the image.
        uint32_t p[8];
        unsigned char out[8];
        for (int k = 0; k < 8; ++k) p[k] = pos[i + (i + k < n ? k : 0)];
        LumaBlock(p, img, w, out);
        for (int k = 0; i + k < n; ++k) y[i + k] = out[k];
    }
}

// Four pairs from positions v (32-bit lanes sx | sy << 16); eight bytes
// U, V, U, V ... to uv.
inline void ChromaBlock(__m128i v, const unsigned char* plane, int w, int h, unsigned char* uv) {
    // A chroma sample sits on the even luma sample: the fraction in 1/32 is
    // the position's low five bits. One per U and V lane.
    const __m128i f = _mm_and_si128(v, Lane16(31));
    const __m128i fx = _mm_shufflehi_epi16(_mm_shufflelo_epi16(f, 0xa0), 0xa0);
    const __m128i fy = _mm_shufflehi_epi16(_mm_shufflelo_epi16(f, 0xf5), 0xf5);
    const __m128i cell = _mm_madd_epi16(_mm_srli_epi16(v, 5), Weights(2, w));
    // The last interior column and row use their chroma sample twice. There
    // the four bytes are read from the pair before, so that no read passes
    // the end of the row, and the left sample is taken from the right.
    const __m128i px = _mm_srli_epi32(_mm_slli_epi32(v, 16), 20), py = _mm_srli_epi32(v, 20);
    const __m128i last_x = _mm_cmpgt_epi32(px, Lane32(w - 3));
    const __m128i dy = _mm_andnot_si128(_mm_cmpgt_epi32(py, Lane32(h - 3)), Lane32(w));
    const __m128i a0 = _mm_add_epi32(cell, _mm_and_si128(last_x, Lane32(-2)));
    alignas(16) int at[8];
    _mm_store_si128(reinterpret_cast<__m128i*>(at), a0);
    _mm_store_si128(reinterpret_cast<__m128i*>(at + 4), _mm_add_epi32(a0, dy));
    const __m128i g0 = _mm_setr_epi32(Load32(plane + at[0]), Load32(plane + at[1]), Load32(plane + at[2]),
                                      Load32(plane + at[3]));
    const __m128i g1 = _mm_setr_epi32(Load32(plane + at[4]), Load32(plane + at[5]), Load32(plane + at[6]),
                                      Load32(plane + at[7]));
    // Bytes of each word: left U, V, right U, V; spread into 16-bit lanes.
    const __m128i right = _mm_setr_epi8(2, -128, 3, -128, 6, -128, 7, -128, 10, -128, 11, -128, 14, -128, 15, -128);
    const __m128i left = _mm_add_epi8(_mm_sub_epi8(right, Lane16(2)), _mm_and_si128(last_x, Lane16(2)));
    const __m128i top = Lerp(_mm_shuffle_epi8(g0, left), _mm_shuffle_epi8(g0, right), fx, 5);
    const __m128i bottom = Lerp(_mm_shuffle_epi8(g1, left), _mm_shuffle_epi8(g1, right), fx, 5);
    const __m128i out = Lerp(top, bottom, fy, 5);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(uv), _mm_packus_epi16(out, out));
}

void SampleChroma(const uint32_t* pos, int pairs, const unsigned char* img, int w, int h,
                  unsigned char* uv) {
    const unsigned char* plane = img + w * h;
    int i = 0;
    // Pair k's position is pos[2k]; the odd position after the last pair
    // may not exist, so the second load starts one early.
    for (; i + 4 <= pairs; i += 4) {
        const __m128 a = _mm_castsi128_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pos + 2 * i)));
        const __m128 b = _mm_castsi128_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pos + 2 * i + 3)));
        ChromaBlock(_mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 2, 0))), plane, w, h, uv + 2 * i);
    }
    if (i < pairs) {
        const int left = pairs - i;
        const uint32_t* p = pos + 2 * i;
        const __m128i v = _mm_setr_epi32(static_cast<int>(p[0]), static_cast<int>(p[left > 1 ? 2 : 0]),
                                         static_cast<int>(p[left > 2 ? 4 : 0]), static_cast<int>(p[0]));
        unsigned char out[8];
        ChromaBlock(v, plane, w, h, out);
        for (int k = 0; k < 2 * left; ++k) uv[2 * i + k] = out[k];
    }
}

// (x + 256 - (x < 0)) >> 9 recentred on 128 and capped at 255: division by
// 512 rounding half away from zero.
inline __m128i Chroma(__m128i x) {
    const __m128i q = _mm_srai_epi32(_mm_add_epi32(_mm_add_epi32(x, Lane32(256)), _mm_srai_epi32(x, 31)), 9);
    return _mm_min_epi32(_mm_add_epi32(q, Lane32(128)), Lane32(255));
}

// Eight table bytes t[ix[k]] as eight 16-bit lanes.
inline __m128i Lookup(const unsigned char* t, const unsigned char* ix) {
    uint64_t v = 0;
    for (int k = 0; k < 8; ++k) v |= static_cast<uint64_t>(t[ix[k]]) << (8 * k);
    return _mm_cvtepu8_epi16(_mm_set_epi64x(0, static_cast<long long>(v)));
}

// Eight pixels from an even column: y and four pairs in, y_out and (when
// uv_out is set) four pairs out. y_out may be y.
inline void CorrectBlock(const unsigned char* y, const unsigned char* uv, const unsigned char* lut,
                         unsigned char* y_out, unsigned char* uv_out) {
    const __m128i y8 = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(y));
    const __m128i Y = _mm_cvtepu8_epi16(y8);
    // (U - 128, V - 128) per pair as the two halves of a 32-bit lane.
    const __m128i c = _mm_sub_epi16(_mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(uv))),
                                    Lane16(128));
    const int coef[3][2] = {{0, 718}, {-176, -366}, {907, 1}};
    __m128i idx[3];
    for (int ch = 0; ch < 3; ++ch) {
        // The pair's whole-level offset, in both 16-bit halves: one per pixel.
        const __m128i off = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(c, Weights(coef[ch][0], coef[ch][1])),
                                                         Lane32(256)), 9);
        idx[ch] = _mm_add_epi16(Y, _mm_or_si128(_mm_blend_epi16(off, _mm_setzero_si128(), 0xaa),
                                                _mm_slli_epi32(off, 16)));
    }
    // Clamped to 0..255 by the pack; black luma stays black whatever the
    // chroma says.
    const __m128i black = _mm_cmpeq_epi8(_mm_unpacklo_epi64(y8, y8), _mm_setzero_si128());
    alignas(16) unsigned char ix[32];
    _mm_store_si128(reinterpret_cast<__m128i*>(ix), _mm_andnot_si128(black, _mm_packus_epi16(idx[0], idx[1])));
    _mm_store_si128(reinterpret_cast<__m128i*>(ix + 16), _mm_andnot_si128(black, _mm_packus_epi16(idx[2], idx[2])));
    const __m128i r = Lookup(lut, ix), g = Lookup(lut + 256, ix + 8), b = Lookup(lut + 512, ix + 16);

    // Per pixel r | g << 16 and b | 1 << 16, ready for the weighted sums.
    const __m128i rg[2] = {_mm_unpacklo_epi16(r, g), _mm_unpackhi_epi16(r, g)};
    const __m128i b1[2] = {_mm_unpacklo_epi16(b, Lane16(1)), _mm_unpackhi_epi16(b, Lane16(1))};
    __m128i luma[2];
    for (int k = 0; k < 2; ++k)
        luma[k] = _mm_srli_epi32(_mm_add_epi32(_mm_madd_epi16(rg[k], Weights(153, 301)),
                                               _mm_madd_epi16(b1[k], Weights(58, 256))), 9);
    // Never negative, never above 255 after the shift.
    const __m128i y16 = _mm_packs_epi32(luma[0], luma[1]);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(y_out), _mm_packus_epi16(y16, y16));
    if (uv_out) {
        // The even pixels: 0, 2, 4, 6.
        const __m128i rge = _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(rg[0]), _mm_castsi128_ps(rg[1]),
                                                            _MM_SHUFFLE(2, 0, 2, 0)));
        const __m128i b1e = _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(b1[0]), _mm_castsi128_ps(b1[1]),
                                                            _MM_SHUFFLE(2, 0, 2, 0)));
        const __m128i u = Chroma(_mm_add_epi32(_mm_madd_epi16(rge, Weights(-87, -169)),
                                               _mm_madd_epi16(b1e, Weights(256, 0))));
        const __m128i v = Chroma(_mm_add_epi32(_mm_madd_epi16(rge, Weights(256, -215)),
                                               _mm_madd_epi16(b1e, Weights(-41, 0))));
        const __m128i pair = _mm_or_si128(u, _mm_slli_epi32(v, 8));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(uv_out), _mm_packus_epi32(pair, pair));
    }
}

void Correct(const unsigned char* y, const unsigned char* uv, int n, const unsigned char* lut,
             unsigned char* y_out, unsigned char* uv_out) {
    int i = 0;
    for (; i + 8 <= n; i += 8) CorrectBlock(y + i, uv + i, lut, y_out + i, uv_out ? uv_out + i : nullptr);
    if (i < n) {
        const int left = n - i, bytes = 2 * ((left + 1) / 2);
        unsigned char yb[8] = {}, uvb[8] = {}, yo[8], uvo[8];
        for (int k = 0; k < left; ++k) yb[k] = y[i + k];
        for (int k = 0; k < bytes; ++k) uvb[k] = uv[i + k];
        CorrectBlock(yb, uvb, lut, yo, uv_out ? uvo : nullptr);
        for (int k = 0; k < left; ++k) y_out[i + k] = yo[k];
        if (uv_out)
            for (int k = 0; k < bytes; ++k) uv_out[i + k] = uvo[k];
    }
}

// (a * w0 + b * w1) >> 8, low byte, for eight bytes: a | b << 16 per lane
// against the weights, the exact sum, then its second byte.
inline void MixBlock(const unsigned char* a, const unsigned char* b, __m128i w_lo, __m128i w_hi,
                     unsigned char* out) {
    const __m128i va = _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a)));
    const __m128i vb = _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(b)));
    const __m128i s_lo = _mm_madd_epi16(_mm_unpacklo_epi16(va, vb), w_lo);
    const __m128i s_hi = _mm_madd_epi16(_mm_unpackhi_epi16(va, vb), w_hi);
    const __m128i pick_lo = _mm_setr_epi8(1, 5, 9, 13, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m128i pick_hi = _mm_setr_epi8(-1, -1, -1, -1, 1, 5, 9, 13, -1, -1, -1, -1, -1, -1, -1, -1);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out),
                     _mm_or_si128(_mm_shuffle_epi8(s_lo, pick_lo), _mm_shuffle_epi8(s_hi, pick_hi)));
}

void Blend(const unsigned char* a, const unsigned char* b, const uint32_t* w, int n,
           unsigned char* out) {
    int i = 0;
    for (; i + 8 <= n; i += 8)
        MixBlock(a + i, b + i, _mm_loadu_si128(reinterpret_cast<const __m128i*>(w + i)),
                 _mm_loadu_si128(reinterpret_cast<const __m128i*>(w + i + 4)), out + i);
    kComposeScalar.blend(a + i, b + i, w + i, n - i, out + i);
}

// Both bytes of pair k take the weights of its even pixel, w[2k]; w holds
// 2 * pairs - 1 entries, so the second load starts one early.
inline void MixPairs(const unsigned char* a, const unsigned char* b, const uint32_t* w,
                     unsigned char* out) {
    const __m128i w0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(w));
    const __m128i w1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(w + 3));
    MixBlock(a, b, _mm_shuffle_epi32(w0, _MM_SHUFFLE(2, 2, 0, 0)), _mm_shuffle_epi32(w1, _MM_SHUFFLE(3, 3, 1, 1)),
             out);
}

void BlendPairs(const unsigned char* a, const unsigned char* b, const uint32_t* w, int pairs,
                unsigned char* out) {
    int i = 0;
    for (; i + 4 <= pairs; i += 4) MixPairs(a + 2 * i, b + 2 * i, w + 2 * i, out + 2 * i);
    kComposeScalar.blend_pairs(a + 2 * i, b + 2 * i, w + 2 * i, pairs - i, out + 2 * i);
}

}  // namespace

const ComposeKernels kComposeSse41 = {SampleLuma, SampleChroma, Correct, Blend, BlendPairs};

}  // namespace svc
