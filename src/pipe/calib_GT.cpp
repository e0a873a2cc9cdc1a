#include "pipe/calib_GT.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "math/Matrix.h"
#include "pipe/data_processing.h"

namespace {

// Going round the overlaps, ring position p is camera kRingCam[p]; region m
// pairs ring (m + 3) % 4 (plane 2m, side A) with ring m (plane 2m + 1).
const int kRingCam[4] = {0, 3, 1, 2};

// Largest shift the statistics walk accepts for IntervalX/IntervalY; beyond
// it the 1/16-pixel fractions no longer fit the interpolator's arithmetic.
const int kMaxInterval = 15;

// Mesh-node fields, as stored four ints per node.
enum { kSrcX, kSrcY, kWeight, kCamSel, kNodeInts };

struct Corners {
    int f[kNodeInts][2][2];  // [field][top, bottom][left, right]
};

void LoadCorners(const int* tb, int tw, int cellY, int cellX, Corners& c)
{
    for (int a = 0; a < 2; ++a)
        for (int b = 0; b < 2; ++b) {
            const int* node = tb + ((cellY + a) * tw + cellX + b) * kNodeInts;
            for (int k = 0; k < kNodeInts; ++k) c.f[k][a][b] = node[k];
        }
}

bool AllCorners(const int v[2][2], int x)
{
    return v[0][0] == x && v[0][1] == x && v[1][0] == x && v[1][1] == x;
}

bool CornersNonNegative(const int v[2][2])
{
    return v[0][0] >= 0 && v[0][1] >= 0 && v[1][0] >= 0 && v[1][1] >= 0;
}

// Where one table's sample of a statistics pixel comes from: everything
// that depends on the table and the image size only, not on the pixels.
struct Tap {
    bool valid;
    int wgt;
    int cam;
    int64_t luma;    // offset of (px, py)
    int ex, ey;      // luma fractions in 1/16
    bool chroma;     // this position interpolates the chroma of its block
    int64_t chromaAt;  // offset of the U byte of cell (px / 2, py / 2)
    int dx, dy;      // offsets to the right and lower cells
    int cex, cey;    // chroma fractions in 1/32
};

// Locates the camera pixel that table t selects at statistics pixel (i, j).
Tap Locate(int W, int H, Corners& c, int t, int i, int j, int fx, int fy,
           int shift)
{
    Tap s = {};
    const int sx = BilinearInterpolation(c.f[kSrcX], fx, fy, shift, 0);
    const int sy = BilinearInterpolation(c.f[kSrcY], fx, fy, shift, 0);
    s.wgt = BilinearInterpolation(c.f[kWeight], fx, fy, shift, 0);
    // A cell whose corners disagree on the camera reads camera 0 (or 2) at
    // weight 0, so it never yields a pair.
    s.cam = 2 * t;
    if (AllCorners(c.f[kCamSel], 1))
        s.cam += 1;
    else if (!AllCorners(c.f[kCamSel], 0))
        s.wgt = 0;

    const int px = sx >> 4;
    const int py = sy >> 4;
    // Four bands of W - 2 columns are accepted, each read at px as it is.
    const bool inBand = W > 2 && px >= 0 && px < 4 * W && px % W < W - 2;
    if (!inBand || py < 0 || py >= H - 2 || !CornersNonNegative(c.f[kSrcX]) ||
        !CornersNonNegative(c.f[kSrcY]))
        return s;
    // The outer bands reach past the luma plane; never past the image.
    const int64_t imageBytes = (int64_t)W * H * 3 / 2;
    if ((int64_t)(py + 1) * W + px + 1 >= imageBytes) return s;
    // Where py * W overflows int, reading the camera has no defined result:
    // no sample is taken. Below that every offset fits 32 bits unsigned.
    if ((int64_t)py * W > INT32_MAX) return s;

    s.ex = sx - 16 * px;
    s.ey = sy - 16 * py;
    s.luma = (int64_t)py * W + px;
    if (i % 2 == 0 && j % 2 == 0) {
        const int incX = px < W - 2 ? 1 : 0;
        const int incY = py < H - 2 ? 1 : 0;
        const int cx = px / 2, cy = py / 2;
        if ((int64_t)W * H + (int64_t)(cy + incY) * W + 2 * (cx + incX) + 1 >=
                imageBytes ||
            (int64_t)W * H > INT32_MAX || (int64_t)cy * W > INT32_MAX)
            return s;
        // Chroma cells are two pixels wide: fractions become 1/32 of a cell.
        s.chroma = true;
        s.chromaAt = (int64_t)W * H + (int64_t)cy * W + 2 * cx;
        s.dx = 2 * incX;
        s.dy = incY * W;
        s.cex = s.ex + (px & 1 ? 16 : 0);
        s.cey = s.ey + (py & 1 ? 16 : 0);
    }
    s.valid = true;
    return s;
}

void PutTriple(unsigned char* plane, int64_t idx, const int rgb[3])
{
    for (int k = 0; k < 3; ++k) plane[idx + k] = (unsigned char)(rgb[k] & 255);
}

// Corner region of statistics pixel (i, j), first match wins, or -1; lr, lc
// receive the position inside the region's planes.
int RegionOf(int i, int j, int SW, int SH, int w2, int h2, int& lr, int& lc)
{
    const bool left = j < w2, right = j > SW - w2;
    const bool top = i < h2, bottom = i > SH - h2;
    const int m = left && top ? 0 : right && top ? 1 : right && bottom ? 2
                : left && bottom ? 3 : -1;
    lr = m < 2 ? i : i - (SH - h2);
    lc = m == 1 || m == 2 ? j - (SW - w2) : j;
    return m;
}

// One side of a stored pair: the camera's luma at 'at' and the chroma of
// slot 'chroma'.
struct LumaTap {
    uint32_t at;
    uint32_t chroma;
    uint8_t cam, ex, ey;
};

// A statistics pixel whose two samples are stored when their colours pass:
// side 0 goes to plane 2m, side 1 to plane 2m + 1, both at idx.
struct PairTap {
    LumaTap side[2];
    uint32_t idx;
    uint32_t m;
};

// One chroma interpolation of a 2 x 2 block; U at 'at', V next to it.
struct ChromaTap {
    uint32_t at, dy;
    uint8_t cam, dx, ex, ey;
};

// Everything of the statistics walk that does not depend on the pixels,
// valid for the inputs recorded in its key. Rebuilding keeps the vectors'
// room, so a table that changes back and forth allocates only once.
struct StatPlan {
    bool built = false;
    // Key: the sizes, the table's scalars and the nodes the walk reads.
    int W, H, SW, SH, TW, TH, IX, IY, rows, cols, stride;
    bool walkable;
    int nodeRows, nodeCols;
    std::vector<int> nodes;  // TB1's rectangle, then TB2's

    std::vector<ChromaTap> chroma;  // slot k + 1; slot 0 is the start value
    std::vector<PairTap> pairs;     // in walk order: later stores win
    std::vector<int> terms;         // per frame: chroma terms of each slot
};

bool Walkable(const tag_StatPara& st)
{
    return st.TB1 && st.TB2 && st.TableWidth >= 2 && st.TableHeight >= 2 &&
           st.IntervalX >= 0 && st.IntervalX <= kMaxInterval &&
           st.IntervalY >= 0 && st.IntervalY <= kMaxInterval;
}

// The walk reads the node rectangle of rows 0..nr - 1 and columns
// 0..nc - 1: the corners of every cell it enters, and the first cell of a
// row even when the row has no columns.
void NodeExtent(const tag_StatPara& st, int& nr, int& nc)
{
    const int SW = st.OutImgWidth, SH = st.OutImgHeight;
    nr = SH > 0 ? std::min(st.TableHeight - 2, (SH - 1) >> st.IntervalY) + 2 : 0;
    nc = SW > 0 ? std::min(st.TableWidth - 2, (SW - 1) >> st.IntervalX) + 2 : 2;
}

const int* NodeRow(const tag_StatPara& st, int t, int r)
{
    return (t == 0 ? st.TB1 : st.TB2) + (int64_t)r * st.TableWidth * kNodeInts;
}

bool PlanFits(const StatPlan& p, int W, int H, const tag_StatPara& st,
              int rows, int cols, int stride)
{
    if (!p.built || p.W != W || p.H != H || p.SW != st.OutImgWidth ||
        p.SH != st.OutImgHeight || p.TW != st.TableWidth ||
        p.TH != st.TableHeight || p.IX != st.IntervalX ||
        p.IY != st.IntervalY || p.rows != rows || p.cols != cols ||
        p.stride != stride || p.walkable != Walkable(st))
        return false;
    if (!p.walkable) return true;
    // A host may rewrite the table in place between frames.
    const size_t rowBytes = (size_t)p.nodeCols * kNodeInts * sizeof(int);
    const int* copy = p.nodes.data();
    for (int t = 0; t < 2; ++t)
        for (int r = 0; r < p.nodeRows; ++r, copy += p.nodeCols * kNodeInts)
            if (std::memcmp(copy, NodeRow(st, t, r), rowBytes) != 0) return false;
    return true;
}

// Drops the chroma slots that no pair reads and renumbers the rest.
void PruneChroma(StatPlan& p, std::vector<int>& remap)
{
    remap.assign(p.chroma.size() + 1, 0);
    for (const PairTap& q : p.pairs)
        for (const LumaTap& l : q.side) remap[l.chroma] = 1;
    remap[0] = 0;  // the start value keeps slot 0
    size_t kept = 0;
    for (size_t k = 0; k < p.chroma.size(); ++k)
        if (remap[k + 1]) {
            p.chroma[kept] = p.chroma[k];
            remap[k + 1] = (int)++kept;
        }
    p.chroma.resize(kept);
    for (PairTap& q : p.pairs)
        for (LumaTap& l : q.side) l.chroma = (uint32_t)remap[l.chroma];
}

// Walks the statistics image as the sampling does, recording where every
// stored pair would read. The chroma cache holds slot numbers: a position
// reads the block last interpolated for its column pair, or the start value.
void BuildPlan(StatPlan& p, int W, int H, const tag_StatPara& st, int rows,
               int cols, int stride)
{
    p.built = true;
    p.W = W, p.H = H, p.SW = st.OutImgWidth, p.SH = st.OutImgHeight;
    p.TW = st.TableWidth, p.TH = st.TableHeight;
    p.IX = st.IntervalX, p.IY = st.IntervalY;
    p.rows = rows, p.cols = cols, p.stride = stride;
    p.walkable = Walkable(st);
    p.nodes.clear();
    p.chroma.clear();
    p.pairs.clear();
    p.nodeRows = p.nodeCols = 0;
    if (p.walkable) {
        NodeExtent(st, p.nodeRows, p.nodeCols);
        for (int t = 0; t < 2; ++t)
            for (int r = 0; r < p.nodeRows; ++r)
                p.nodes.insert(p.nodes.end(), NodeRow(st, t, r),
                               NodeRow(st, t, r) + p.nodeCols * kNodeInts);
    }

    const int SW = p.SW, SH = p.SH, TW = p.TW, TH = p.TH, IX = p.IX, IY = p.IY;
    const int h2 = rows, w2 = cols;
    static std::vector<int> slot[2];
    for (int t = 0; t < 2; ++t) slot[t].assign(std::max(SW, 0) + 2, 0);
    const int shift = IY + 4;
    // The lower corner row must exist: rows of the last cell row stop it.
    for (int i = 0; p.walkable && i < SH && (i >> IY) <= TH - 2; ++i) {
        const int cellY = i >> IY;
        const int fy = (16 * i) & ((1 << (IY + 4)) - 1);
        int cellX = 0;
        Corners c[2];
        LoadCorners(st.TB1, TW, cellY, cellX, c[0]);
        LoadCorners(st.TB2, TW, cellY, cellX, c[1]);
        for (int j = 0; j < SW; ++j) {
            if ((j >> IX) != cellX) {
                cellX = j >> IX;
                if (cellX > TW - 2) break;
                LoadCorners(st.TB1, TW, cellY, cellX, c[0]);
                LoadCorners(st.TB2, TW, cellY, cellX, c[1]);
            }
            const int fx = (16 * j) & ((1 << (IX + 4)) - 1);
            const int pair = (j / 2) * 2;
            Tap s[2];
            for (int t = 0; t < 2; ++t) {
                s[t] = Locate(W, H, c[t], t, i, j, fx, fy, shift);
                if (!s[t].valid || !s[t].chroma) continue;
                p.chroma.push_back({(uint32_t)s[t].chromaAt, (uint32_t)s[t].dy,
                                    (uint8_t)s[t].cam, (uint8_t)s[t].dx,
                                    (uint8_t)s[t].cex, (uint8_t)s[t].cey});
                slot[t][pair] = (int)p.chroma.size();
            }
            if (!s[0].valid || !s[1].valid || s[0].wgt <= 0 || s[1].wgt <= 0)
                continue;
            int lr, lc;
            const int m = RegionOf(i, j, SW, SH, w2, h2, lr, lc);
            if (m < 0) continue;
            // Regions 0 and 2 put the TB2 camera on side A, 1 and 3 the TB1.
            const int sideA = m % 2 == 0 ? 1 : 0;
            PairTap q;
            for (int k = 0; k < 2; ++k) {
                const int t = k == 0 ? sideA : 1 - sideA;
                q.side[k] = {(uint32_t)s[t].luma, (uint32_t)slot[t][pair],
                             (uint8_t)s[t].cam, (uint8_t)s[t].ex, (uint8_t)s[t].ey};
            }
            q.m = (uint32_t)m;
            // Within int range wherever the plain int arithmetic is defined.
            q.idx = (uint32_t)(((int64_t)lr * stride + lc) * 3);
            p.pairs.push_back(q);
        }
    }
    PruneChroma(p, slot[0]);
    p.terms.assign(3 * (p.chroma.size() + 1), 0);
}

// Interpolation of four bytes, as BilinearInterpolation does it: one
// arithmetic shift per direction, no rounding; small enough for int.
inline int Bilerp(const unsigned char* p, int right, int down, int fx,
                  int fy, int s)
{
    const int top = p[0] + ((p[right] - p[0]) * fx >> s);
    const int bottom = p[down] + ((p[down + right] - p[down]) * fx >> s);
    return top + ((bottom - top) * fy >> s);
}

// YUV2RGB at 8 bits in and out splits into a chroma term per channel,
// 256 (the rounding half) included, and 512 Y. The plain form truncates
// (512 Y + term) / 512 where the shift floors: they differ only below 0,
// which clamps to 0 either way.
void ChromaTerms(int U, int V, int* t)
{
    const int u = U - 128, v = V - 128;
    t[0] = 718 * v + 256;
    t[1] = -176 * u - 366 * v + 256;
    t[2] = 907 * u + v + 256;
}

// The colour of one side, false unless all three channels lie in [VL, VH]
// (span = VH - VL, both unsigned so that any VL works).
inline bool SideColour(int Y, const int* term, uint32_t VL, uint32_t span,
                       int rgb[3])
{
    bool in = true;
    for (int k = 0; k < 3; ++k) {
        // Black luma is black whatever the chroma says.
        rgb[k] = Y == 0 ? 0 : std::min(255, std::max(0, (512 * Y + term[k]) >> 9));
        in = in && (uint32_t)rgb[k] - VL <= span;
    }
    return in;
}

const size_t kAhead = 16;

// The per-frame half of the sampling: chroma of the blocks that pairs read,
// then both sides of every pair, stored when all six values lie in
// [VL, VH]. Image lines are fetched kAhead taps early: the taps hop across
// four images.
void SamplePairs(StatPlan& p, unsigned char** YUV, unsigned char** planes,
                 int VL, int VH)
{
    if (VL > VH) return;
    const unsigned char* cam[4] = {YUV[0], YUV[1], YUV[2], YUV[3]};
    unsigned char* pl[8];
    std::copy(planes, planes + 8, pl);
    int* terms = p.terms.data();
    ChromaTerms(128, 128, terms);
    const size_t nc = p.chroma.size(), np = p.pairs.size();
    for (size_t k = 0; k < nc; ++k) {
        if (k + kAhead < nc) {
            const ChromaTap& f = p.chroma[k + kAhead];
            __builtin_prefetch(cam[f.cam] + f.at);
            __builtin_prefetch(cam[f.cam] + f.at + f.dy);
        }
        const ChromaTap& c = p.chroma[k];
        const unsigned char* at = cam[c.cam] + c.at;
        ChromaTerms(Bilerp(at, c.dx, c.dy, c.ex, c.ey, 5),
                    Bilerp(at + 1, c.dx, c.dy, c.ex, c.ey, 5), terms + 3 * (k + 1));
    }
    const int W = p.W;
    const uint32_t lo = (uint32_t)VL, span = (uint32_t)VH - (uint32_t)VL;
    for (size_t n = 0; n < np; ++n) {
        if (n + kAhead < np)
            for (const LumaTap& l : p.pairs[n + kAhead].side) {
                __builtin_prefetch(cam[l.cam] + l.at);
                __builtin_prefetch(cam[l.cam] + l.at + W);
            }
        const PairTap& q = p.pairs[n];
        int rgb[2][3];
        bool pass = true;
        for (int k = 0; k < 2 && pass; ++k) {
            const LumaTap& l = q.side[k];
            const int Y = Bilerp(cam[l.cam] + l.at, 1, W, l.ex, l.ey, 4);
            pass = SideColour(Y, terms + 3 * l.chroma, lo, span, rgb[k]);
        }
        if (!pass) continue;
        PutTriple(pl[2 * q.m], q.idx, rgb[0]);
        PutTriple(pl[2 * q.m + 1], q.idx, rgb[1]);
    }
}

// Zeroes every sample pair of a region whose channels disagree beyond the
// brightness-dependent tolerance.
void DropInconsistent(unsigned char** planes, int rows, int cols, int stride,
                      int rto, int TolL, int TolH)
{
    for (int m = 0; m < 4; ++m) {
        unsigned char* pa = planes[2 * m];
        unsigned char* pb = planes[2 * m + 1];
        for (int r = 0; r < rows; ++r)
            for (int c = 0; c < cols; ++c) {
                const int idx = (r * stride + c) * 3;
                bool keep = true;
                for (int k = 0; k < 3; ++k) {
                    const int a = pa[idx + k], b = pb[idx + k];
                    // rto is a ratio in 1/16; 64 bits so that no rto a host
                    // sets can overflow the product.
                    const int64_t tol = std::max<int64_t>(
                        TolL, std::min<int64_t>(TolH, ((int64_t)std::max(a, b) * rto) >> 4));
                    if (std::abs(a - b) > tol) keep = false;
                }
                if (!keep) {
                    std::memset(pa + idx, 0, 3);
                    std::memset(pb + idx, 0, 3);
                }
            }
    }
}

// Trunc toward zero into *out when the value is finite and fits an int.
bool TruncToInt(double v, int* out)
{
    if (!std::isfinite(v) || v <= -2147483649.0 || v >= 2147483648.0)
        return false;
    *out = (int)v;
    return true;
}

// x = (M^T M)^-1 M^T v, formed in that order. False when the normal matrix
// is singular or the solution is not finite.
bool SolveNormal(CMatrix& M, CMatrix& v, float* x)
{
    CMatrix Mt, MtM, inv, pinv, sol;
    Mt = M.Transposed();
    MtM = Mt * M;
    inv = MtM.Inversed();
    if (MtM.m_nResult != RESULT_NO_ERROR) return false;
    pinv = inv * Mt;
    sol = pinv * v;
    for (int k = 0; k < sol.GetRowSize(); ++k) {
        x[k] = sol[k][0];
        if (!std::isfinite(x[k])) return false;
    }
    return true;
}

int Channel(const unsigned char* plane, int r, int c, int stride, int ch)
{
    return plane[(r * stride + c) * 3 + ch];
}

// Gain offsets u of ring positions 1..3 for one channel from the region
// means of A * B, B * B and the next region's A * A.
bool SolveGainChannel(unsigned char** planes, int rows, int cols, int stride,
                      const int n[4], int ch, float u[3])
{
    int p[4], q[4], s[4];
    for (int m = 0; m < 4; ++m) {
        // Zero bytes add nothing, so the sums need no masks. 64-bit only so
        // oversized grids cannot overflow; results match int32 sums.
        int64_t P = 0, Q = 0, S = 0;
        for (int r = 0; r < rows; ++r)
            for (int c = 0; c < cols; ++c) {
                const int A = Channel(planes[2 * m], r, c, stride, ch);
                const int B = Channel(planes[2 * m + 1], r, c, stride, ch);
                const int An = Channel(planes[(2 * m + 2) % 8], r, c, stride, ch);
                P += A * B;
                Q += B * B;
                S += An * An;
            }
        p[m] = (int)(P / n[m]);
        q[m] = (int)(Q / n[m]);
        s[m] = (int)(S / n[(m + 1) % 4]);
    }
    const int rowsMv[4][4] = {
        {-p[1], 0, -p[0], p[1] + p[0] - q[0] - s[0]},
        {s[1] + q[1], -p[2], 0, p[2] + p[1] - q[1] - s[1]},
        {-p[2], s[2] + q[2], -p[3], p[3] + p[2] - q[2] - s[2]},
        {0, -p[3], s[3] + q[3], p[0] + p[3] - q[3] - s[3]}};
    CMatrix M, v;
    M.SetSize(4, 3);
    v.SetSize(4, 1);
    for (int k = 0; k < 4; ++k) {
        for (int x = 0; x < 3; ++x) M[k][x] = (float)rowsMv[k][x];
        v[k][0] = (float)rowsMv[k][3];
    }
    return SolveNormal(M, v, u);
}

// Gains g[ring][channel], camera 0 the reference, clamped around each
// camera's mean and normalised so the smallest is 1. False when a region has
// no samples or a system cannot be solved.
bool FitGains(unsigned char** planes, int rows, int cols, int stride,
              float mgn, float g[4][3])
{
    int n[4];
    for (int m = 0; m < 4; ++m) {
        n[m] = 0;
        for (int r = 0; r < rows; ++r)
            for (int c = 0; c < cols; ++c) {
                const unsigned char* b = planes[2 * m + 1] + (r * stride + c) * 3;
                if (b[0] && b[1] && b[2]) ++n[m];
            }
        if (n[m] == 0) return false;
    }
    for (int ch = 0; ch < 3; ++ch) {
        float u[3];
        if (!SolveGainChannel(planes, rows, cols, stride, n, ch, u)) return false;
        g[0][ch] = 1.0f;
        for (int k = 1; k < 4; ++k) g[k][ch] = 1.0f + u[k - 1];
    }

    float avg[4];
    for (int k = 0; k < 4; ++k) avg[k] = (g[k][0] + g[k][1] + g[k][2]) / 3;
    for (int k = 0; k < 4; ++k)
        for (int ch = 0; ch < 3; ++ch) {
            const float hi = (1 + mgn) * avg[k];
            const float lo = (1 - mgn) * avg[k];
            if (g[k][ch] > hi) g[k][ch] = hi;
            if (g[k][ch] < lo) g[k][ch] = lo;
        }
    float m0 = (1 + mgn) * avg[0];
    for (int k = 0; k < 4; ++k)
        for (int ch = 0; ch < 3; ++ch) m0 = std::min(m0, g[k][ch]);
    for (int k = 0; k < 4; ++k)
        for (int ch = 0; ch < 3; ++ch) g[k][ch] /= m0;
    return true;
}

// The curve value at x as a + b * t (t the unknown value at the middle
// knot): what depends on x alone. The left interval keeps r = (k0 - x) /
// (k1 - k0) for a = v0 * (1 + r), the right one (x - k1) / (k2 - k1) for
// a = that * v2.
struct MapParts {
    bool left;
    float rf, b;
};

bool MapAt(const int* knots, int x, MapParts& m)
{
    if (knots[0] <= x && x < knots[1] && x > 0) {
        m.left = true;
        m.rf = (float)(knots[0] - x) / (float)(knots[1] - knots[0]);
        m.b = (float)(x - knots[0]) / (float)(knots[1] - knots[0]);
        return true;
    }
    if (knots[1] <= x && x < knots[2] && x > 0) {
        m.left = false;
        m.rf = (float)(x - knots[1]) / (float)(knots[2] - knots[1]);
        m.b = (float)(x - knots[2]) / (float)(knots[1] - knots[2]);
        return true;
    }
    return false;
}

// The product and the sum of the left interval in double, rounded once.
float MapOffset(const MapParts& m, const float* vals)
{
    return m.left ? (float)((double)vals[0] * (1.0 + (double)m.rf))
                  : m.rf * vals[2];
}

// Per-region sums of one tone-curve point's least-squares problem.
struct PointSums {
    int N[4];
    float SAA[4], SBB[4], SAB[4], DA[4], DB[4], E[4];
};

// The bytes of one channel as the tone fit sees them: A and B of every
// region with the interim gains applied, region after region, positions in
// plane order. Values below 1 are skipped, so negatives are stored as 0.
void GainedBytes(unsigned char** planes, int rows, int cols, int stride,
                 const int* ig, int ch, std::vector<unsigned char>& out)
{
    const size_t n = (size_t)rows * cols;
    out.resize(8 * n);
    unsigned char* o = out.data();
    for (int m = 0; m < 4; ++m)
        for (int side = 0; side < 2; ++side) {
            const int ring = side == 0 ? (m + 3) % 4 : m;
            const int64_t g = ig[ring * 3 + ch];
            const unsigned char* pl = planes[2 * m + side];
            for (int r = 0; r < rows; ++r)
                for (int c = 0; c < cols; ++c) {
                    // Q10 gain on a byte, rounded.
                    const int64_t v = (g * Channel(pl, r, c, stride, ch) + 512) / 1024;
                    *o++ = (unsigned char)std::max<int64_t>(0, std::min<int64_t>(255, v));
                }
        }
}

// Sums of point k of channel ch over the gained bytes. A sample counts only
// if both values fall inside the two knot intervals around the point.
void GatherPoint(const std::vector<unsigned char>& gained, size_t n,
                 float curve[4][3][5], int ch, int k, PointSums& S)
{
    std::memset(&S, 0, sizeof S);
    int knots[3] = {64 * (k - 1), 64 * k, 64 * (k + 1)};
    MapParts parts[256];
    bool ok[256];
    for (int x = 0; x < 256; ++x) ok[x] = MapAt(knots, x, parts[x]);
    for (int m = 0; m < 4; ++m) {
        const int ringA = (m + 3) % 4;
        const float* valsA = &curve[ringA][ch][k - 1];
        const float* valsB = &curve[m][ch][k - 1];
        const unsigned char* av = gained.data() + 2 * m * n;
        const unsigned char* bv = av + n;
        for (size_t i = 0; i < n; ++i) {
            const int a = av[i], b = bv[i];
            if (!ok[a] || !ok[b]) continue;
            const float aA = MapOffset(parts[a], valsA), bA = parts[a].b;
            const float aB = MapOffset(parts[b], valsB), bB = parts[b].b;
            S.N[m] += 1;
            S.SAA[m] += bA * bA;
            S.SBB[m] += bB * bB;
            S.SAB[m] += bA * bB;
            S.DA[m] += (aA - aB) * bA;
            S.DB[m] += (aA - aB) * bB;
            S.E[m] += (aA - (float)b) * bA;
        }
    }
}

// Curve values t[ring] at the point: normal equations of the mapped A-B
// differences plus beta times the mapped-A-to-unmapped-B differences. Row p
// couples ring p with both neighbours; M[p][p - 1] is stored on p - 1's turn.
bool SolvePoint(const PointSums& S, float beta, float t[4])
{
    CMatrix M, w;
    M.SetSize(4, 4);
    w.SetSize(4, 1);
    M = 0.0f;
    for (int p = 0; p < 4; ++p) {
        const int n = (p + 1) % 4;
        const float Np = (float)S.N[p], Nn = (float)S.N[n];
        M[p][p] = S.SBB[p] / Np + (1 + beta) * S.SAA[n] / Nn;
        M[p][n] = M[n][p] = -S.SAB[n] / Nn;
        w[p][0] = S.DB[p] / Np - S.DA[n] / Nn - beta * S.E[n] / Nn;
    }
    return SolveNormal(M, w, t);
}

// Tone curves into tc (camera-indexed, 36 values). False when a point's
// system cannot be solved.
bool FitToneCurves(unsigned char** planes, int rows, int cols, int stride,
                   const int* ig, int nData, float beta, int bdr, int bdh,
                   int* tc)
{
    float curve[4][3][5];
    for (int p = 0; p < 4; ++p)
        for (int ch = 0; ch < 3; ++ch)
            for (int k = 0; k < 5; ++k) curve[p][ch][k] = (float)(64 * k);

    static std::vector<unsigned char> gained;
    const size_t n = (size_t)std::max(rows, 0) * std::max(cols, 0);
    for (int ch = 0; ch < 3; ++ch) {
        GainedBytes(planes, rows, cols, stride, ig, ch, gained);
        for (int k = 1; k <= 3; ++k) {
            const int knot = 64 * k;
            PointSums S;
            GatherPoint(gained, n, curve, ch, k, S);
            bool few = false, empty = false;
            for (int m = 0; m < 4; ++m) {
                few = few || S.N[m] < nData;
                empty = empty || S.N[m] == 0;
            }
            // Too little data: the point goes back to straight for every
            // camera and the working curve keeps it. Its solve would be
            // discarded, so it is skipped.
            if (few) {
                for (int p = 0; p < 4; ++p) tc[kRingCam[p] * 9 + ch * 3 + k - 1] = knot;
                continue;
            }
            if (empty) return false;  // only with nData < 1: would divide by 0

            float t[4];
            if (!SolvePoint(S, beta, t)) return false;

            // bdr: largest move in 1/16 of the knot, capped at bdh levels.
            int64_t d = (int64_t)knot * bdr / 16;
            d = std::min<int64_t>(d, bdh);
            for (int p = 0; p < 4; ++p) {
                if (t[p] < (float)(knot - d)) t[p] = (float)(knot - d);
                if (t[p] > (float)(knot + d)) t[p] = (float)(knot + d);
                curve[p][ch][k] = t[p];
                if (!TruncToInt((double)t[p] + 0.5, &tc[kRingCam[p] * 9 + ch * 3 + k - 1]))
                    return false;
            }
        }
    }
    return true;
}

// Region planes live for the process and grow with the largest table seen.
unsigned char* PlaneStore(int64_t bytes)
{
    static std::vector<unsigned char> store;
    if ((int64_t)store.size() < bytes) store.resize((size_t)bytes);
    return store.data();
}

}  // namespace

namespace {

// Block means of one plane, row block by row block: the bytes of the block's
// rows are summed down the columns first. Within a block a mean goes to a
// byte that no later column group of the block reads (even when rows
// overlap, 0 <= stride < cols), so summing first reads what the plain
// group-by-group order reads.
void BlockMeans(unsigned char* pl, int rows, int cols, int stride, int s,
                std::vector<uint32_t>& colSums)
{
    const int64_t n = (int64_t)s * s;
    const int outCols = cols / s;
    const size_t used = (size_t)outCols * s * 3;  // the partial last group is never written
    colSums.resize(used);
    for (int r = 0; r < rows; r += s) {
        std::fill(colSums.begin(), colSums.end(), 0u);
        // A short last block sums only the rows it has.
        for (int rr = r; rr < std::min(r + s, rows); ++rr) {
            const unsigned char* row = pl + (size_t)rr * stride * 3;
            for (size_t x = 0; x < used; ++x) colSums[x] += row[x];
        }
        unsigned char* out = pl + (size_t)(r / s) * stride * 3;
        for (int q = 0; q < outCols; ++q)
            for (int ch = 0; ch < 3; ++ch) {
                int64_t sum = 0;
                for (int k = 0; k < s; ++k) sum += colSums[(size_t)(q * s + k) * 3 + ch];
                out[q * 3 + ch] = (unsigned char)std::min<int64_t>(255, (sum + n / 2) / n);
            }
    }
}

}  // namespace

void DownSample(unsigned char** planes, int& rows, int& cols, int& stride,
                int DS)
{
    const int s = DS > 1 ? DS & ~1 : 1;
    // Blocks of one leave every byte as it is.
    if (s > 1 && rows > 0 && cols >= s) {
        static std::vector<uint32_t> colSums;
        for (int p = 0; p < 8; ++p)
            BlockMeans(planes[p], rows, cols, stride, s, colSums);
    }
    rows /= s;
    cols /= s;
}

void GetStatData(unsigned char** YUV, int W, int H, tag_StatPara& stat,
                 unsigned char** planes, int& rows, int& cols, int stride,
                 int VL, int VH, int rto, int TolL, int TolH, int DS)
{
    // The planes are sized by the counts on entry (w2 x h2).
    if (rows > 0 && cols > 0)
        for (int p = 0; p < 8; ++p)
            std::memset(planes[p], 0, (size_t)cols * rows * 3);

    // Statistics tables rarely change: where each pair reads is worked out
    // once per table, frames only read pixels.
    static StatPlan plan;
    if (!PlanFits(plan, W, H, stat, rows, cols, stride))
        BuildPlan(plan, W, H, stat, rows, cols, stride);
    SamplePairs(plan, YUV, planes, VL, VH);

    int s = stride;
    DownSample(planes, rows, cols, s, DS);
    DropInconsistent(planes, rows, cols, stride, rto, TolL, TolH);
}

void Tmapping(int* knots, float* vals, int x, float* a, float* b, int& ok)
{
    ok = 0;
    MapParts m;
    if (!MapAt(knots, x, m)) return;
    *a = MapOffset(m, vals);
    *b = m.b;
    ok = 1;
}

namespace {

// The whole fit into gain and tcurve, or nothing when it cannot be made.
bool Fit(unsigned char** planes, int rows, int cols, int stride, int* gain,
         int* tcurve, int nData, float beta, int bdr, int bdh, float mgn)
{
    float g[4][3];
    if (!FitGains(planes, rows, cols, stride, mgn, g)) return false;
    int finalGain[12], ig[12];
    for (int p = 0; p < 4; ++p)
        for (int ch = 0; ch < 3; ++ch) {
            int q10;
            if (!TruncToInt(g[p][ch] * 1024.0f, &q10)) return false;
            finalGain[kRingCam[p] * 3 + ch] = q10;
            // The tone fit sees gains of at most 1.5.
            ig[p * 3 + ch] = std::min(q10, 1536);
        }
    int tc[36];
    if (!FitToneCurves(planes, rows, cols, stride, ig, nData, beta, bdr, bdh, tc))
        return false;
    std::memcpy(tcurve, tc, sizeof tc);
    std::memcpy(gain, finalGain, sizeof finalGain);
    return true;
}

// A failed fit keeps the previous one. Before any fit has succeeded the
// arrays still hold their zero start, which the frame cycle would blend into
// a black picture: they become the identity instead. A fit never yields a
// zero gain (the smallest is 1.0), so all zeros means no fit yet.
void KeepPrevious(int* gain, int* tcurve)
{
    if (std::any_of(gain, gain + 12, [](int v) { return v != 0; })) return;
    std::fill(gain, gain + 12, 1024);
    for (int i = 0; i < 36; ++i) tcurve[i] = 64 * (i % 3 + 1);
}

}  // namespace

void optimize4GT(unsigned char** planes, int rows, int cols, int stride,
                 int* gain, int* tcurve, int nData, float beta, int bdr,
                 int bdh, float mgn)
{
    if (!Fit(planes, rows, cols, stride, gain, tcurve, nData, beta, bdr, bdh, mgn))
        KeepPrevious(gain, tcurve);
}

void CalibGT(unsigned char** YUV, int W, int H, tag_StatPara& stat, int* gain,
             int* tcurve, int VL, int VH, int rto, int TolL, int TolH, int DS,
             int nData, float beta, int bdr, int bdh, float mgn)
{
    int w2 = stat.OutImgWidth / 2;
    int h2 = stat.OutImgHeight / 2;
    const int stride = w2;
    const int64_t bytes = (int64_t)w2 * h2 * 3;
    // No grid, or one too large to index in int: keep the previous fit.
    if (w2 < 1 || h2 < 1 || bytes * 8 > INT32_MAX) {
        KeepPrevious(gain, tcurve);
        return;
    }
    unsigned char* base = PlaneStore(bytes * 8);
    unsigned char* planes[8];
    for (int p = 0; p < 8; ++p) planes[p] = base + p * bytes;
    GetStatData(YUV, W, H, stat, planes, h2, w2, stride, VL, VH, rto, TolL,
                TolH, DS);
    optimize4GT(planes, h2, w2, stride, gain, tcurve, nData, beta, bdr, bdh,
                mgn);
}
