#include "pipe/calib_enhanced.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "pipe/calib_GT.h"
#include "pipe/data_processing.h"

namespace {

// The camera on each side of region m: a = kRegionCam[m][0].
const int kRegionCam[4][2] = {{2, 0}, {0, 3}, {3, 1}, {1, 2}};

// The overlaps never match exactly (parallax, misregistration, objects seen
// by one camera only): the gains minimise the mean absolute difference
// rather than the squared one, by reweighting each pair with 1 / |residual|,
// residuals below kL1Floor levels counting as that.
const int kL1Rounds = 5;
const double kL1Floor = 4.0;

// Weight of the pull of each curve level towards the straight line, per unit
// of sample weight: keeps a level that no sample reaches where it is, and is
// too weak to matter where samples are.
const double kCurveRidge = 1e-3;

// Averaging of successive fits, and how far the average must move from the
// value in use before that changes: in Q10 gain steps and curve levels.
const double kFollow = 0.25;
const double kHoldGain = 4.0;
const double kHoldLevel = 1.0;

// A x = b for a dense n x n system (row-major) by Gaussian elimination with
// partial pivoting; b becomes x. False when A is singular.
bool SolveDense(std::vector<double>& A, std::vector<double>& b, int n)
{
    for (int col = 0; col < n; ++col) {
        int piv = col;
        for (int r = col + 1; r < n; ++r)
            if (std::fabs(A[r * n + col]) > std::fabs(A[piv * n + col])) piv = r;
        if (!(std::fabs(A[piv * n + col]) > 1e-12)) return false;
        if (piv != col) {
            for (int c = 0; c < n; ++c) std::swap(A[col * n + c], A[piv * n + c]);
            std::swap(b[col], b[piv]);
        }
        for (int r = col + 1; r < n; ++r) {
            const double f = A[r * n + col] / A[col * n + col];
            if (f == 0.0) continue;
            for (int c = col; c < n; ++c) A[r * n + c] -= f * A[col * n + c];
            b[r] -= f * b[col];
        }
    }
    for (int r = n - 1; r >= 0; --r) {
        double s = b[r];
        for (int c = r + 1; c < n; ++c) s -= A[r * n + c] * b[c];
        b[r] = s / A[r * n + r];
        if (!std::isfinite(b[r])) return false;
    }
    return true;
}

int RoundHalfUp(double v) { return (int)std::floor(v + 0.5); }

double Clamp255(double v) { return v < 0.0 ? 0.0 : v > 255.0 ? 255.0 : v; }

// Gains of one channel up to a common factor: the match of g[a] * A and
// g[b] * B over all pairs, in the least-absolute sense, with their mean held
// at 1. False when a system is singular or a gain leaves 1/4..4 of the mean.
bool FitChannelGains(const EnhancedData& d, int ch, double g[4])
{
    double prev[4] = {1, 1, 1, 1};
    for (int round = 0; round <= kL1Rounds; ++round) {
        std::vector<double> A(25, 0.0), b(5, 0.0);
        for (int m = 0; m < 4; ++m) {
            const int ca = kRegionCam[m][0], cb = kRegionCam[m][1];
            for (int i = 0; i < d.counts[m]; ++i) {
                const EnhancedPair& p = d.pairs[m][i];
                const double va = p.a[ch], vb = p.b[ch];
                double w = p.weight;
                if (round > 0) w /= std::max(kL1Floor, std::fabs(prev[ca] * va - prev[cb] * vb));
                A[ca * 5 + ca] += w * va * va;
                A[cb * 5 + cb] += w * vb * vb;
                A[ca * 5 + cb] -= w * va * vb;
                A[cb * 5 + ca] -= w * va * vb;
            }
        }
        for (int k = 0; k < 4; ++k) A[k * 5 + 4] = A[4 * 5 + k] = 1.0;
        b[4] = 4.0;
        if (!SolveDense(A, b, 5)) return false;
        for (int k = 0; k < 4; ++k) {
            if (!(b[k] >= 0.25 && b[k] <= 4.0)) return false;
            g[k] = prev[k] = b[k];
        }
    }
    return true;
}

// The tone curve's value at u (0..255) as the sum of coef[j] * level j (the
// levels at 64, 128, 192) plus what the fixed ends give (0 at 0, 256 at 256).
double CurveTerms(double u, double coef[3])
{
    coef[0] = coef[1] = coef[2] = 0.0;
    const int seg = std::min(3, (int)(u / 64.0));
    const double t = (u - 64.0 * seg) / 64.0;
    if (seg == 0) {
        coef[0] = t;
        return 0.0;
    }
    if (seg == 3) {
        coef[2] = 1.0 - t;
        return 256.0 * t;
    }
    coef[seg - 1] = 1.0 - t;
    coef[seg] = t;
    return 0.0;
}

double CurveAt(const double y[3], double u)
{
    double coef[3];
    const double constant = CurveTerms(u, coef);
    return constant + coef[0] * y[0] + coef[1] * y[1] + coef[2] * y[2];
}

// Curve levels y[camera][j] of one channel on the gained samples: the
// least-absolute match (reweighted as for the gains) of the two cameras'
// curves over all pairs, with the four cameras' levels at each point
// averaging to the straight line, so the curves carry only what differs
// between cameras and no shared change of contrast.
bool FitChannelCurves(const EnhancedData& d, int ch, const double g[4], double y[4][3])
{
    const int n = 15;  // 12 levels, 3 constraints
    double prev[4][3];
    for (int k = 0; k < 4; ++k)
        for (int j = 0; j < 3; ++j) prev[k][j] = 64.0 * (j + 1);
    for (int round = 0; round <= kL1Rounds; ++round) {
        std::vector<double> A(n * n, 0.0), b(n, 0.0);
        double total = 0;
        for (int m = 0; m < 4; ++m) {
            const int ca = kRegionCam[m][0], cb = kRegionCam[m][1];
            for (int i = 0; i < d.counts[m]; ++i) {
                const EnhancedPair& p = d.pairs[m][i];
                const double ua = Clamp255(g[ca] * p.a[ch]), ub = Clamp255(g[cb] * p.b[ch]);
                double w = p.weight;
                if (round > 0)
                    w /= std::max(kL1Floor, std::fabs(CurveAt(prev[ca], ua) - CurveAt(prev[cb], ub)));
                double ea[3], eb[3], e[12] = {};
                const double kappa = CurveTerms(ua, ea) - CurveTerms(ub, eb);
                for (int j = 0; j < 3; ++j) {
                    e[ca * 3 + j] += ea[j];
                    e[cb * 3 + j] -= eb[j];
                }
                for (int r = 0; r < 12; ++r) {
                    if (e[r] == 0.0) continue;
                    for (int c = 0; c < 12; ++c) A[r * n + c] += w * e[r] * e[c];
                    b[r] -= w * kappa * e[r];
                }
                total += w;
            }
        }
        for (int r = 0; r < 12; ++r) {
            const double knot = 64.0 * (r % 3 + 1);
            A[r * n + r] += kCurveRidge * total;
            b[r] += kCurveRidge * total * knot;
            // Point j of all four cameras sums to four times its knot.
            A[r * n + 12 + r % 3] = A[(12 + r % 3) * n + r] = 1.0;
        }
        for (int j = 0; j < 3; ++j) b[12 + j] = 4.0 * 64.0 * (j + 1);
        if (!SolveDense(A, b, n)) return false;
        for (int k = 0; k < 4; ++k)
            for (int j = 0; j < 3; ++j) y[k][j] = prev[k][j] = b[k * 3 + j];
    }
    return true;
}

// Gain g and curve y (on gained values) in the library's terms, unrounded:
// a Q10 gain and three levels. A gain above 1 would push the camera's
// highlights into clipping; it goes into the curve instead, whose top end
// stays at 256, so the brightest levels are compressed rather than cut.
void ToLibrary(double g, const double y[3], double* q10, double levels[3])
{
    if (g <= 1.0) {
        *q10 = g * 1024.0;
        for (int j = 0; j < 3; ++j) levels[j] = std::max(0.0, std::min(255.0, y[j]));
        return;
    }
    *q10 = 1024.0;
    for (int j = 0; j < 3; ++j) levels[j] = std::min(255.0, CurveAt(y, Clamp255(g * 64.0 * (j + 1))));
}

// What ToneMapping makes of v, without its rounding.
double Mapped(double q10, const double levels[3], double v)
{
    return Clamp255(CurveAt(levels, Clamp255(q10 * v / 1024.0)));
}

// Per camera the histogram of one channel that stands for the picture: the
// composed picture's own where known, else the camera's overlap samples.
void PictureHistogram(const EnhancedData& d, int ch, std::vector<double>& h)
{
    h.assign(4 * 256, 0.0);
    double n = 0;
    if (d.picture)
        for (int k = 0; k < 4; ++k)
            for (int v = 0; v < 256; ++v) n += (h[k * 256 + v] = d.picture[k][ch][v]);
    if (n > 0) return;
    for (int m = 0; m < 4; ++m)
        for (int i = 0; i < d.counts[m]; ++i) {
            const EnhancedPair& p = d.pairs[m][i];
            h[kRegionCam[m][0] * 256 + (int)p.a[ch]] += p.weight;
            h[kRegionCam[m][1] * 256 + (int)p.b[ch]] += p.weight;
        }
}

// The picture's mean level of one channel with every camera's gain scaled
// by s (none: the uncorrected picture).
double PictureMean(const std::vector<double>& h, const double g[4], const double y[4][3],
                   const double* s)
{
    double sum = 0, n = 0;
    for (int k = 0; k < 4; ++k) {
        double q10 = 1024.0, levels[3] = {64, 128, 192};
        if (s) ToLibrary(*s * g[k], y[k], &q10, levels);
        for (int v = 0; v < 256; ++v) {
            const double c = h[k * 256 + v];
            if (c == 0.0) continue;
            sum += c * (s ? Mapped(q10, levels, v) : v);
            n += c;
        }
    }
    return n > 0 ? sum / n : 0.0;
}

// The unrounded fit, 12 gains then 36 levels in the library's order.
bool FitValues(const EnhancedData& d, int nData, int bdr, int bdh, double out[48])
{
    for (int m = 0; m < 4; ++m) {
        int64_t samples = 0;
        for (int i = 0; i < d.counts[m]; ++i) samples += std::max(d.pairs[m][i].weight, 0);
        if (samples < std::max(nData, 1)) return false;
    }
    std::vector<double> hist;
    for (int ch = 0; ch < 3; ++ch) {
        double g[4], y[4][3];
        if (!FitChannelGains(d, ch, g)) return false;
        PictureHistogram(d, ch, hist);
        const double target = PictureMean(hist, g, y, nullptr);
        // The picture keeps its mean level in every channel, hence its
        // brightness and its colour: first for the gains alone, which fixes
        // the levels the curves are fitted on, then exactly for gains and
        // curves together.
        for (double& x : g) x = std::min(x, 4.0);
        double sum = 0, n = 0;
        for (int k = 0; k < 4; ++k)
            for (int v = 0; v < 256; ++v) {
                sum += hist[k * 256 + v] * g[k] * v;
                n += hist[k * 256 + v];
            }
        if (!(sum > 0) || !(target > 0)) return false;
        for (double& x : g) x *= target * n / sum;
        if (!FitChannelCurves(d, ch, g, y)) return false;
        for (int k = 0; k < 4; ++k)
            for (int j = 0; j < 3; ++j) {
                const int knot = 64 * (j + 1);
                const double lim = (double)std::min<int64_t>((int64_t)knot * bdr / 16, bdh);
                y[k][j] = std::max(knot - lim, std::min(knot + lim, y[k][j]));
            }
        double s = 1.0;
        for (int round = 0; round < 4; ++round) {
            const double mean = PictureMean(hist, g, y, &s);
            if (!(mean > 0)) return false;
            s *= target / mean;
        }
        for (int k = 0; k < 4; ++k) {
            double levels[3];
            ToLibrary(s * g[k], y[k], &out[k * 3 + ch], levels);
            for (int j = 0; j < 3; ++j) out[12 + k * 9 + ch * 3 + j] = levels[j];
        }
    }
    return true;
}

// The overlaps are judged by how well they match once pixel noise and small
// misregistration are smoothed away, so the fit works on sample pairs
// smoothed the same way: each stored pair becomes the mean of the stored
// pairs of the kSmooth x kSmooth window around it. Fitting on noisy pairs
// would also bias the gains towards one another.
const int kSmooth = 3;

// Every stored sample pair of the eight region planes, smoothed, one pixel
// each, weighted by weights[(m * rows + r) * cols + c] (none: 1 each); a
// pair of weight 0 is left out of the fit but still smooths its neighbours.
void CollectPairs(unsigned char** planes, int rows, int cols, int stride, const int* weights,
                  std::vector<EnhancedPair> out[4])
{
    const int r0 = kSmooth / 2;
    for (int m = 0; m < 4; ++m) {
        out[m].clear();
        const unsigned char* pa = planes[2 * m];
        const unsigned char* pb = planes[2 * m + 1];
        // Empty positions hold zeros on both sides.
        auto stored = [&](int r, int c) {
            const int64_t idx = ((int64_t)r * stride + c) * 3;
            return (pa[idx] | pa[idx + 1] | pa[idx + 2] | pb[idx] | pb[idx + 1] | pb[idx + 2]) != 0;
        };
        for (int r = 0; r < rows; ++r)
            for (int c = 0; c < cols; ++c) {
                if (!stored(r, c)) continue;
                int sum[6] = {}, n = 0;
                for (int y = std::max(0, r - r0); y <= std::min(rows - 1, r + r0); ++y)
                    for (int x = std::max(0, c - r0); x <= std::min(cols - 1, c + r0); ++x) {
                        if (!stored(y, x)) continue;
                        const int64_t idx = ((int64_t)y * stride + x) * 3;
                        for (int k = 0; k < 3; ++k) {
                            sum[k] += pa[idx + k];
                            sum[3 + k] += pb[idx + k];
                        }
                        ++n;
                    }
                EnhancedPair p;
                for (int k = 0; k < 3; ++k) {
                    p.a[k] = (float)sum[k] / n;
                    p.b[k] = (float)sum[3 + k] / n;
                }
                p.weight = weights ? weights[((int64_t)m * rows + r) * cols + c] : 1;
                if (p.weight > 0) out[m].push_back(p);
            }
    }
}

// The levels the composed picture shows, camera by camera: each mesh node
// of the control table that a camera sees stands for the output pixels
// around it, read at its source pixel.
void CollectPicture(unsigned char** YUV, int W, int H, const tag_CtrlPara& ctrl,
                    int hist[4][3][256])
{
    std::memset(hist, 0, sizeof(int) * 4 * 3 * 256);
    if (ctrl.TableWidth <= 0 || ctrl.TableHeight <= 0) return;
    const int64_t nodes = (int64_t)ctrl.TableWidth * ctrl.TableHeight;
    for (int t = 0; t < 2; ++t) {
        const int* tb = t == 0 ? ctrl.TB1 : ctrl.TB2;
        if (!tb) continue;
        for (int64_t i = 0; i < nodes; ++i) {
            const int* node = tb + 4 * i;
            const int px = node[0] >> 4, py = node[1] >> 4;
            if (node[0] < 0 || node[1] < 0 || px >= W || py >= H || node[2] <= 0 ||
                (node[3] != 0 && node[3] != 1))
                continue;
            const unsigned char* img = YUV[2 * t + node[3]];
            const int64_t uv = (int64_t)W * H + (int64_t)(py / 2) * W + (px / 2) * 2;
            int rgb[3];
            YUV2RGB(img[(int64_t)py * W + px], img[uv], img[uv + 1], rgb[0], rgb[1], rgb[2], 8, 8);
            for (int ch = 0; ch < 3; ++ch) ++hist[2 * t + node[3]][ch][std::min(255, std::max(0, rgb[ch]))];
        }
    }
}

// A source position (1/16 pixel) of one camera that the control table
// renders, and how much of the output there is this camera's when the other
// table's camera contributes too: min(w, w') / (w + w'), 0..1/2.
struct RenderedNode {
    int sx, sy;
    double share;
};

// The rendered nodes of one camera, bucketed by source position, so the
// node nearest a source position is found without a walk over all of them.
class NodeIndex {
public:
    void Build(std::vector<RenderedNode> nodes)
    {
        nodes_ = std::move(nodes);
        gw_ = gh_ = 0;
        for (const RenderedNode& n : nodes_) {
            gw_ = std::max(gw_, (n.sx >> kBucketShift) + 1);
            gh_ = std::max(gh_, (n.sy >> kBucketShift) + 1);
        }
        start_.assign((size_t)gw_ * gh_ + 1, 0);
        for (const RenderedNode& n : nodes_) ++start_[Bucket(n.sx, n.sy) + 1];
        for (size_t b = 1; b < start_.size(); ++b) start_[b] += start_[b - 1];
        order_.resize(nodes_.size());
        std::vector<int> fill(start_.begin(), start_.end() - 1);
        for (int i = 0; i < (int)nodes_.size(); ++i) order_[fill[Bucket(nodes_[i].sx, nodes_[i].sy)]++] = i;
    }

    // The share of the node nearest (sx, sy), 0 when no node lies within
    // kReach buckets: the control table does not show that point from this
    // camera.
    double ShareAt(int sx, int sy) const
    {
        if (nodes_.empty() || sx < 0 || sy < 0) return 0.0;
        const int bx = sx >> kBucketShift, by = sy >> kBucketShift;
        int64_t best = -1;
        double share = 0.0;
        // Rings of buckets outwards; one ring past the first hit, since a
        // node in the next ring may still lie nearer.
        int last = kReach;
        for (int ring = 0; ring <= last; ++ring)
            for (int y = by - ring; y <= by + ring; ++y)
                for (int x = bx - ring; x <= bx + ring; ++x) {
                    if (std::max(std::abs(x - bx), std::abs(y - by)) != ring) continue;
                    if (x < 0 || y < 0 || x >= gw_ || y >= gh_) continue;
                    const int b = y * gw_ + x;
                    for (int k = start_[b]; k < start_[b + 1]; ++k) {
                        const RenderedNode& n = nodes_[order_[k]];
                        const int64_t dx = n.sx - sx, dy = n.sy - sy, d = dx * dx + dy * dy;
                        if (best < 0 || d < best) {
                            best = d;
                            share = n.share;
                            last = std::min(last, ring + 1);
                        }
                    }
                }
        return share;
    }

private:
    // Buckets of 16 camera pixels; nodes 8 output pixels apart lie at most
    // a few buckets apart in any camera.
    static const int kBucketShift = 8;
    static const int kReach = 4;
    int Bucket(int sx, int sy) const { return (sy >> kBucketShift) * gw_ + (sx >> kBucketShift); }
    std::vector<RenderedNode> nodes_;
    std::vector<int> start_, order_;
    int gw_ = 0, gh_ = 0;
};

// What a pair's weight is scaled to where both cameras show equally.
const int kFullWeight = 16;

// Per statistics sample, how much the fit should trust it, from the control
// table: the statistics table samples whole corner areas, but the picture
// shows two cameras only where the control table blends them, and the
// mismatch shows most where both weigh equally. A sample counts
// kFullWeight * (2 * share)^2, share being the smaller camera's part of the
// blend at its ground point. The ground point is found through the source
// position, the one thing both tables share: in each of the two cameras the
// nearest rendered control node, and of the two shares the smaller. 0
// outside the blend. Weighting linearly in share, or counting every pair
// inside the blend alike, matched the seams less well on a real rig.
struct BlendWeights {
    bool built = false;
    int W = 0, H = 0, rows = 0, cols = 0;
    tag_CtrlPara ctrl{};
    tag_StatPara stat{};
    std::vector<int> tables[4];  // control TB1, TB2, statistics TB1, TB2
    std::vector<int> weight;     // [region][row][column]

    static bool SameValues(const std::vector<int>& held, const int* now, int64_t n)
    {
        if (n <= 0 || !now) return held.empty();
        return (int64_t)held.size() == n && std::memcmp(held.data(), now, n * sizeof(int)) == 0;
    }

    static int64_t Values(int w, int h) { return w > 0 && h > 0 ? (int64_t)w * h * 4 : 0; }

    bool Current(int w, int h, const tag_StatPara& s, const tag_CtrlPara& c, int r, int k) const
    {
        tag_CtrlPara a = ctrl, b = c;
        a.TB1 = a.TB2 = b.TB1 = b.TB2 = nullptr;
        tag_StatPara x = stat, y = s;
        x.TB1 = x.TB2 = y.TB1 = y.TB2 = nullptr;
        const int64_t nc = Values(c.TableWidth, c.TableHeight), ns = Values(s.TableWidth, s.TableHeight);
        return built && W == w && H == h && rows == r && cols == k && std::memcmp(&a, &b, sizeof a) == 0 &&
               std::memcmp(&x, &y, sizeof x) == 0 && SameValues(tables[0], c.TB1, nc) &&
               SameValues(tables[1], c.TB2, nc) && SameValues(tables[2], s.TB1, ns) &&
               SameValues(tables[3], s.TB2, ns);
    }

    void Update(int w, int h, const tag_StatPara& s, const tag_CtrlPara& c, int r, int k)
    {
        if (Current(w, h, s, c, r, k)) return;
        built = true;
        W = w;
        H = h;
        rows = r;
        cols = k;
        ctrl = c;
        stat = s;
        const int64_t nc = Values(c.TableWidth, c.TableHeight), ns = Values(s.TableWidth, s.TableHeight);
        const int* from[4] = {c.TB1, c.TB2, s.TB1, s.TB2};
        const int64_t count[4] = {nc, nc, ns, ns};
        for (int t = 0; t < 4; ++t)
            tables[t].assign(from[t] && count[t] > 0 ? from[t] : nullptr,
                             from[t] && count[t] > 0 ? from[t] + count[t] : nullptr);
        Compute();
    }

    void Compute()
    {
        weight.assign((size_t)4 * rows * cols, 0);
        NodeIndex cams[4];
        std::vector<RenderedNode> nodes[4];
        auto seen = [](const int* n) { return n[0] >= 0 && n[1] >= 0 && (n[3] == 0 || n[3] == 1); };
        for (size_t i = 0; i + 3 < tables[0].size() && i + 3 < tables[1].size(); i += 4)
            for (int t = 0; t < 2; ++t) {
                const int* n = &tables[t][i];
                const int* o = &tables[1 - t][i];
                if (!seen(n)) continue;
                double share = 0.0;
                if (seen(o) && n[2] > 0 && o[2] > 0)
                    share = (double)std::min(n[2], o[2]) / ((double)n[2] + o[2]);
                nodes[2 * t + n[3]].push_back({n[0], n[1], share});
            }
        for (int k = 0; k < 4; ++k) cams[k].Build(std::move(nodes[k]));

        const int SW = stat.OutImgWidth, SH = stat.OutImgHeight, w2 = SW / 2, h2 = SH / 2;
        const int tw = stat.TableWidth, th = stat.TableHeight;
        if (stat.IntervalX < 0 || stat.IntervalY < 0 || stat.IntervalX > 16 || stat.IntervalY > 16 ||
            (int64_t)tw * th * 4 != (int64_t)tables[2].size() || tables[2].size() != tables[3].size())
            return;
        for (int i = 0; i < SH; ++i)
            for (int j = 0; j < SW; ++j) {
                int m, r, c;
                if (j < w2 && i < h2) m = 0, r = i, c = j;
                else if (j > SW - w2 && i < h2) m = 1, r = i, c = j - (SW - w2);
                else if (j > SW - w2 && i > SH - h2) m = 2, r = i - (SH - h2), c = j - (SW - w2);
                else if (j < w2 && i > SH - h2) m = 3, r = i - (SH - h2), c = j;
                else continue;
                if (r >= rows || c >= cols) continue;
                const int ci = i >> stat.IntervalY, cj = j >> stat.IntervalX;
                if (ci + 1 >= th || cj + 1 >= tw) continue;
                double share = 0.5;
                for (int t = 0; t < 2 && share > 0.0; ++t) {
                    int sx[2][2], sy[2][2], sel = -1;
                    bool ok = true;
                    for (int a = 0; a < 2; ++a)
                        for (int b = 0; b < 2; ++b) {
                            const int* n = &tables[2 + t][((size_t)(ci + a) * tw + cj + b) * 4];
                            sx[a][b] = n[0];
                            sy[a][b] = n[1];
                            ok = ok && n[0] >= 0 && n[1] >= 0 && (sel < 0 || sel == n[3]);
                            sel = n[3];
                        }
                    if (!ok || (sel != 0 && sel != 1)) {
                        share = 0.0;
                        break;
                    }
                    const int fx = (16 * j) & ((1 << (stat.IntervalX + 4)) - 1);
                    const int fy = (16 * i) & ((1 << (stat.IntervalY + 4)) - 1);
                    const int x = BilinearInterpolation(sx, fx, fy, stat.IntervalY + 4, 0);
                    const int y = BilinearInterpolation(sy, fx, fy, stat.IntervalY + 4, 0);
                    share = std::min(share, cams[2 * t + sel].ShareAt(x, y));
                }
                weight[((size_t)m * rows + r) * cols + c] = RoundHalfUp(kFullWeight * 4.0 * share * share);
            }
    }
};

// What successive calibrations share: the running average of the fits and
// the values last written.
struct Follow {
    bool have = false;
    double mean[48];
    int used[48];
};

}  // namespace

bool FitEnhanced(const EnhancedData& data, int nData, int bdr, int bdh, int* gain,
                 int* tcurve)
{
    double v[48];
    if (!FitValues(data, nData, bdr, bdh, v)) return false;
    for (int i = 0; i < 12; ++i) gain[i] = RoundHalfUp(v[i]);
    for (int i = 0; i < 36; ++i) tcurve[i] = RoundHalfUp(v[12 + i]);
    return true;
}

void CalibEnhanced(unsigned char** YUV, int W, int H, tag_StatPara& stat,
                   const tag_CtrlPara& ctrl, int* gain, int* tcurve, int VL, int VH,
                   int rto, int TolL, int TolH, int nData, int bdr, int bdh,
                   bool restart)
{
    static Follow follow;
    if (restart) follow.have = false;
    int w2 = stat.OutImgWidth / 2;
    int h2 = stat.OutImgHeight / 2;
    const int stride = w2;
    const int64_t bytes = (int64_t)w2 * h2 * 3;
    bool fitted = false;
    double v[48];
    if (w2 >= 1 && h2 >= 1 && bytes * 8 <= INT32_MAX) {
        static std::vector<unsigned char> store;
        if ((int64_t)store.size() < bytes * 8) store.resize((size_t)(bytes * 8));
        unsigned char* planes[8];
        for (int p = 0; p < 8; ++p) planes[p] = store.data() + p * bytes;
        // Every pair the two cameras see is kept, clipped or not and however
        // far apart: the least-absolute fit discounts the pairs that do not
        // fit by itself, whereas leaving out the bright ones leaves the
        // highlights unmatched.
        (void)VL;
        (void)VH;
        (void)rto;
        (void)TolL;
        (void)TolH;
        GetStatData(YUV, W, H, stat, planes, h2, w2, stride, 1, 255, 16, 255, 255, 1);
        static std::vector<EnhancedPair> pairs[4];
        static BlendWeights blend;
        blend.Update(W, H, stat, ctrl, h2, w2);
        CollectPairs(planes, h2, w2, stride, blend.weight.data(), pairs);
        // Tables that blend nowhere (hard seams), or statistics that miss
        // the blend, leave an overlap without trusted samples: then all
        // samples count alike.
        int need = std::max(nData, 1) * kFullWeight;
        for (int m = 0; m < 4; ++m) {
            int64_t sum = 0;
            for (const EnhancedPair& p : pairs[m]) sum += p.weight;
            if (sum < need) {
                CollectPairs(planes, h2, w2, stride, nullptr, pairs);
                need = nData;
                break;
            }
        }
        static int picture[4][3][256];
        CollectPicture(YUV, W, H, ctrl, picture);
        EnhancedData d;
        for (int m = 0; m < 4; ++m) {
            d.pairs[m] = pairs[m].data();
            d.counts[m] = (int)pairs[m].size();
        }
        d.picture = picture;
        fitted = FitValues(d, need, bdr, bdh, v);
    }
    if (!fitted) {
        // Keep the previous values, or start from the identity when there
        // are none yet (the zeros the arrays start with would blend into a
        // black picture).
        if (std::all_of(gain, gain + 12, [](int x) { return x == 0; })) {
            std::fill(gain, gain + 12, 1024);
            for (int i = 0; i < 36; ++i) tcurve[i] = 64 * (i % 3 + 1);
        }
        return;
    }
    for (int i = 0; i < 48; ++i) {
        if (follow.have)
            follow.mean[i] += kFollow * (v[i] - follow.mean[i]);
        else
            follow.mean[i] = v[i];
        const double hold = i < 12 ? kHoldGain : kHoldLevel;
        if (!follow.have || std::fabs(follow.mean[i] - follow.used[i]) >= hold)
            follow.used[i] = RoundHalfUp(follow.mean[i]);
    }
    follow.have = true;
    std::memcpy(gain, follow.used, 12 * sizeof(int));
    std::memcpy(tcurve, follow.used + 12, 36 * sizeof(int));
}
