// NEON row kernels of the planned composition (aarch64). Samples come from
// scalar loads at offsets computed in vectors; interpolation, colour
// arithmetic and blends run in 16-bit lanes wherever the products fit, and
// the colour tables are read sixteen at a time with four-register table
// lookups. Tails run the same blocks on padded copies, except the blends'
// few bytes, which the portable kernels finish.
#include <arm_neon.h>

#include <cstdint>

#include "pipe/compose_kernels.h"

namespace svc {
namespace {

inline uint16_t Load16(const unsigned char* p) {
    uint16_t v;
    __builtin_memcpy(&v, p, 2);
    return v;
}
inline uint32_t Load32(const unsigned char* p) {
    uint32_t v;
    __builtin_memcpy(&v, p, 4);
    return v;
}

// a + ((b - a) * f >> S) in 16-bit lanes: differences of bytes times
// fractions below 32 never leave 16 bits, so this is the 32-bit result.
template <int S>
inline int16x8_t Lerp(int16x8_t a, int16x8_t b, int16x8_t f) {
    return vaddq_s16(a, vshrq_n_s16(vmulq_s16(vsubq_s16(b, a), f), S));
}

// Eight 16-bit lanes holding byte pairs p[0] | p[1] << 8 from base + at[k].
inline uint16x8_t Pairs(const unsigned char* base, const uint32_t* at) {
    uint16x8_t t = vdupq_n_u16(0);
    t = vsetq_lane_u16(Load16(base + at[0]), t, 0);
    t = vsetq_lane_u16(Load16(base + at[1]), t, 1);
    t = vsetq_lane_u16(Load16(base + at[2]), t, 2);
    t = vsetq_lane_u16(Load16(base + at[3]), t, 3);
    t = vsetq_lane_u16(Load16(base + at[4]), t, 4);
    t = vsetq_lane_u16(Load16(base + at[5]), t, 5);
    t = vsetq_lane_u16(Load16(base + at[6]), t, 6);
    t = vsetq_lane_u16(Load16(base + at[7]), t, 7);
    return t;
}

// Four 32-bit words from base + at[k], as bytes.
inline uint8x16_t Words(const unsigned char* base, const uint32_t* at) {
    uint32x4_t g = vdupq_n_u32(0);
    g = vsetq_lane_u32(Load32(base + at[0]), g, 0);
    g = vsetq_lane_u32(Load32(base + at[1]), g, 1);
    g = vsetq_lane_u32(Load32(base + at[2]), g, 2);
    g = vsetq_lane_u32(Load32(base + at[3]), g, 3);
    return vreinterpretq_u8_u32(g);
}

inline int16x8_t Low8(uint16x8_t t) { return vreinterpretq_s16_u16(vandq_u16(t, vdupq_n_u16(255))); }
inline int16x8_t High8(uint16x8_t t) { return vreinterpretq_s16_u16(vshrq_n_u16(t, 8)); }

// Eight pixels; positions as 32-bit lanes sx | sy << 16.
inline void LumaBlock(const uint32_t* pos, const unsigned char* img, int w, unsigned char* y) {
    const uint16x8_t v0 = vreinterpretq_u16_u32(vld1q_u32(pos));
    const uint16x8_t v1 = vreinterpretq_u16_u32(vld1q_u32(pos + 4));
    const uint16x8_t sx = vuzp1q_u16(v0, v1), sy = vuzp2q_u16(v0, v1);
    const uint16x8_t px = vshrq_n_u16(sx, 4), py = vshrq_n_u16(sy, 4);
    const uint16_t stride = static_cast<uint16_t>(w);
    uint32_t at[8];
    vst1q_u32(at, vmlal_n_u16(vmovl_u16(vget_low_u16(px)), vget_low_u16(py), stride));
    vst1q_u32(at + 4, vmlal_high_n_u16(vmovl_high_u16(px), py, stride));
    const int16x8_t ex = vreinterpretq_s16_u16(vandq_u16(sx, vdupq_n_u16(15)));
    const int16x8_t ey = vreinterpretq_s16_u16(vandq_u16(sy, vdupq_n_u16(15)));
    const uint16x8_t t0 = Pairs(img, at), t1 = Pairs(img + w, at);
    const int16x8_t top = Lerp<4>(Low8(t0), High8(t0), ex);
    const int16x8_t bottom = Lerp<4>(Low8(t1), High8(t1), ex);
    vst1_u8(y, vqmovun_s16(Lerp<4>(top, bottom, ey)));
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
inline void ChromaBlock(uint32x4_t v, const unsigned char* plane, int w, int h, unsigned char* uv) {
    // A chroma sample sits on the even luma sample: the fraction in 1/32 is
    // the position's low five bits. One per U and V lane.
    const uint16x8_t f = vandq_u16(vreinterpretq_u16_u32(v), vdupq_n_u16(31));
    const int16x8_t fx = vreinterpretq_s16_u16(vtrn1q_u16(f, f));
    const int16x8_t fy = vreinterpretq_s16_u16(vtrn2q_u16(f, f));
    const uint32x4_t sx = vandq_u32(v, vdupq_n_u32(0xffff));
    const uint32x4_t cell = vmlaq_n_u32(vshlq_n_u32(vshrq_n_u32(sx, 5), 1), vshrq_n_u32(v, 21),
                                       static_cast<uint32_t>(w));
    // The last interior column and row use their chroma sample twice. There
    // the four bytes are read from the pair before, so that no read passes
    // the end of the row, and the left sample is taken from the right.
    const int32x4_t px = vreinterpretq_s32_u32(vshrq_n_u32(sx, 4));
    const int32x4_t py = vreinterpretq_s32_u32(vshrq_n_u32(v, 20));
    const uint32x4_t last_x = vcgtq_s32(px, vdupq_n_s32(w - 3));
    const uint32x4_t dy = vbicq_u32(vdupq_n_u32(static_cast<uint32_t>(w)), vcgtq_s32(py, vdupq_n_s32(h - 3)));
    const uint32x4_t a0 = vsubq_u32(cell, vandq_u32(last_x, vdupq_n_u32(2)));
    uint32_t at[8];
    vst1q_u32(at, a0);
    vst1q_u32(at + 4, vaddq_u32(a0, dy));
    // Bytes of each word: left U, V, right U, V; spread into 16-bit lanes
    // (indices 0x80 and up read as 0).
    const uint8_t kRight[16] = {2, 0x80, 3, 0x80, 6, 0x80, 7, 0x80, 10, 0x80, 11, 0x80, 14, 0x80, 15, 0x80};
    const uint8x16_t right = vld1q_u8(kRight);
    const uint8x16_t two = vreinterpretq_u8_u16(vdupq_n_u16(2));
    const uint8x16_t left = vaddq_u8(vsubq_u8(right, two), vandq_u8(vreinterpretq_u8_u32(last_x), two));
    const uint8x16_t b0 = Words(plane, at), b1 = Words(plane, at + 4);
    const int16x8_t top = Lerp<5>(vreinterpretq_s16_u8(vqtbl1q_u8(b0, left)),
                                  vreinterpretq_s16_u8(vqtbl1q_u8(b0, right)), fx);
    const int16x8_t bottom = Lerp<5>(vreinterpretq_s16_u8(vqtbl1q_u8(b1, left)),
                                     vreinterpretq_s16_u8(vqtbl1q_u8(b1, right)), fx);
    vst1_u8(uv, vqmovun_s16(Lerp<5>(top, bottom, fy)));
}

void SampleChroma(const uint32_t* pos, int pairs, const unsigned char* img, int w, int h,
                  unsigned char* uv) {
    const unsigned char* plane = img + w * h;
    int i = 0;
    // Pair k's position is pos[2k]; the odd position after the last pair
    // may not exist, so the second load starts one early.
    for (; i + 4 <= pairs; i += 4) {
        const uint32x4_t a = vld1q_u32(pos + 2 * i), b = vld1q_u32(pos + 2 * i + 3);
        ChromaBlock(vcombine_u32(vget_low_u32(vuzp1q_u32(a, a)), vget_low_u32(vuzp2q_u32(b, b))), plane, w, h,
                    uv + 2 * i);
    }
    if (i < pairs) {
        const int left = pairs - i;
        const uint32_t* p = pos + 2 * i;
        const uint32_t q[4] = {p[0], p[left > 1 ? 2 : 0], p[left > 2 ? 4 : 0], p[0]};
        unsigned char out[8];
        ChromaBlock(vld1q_u32(q), plane, w, h, out);
        for (int k = 0; k < 2 * left; ++k) uv[2 * i + k] = out[k];
    }
}

// One channel's 256-entry table in four 64-byte blocks; the index is
// already clamped to 0..255. Each block answers only its own indices.
struct Table {
    uint8x16x4_t q[4];
    explicit Table(const unsigned char* t) {
        for (int k = 0; k < 4; ++k) q[k] = vld1q_u8_x4(t + 64 * k);
    }
    uint8x16_t operator()(uint8x16_t idx) const {
        uint8x16_t r = vqtbl4q_u8(q[0], idx);
        r = vqtbx4q_u8(r, q[1], vsubq_u8(idx, vdupq_n_u8(64)));
        r = vqtbx4q_u8(r, q[2], vsubq_u8(idx, vdupq_n_u8(128)));
        return vqtbx4q_u8(r, q[3], vsubq_u8(idx, vdupq_n_u8(192)));
    }
};

// Sixteen table indices Y + offset, the offset one per pair, clamped to
// 0..255 by the narrowing; black luma reads entry 0 whatever the chroma says.
inline uint8x16_t Index(uint8x16_t y, int16x8_t off) {
    const int16x8_t lo = vaddq_s16(vreinterpretq_s16_u16(vmovl_u8(vget_low_u8(y))), vzip1q_s16(off, off));
    const int16x8_t hi = vaddq_s16(vreinterpretq_s16_u16(vmovl_high_u8(y)), vzip2q_s16(off, off));
    return vandq_u8(vcombine_u8(vqmovun_s16(lo), vqmovun_s16(hi)), vtstq_u8(y, y));
}

// (x + 256 - (x < 0)) >> 9 recentred on 128 and capped at 255: division by
// 512 rounding half away from zero. Never below 0 for sums of bytes.
inline uint8x8_t Chroma(int32x4_t lo, int32x4_t hi) {
    const int16x8_t q = vcombine_s16(vrshrn_n_s32(vsraq_n_s32(lo, lo, 31), 9), vrshrn_n_s32(vsraq_n_s32(hi, hi, 31), 9));
    return vqmovun_s16(vaddq_s16(q, vdupq_n_s16(128)));
}

// c0 * a + c1 * b + c2 * c over eight lanes, as two halves of 32 bits.
struct Sum32 {
    int32x4_t lo, hi;
    Sum32(int16x8_t a, int16x8_t b, int16x8_t c, int16_t c0, int16_t c1, int16_t c2) {
        lo = vmlal_n_s16(vmlal_n_s16(vmull_n_s16(vget_low_s16(a), c0), vget_low_s16(b), c1), vget_low_s16(c), c2);
        hi = vmlal_high_n_s16(vmlal_high_n_s16(vmull_high_n_s16(a, c0), b, c1), c, c2);
    }
};

inline int16x8_t Widen(uint8x8_t x) { return vreinterpretq_s16_u16(vmovl_u8(x)); }

// Sixteen pixels from an even column: y and eight pairs in, y_out and
// (when uv_out is set) eight pairs out. y_out may be y.
inline void CorrectBlock(const unsigned char* y, const unsigned char* uv, const Table table[3],
                         unsigned char* y_out, unsigned char* uv_out) {
    const uint8x16_t Y = vld1q_u8(y);
    const uint8x8x2_t p = vld2_u8(uv);
    const int16x8_t cu = vreinterpretq_s16_u16(vsubl_u8(p.val[0], vdup_n_u8(128)));
    const int16x8_t cv = vreinterpretq_s16_u16(vsubl_u8(p.val[1], vdup_n_u8(128)));
    // Whole-level offsets per pair, (x + 256) >> 9 by the rounding narrow.
    const int16x8_t off_r = vcombine_s16(vrshrn_n_s32(vmull_n_s16(vget_low_s16(cv), 718), 9),
                                         vrshrn_n_s32(vmull_high_n_s16(cv, 718), 9));
    const Sum32 g(cu, cv, cv, -176, -366, 0);
    const int16x8_t off_g = vcombine_s16(vrshrn_n_s32(g.lo, 9), vrshrn_n_s32(g.hi, 9));
    const Sum32 b(cu, cv, cv, 907, 1, 0);
    const int16x8_t off_b = vcombine_s16(vrshrn_n_s32(b.lo, 9), vrshrn_n_s32(b.hi, 9));
    const uint8x16_t r8 = table[0](Index(Y, off_r));
    const uint8x16_t g8 = table[1](Index(Y, off_g));
    const uint8x16_t b8 = table[2](Index(Y, off_b));
    // 153 r + 301 g + 58 b = s + 256 g with s = 153 r + 45 g + 58 b at most
    // 65280, so (s + 256 g + 256) >> 9 = ((s >> 8) + g + 1) >> 1: the
    // dropped low byte of s cannot carry into the halving.
    const uint16x8_t s_lo = vmlal_u8(vmlal_u8(vmull_u8(vget_low_u8(r8), vdup_n_u8(153)), vget_low_u8(g8), vdup_n_u8(45)),
                                     vget_low_u8(b8), vdup_n_u8(58));
    const uint16x8_t s_hi = vmlal_high_u8(vmlal_high_u8(vmull_high_u8(r8, vdupq_n_u8(153)), g8, vdupq_n_u8(45)),
                                          b8, vdupq_n_u8(58));
    vst1q_u8(y_out, vrhaddq_u8(vcombine_u8(vshrn_n_u16(s_lo, 8), vshrn_n_u16(s_hi, 8)), g8));
    if (uv_out) {
        // The even pixels' channels: eight pairs.
        const int16x8_t re = Widen(vget_low_u8(vuzp1q_u8(r8, r8)));
        const int16x8_t ge = Widen(vget_low_u8(vuzp1q_u8(g8, g8)));
        const int16x8_t be = Widen(vget_low_u8(vuzp1q_u8(b8, b8)));
        const Sum32 u(re, ge, be, -87, -169, 256);
        const Sum32 v(re, ge, be, 256, -215, -41);
        uint8x8x2_t out;
        out.val[0] = Chroma(u.lo, u.hi);
        out.val[1] = Chroma(v.lo, v.hi);
        vst2_u8(uv_out, out);
    }
}

void Correct(const unsigned char* y, const unsigned char* uv, int n, const unsigned char* lut,
             unsigned char* y_out, unsigned char* uv_out) {
    const Table table[3] = {Table(lut), Table(lut + 256), Table(lut + 512)};
    int i = 0;
    for (; i + 16 <= n; i += 16) CorrectBlock(y + i, uv + i, table, y_out + i, uv_out ? uv_out + i : nullptr);
    if (i < n) {
        const int left = n - i, bytes = 2 * ((left + 1) / 2);
        unsigned char yb[16] = {}, uvb[16] = {}, yo[16], uvo[16];
        for (int k = 0; k < left; ++k) yb[k] = y[i + k];
        for (int k = 0; k < bytes; ++k) uvb[k] = uv[i + k];
        CorrectBlock(yb, uvb, table, yo, uv_out ? uvo : nullptr);
        for (int k = 0; k < left; ++k) y_out[i + k] = yo[k];
        if (uv_out)
            for (int k = 0; k < bytes; ++k) uv_out[i + k] = uvo[k];
    }
}

// Bits 8..15 of a * w0 + b * w1 depend only on the sum's low 16 bits, so
// wrapping 16-bit products give the stored byte exactly. Weights for eight
// bytes come as two vectors of w0 | w1 << 16.
inline void MixBlock(const unsigned char* a, const unsigned char* b, uint32x4_t w_lo, uint32x4_t w_hi,
                     unsigned char* out) {
    const uint16x8_t w0 = vuzp1q_u16(vreinterpretq_u16_u32(w_lo), vreinterpretq_u16_u32(w_hi));
    const uint16x8_t w1 = vuzp2q_u16(vreinterpretq_u16_u32(w_lo), vreinterpretq_u16_u32(w_hi));
    const uint16x8_t s = vmlaq_u16(vmulq_u16(vmovl_u8(vld1_u8(a)), w0), vmovl_u8(vld1_u8(b)), w1);
    vst1_u8(out, vshrn_n_u16(s, 8));
}

void Blend(const unsigned char* a, const unsigned char* b, const uint32_t* w, int n,
           unsigned char* out) {
    int i = 0;
    for (; i + 8 <= n; i += 8) MixBlock(a + i, b + i, vld1q_u32(w + i), vld1q_u32(w + i + 4), out + i);
    kComposeScalar.blend(a + i, b + i, w + i, n - i, out + i);
}

// Both bytes of pair k take the weights of its even pixel, w[2k]; w holds
// 2 * pairs - 1 entries, so the second load starts one early.
inline void MixPairs(const unsigned char* a, const unsigned char* b, const uint32_t* w,
                     unsigned char* out) {
    const uint32x4_t w0 = vld1q_u32(w), w1 = vld1q_u32(w + 3);
    const uint32x4_t even = vcombine_u32(vget_low_u32(vuzp1q_u32(w0, w0)), vget_low_u32(vuzp2q_u32(w1, w1)));
    MixBlock(a, b, vzip1q_u32(even, even), vzip2q_u32(even, even), out);
}

void BlendPairs(const unsigned char* a, const unsigned char* b, const uint32_t* w, int pairs,
                unsigned char* out) {
    int i = 0;
    for (; i + 4 <= pairs; i += 4) MixPairs(a + 2 * i, b + 2 * i, w + 2 * i, out + 2 * i);
    kComposeScalar.blend_pairs(a + 2 * i, b + 2 * i, w + 2 * i, pairs - i, out + 2 * i);
}

}  // namespace

const ComposeKernels kComposeNeon = {SampleLuma, SampleChroma, Correct, Blend, BlendPairs};

}  // namespace svc
