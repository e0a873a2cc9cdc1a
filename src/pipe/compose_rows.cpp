// Portable row kernels of the planned composition: the reference that every
// instruction-set variant must match byte for byte.
#include "pipe/compose_kernels.h"

namespace svc {
namespace {

// One direction of the 2 x 2 interpolation: fraction f in 1/2^s, arithmetic
// shift, no rounding.
inline int Lerp(int a, int b, int f, int s) { return a + (((b - a) * f) >> s); }

void SampleLuma(const uint32_t* pos, int n, const unsigned char* img, int w, unsigned char* y) {
    for (int i = 0; i < n; ++i) {
        const int sx = static_cast<int>(pos[i] & 0xffff), sy = static_cast<int>(pos[i] >> 16);
        const int ex = sx & 15, ey = sy & 15;
        const unsigned char* p = img + (sy >> 4) * w + (sx >> 4);
        const int top = Lerp(p[0], p[1], ex, 4);
        const int bottom = Lerp(p[w], p[w + 1], ex, 4);
        y[i] = static_cast<unsigned char>(Lerp(top, bottom, ey, 4));
    }
}

void SampleChroma(const uint32_t* pos, int pairs, const unsigned char* img, int w, int h,
                  unsigned char* uv) {
    const unsigned char* plane = img + w * h;
    for (int i = 0; i < pairs; ++i) {
        const int sx = static_cast<int>(pos[2 * i] & 0xffff), sy = static_cast<int>(pos[2 * i] >> 16);
        const int px = sx >> 4, py = sy >> 4;
        // A chroma sample sits on the even luma sample: fractions in 1/32.
        const int ex = (sx & 15) + ((px & 1) << 4), ey = (sy & 15) + ((py & 1) << 4);
        // The last interior column and row use their chroma sample twice.
        const int dx = px < w - 2 ? 2 : 0, dy = py < h - 2 ? w : 0;
        const unsigned char* q = plane + (py >> 1) * w + (px >> 1) * 2;
        for (int c = 0; c < 2; ++c) {
            const int top = Lerp(q[c], q[dx + c], ex, 5);
            const int bottom = Lerp(q[dy + c], q[dy + dx + c], ex, 5);
            uv[2 * i + c] = static_cast<unsigned char>(Lerp(top, bottom, ey, 5));
        }
    }
}

inline int Clamp255(int x) { return x < 0 ? 0 : x > 255 ? 255 : x; }

// Chroma of 8-bit RGB in 1/512: divide rounding half away from zero, then
// recentre. Below zero, truncation toward zero is a floor shift of x + 255;
// the sum lies in -65280..65280, so only the top can clip.
inline unsigned char Chroma(int x) {
    const int c = ((x + 256 - (x < 0)) >> 9) + 128;
    return static_cast<unsigned char>(c > 255 ? 255 : c);
}

// YUV to RGB with weights in 1/512 is Y plus a whole-level offset per
// channel that depends on the chroma pair only (a sum that would truncate
// differently is negative and clamps to 0 either way); black luma stays
// black. The tables clamp nothing: the index is clamped first.
void Correct(const unsigned char* y, const unsigned char* uv, int n, const unsigned char* lut,
             unsigned char* y_out, unsigned char* uv_out) {
    for (int i = 0; i < n; ++i) {
        const int cu = uv[i & ~1] - 128, cv = uv[(i & ~1) + 1] - 128;
        const int Y = y[i];
        int r = lut[0], g = lut[256], b = lut[512];
        if (Y != 0) {
            r = lut[Clamp255(Y + ((718 * cv + 256) >> 9))];
            g = lut[256 + Clamp255(Y + ((-176 * cu - 366 * cv + 256) >> 9))];
            b = lut[512 + Clamp255(Y + ((907 * cu + cv + 256) >> 9))];
        }
        // At most 255 * 512 + 256: never negative, never above 255 after the shift.
        y_out[i] = static_cast<unsigned char>((153 * r + 301 * g + 58 * b + 256) >> 9);
        if (uv_out && (i & 1) == 0) {
            uv_out[i] = Chroma(-87 * r - 169 * g + 256 * b);
            uv_out[i + 1] = Chroma(256 * r - 215 * g - 41 * b);
        }
    }
}

// Weights in 1/256, no rounding and no clamping: only the low 8 bits of the
// shifted sum survive, which wrapping 32-bit arithmetic gives exactly.
inline unsigned char Mix(int a, int b, uint32_t w) {
    const uint32_t w0 = static_cast<uint32_t>(static_cast<int16_t>(w & 0xffff));
    const uint32_t w1 = static_cast<uint32_t>(static_cast<int16_t>(w >> 16));
    return static_cast<unsigned char>((static_cast<uint32_t>(a) * w0 + static_cast<uint32_t>(b) * w1) >> 8);
}

void Blend(const unsigned char* a, const unsigned char* b, const uint32_t* w, int n,
           unsigned char* out) {
    for (int i = 0; i < n; ++i) out[i] = Mix(a[i], b[i], w[i]);
}

void BlendPairs(const unsigned char* a, const unsigned char* b, const uint32_t* w, int pairs,
                unsigned char* out) {
    for (int i = 0; i < 2 * pairs; ++i) out[i] = Mix(a[i], b[i], w[i & ~1]);
}

}  // namespace

const ComposeKernels kComposeScalar = {SampleLuma, SampleChroma, Correct, Blend, BlendPairs};

}  // namespace svc
