// The composition one pixel at a time, as the mesh lookup reads.
//
// Positions and sums that only absurd control tables could push past 32 bits
// are carried in 64 bits; for every table that fits the output they give the
// same values as 32-bit arithmetic.
#include "common/compose_reference.h"

#include <cstddef>
#include <cstdint>
#include <vector>

#include "pipe/data_processing.h"

namespace svtest {
namespace {

// The 2 x 2 corners [top, bottom][left, right] of one mesh cell, per field.
struct NodeBlock {
    int src_x[2][2];
    int src_y[2][2];
    int weight[2][2];
    int cam_sel[2][2];
};

// What one table adds to the current pixel; the defaults are the reset
// values, which an invalid contribution keeps.
struct Contribution {
    int y = 0;
    int u = 128;
    int v = 128;
    bool valid = false;
    int weight = 0;
    int cam = 0;
};

// Everything a pixel needs besides its position and its node block.
struct Frame {
    unsigned char** cams;
    int in_w, in_h;
    int out_w, out_h;
    int* gain;
    int* tcurve;
    int step;
    int bits;
    int shift;  // IntervalY + 4 in both directions: tables keep IntervalX == IntervalY
};

// Table index of the first node line of mesh cell k. Cells at and beyond a
// seam skip its doubled line; the second test sees the shifted index, so s2
// is a table index as well.
int64_t PastSeams(int64_t k, int s1, int s2) {
    if (s1 <= k) ++k;
    if (s2 <= k) ++k;
    return k;
}

void LoadBlock(const int* table, int64_t width, int64_t cell_x, int64_t cell_y,
               NodeBlock& b) {
    for (int a = 0; a < 2; ++a) {
        for (int c = 0; c < 2; ++c) {
            const int* node = table + ((cell_y + a) * width + cell_x + c) * 4;
            b.src_x[a][c] = node[0];
            b.src_y[a][c] = node[1];
            b.weight[a][c] = node[2];
            b.cam_sel[a][c] = node[3];
        }
    }
}

bool Uniform(const int sel[2][2], int value) {
    return sel[0][0] == value && sel[0][1] == value && sel[1][0] == value &&
           sel[1][1] == value;
}

bool AllNonNegative(const int c[2][2]) {
    return c[0][0] >= 0 && c[0][1] >= 0 && c[1][0] >= 0 && c[1][1] >= 0;
}

// Contribution of table t to output pixel (ox, oy); (fx, fy) is the position
// inside the mesh cell in 1/16 pixel. At even-even pixels the camera's chroma
// is interpolated into the table's cache; every pixel reads its pair from it.
Contribution Contribute(const Frame& f, NodeBlock& b, int t, int fx, int fy,
                        int64_t ox, int64_t oy, int* cache) {
    Contribution c;
    const int sx = BilinearInterpolation(b.src_x, fx, fy, f.shift, 0);
    const int sy = BilinearInterpolation(b.src_y, fx, fy, f.shift, 0);
    c.weight = BilinearInterpolation(b.weight, fx, fy, f.shift, 0);
    // A cell whose corners disagree still renders, but never blends in.
    if (Uniform(b.cam_sel, 1)) {
        c.cam = 1;
    } else if (!Uniform(b.cam_sel, 0)) {
        c.weight = 0;
    }
    c.cam += 2 * t;

    const int px = sx >> 4, py = sy >> 4;
    if (oy < 0 || oy >= f.out_h || ox < 0 || ox >= f.out_w) return c;
    // Column 0 and row 0 are never sampled.
    if (px < 1 || px > f.in_w - 2 || py < 1 || py > f.in_h - 2) return c;
    if (!AllNonNegative(b.src_x) || !AllNonNegative(b.src_y)) return c;

    const size_t w = static_cast<size_t>(f.in_w);
    const unsigned char* img = f.cams[c.cam];
    const unsigned char* p = img + py * w + px;
    int ex = sx - 16 * px, ey = sy - 16 * py;
    int luma[2][2] = {{p[0], p[1]}, {p[w], p[w + 1]}};
    c.y = BilinearInterpolation(luma, ex, ey, 4, 0);
    c.valid = true;

    if (ox % 2 == 0 && oy % 2 == 0) {
        // The last interior column and row use their chroma sample twice.
        const size_t dx = px < f.in_w - 2 ? 2 : 0;
        const size_t dy = py < f.in_h - 2 ? w : 0;
        // A chroma sample sits on the even luma sample: fractions become 1/32.
        if (py % 2 != 0) ey += 16;
        if (px % 2 != 0) ex += 16;
        const unsigned char* q = img + w * f.in_h + (py / 2) * w + (px / 2) * 2;
        int u[2][2] = {{q[0], q[dx]}, {q[dy], q[dy + dx]}};
        int v[2][2] = {{q[1], q[dx + 1]}, {q[dy + 1], q[dy + dx + 1]}};
        cache[ox] = BilinearInterpolation(u, ex, ey, 4, 1);
        cache[ox + 1] = BilinearInterpolation(v, ex, ey, 4, 1);
    }

    // Odd columns and rows take the pair last stored for their column pair;
    // the corrected chroma does not go back into the cache.
    const int64_t pair = (ox / 2) * 2;
    int r, g, bl;
    YUV2RGB(c.y, cache[pair], cache[pair + 1], r, g, bl, f.bits, f.bits);
    ToneMapping(f.gain + 3 * c.cam, f.tcurve + 9 * c.cam, f.step, r, g, bl, f.bits);
    RGB2YUV(r, g, bl, c.y, c.u, c.v, f.bits, f.bits);
    return c;
}

// Weights in 1/256, no rounding and no clamping: only the low 8 bits of a
// sum above 256 survive.
unsigned char Blend(int a, int b, int wa, int wb) {
    return static_cast<unsigned char>(
        (static_cast<int64_t>(a) * wa + static_cast<int64_t>(b) * wb) >> 8);
}

void Store(const Contribution c[2], unsigned char* out, int out_w, int out_h,
           int64_t ox, int64_t oy) {
    if (!c[0].valid && !c[1].valid) return;
    int w0 = c[0].weight, w1 = c[1].weight;
    if (!c[0].valid) {
        w0 = 0;
        w1 = 256;
    }
    if (!c[1].valid) {
        w0 = 256;
        w1 = 0;
    }
    const size_t stride = static_cast<size_t>(out_w);
    out[oy * stride + ox] = Blend(c[0].y, c[1].y, w0, w1);
    if (ox % 2 == 0 && oy % 2 == 0) {
        unsigned char* uv = out + (out_h + oy / 2) * stride + ox;
        uv[0] = Blend(c[0].u, c[1].u, w0, w1);
        uv[1] = Blend(c[0].v, c[1].v, w0, w1);
    }
}

}  // namespace

int ComposeReference(unsigned char** YUV, int WidthIn, int HeightIn,
                     unsigned char* out, int OutW, int OutH, tag_CtrlPara* para,
                     int* gain, int* tcurve, int step, int bits, int cache_w) {
    const tag_CtrlPara& p = *para;
    // The cache is indexed by output column.
    if (OutW > cache_w) return 1;
    // Nothing could land in the output.
    if (p.DispCoorX >= OutW || p.DispCoorY >= OutH || p.TableHeight < 1) return 1;

    const Frame f = {YUV,    WidthIn, HeightIn, OutW, OutH, gain,
                     tcurve, step,    bits,     p.IntervalY + 4};
    // Table-space advance per output pixel in 1/2048 pixel: 131072 = 64 * 2048,
    // rounded to nearest.
    const int64_t step_x = (p.ZoomFactorX / 2 + 131072) / p.ZoomFactorX;
    const int64_t step_y = (p.ZoomFactorY / 2 + 131072) / p.ZoomFactorY;
    // Only the horizontal origins move onto a chroma pair.
    int64_t disp_x = p.DispCoorX, roi_x = p.ROIStartX;
    if (disp_x % 2 != 0) ++disp_x;
    if (roi_x % 2 != 0) ++roi_x;
    // Origins in 1/16 pixel. The clamp holds for the first row only; later
    // rows count from the unclamped origin.
    const int64_t x0 = 16 * roi_x, y0 = 16 * static_cast<int64_t>(p.ROIStartY);
    int64_t y16 = y0 < 0 ? 0 : y0;
    // Mesh cell size in 1/16 pixel.
    const int64_t cell_w16 = int64_t{1} << (p.IntervalX + 4);
    const int64_t cell_h16 = int64_t{1} << (p.IntervalY + 4);

    std::vector<int> cache[2] = {std::vector<int>(cache_w, 128), std::vector<int>(cache_w, 128)};
    NodeBlock block[2];

    int64_t acc_y = 0;
    for (int row = 0; row < OutH; ++row, acc_y += step_y, y16 = y0 + ((acc_y + 64) >> 7)) {
        const int64_t y_int = y16 >> 4;
        if (y_int > p.ROIEndY) break;
        const int64_t cell_y = PastSeams(y_int >> p.IntervalY, p.H1, p.H2);
        // Admits the last table row: its lower corners lie in the spare row
        // that the table storage keeps.
        if (cell_y > static_cast<int64_t>(p.TableHeight) - 1) break;
        // Above the table: rows after a clamped first row.
        if (cell_y < 0) continue;
        const int64_t oy = static_cast<int64_t>(p.DispCoorY) + row;
        // Signed remainder: negative only for seam rows set before row 0.
        const int fy = static_cast<int>(y16 % cell_h16);

        // The row's first block is loaded without the width test, so it may
        // reach one node past the row (the loader's storage has room for
        // that); a block further out would read outside any table.
        int64_t x16 = x0, acc_x = 0, cell_k = x0 >> (p.IntervalX + 4);
        const int64_t first_x = PastSeams(cell_k, p.L1, p.L2);
        if (first_x < 0 || first_x > static_cast<int64_t>(p.TableWidth) - 1) continue;
        LoadBlock(p.TB1, p.TableWidth, first_x, cell_y, block[0]);
        LoadBlock(p.TB2, p.TableWidth, first_x, cell_y, block[1]);
        for (int col = 0; col < OutW; ++col, acc_x += step_x, x16 = x0 + ((acc_x + 64) >> 7)) {
            const int64_t x_int = x16 >> 4;
            if (x_int > p.ROIEndX) break;
            const int64_t k = x_int >> p.IntervalX;
            if (k != cell_k) {
                cell_k = k;
                const int64_t cell_x = PastSeams(k, p.L1, p.L2);
                if (cell_x > static_cast<int64_t>(p.TableWidth) - 2) break;
                LoadBlock(p.TB1, p.TableWidth, cell_x, cell_y, block[0]);
                LoadBlock(p.TB2, p.TableWidth, cell_x, cell_y, block[1]);
            }
            const int fx = static_cast<int>(x16 % cell_w16);
            const int64_t ox = disp_x + col;
            const Contribution c[2] = {
                Contribute(f, block[0], 0, fx, fy, ox, oy, cache[0].data()),
                Contribute(f, block[1], 1, fx, fy, ox, oy, cache[1].data())};
            Store(c, out, OutW, OutH, ox, oy);
        }
    }
    return 1;
}

int ComposeReference(unsigned char** YUV, int WidthIn, int HeightIn,
                     unsigned char* out, int OutW, int OutH, tag_CtrlPara* para,
                     int* gain, int* tcurve, int step, int bits) {
    return ComposeReference(YUV, WidthIn, HeightIn, out, OutW, OutH, para, gain, tcurve, step,
                            bits, kCacheColumns);
}

int ComposeReferenceWide(unsigned char** YUV, int WidthIn, int HeightIn,
                         unsigned char* out, int OutW, int OutH, tag_CtrlPara* para,
                         int* gain, int* tcurve, int step, int bits) {
    return ComposeReference(YUV, WidthIn, HeightIn, out, OutW, OutH, para, gain, tcurve, step,
                            bits, kWideCacheColumns);
}

}  // namespace svtest
