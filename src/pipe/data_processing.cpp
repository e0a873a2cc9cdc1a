// Output composition: mesh lookup, bilinear sampling of the camera images,
// per-camera colour correction and the blend of the two mesh tables.
//
// Byte-exact with the plain pixel-by-pixel form kept beside the tests, but
// the column walk is done once per call (it is the same for every row), the
// horizontal half of the mesh interpolation once per band of rows sharing a
// cell row, and at 8 bits the colour goes through per-call tables. Positions
// that only absurd control tables could push past 32 bits are carried in 64
// bits per row or per call; cells with huge corner values interpolate in 64
// bits.
#include "pipe/data_processing.h"

#include "pipe/compose_plan.h"
#include "pipe/mesh_walk.h"
#include "log.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace {

const int kMaxInterval = 15;

// Sample depths the colour helpers accept. A scale 1 << (bits - 8) needs
// bits >= 8 where it is used; 24 keeps every product of the conversions
// inside 64 bits.
bool DepthOk(int bits, int lowest) { return bits >= lowest && bits <= 24; }

// Upper limit first, then negatives to 0.
int64_t Limit(int64_t x, int64_t maxv) {
    if (x > maxv) x = maxv;
    if (x < 0) x = 0;
    return x;
}


// Tone-curve segment from level lo to hi over one knot spacing, d the
// offset into it; the division truncates toward zero.
int64_t Segment(int64_t lo, int64_t hi, int64_t d, int step) {
    return lo + ((hi - lo) * d + step / 2) / step;
}

// x carries 9 fractional bits (times the input scale); adds a plain half.
int Rescale(int64_t x, int64_t s_out, int64_t den, int64_t maxv) {
    return static_cast<int>(Limit((x * s_out + den / 2) / den, maxv));
}

// RGB2YUV's chroma: rounds half away from zero, then recentres on 128.
int ToChroma(int64_t x, int64_t s_out, int64_t den, int64_t maxv) {
    const int64_t sgn = (x > 0) - (x < 0);
    return static_cast<int>(Limit((x * s_out + sgn * den / 2) / den + 128 * s_out, maxv));
}

// ---- Composition -----------------------------------------------------------

using namespace svc::mesh;

// The per-pixel steps: the compiler would otherwise keep Fetch out of line.
#if defined(__GNUC__)
#define SV_PIXEL_INLINE inline __attribute__((always_inline))
#else
#define SV_PIXEL_INLINE inline
#endif

// Everything a pixel needs besides its position and its columns.
struct Frame {
    unsigned char** cams;
    int in_w, in_h;
    int shift;  // IntervalY + 4 in both directions: tables keep IntervalX == IntervalY
};

// Luma of the column's camera at row fraction fy into y; at even-even output
// pixels also the chroma pair into u, v. False where the camera does not see
// the point: column 0 and row 0 are never sampled.
template <typename Wide>
SV_PIXEL_INLINE bool Fetch(const Frame& f, const Column& c, int fy, bool even, int& y, int& u, int& v) {
    const int sx = Lerp<Wide>(c.top[kSrcX], c.bottom[kSrcX], fy, f.shift);
    const int sy = Lerp<Wide>(c.top[kSrcY], c.bottom[kSrcY], fy, f.shift);
    const int px = sx >> 4, py = sy >> 4;
    if (px < 1 || px > f.in_w - 2 || py < 1 || py > f.in_h - 2) return false;
    const size_t w = static_cast<size_t>(f.in_w);
    const unsigned char* img = f.cams[c.cam];
    const unsigned char* p = img + py * w + px;
    int ex = sx & 15, ey = sy & 15;
    y = Lerp<int>(Lerp<int>(p[0], p[1], ex, 4), Lerp<int>(p[w], p[w + 1], ex, 4), ey, 4);
    if (even) {
        // The last interior column and row use their chroma sample twice.
        const size_t dx = px < f.in_w - 2 ? 2 : 0;
        const size_t dy = py < f.in_h - 2 ? w : 0;
        // A chroma sample sits on the even luma sample: fractions become 1/32.
        ey += (py & 1) << 4;
        ex += (px & 1) << 4;
        const unsigned char* q = img + w * f.in_h + (py / 2) * w + (px / 2) * 2;
        u = Lerp<int>(Lerp<int>(q[0], q[dx], ex, 5), Lerp<int>(q[dy], q[dy + dx], ex, 5), ey, 5);
        v = Lerp<int>(Lerp<int>(q[1], q[dx + 1], ex, 5),
                      Lerp<int>(q[dy + 1], q[dy + dx + 1], ex, 5), ey, 5);
    }
    return true;
}

// RGB2YUV's chroma at 8 bits: divide by 512 rounding half away from zero.
// Below zero, truncation toward zero equals a floor shift of x + 255. A
// chroma sum of 8-bit RGB lies in -65280..65280, so only the top can clip.
int ToChroma8(int x) { return std::min(((x + 256 - (x < 0)) >> 9) + 128, 255); }

// Colour correction at 8 bits. YUV2RGB's (512 Y + c + 256) / 512 is
// Y + ((c + 256) >> 9): the chroma term c is a whole-pixel offset computed
// once per chroma pair (a sum that truncates differently is negative and
// clamps to 0 either way). The clamp to 0..255, the gain and the curve then
// come from one table per camera and channel, indexed by Y plus that offset:
// the channels are independent and ToneMapping itself fills the tables.
// RGB2YUV's luma sum is never negative, so its division is a shift too.
struct Depth8 {
    // Y 0..255 plus offsets -227..225 (chroma 0..255), biased by kLow.
    static const int kLow = 256;
    struct Pair {
        int r, g, b;
    };
    unsigned char level[4][3][3 * 256];

    Depth8(int* gain, int* tcurve, int step) {
        for (int cam = 0; cam < 4; ++cam) {
            for (int x = 0; x < 256; ++x) {
                int rgb[3] = {x, x, x};
                ToneMapping(gain + 3 * cam, tcurve + 9 * cam, step, rgb[0], rgb[1], rgb[2], 8);
                for (int ch = 0; ch < 3; ++ch) {
                    unsigned char* l = level[cam][ch];
                    l[kLow + x] = static_cast<unsigned char>(rgb[ch]);
                    if (x == 0) std::fill(l, l + kLow, l[kLow]);
                    if (x == 255) std::fill(l + kLow + 256, l + 3 * 256, l[kLow + 255]);
                }
            }
        }
    }

    static Pair Prepare(int u, int v) {
        const int cu = u - 128, cv = v - 128;
        return {(718 * cv + 256) >> 9, (-176 * cu - 366 * cv + 256) >> 9,
                (907 * cu + cv + 256) >> 9};
    }

    void Correct(int cam, const Pair& c, int& y, int& u, int& v) const {
        const unsigned char(*l)[3 * 256] = level[cam];
        int r = l[0][kLow], g = l[1][kLow], b = l[2][kLow];
        // Black luma stays black whatever the chroma says.
        if (y != 0) {
            r = l[0][kLow + y + c.r];
            g = l[1][kLow + y + c.g];
            b = l[2][kLow + y + c.b];
        }
        // At most 255 * 512 + 256: no clamp needed.
        y = (153 * r + 301 * g + 58 * b + 256) >> 9;
        u = ToChroma8(-87 * r - 169 * g + 256 * b);
        v = ToChroma8(256 * r - 215 * g - 41 * b);
    }
};

// Any other depth: the colour helpers one sample at a time.
struct AnyDepth {
    struct Pair {
        int u, v;
    };
    int* gain;
    int* tcurve;
    int step;
    int bits;

    static Pair Prepare(int u, int v) { return {u, v}; }

    void Correct(int cam, const Pair& c, int& y, int& u, int& v) const {
        int r, g, b;
        YUV2RGB(y, c.u, c.v, r, g, b, bits, bits);
        ToneMapping(gain + 3 * cam, tcurve + 9 * cam, step, r, g, b, bits);
        RGB2YUV(r, g, b, y, u, v, bits, bits);
    }
};

// Weights in 1/256, no rounding and no clamping: only the low 8 bits of a
// sum above 256 survive. Bits 8..15 of the sum are exact modulo 2^32, so
// wrapping unsigned arithmetic gives them for any weight.
unsigned char Blend(int a, int b, int wa, int wb) {
    const uint32_t sum = static_cast<uint32_t>(a) * static_cast<uint32_t>(wa) +
                         static_cast<uint32_t>(b) * static_cast<uint32_t>(wb);
    return static_cast<unsigned char>(sum >> 8);
}

// Both tables' contributions to one output pixel and its store. Odd columns
// and rows take the chroma pair last stored for their column pair; the
// corrected chroma does not go back into the cache.
template <class Colour>
void ComposePixel(const Frame& f, const Colour& colour, const Column* col[2], int fy,
                  bool even, typename Colour::Pair* cache[2], unsigned char* luma,
                  unsigned char* chroma) {
    int y[2] = {0, 0}, u[2] = {128, 128}, v[2] = {128, 128};
    bool valid[2];
    for (int t = 0; t < 2; ++t) {
        const Column& c = *col[t];
        valid[t] = c.seen && (c.narrow ? Fetch<int>(f, c, fy, even, y[t], u[t], v[t])
                                       : Fetch<int64_t>(f, c, fy, even, y[t], u[t], v[t]));
        if (!valid[t]) continue;
        if (even) *cache[t] = colour.Prepare(u[t], v[t]);
        colour.Correct(c.cam, *cache[t], y[t], u[t], v[t]);
    }
    if (!valid[0] && !valid[1]) return;
    // A lone contribution takes full weight: its values pass unchanged.
    if (valid[0] != valid[1]) {
        const int t = valid[0] ? 0 : 1;
        *luma = static_cast<unsigned char>(y[t]);
        if (even) {
            chroma[0] = static_cast<unsigned char>(u[t]);
            chroma[1] = static_cast<unsigned char>(v[t]);
        }
        return;
    }
    const int w[2] = {col[0]->Weight(fy, f.shift), col[1]->Weight(fy, f.shift)};
    *luma = Blend(y[0], y[1], w[0], w[1]);
    if (even) {
        chroma[0] = Blend(u[0], u[1], w[0], w[1]);
        chroma[1] = Blend(v[0], v[1], w[0], w[1]);
    }
}

// Output columns processed together: every row walks the same columns, so
// the columns are rendered a strip at a time, each strip top to bottom. A
// strip starts on an even column and so holds whole chroma pairs: the
// chroma cache of a strip sees its pairs' rows in the same order.
const int kStrip = 64;

// Columns [lo, hi) of every row, top to bottom.
template <class Colour>
void RenderStrip(const Frame& f, const Colour& colour, const tag_CtrlPara& p,
                 const Geometry& g, int lo, int hi, unsigned char* out, int out_w,
                 int out_h) {
    // Per table, what the chroma pair last stored for each column pair
    // gives the colour correction; 128 before the first store.
    typename Colour::Pair cache[2][kStrip / 2];
    for (int t = 0; t < 2; ++t) std::fill(cache[t], cache[t] + kStrip / 2, Colour::Prepare(128, 128));
    Column band[2][kStrip];
    const size_t stride = static_cast<size_t>(out_w);
    WalkRows(p, g, lo, hi, out_h, band[0], band[1], [&](int oy, int fy) {
        const bool even_row = oy % 2 == 0;
        unsigned char* luma = out + oy * stride;
        unsigned char* chroma = out + (out_h + oy / 2) * stride;
        for (int col = lo; col < hi; ++col) {
            const int i = col - lo;
            const int ox = static_cast<int>(g.disp_x + col);
            const Column* c[2] = {&band[0][i], &band[1][i]};
            typename Colour::Pair* pair[2] = {&cache[0][i / 2], &cache[1][i / 2]};
            ComposePixel(f, colour, c, fy, even_row && i % 2 == 0, pair, luma + ox, chroma + ox);
        }
    });
}

template <class Colour>
void Render(unsigned char** yuv, int in_w, int in_h, unsigned char* out,
            int out_w, int out_h, const tag_CtrlPara& p, const Colour& colour) {
    Geometry g;
    if (!PrepareGeometry(p, out_w, g)) return;
    const Frame f = {yuv, in_w, in_h, g.shift};
    for (int col = g.lo; col < g.hi; col += kStrip)
        RenderStrip(f, colour, p, g, col, std::min(col + kStrip, g.hi), out, out_w, out_h);
}

bool Refuse(const char* why) {
    svc::Log("error! %s\n", why);
    return false;
}

// The loader rejects such tables too, but DataProcessing is exported and may
// be called with anything; a refusal leaves the output untouched.
bool CanRender(unsigned char** yuv, int in_w, int in_h, const unsigned char* out,
               int out_w, int out_h, const tag_CtrlPara* para, const int* gain,
               const int* tcurve, int step, int bits) {
    if (!yuv || !yuv[0] || !yuv[1] || !yuv[2] || !yuv[3] || !out || !para ||
        !para->TB1 || !para->TB2 || !gain || !tcurve)
        return Refuse("missing buffer for DataProcessing");
    if (out_w > kMaxOutW) return Refuse("output wider than 4096 pixels");
    // NV12 pairs pixels: an odd size would read or write one byte past a plane.
    if (in_w % 2 != 0 || in_h % 2 != 0 || out_w % 2 != 0 || out_h % 2 != 0)
        return Refuse("odd image size for DataProcessing");
    if (para->ZoomFactorX <= 0 || para->ZoomFactorY <= 0)
        return Refuse("ZoomFactorX and ZoomFactorY must be positive");
    if (para->IntervalX < 0 || para->IntervalX > kMaxInterval ||
        para->IntervalY < 0 || para->IntervalY > kMaxInterval)
        return Refuse("IntervalX and IntervalY must be 0..15");
    if (para->ROIStartX < 0) return Refuse("negative ROIStartX");
    if (step <= 0 || !DepthOk(bits, 8))
        return Refuse("tone-curve spacing must be positive and bit depth 8..24");
    return true;
}

}  // namespace

int BilinearInterpolation(int corners[2][2], int dx, int dy, int shift, int extra) {
    const int s = shift + extra;
    const int top = Lerp<int64_t>(corners[0][0], corners[0][1], dx, s);
    const int bottom = Lerp<int64_t>(corners[1][0], corners[1][1], dx, s);
    return Lerp<int64_t>(top, bottom, dy, s);
}

// Out-of-range depths or a non-positive spacing leave R, G, B as they are.
void ToneMapping(int* gain, int* tcurve, int step, int& R, int& G, int& B, int bits) {
    if (step <= 0 || !DepthOk(bits, 0)) return;
    // The polyline ends one above the largest sample so that the identity
    // knots map every level to itself.
    const int64_t top = int64_t{1} << bits;
    const int64_t maxv = top - 1;
    int* rgb[3] = {&R, &G, &B};

    // Q10 gains, all three before any curve.
    for (int ch = 0; ch < 3; ++ch)
        *rgb[ch] = static_cast<int>(
            Limit((static_cast<int64_t>(gain[ch]) * *rgb[ch] + 512) / 1024, maxv));

    for (int ch = 0; ch < 3; ++ch) {
        const int* k = tcurve + 3 * ch;
        const int64_t x = *rgb[ch];
        const int64_t seg = x / step;
        int64_t y;
        if (seg == 0) {
            y = Segment(0, k[0], x, step);
        } else if (seg == 3 || 3 * ch + seg > 8) {
            // A spacing too small for the range sends later segments to the
            // next channel's knots; past the camera's nine the last segment
            // extends instead.
            y = Segment(k[2], top, x - 3 * step, step);
        } else {
            y = Segment(k[seg - 1], k[seg], x - seg * step, step);
        }
        *rgb[ch] = static_cast<int>(Limit(y, maxv));
    }
}

// Weights scaled by 512. Out-of-range depths give black.
void YUV2RGB(int Y, int U, int V, int& R, int& G, int& B, int inBits, int outBits) {
    // Black luma is black whatever the chroma says.
    if (Y == 0 || !DepthOk(inBits, 8) || !DepthOk(outBits, 8)) {
        R = G = B = 0;
        return;
    }
    const int64_t s_in = int64_t{1} << (inBits - 8);
    const int64_t s_out = int64_t{1} << (outBits - 8);
    const int64_t den = 512 * s_in, maxv = 255 * s_out;
    const int64_t y = 512 * static_cast<int64_t>(Y);
    const int64_t u = U - 128 * s_in, v = V - 128 * s_in;
    R = Rescale(y + 718 * v, s_out, den, maxv);
    G = Rescale(y - 176 * u - 366 * v, s_out, den, maxv);
    // The blue row carries v with weight 1, not 0.
    B = Rescale(y + 907 * u + v, s_out, den, maxv);
}

// Luma weights sum to 512 and each chroma row to 0. Out-of-range depths give
// zeros.
void RGB2YUV(int R, int G, int B, int& Y, int& U, int& V, int inBits, int outBits) {
    if (!DepthOk(inBits, 0) || !DepthOk(outBits, 8)) {
        Y = U = V = 0;
        return;
    }
    const int64_t den = int64_t{2} << inBits;
    const int64_t s_out = int64_t{1} << (outBits - 8);
    const int64_t maxv = 255 * s_out;
    const int64_t r = R, g = G, b = B;
    const int64_t y = 153 * r + 301 * g + 58 * b;
    const int64_t u = -87 * r - 169 * g + 256 * b;
    const int64_t v = 256 * r - 215 * g - 41 * b;
    if (y == 0) {
        Y = 0;
        U = V = static_cast<int>(128 * s_out);
        return;
    }
    Y = Rescale(y, s_out, den, maxv);
    U = ToChroma(u, s_out, den, maxv);
    V = ToChroma(v, s_out, den, maxv);
}

int DataProcessing(unsigned char** YUV, int WidthIn, int HeightIn,
                   unsigned char* out, int OutW, int OutH, tag_CtrlPara* para,
                   int* gain, int* tcurve, int step, int bits) {
    if (!CanRender(YUV, WidthIn, HeightIn, out, OutW, OutH, para, gain, tcurve,
                   step, bits))
        return 1;
    const tag_CtrlPara& p = *para;
    // Nothing could land in the output.
    if (p.DispCoorX >= OutW || p.DispCoorY >= OutH || p.TableHeight < 1) return 1;
    if (bits == 8 && svc::RenderPlanned(YUV, WidthIn, HeightIn, out, OutW, OutH, p, gain, tcurve, step))
        return 1;
    if (bits == 8)
        Render(YUV, WidthIn, HeightIn, out, OutW, OutH, p, Depth8(gain, tcurve, step));
    else
        Render(YUV, WidthIn, HeightIn, out, OutW, OutH, p, AnyDepth{gain, tcurve, step, bits});
    return 1;
}
