// Library-internal: how the composition walks the control table's mesh.
//
// Shared by the pixel-at-a-time renderer and the render plan, so that both
// see every output pixel at the same source position, weight and camera.
// Positions that only absurd control tables could push past 32 bits are
// carried in 64 bits per row or per call; cells with huge corner values
// interpolate in 64 bits.
#ifndef PIPE_MESH_WALK_H
#define PIPE_MESH_WALK_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "sv_types.h"

namespace svc {
namespace mesh {

// Widest output the composition walks: the column walk and the chroma
// cache hold one entry per output column. The cache first held 1280
// columns; a wider one changes no byte of a narrower output, since every
// index it sees is an output column.
const int kMaxOutW = 4096;

// One direction of the 2 x 2 interpolation: arithmetic shift, no rounding.
// Wide = int where the caller has shown that nothing leaves 32 bits.
template <typename Wide>
inline int Lerp(int a, int b, int f, int s) {
    return static_cast<int>(a + ((static_cast<Wide>(b) - a) * f >> s));
}

// Table index of the first node line of mesh cell k. Cells at and beyond a
// seam skip its doubled line; the second test sees the shifted index, so s2
// is a table index as well.
inline int64_t PastSeams(int64_t k, int s1, int s2) {
    if (s1 <= k) ++k;
    if (s2 <= k) ++k;
    return k;
}

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
inline int64_t NarrowLimit(const tag_CtrlPara& p) {
    return p.IntervalX == p.IntervalY ? int64_t{1} << (26 - p.IntervalY) : 0;
}

// Node index range a walk has read, for telling later whether the table
// still holds what a plan was built from.
struct NodeSpan {
    int64_t lo = INT64_MAX, hi = -1;  // inclusive; empty while hi < lo
    void Add(int64_t i) {
        lo = std::min(lo, i);
        hi = std::max(hi, i);
    }
};

inline void LoadCell(const int* table, int64_t width, int64_t cell_x, int64_t cell_y,
                     int t, int64_t narrow_limit, Cell& c, NodeSpan* read = nullptr) {
    int zeros = 0, ones = 0;
    bool seen = true, narrow = true;
    for (int a = 0; a < 2; ++a) {
        for (int b = 0; b < 2; ++b) {
            const int64_t index = (cell_y + a) * width + cell_x + b;
            if (read) read->Add(index);
            const int* node = table + index * 4;
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

// One table's view of one output column for the rows of one cell row: the
// horizontal half of the interpolation, done once for all those rows.
struct Column {
    int top[kFields], bottom[kFields];
    int cam;
    bool blends, seen, narrow;

    // The vertical half at row fraction fy.
    int At(int field, int fy, int shift) const {
        return narrow ? Lerp<int>(top[field], bottom[field], fy, shift)
                      : Lerp<int64_t>(top[field], bottom[field], fy, shift);
    }
    // Weight of this table where both contribute.
    int Weight(int fy, int shift) const { return blends ? At(kWeight, fy, shift) : 0; }
};

template <typename Wide>
inline void Cut(const Cell& c, int fx, int s, Column& col) {
    for (int i = 0; i < kFields; ++i) {
        col.top[i] = Lerp<Wide>(c.corner[i][0][0], c.corner[i][0][1], fx, s);
        col.bottom[i] = Lerp<Wide>(c.corner[i][1][0], c.corner[i][1][1], fx, s);
    }
    col.cam = c.cam;
    col.blends = c.blends;
    col.seen = c.seen;
    col.narrow = c.narrow;
}

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
inline bool WalkColumns(const tag_CtrlPara& p, int64_t x0, int first_x, int out_w,
                        ColumnWalk& w) {
    // Table-space advance per output pixel in 1/2048 pixel: 131072 = 64 * 2048,
    // rounded to nearest, at most 131072; positions advance from x0 by
    // d in 1/16 pixel, at most 4095 * 131072 / 128 (acc_x stays below 2^31).
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

// What every row of one call shares: the columns that can land in the
// output and where they lie in the mesh.
struct Geometry {
    int64_t disp_x;  // first output column, raised to even
    int lo, hi;      // walk columns whose output pixel lies inside the image
    int shift;       // IntervalY + 4 in both directions: tables keep IntervalX == IntervalY
    ColumnWalk walk;
};

// False when no pixel can render.
inline bool PrepareGeometry(const tag_CtrlPara& p, int out_w, Geometry& g) {
    // Only the horizontal origins move onto a chroma pair, so output column
    // parity is the column's parity.
    int64_t disp_x = p.DispCoorX, roi_x = p.ROIStartX;
    if (disp_x % 2 != 0) ++disp_x;
    if (roi_x % 2 != 0) ++roi_x;
    // Every row starts in the same cell; out of the table, no row renders.
    const int64_t x0 = 16 * roi_x;
    const int64_t first_x = PastSeams(x0 >> (p.IntervalX + 4), p.L1, p.L2);
    if (first_x < 0 || first_x > static_cast<int64_t>(p.TableWidth) - 1) return false;
    if (!WalkColumns(p, x0, static_cast<int>(first_x), out_w, g.walk)) return false;
    g.disp_x = disp_x;
    g.lo = static_cast<int>(std::min<int64_t>(std::max<int64_t>(-disp_x, 0), out_w));
    g.hi = static_cast<int>(std::min<int64_t>(out_w - disp_x, g.walk.end));
    g.shift = p.IntervalY + 4;
    return g.lo < g.hi;
}

// Calls row(oy, fy, band) for every output row that renders, top to
// bottom, where band[t][col - lo] is table t's column col for that row;
// columns [lo, hi) of the geometry. read collects the nodes loaded.
template <class RowFn>
void WalkRows(const tag_CtrlPara& p, const Geometry& g, int lo, int hi, int out_h,
              Column* band0, Column* band1, RowFn&& row, NodeSpan* read = nullptr) {
    Column* band[2] = {band0, band1};
    int64_t band_y = -1;
    const int64_t narrow_limit = NarrowLimit(p);
    const int64_t step_y = (p.ZoomFactorY / 2 + 131072) / p.ZoomFactorY;
    const int64_t cell_h16 = int64_t{1} << (p.IntervalY + 4);
    // Origin in 1/16 pixel. The clamp holds for the first row only; later
    // rows count from the unclamped origin.
    const int64_t y0 = 16 * static_cast<int64_t>(p.ROIStartY);
    int64_t y16 = y0 < 0 ? 0 : y0;
    int64_t acc_y = 0;
    for (int r = 0; r < out_h; ++r, acc_y += step_y, y16 = y0 + ((acc_y + 64) >> 7)) {
        const int64_t y_int = y16 >> 4;
        if (y_int > p.ROIEndY) break;
        const int64_t cell_y = PastSeams(y_int >> p.IntervalY, p.H1, p.H2);
        // Admits the last table row: its lower corners lie in the spare row
        // that the table storage keeps.
        if (cell_y > static_cast<int64_t>(p.TableHeight) - 1) break;
        const int64_t oy = static_cast<int64_t>(p.DispCoorY) + r;
        // Above the table (rows after a clamped first row), or outside the
        // output.
        if (cell_y < 0 || oy < 0 || oy >= out_h) continue;
        if (cell_y != band_y) {
            band_y = cell_y;
            Cell cell[2];
            const int* tables[2] = {p.TB1, p.TB2};
            for (int col = lo; col < hi; ++col) {
                if (col == lo || g.walk.cell_x[col] != g.walk.cell_x[col - 1])
                    for (int t = 0; t < 2; ++t)
                        LoadCell(tables[t], p.TableWidth, g.walk.cell_x[col], cell_y, t,
                                 narrow_limit, cell[t], read);
                for (int t = 0; t < 2; ++t) {
                    if (cell[t].narrow)
                        Cut<int>(cell[t], g.walk.fx[col], g.shift, band[t][col - lo]);
                    else
                        Cut<int64_t>(cell[t], g.walk.fx[col], g.shift, band[t][col - lo]);
                }
            }
        }
        // Signed remainder: negative only for seam rows set before row 0.
        row(static_cast<int>(oy), static_cast<int>(y16 % cell_h16));
    }
}

}  // namespace mesh
}  // namespace svc

#endif
