// AVX2 row kernels of the planned composition: eight pixels per step in
// 32-bit lanes, samples and colour tables read with gathers. Tails go to
// the portable kernels.
#include <immintrin.h>

#include "pipe/compose_kernels.h"

namespace svc {
namespace {

inline __m256i Lane(int x) { return _mm256_set1_epi32(x); }

// a + ((b - a) * f >> s), lanes 32-bit, arithmetic shift.
inline __m256i Lerp(__m256i a, __m256i b, __m256i f, int s) {
    return _mm256_add_epi32(a, _mm256_srai_epi32(_mm256_mullo_epi32(_mm256_sub_epi32(b, a), f), s));
}

inline __m256i Byte(__m256i v, int k) { return _mm256_and_si256(_mm256_srli_epi32(v, 8 * k), Lane(255)); }

// Low byte of each of eight lanes into 8 bytes.
inline void Store8(unsigned char* out, __m256i v) {
    const __m256i pick = _mm256_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
                                          0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m256i b = _mm256_shuffle_epi8(v, pick);
    const __m128i lo = _mm256_castsi256_si128(b), hi = _mm256_extracti128_si256(b, 1);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi32(lo, hi));
}

void SampleLuma(const uint32_t* pos, int n, const unsigned char* img, int w, unsigned char* y) {
    const int* row0 = reinterpret_cast<const int*>(img);
    const int* row1 = reinterpret_cast<const int*>(img + w);
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pos + i));
        const __m256i sx = _mm256_and_si256(v, Lane(0xffff)), sy = _mm256_srli_epi32(v, 16);
        const __m256i at = _mm256_add_epi32(_mm256_mullo_epi32(_mm256_srli_epi32(sy, 4), Lane(w)),
                                            _mm256_srli_epi32(sx, 4));
        const __m256i ex = _mm256_and_si256(sx, Lane(15)), ey = _mm256_and_si256(sy, Lane(15));
        // Four bytes from each of the two rows; the first two are the samples.
        const __m256i g0 = _mm256_i32gather_epi32(row0, at, 1);
        const __m256i g1 = _mm256_i32gather_epi32(row1, at, 1);
        const __m256i top = Lerp(Byte(g0, 0), Byte(g0, 1), ex, 4);
        const __m256i bottom = Lerp(Byte(g1, 0), Byte(g1, 1), ex, 4);
        Store8(y + i, Lerp(top, bottom, ey, 4));
    }
    kComposeScalar.sample_luma(pos + i, n - i, img, w, y + i);
}

void SampleChroma(const uint32_t* pos, int pairs, const unsigned char* img, int w, int h,
                  unsigned char* uv) {
    const int* plane = reinterpret_cast<const int*>(img + w * h);
    const __m256i evens = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
    // Eight pairs take positions 2i .. 2i + 14; the odd one after them may
    // not exist, so the second half is read one position early.
    const __m256i odds = _mm256_setr_epi32(1, 3, 5, 7, 0, 2, 4, 6);
    int i = 0;
    for (; i + 8 <= pairs; i += 8) {
        const __m256i a = _mm256_permutevar8x32_epi32(
            _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pos + 2 * i)), evens);
        const __m256i b = _mm256_permutevar8x32_epi32(
            _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pos + 2 * i + 7)), odds);
        const __m256i v = _mm256_permute2x128_si256(a, b, 0x20);
        const __m256i sx = _mm256_and_si256(v, Lane(0xffff)), sy = _mm256_srli_epi32(v, 16);
        const __m256i px = _mm256_srli_epi32(sx, 4), py = _mm256_srli_epi32(sy, 4);
        // A chroma sample sits on the even luma sample: fractions in 1/32.
        const __m256i ex = _mm256_add_epi32(_mm256_and_si256(sx, Lane(15)),
                                            _mm256_slli_epi32(_mm256_and_si256(px, Lane(1)), 4));
        const __m256i ey = _mm256_add_epi32(_mm256_and_si256(sy, Lane(15)),
                                            _mm256_slli_epi32(_mm256_and_si256(py, Lane(1)), 4));
        // The last interior column and row use their chroma sample twice.
        // There the four bytes are read from the pair before, so that no read
        // passes the end of the row.
        const __m256i last_x = _mm256_cmpgt_epi32(px, Lane(w - 3));
        const __m256i dy = _mm256_andnot_si256(_mm256_cmpgt_epi32(py, Lane(h - 3)), Lane(w));
        const __m256i at = _mm256_add_epi32(
            _mm256_mullo_epi32(_mm256_srli_epi32(py, 1), Lane(w)),
            _mm256_add_epi32(_mm256_slli_epi32(_mm256_srli_epi32(px, 1), 1), _mm256_and_si256(last_x, Lane(-2))));
        const __m256i g0 = _mm256_i32gather_epi32(plane, at, 1);
        const __m256i g1 = _mm256_i32gather_epi32(plane, _mm256_add_epi32(at, dy), 1);
        __m256i out[2];
        for (int c = 0; c < 2; ++c) {
            const __m256i l0 = _mm256_blendv_epi8(Byte(g0, c), Byte(g0, 2 + c), last_x);
            const __m256i l1 = _mm256_blendv_epi8(Byte(g1, c), Byte(g1, 2 + c), last_x);
            const __m256i top = Lerp(l0, Byte(g0, 2 + c), ex, 5);
            const __m256i bottom = Lerp(l1, Byte(g1, 2 + c), ex, 5);
            out[c] = Lerp(top, bottom, ey, 5);
        }
        // U | V << 8 per lane, stored as 16 bytes U, V, U, V ...
        const __m256i pair = _mm256_or_si256(out[0], _mm256_slli_epi32(out[1], 8));
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(pair, pair), 0x08);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(uv + 2 * i), _mm256_castsi256_si128(packed));
    }
    kComposeScalar.sample_chroma(pos + 2 * i, pairs - i, img, w, h, uv + 2 * i);
}

// (x + 256 - (x < 0)) >> 9 recentred on 128 and capped at 255: division by
// 512 rounding half away from zero.
inline __m256i Chroma(__m256i x) {
    const __m256i q = _mm256_srai_epi32(_mm256_add_epi32(_mm256_add_epi32(x, Lane(256)), _mm256_srai_epi32(x, 31)), 9);
    return _mm256_min_epi32(_mm256_add_epi32(q, Lane(128)), Lane(255));
}

// Two 16-bit weights per lane, low then high.
inline __m256i Weights(int lo, int hi) { return Lane(static_cast<int>((lo & 0xffff) | (static_cast<unsigned>(hi) << 16))); }

void Correct(const unsigned char* y, const unsigned char* uv, int n, const unsigned char* lut,
             unsigned char* y_out, unsigned char* uv_out) {
    const int* tables = reinterpret_cast<const int*>(lut);
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256i Y = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(y + i)));
        // Each pair U | V << 8 twice, one per pixel, then (U - 128, V - 128)
        // as two signed 16-bit halves.
        const __m128i p4 = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(uv + i));
        const __m256i p = _mm256_cvtepu16_epi32(_mm_unpacklo_epi16(p4, p4));
        const __m256i c = _mm256_sub_epi16(
            _mm256_or_si256(_mm256_and_si256(p, Lane(0xff)), _mm256_slli_epi32(_mm256_and_si256(p, Lane(0xff00)), 8)),
            _mm256_set1_epi16(128));
        const __m256i zero = _mm256_cmpeq_epi32(Y, _mm256_setzero_si256());
        __m256i rgb[3];
        const int coef[3][2] = {{0, 718}, {-176, -366}, {907, 1}};
        for (int ch = 0; ch < 3; ++ch) {
            const __m256i off = _mm256_srai_epi32(
                _mm256_add_epi32(_mm256_madd_epi16(c, Weights(coef[ch][0], coef[ch][1])), Lane(256)), 9);
            __m256i idx = _mm256_max_epi32(_mm256_min_epi32(_mm256_add_epi32(Y, off), Lane(255)), _mm256_setzero_si256());
            // Black luma stays black whatever the chroma says.
            idx = _mm256_andnot_si256(zero, idx);
            rgb[ch] = Byte(_mm256_i32gather_epi32(tables, _mm256_add_epi32(idx, Lane(256 * ch)), 1), 0);
        }
        const __m256i rg = _mm256_or_si256(rgb[0], _mm256_slli_epi32(rgb[1], 16));
        const __m256i b1 = _mm256_or_si256(rgb[2], Lane(1 << 16));
        const __m256i luma = _mm256_srli_epi32(
            _mm256_add_epi32(_mm256_madd_epi16(rg, Weights(153, 301)), _mm256_madd_epi16(b1, Weights(58, 256))), 9);
        Store8(y_out + i, luma);
        if (uv_out) {
            const __m256i u = Chroma(_mm256_add_epi32(_mm256_madd_epi16(rg, Weights(-87, -169)),
                                                      _mm256_madd_epi16(b1, Weights(256, 0))));
            const __m256i v = Chroma(_mm256_add_epi32(_mm256_madd_epi16(rg, Weights(256, -215)),
                                                      _mm256_madd_epi16(b1, Weights(-41, 0))));
            // Even pixels' pairs: lanes 0, 2, 4, 6 as U, V bytes.
            const __m256i pair = _mm256_permutevar8x32_epi32(_mm256_or_si256(u, _mm256_slli_epi32(v, 8)),
                                                             _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(uv_out + i),
                             _mm_packus_epi32(_mm256_castsi256_si128(pair), _mm256_castsi256_si128(pair)));
        }
    }
    kComposeScalar.correct(y + i, uv + i, n - i, lut, y_out + i, uv_out ? uv_out + i : nullptr);
}

// (a * w0 + b * w1) >> 8 per lane; the low byte is what is stored.
inline __m256i Mix(const unsigned char* a, const unsigned char* b, __m256i w) {
    const __m256i va = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a)));
    const __m256i vb = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(b)));
    return _mm256_srli_epi32(_mm256_madd_epi16(_mm256_or_si256(va, _mm256_slli_epi32(vb, 16)), w), 8);
}

void Blend(const unsigned char* a, const unsigned char* b, const uint32_t* w, int n,
           unsigned char* out) {
    int i = 0;
    for (; i + 8 <= n; i += 8)
        Store8(out + i, Mix(a + i, b + i, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(w + i))));
    kComposeScalar.blend(a + i, b + i, w + i, n - i, out + i);
}

void BlendPairs(const unsigned char* a, const unsigned char* b, const uint32_t* w, int pairs,
                unsigned char* out) {
    const __m256i even = _mm256_setr_epi32(0, 0, 2, 2, 4, 4, 6, 6);
    // Four pairs take weights 2i .. 2i + 6; the odd one after them may not
    // exist.
    const __m256i seven = _mm256_setr_epi32(-1, -1, -1, -1, -1, -1, -1, 0);
    int i = 0;
    for (; i + 4 <= pairs; i += 4) {
        const __m256i ws = _mm256_permutevar8x32_epi32(
            _mm256_maskload_epi32(reinterpret_cast<const int*>(w + 2 * i), seven), even);
        Store8(out + 2 * i, Mix(a + 2 * i, b + 2 * i, ws));
    }
    kComposeScalar.blend_pairs(a + 2 * i, b + 2 * i, w + 2 * i, pairs - i, out + 2 * i);
}

}  // namespace

const ComposeKernels kComposeAvx2 = {SampleLuma, SampleChroma, Correct, Blend, BlendPairs};

}  // namespace svc
