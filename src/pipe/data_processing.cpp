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

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace {

// The chroma cache is indexed by output column and has a fixed width.
const int kMaxOutW = 1280;
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

// One direction of the 2 x 2 interpolation: arithmetic shift, no rounding.
// Wide = int where the caller has shown that nothing leaves 32 bits.
template <typename Wide>
int Lerp(int a, int b, int f, int s) {
    return static_cast<int>(a + ((static_cast<Wide>(b) - a) * f >> s));
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

// Table index of the first node line of mesh cell k. Cells at and beyond a
// seam skip its doubled line; the second test sees the shifted index, so s2
// is a table index as well.
int64_t PastSeams(int64_t k, int s1, int s2) {
    if (s1 <= k) ++k;
    if (s2 <= k) ++k;
    return k;
}

// The per-pixel steps: the compiler would otherwise keep Fetch out of line.
#if defined(__GNUC__)
#define SV_PIXEL_INLINE inline __attribute__((always_inline))
#else
#define SV_PIXEL_INLINE inline
#endif

// Fields of a mesh node that are interpolated.
enum { kSrcX, kSrcY, kWeight, kFields };

// One mesh cell of one table: corners [field][top, bottom][left, right] and
// what every pixel of the cell shares.
struct Cell {
    int corner[kFields][2][2];
    int cam;      // 0..3
    bool blends;  // CamSel corners agree; a mixed cell renders at weight 0
    bool seen;    // every SrcX and SrcY corner >= 0
    bool narrow;  // interpolation cannot leave 32 bits (see NarrowLimit)
};

// Corner values below the limit in magnitude keep every product of the
// interpolation inside int32: differences stay under 2 * limit and
// fractions under 2^s, so each product stays under 2^31. Needs the same
// fraction range in both directions, i.e. IntervalX == IntervalY.
int64_t NarrowLimit(const tag_CtrlPara& p) {
    return p.IntervalX == p.IntervalY ? int64_t{1} << (26 - p.IntervalY) : 0;
}

void LoadCell(const int* table, int64_t width, int64_t cell_x, int64_t cell_y,
              int t, int64_t narrow_limit, Cell& c) {
    int zeros = 0, ones = 0;
    bool seen = true, narrow = true;
    for (int a = 0; a < 2; ++a) {
        for (int b = 0; b < 2; ++b) {
            const int* node = table + ((cell_y + a) * width + cell_x + b) * 4;
            for (int i = 0; i < kFields; ++i) {
                c.corner[i][a][b] = node[i];
                narrow = narrow && node[i] > -narrow_limit && node[i] < narrow_limit;
            }
            seen = seen && node[kSrcX] >= 0 && node[kSrcY] >= 0;
            zeros += node[3] == 0;
            ones += node[3] == 1;
        }
    }
    c.cam = 2 * t + (ones == 4 ? 1 : 0);
    c.blends = zeros == 4 || ones == 4;
    c.seen = seen;
    c.narrow = narrow;
}

template <typename Wide>
int Interpolate(const int c[2][2], int fx, int fy, int s) {
    const int top = Lerp<Wide>(c[0][0], c[0][1], fx, s);
    const int bottom = Lerp<Wide>(c[1][0], c[1][1], fx, s);
    return Lerp<Wide>(top, bottom, fy, s);
}

// One table's view of one output column for the rows of one cell row: the
// horizontal half of the interpolation, done once for all those rows.
struct Column {
    int top[kFields], bottom[kFields];
    int cam;
    bool blends, seen, narrow;
};

template <typename Wide>
void Cut(const Cell& c, int fx, int s, Column& col) {
    for (int i = 0; i < kFields; ++i) {
        col.top[i] = Lerp<Wide>(c.corner[i][0][0], c.corner[i][0][1], fx, s);
        col.bottom[i] = Lerp<Wide>(c.corner[i][1][0], c.corner[i][1][1], fx, s);
    }
    col.cam = c.cam;
    col.blends = c.blends;
    col.seen = c.seen;
    col.narrow = c.narrow;
}

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
    int w[2];
    for (int t = 0; t < 2; ++t) {
        const Column& c = *col[t];
        w[t] = !c.blends ? 0
               : c.narrow ? Lerp<int>(c.top[kWeight], c.bottom[kWeight], fy, f.shift)
                          : Lerp<int64_t>(c.top[kWeight], c.bottom[kWeight], fy, f.shift);
    }
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

// Where each column lies in the mesh: the same for every row, since the
// horizontal walk never looks at the row.
struct ColumnWalk {
    int cell_x[kMaxOutW];  // table index of the cell's first node column
    int fx[kMaxOutW];      // position inside the cell in 1/16 pixel
    int end;               // the walk leaves the ROI or the table here
};

// The horizontal walk: the row's first cell is taken without the width test
// (the caller has checked it against the table); a later cell past
// TableWidth - 2, or a position past ROIEndX, ends every row. False when no
// column is left.
bool WalkColumns(const tag_CtrlPara& p, int64_t x0, int first_x, int out_w, ColumnWalk& w) {
    // Table-space advance per output pixel in 1/2048 pixel: 131072 = 64 * 2048,
    // rounded to nearest, at most 131072; positions advance from x0 by
    // d in 1/16 pixel, at most 1279 * 131072 / 128.
    const int step_x = (p.ZoomFactorX / 2 + 131072) / p.ZoomFactorX;
    const int x_bits = p.IntervalX + 4;
    const int64_t roi_end = 16 * static_cast<int64_t>(p.ROIEndX) + 15 - x0;
    int64_t cell_k = x0 >> x_bits;
    int cell_x = first_x;
    // Where the current cell starts, as an advance: at most 0 for the first
    // cell, at most the advance that entered it for later ones.
    int cell_start = static_cast<int>((cell_k << x_bits) - x0);
    w.end = out_w;
    for (int col = 0, acc_x = 0; col < out_w; ++col, acc_x += step_x) {
        const int d = (acc_x + 64) >> 7;
        if (d > roi_end) {
            w.end = col;
            break;
        }
        if (d - cell_start >= (1 << x_bits)) {
            cell_k = (x0 + d) >> x_bits;
            const int64_t next = PastSeams(cell_k, p.L1, p.L2);
            if (next > static_cast<int64_t>(p.TableWidth) - 2) {
                w.end = col;
                break;
            }
            cell_x = static_cast<int>(next);
            cell_start = static_cast<int>((cell_k << x_bits) - x0);
        }
        w.cell_x[col] = cell_x;
        w.fx[col] = d - cell_start;
    }
    return w.end > 0;
}

// Columns [lo, hi) of every row, top to bottom.
template <class Colour>
void RenderStrip(const Frame& f, const Colour& colour, const tag_CtrlPara& p,
                 const ColumnWalk& walk, int lo, int hi, int64_t disp_x,
                 unsigned char* out, int out_w, int out_h) {
    // Per table, what the chroma pair last stored for each column pair
    // gives the colour correction; 128 before the first store.
    typename Colour::Pair cache[2][kStrip / 2];
    for (int t = 0; t < 2; ++t) std::fill(cache[t], cache[t] + kStrip / 2, Colour::Prepare(128, 128));
    Column band[2][kStrip];
    int64_t band_y = -1;
    const int64_t narrow_limit = NarrowLimit(p);
    const int64_t step_y = (p.ZoomFactorY / 2 + 131072) / p.ZoomFactorY;
    const int64_t cell_h16 = int64_t{1} << (p.IntervalY + 4);
    // Origin in 1/16 pixel. The clamp holds for the first row only; later
    // rows count from the unclamped origin.
    const int64_t y0 = 16 * static_cast<int64_t>(p.ROIStartY);
    int64_t y16 = y0 < 0 ? 0 : y0;
    const size_t stride = static_cast<size_t>(out_w);

    int64_t acc_y = 0;
    for (int row = 0; row < out_h; ++row, acc_y += step_y, y16 = y0 + ((acc_y + 64) >> 7)) {
        const int64_t y_int = y16 >> 4;
        if (y_int > p.ROIEndY) break;
        const int64_t cell_y = PastSeams(y_int >> p.IntervalY, p.H1, p.H2);
        // Admits the last table row: its lower corners lie in the spare row
        // that the table storage keeps.
        if (cell_y > static_cast<int64_t>(p.TableHeight) - 1) break;
        const int64_t oy = static_cast<int64_t>(p.DispCoorY) + row;
        // Above the table (rows after a clamped first row), or outside the
        // output.
        if (cell_y < 0 || oy < 0 || oy >= out_h) continue;
        if (cell_y != band_y) {
            band_y = cell_y;
            Cell cell[2];
            for (int col = lo; col < hi; ++col) {
                if (col == lo || walk.cell_x[col] != walk.cell_x[col - 1]) {
                    LoadCell(p.TB1, p.TableWidth, walk.cell_x[col], cell_y, 0, narrow_limit, cell[0]);
                    LoadCell(p.TB2, p.TableWidth, walk.cell_x[col], cell_y, 1, narrow_limit, cell[1]);
                }
                for (int t = 0; t < 2; ++t) {
                    if (cell[t].narrow)
                        Cut<int>(cell[t], walk.fx[col], f.shift, band[t][col - lo]);
                    else
                        Cut<int64_t>(cell[t], walk.fx[col], f.shift, band[t][col - lo]);
                }
            }
        }
        // Signed remainder: negative only for seam rows set before row 0.
        const int fy = static_cast<int>(y16 % cell_h16);
        const bool even_row = oy % 2 == 0;
        unsigned char* luma = out + oy * stride;
        unsigned char* chroma = out + (out_h + oy / 2) * stride;
        for (int col = lo; col < hi; ++col) {
            const int i = col - lo;
            const int ox = static_cast<int>(disp_x + col);
            const Column* c[2] = {&band[0][i], &band[1][i]};
            typename Colour::Pair* pair[2] = {&cache[0][i / 2], &cache[1][i / 2]};
            ComposePixel(f, colour, c, fy, even_row && i % 2 == 0, pair, luma + ox, chroma + ox);
        }
    }
}

template <class Colour>
void Render(unsigned char** yuv, int in_w, int in_h, unsigned char* out,
            int out_w, int out_h, const tag_CtrlPara& p, const Colour& colour) {
    // Only the horizontal origins move onto a chroma pair, so output column
    // parity is the column's parity.
    int64_t disp_x = p.DispCoorX, roi_x = p.ROIStartX;
    if (disp_x % 2 != 0) ++disp_x;
    if (roi_x % 2 != 0) ++roi_x;
    // Every row starts in the same cell; out of the table, no row renders.
    const int64_t x0 = 16 * roi_x;
    const int64_t first_x = PastSeams(x0 >> (p.IntervalX + 4), p.L1, p.L2);
    if (first_x < 0 || first_x > static_cast<int64_t>(p.TableWidth) - 1) return;
    ColumnWalk walk;
    if (!WalkColumns(p, x0, static_cast<int>(first_x), out_w, walk)) return;
    // Columns whose output pixel lies inside the image.
    const int lo = static_cast<int>(std::min<int64_t>(std::max<int64_t>(-disp_x, 0), out_w));
    const int hi = static_cast<int>(std::min<int64_t>(out_w - disp_x, walk.end));
    const Frame f = {yuv, in_w, in_h, p.IntervalY + 4};
    for (int col = lo; col < hi; col += kStrip)
        RenderStrip(f, colour, p, walk, col, std::min(col + kStrip, hi), disp_x, out, out_w, out_h);
}

bool Refuse(const char* why) {
    std::printf("error! %s\n", why);
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
    if (out_w > kMaxOutW) return Refuse("output wider than 1280 pixels");
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
    return Interpolate<int64_t>(corners, dx, dy, s);
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
    if (bits == 8)
        Render(YUV, WidthIn, HeightIn, out, OutW, OutH, p, Depth8(gain, tcurve, step));
    else
        Render(YUV, WidthIn, HeightIn, out, OutW, OutH, p, AnyDepth{gain, tcurve, step, bits});
    return 1;
}
