// The statistics walk samples both tables at every statistics pixel and
// interpolates chroma at every even one; the fit re-reads the planes for
// every channel and point and solves through CMatrix.
#include "common/calib_reference.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "math/Matrix.h"
#include "pipe/data_processing.h"

namespace svtest {

void RefTmapping(int* knots, float* vals, int x, float* a, float* b, int& ok);

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

// One table's view of a statistics pixel.
struct TableSample {
    bool valid;
    int wgt;
    int rgb[3];
};

// Samples the camera that table t selects at statistics pixel (i, j);
// cache is that table's chroma row (U, V per column pair).
TableSample SampleTable(unsigned char** YUV, int W, int H, Corners& c, int t,
                        int i, int j, int fx, int fy, int shift, int* cache)
{
    TableSample s = {false, 0, {0, 0, 0}};
    const int sx = BilinearInterpolation(c.f[kSrcX], fx, fy, shift, 0);
    const int sy = BilinearInterpolation(c.f[kSrcY], fx, fy, shift, 0);
    s.wgt = BilinearInterpolation(c.f[kWeight], fx, fy, shift, 0);
    // A cell whose corners disagree on the camera reads camera 0 (or 2) at
    // weight 0, so it never yields a pair.
    int cam = 2 * t;
    if (AllCorners(c.f[kCamSel], 1))
        cam += 1;
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

    const unsigned char* img = YUV[cam];
    int ex = sx - 16 * px;
    int ey = sy - 16 * py;
    const unsigned char* l0 = img + py * W + px;
    int luma[2][2] = {{l0[0], l0[1]}, {l0[W], l0[W + 1]}};
    const int Y = BilinearInterpolation(luma, ex, ey, 4, 0);

    const int pair = (j / 2) * 2;
    if (i % 2 == 0 && j % 2 == 0) {
        const int incX = px < W - 2 ? 1 : 0;
        const int incY = py < H - 2 ? 1 : 0;
        const int cx = px / 2, cy = py / 2;
        if ((int64_t)W * H + (int64_t)(cy + incY) * W + 2 * (cx + incX) + 1 >=
            imageBytes)
            return s;
        // Chroma cells are two pixels wide: fractions become 1/32 of a cell.
        if (py & 1) ey += 16;
        if (px & 1) ex += 16;
        const unsigned char* c0 = img + W * H + cy * W + 2 * cx;
        const int dx = 2 * incX, dy = incY * W;
        int u[2][2] = {{c0[0], c0[dx]}, {c0[dy], c0[dy + dx]}};
        int v[2][2] = {{c0[1], c0[dx + 1]}, {c0[dy + 1], c0[dy + dx + 1]}};
        cache[pair] = BilinearInterpolation(u, ex, ey, 4, 1);
        cache[pair + 1] = BilinearInterpolation(v, ex, ey, 4, 1);
    }
    s.valid = true;
    YUV2RGB(Y, cache[pair], cache[pair + 1], s.rgb[0], s.rgb[1], s.rgb[2], 8,
            8);
    return s;
}

bool InRange(const int rgb[3], int VL, int VH)
{
    for (int k = 0; k < 3; ++k)
        if (rgb[k] < VL || rgb[k] > VH) return false;
    return true;
}

void PutTriple(unsigned char* plane, int idx, const int rgb[3])
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
                    // rto is a ratio in 1/16.
                    const int tol = std::max(
                        TolL, std::min(TolH, (std::max(a, b) * rto) >> 4));
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

// Per-region sums of one tone-curve point's least-squares problem.
struct PointSums {
    int N[4];
    float SAA[4], SBB[4], SAB[4], DA[4], DB[4], E[4];
};

void GatherPoint(unsigned char** planes, int rows, int cols, int stride,
                 const int* ig, float curve[4][3][5], int ch, int k,
                 PointSums& S)
{
    std::memset(&S, 0, sizeof S);
    int knots[3] = {64 * (k - 1), 64 * k, 64 * (k + 1)};
    for (int m = 0; m < 4; ++m) {
        const int ringA = (m + 3) % 4;
        const int64_t gA = ig[ringA * 3 + ch], gB = ig[m * 3 + ch];
        for (int r = 0; r < rows; ++r)
            for (int c = 0; c < cols; ++c) {
                // Q10 gain on a byte, rounded.
                const int a = (int)std::min<int64_t>(
                    255, (gA * Channel(planes[2 * m], r, c, stride, ch) + 512) / 1024);
                const int b = (int)std::min<int64_t>(
                    255, (gB * Channel(planes[2 * m + 1], r, c, stride, ch) + 512) / 1024);
                if (a < 1 || b < 1) continue;
                float aA = 0, bA = 0, aB = 0, bB = 0;
                int okA = 0, okB = 0;
                RefTmapping(knots, &curve[ringA][ch][k - 1], a, &aA, &bA, okA);
                RefTmapping(knots, &curve[m][ch][k - 1], b, &aB, &bB, okB);
                if (!okA || !okB) continue;
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

    for (int ch = 0; ch < 3; ++ch)
        for (int k = 1; k <= 3; ++k) {
            const int knot = 64 * k;
            PointSums S;
            GatherPoint(planes, rows, cols, stride, ig, curve, ch, k, S);
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

void RefDownSample(unsigned char** planes, int& rows, int& cols, int& stride,
                int DS)
{
    const int s = DS > 1 ? DS & ~1 : 1;
    const int64_t n = (int64_t)s * s;  // 64-bit only so absurd DS cannot overflow
    const int outCols = cols / s;
    for (int p = 0; p < 8; ++p) {
        unsigned char* pl = planes[p];
        for (int r = 0; r < rows; r += s) {
            // A short last block sums only the rows it has.
            const int rEnd = std::min(r + s, rows);
            for (int q = 0; q < outCols; ++q)
                for (int ch = 0; ch < 3; ++ch) {
                    int64_t sum = 0;
                    for (int rr = r; rr < rEnd; ++rr)
                        for (int cc = q * s; cc < q * s + s; ++cc)
                            sum += pl[(rr * stride + cc) * 3 + ch];
                    const int64_t mean = (sum + n / 2) / n;
                    pl[((r / s) * stride + q) * 3 + ch] =
                        (unsigned char)std::min<int64_t>(255, std::max<int64_t>(0, mean));
                }
        }
    }
    rows /= s;
    cols /= s;
}

void RefGetStatData(unsigned char** YUV, int W, int H, tag_StatPara& stat,
                 unsigned char** planes, int& rows, int& cols, int stride,
                 int VL, int VH, int rto, int TolL, int TolH, int DS)
{
    const int SW = stat.OutImgWidth, SH = stat.OutImgHeight;
    const int TW = stat.TableWidth, TH = stat.TableHeight;
    const int IX = stat.IntervalX, IY = stat.IntervalY;
    // The planes are sized by the counts on entry (w2 x h2).
    const int h2 = rows, w2 = cols;
    if (rows > 0 && cols > 0)
        for (int p = 0; p < 8; ++p)
            std::memset(planes[p], 0, (size_t)cols * rows * 3);

    static std::vector<int> cache[2];
    for (int t = 0; t < 2; ++t) cache[t].assign(std::max(SW, 0) + 2, 128);

    const bool walkable = stat.TB1 && stat.TB2 && TW >= 2 && TH >= 2 &&
                          IX >= 0 && IX <= kMaxInterval && IY >= 0 &&
                          IY <= kMaxInterval;
    const int shift = IY + 4;
    // The lower corner row must exist: rows of the last cell row stop it.
    for (int i = 0; walkable && i < SH && (i >> IY) <= TH - 2; ++i) {
        const int cellY = i >> IY;
        const int fy = (16 * i) & ((1 << (IY + 4)) - 1);
        int cellX = 0;
        Corners c[2];
        LoadCorners(stat.TB1, TW, cellY, cellX, c[0]);
        LoadCorners(stat.TB2, TW, cellY, cellX, c[1]);
        for (int j = 0; j < SW; ++j) {
            if ((j >> IX) != cellX) {
                cellX = j >> IX;
                if (cellX > TW - 2) break;
                LoadCorners(stat.TB1, TW, cellY, cellX, c[0]);
                LoadCorners(stat.TB2, TW, cellY, cellX, c[1]);
            }
            const int fx = (16 * j) & ((1 << (IX + 4)) - 1);
            TableSample s[2];
            for (int t = 0; t < 2; ++t)
                s[t] = SampleTable(YUV, W, H, c[t], t, i, j, fx, fy, shift,
                                   cache[t].data());
            if (!s[0].valid || !s[1].valid || s[0].wgt <= 0 || s[1].wgt <= 0 ||
                !InRange(s[0].rgb, VL, VH) || !InRange(s[1].rgb, VL, VH))
                continue;
            int lr, lc;
            const int m = RegionOf(i, j, SW, SH, w2, h2, lr, lc);
            if (m < 0) continue;
            // Regions 0 and 2 put the TB2 camera on side A, 1 and 3 the TB1.
            const int sideA = m % 2 == 0 ? 1 : 0;
            const int idx = (lr * stride + lc) * 3;
            PutTriple(planes[2 * m], idx, s[sideA].rgb);
            PutTriple(planes[2 * m + 1], idx, s[1 - sideA].rgb);
        }
    }

    int s = stride;
    RefDownSample(planes, rows, cols, s, DS);
    DropInconsistent(planes, rows, cols, stride, rto, TolL, TolH);
}

void RefTmapping(int* knots, float* vals, int x, float* a, float* b, int& ok)
{
    ok = 0;
    if (knots[0] <= x && x < knots[1] && x > 0) {
        const float r = (float)(knots[0] - x) / (float)(knots[1] - knots[0]);
        *a = (float)((double)vals[0] * (1.0 + (double)r));
        *b = (float)(x - knots[0]) / (float)(knots[1] - knots[0]);
        ok = 1;
    } else if (knots[1] <= x && x < knots[2] && x > 0) {
        *a = ((float)(x - knots[1]) / (float)(knots[2] - knots[1])) * vals[2];
        *b = (float)(x - knots[2]) / (float)(knots[1] - knots[2]);
        ok = 1;
    }
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

void RefOptimize4GT(unsigned char** planes, int rows, int cols, int stride,
                 int* gain, int* tcurve, int nData, float beta, int bdr,
                 int bdh, float mgn)
{
    if (!Fit(planes, rows, cols, stride, gain, tcurve, nData, beta, bdr, bdh, mgn))
        KeepPrevious(gain, tcurve);
}

void RefCalibGT(unsigned char** YUV, int W, int H, tag_StatPara& stat, int* gain,
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
    RefGetStatData(YUV, W, H, stat, planes, h2, w2, stride, VL, VH, rto, TolL,
                TolH, DS);
    RefOptimize4GT(planes, h2, w2, stride, gain, tcurve, nData, beta, bdr, bdh,
                mgn);
}

}  // namespace svtest
