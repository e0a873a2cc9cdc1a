#include "pipe/compose_plan.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <vector>

#include "pipe/compose_kernels.h"
#include "pipe/data_processing.h"
#include "pipe/mesh_walk.h"
#include "workers.h"

namespace svc {
namespace {

using namespace mesh;

// Packed positions hold 16 bits of 1/16 pixel per axis.
const int kMaxCamera = 4096;
// A plan holds at most two contributions per output pixel of this many.
const int64_t kMaxPlanPixels = int64_t{kMaxOutW} * 4096;

// Output columns [begin, end) of one row where one table contributes from
// one camera; its positions start at pos.
struct Run {
    int begin, end, cam;
    uint32_t pos;
};

// Output columns [begin, end) of one row with the same contributors: only
// table 0, only table 1, or both (then weights start at w).
enum Kind { kOnly0, kOnly1, kBoth };
struct Span {
    int begin, end;
    Kind kind;
    uint32_t w;
};

struct Row {
    int oy;
    uint32_t runs[2][2];  // per table: [first, last) in runs
    uint32_t spans[2];    // [first, last) in spans
};

// Output columns rendered together, top to bottom: narrow enough that the
// camera lines a strip reads stay cached from one row to the next whichever
// way a camera is turned, wide enough that the per-row bookkeeping stays
// small, and enough strips for the threads to share. Even, so that strips
// hold whole chroma pairs and each pair's cache sees its rows in order.
const int kStrip = 128;

// Row buffers of one strip, indexed by column from the strip's first: per
// table the sampled and then corrected luma, the corrected chroma pairs, and
// the chroma each column pair last sampled. A strip's own, so that threads
// share no cache line.
struct alignas(64) Scratch {
    unsigned char y[2][kStrip + 2], uv[2][kStrip + 2], cache[2][kStrip + 2];
};

struct Plan {
    // What the plan was built from.
    bool built = false;
    int in_w = 0, in_h = 0, out_w = 0, out_h = 0;
    tag_CtrlPara para{};
    int64_t node_lo = 0;
    std::vector<int> nodes[2];

    // False where the plan cannot express this geometry.
    bool usable = false;
    std::vector<Row> rows;             // by strip, then top to bottom
    std::vector<uint32_t> strip_rows;  // strip k's rows: [strip_rows[k], strip_rows[k + 1])
    std::vector<Run> runs;
    std::vector<Span> spans;
    std::vector<uint32_t> pos;      // sx | sy << 16 per contribution
    std::vector<uint32_t> weights;  // w0 & 0xffff | w1 << 16 per blended pixel

    // Per frame, reused.
    std::vector<Scratch> scratch;  // one per strip
    ColourLut lut;
    int lut_from[12 + 36 + 1] = {};  // gains, curves and spacing the tables hold
    bool lut_built = false;
};

// The scalars without the table pointers, the same table values included:
// then the plan's walk would read the same nodes and find the same values.
bool SameSource(const Plan& plan, int in_w, int in_h, int out_w, int out_h,
                const tag_CtrlPara& p) {
    tag_CtrlPara a = plan.para, b = p;
    a.TB1 = a.TB2 = b.TB1 = b.TB2 = nullptr;
    if (!plan.built || plan.in_w != in_w || plan.in_h != in_h || plan.out_w != out_w ||
        plan.out_h != out_h || std::memcmp(&a, &b, sizeof a) != 0)
        return false;
    const int* tables[2] = {p.TB1, p.TB2};
    for (int t = 0; t < 2; ++t) {
        const std::vector<int>& n = plan.nodes[t];
        if (!n.empty() && std::memcmp(tables[t] + plan.node_lo * 4, n.data(), n.size() * sizeof(int)) != 0)
            return false;
    }
    return true;
}

bool Fits16(int w) { return w >= INT16_MIN && w <= INT16_MAX; }

// Records one output row: which tables see each column, and the runs and
// spans that follow. False when a weight needs more than 16 bits.
bool RecordRow(Plan& plan, const Geometry& g, const Column* band0, const Column* band1,
               int oy, int fy) {
    const Column* band[2] = {band0, band1};
    Row row;
    row.oy = oy;
    bool any = false;
    int prev_kind = -1;
    for (int t = 0; t < 2; ++t) {
        row.runs[t][0] = static_cast<uint32_t>(plan.runs.size());
        Run* open = nullptr;
        for (int col = g.lo; col < g.hi; ++col) {
            const Column& c = band[t][col - g.lo];
            if (!c.seen) {
                open = nullptr;
                continue;
            }
            const int sx = c.At(kSrcX, fy, g.shift), sy = c.At(kSrcY, fy, g.shift);
            const int px = sx >> 4, py = sy >> 4;
            // Column 0 and row 0 are never sampled, nor the last ones.
            if (px < 1 || px > plan.in_w - 2 || py < 1 || py > plan.in_h - 2) {
                open = nullptr;
                continue;
            }
            const int ox = static_cast<int>(g.disp_x + col);
            if (!open || open->end != ox || open->cam != c.cam) {
                plan.runs.push_back({ox, ox, c.cam, static_cast<uint32_t>(plan.pos.size())});
                open = &plan.runs.back();
            }
            ++open->end;
            plan.pos.push_back(static_cast<uint32_t>(sx) | static_cast<uint32_t>(sy) << 16);
            any = true;
        }
        row.runs[t][1] = static_cast<uint32_t>(plan.runs.size());
    }
    if (!any) {
        plan.runs.resize(row.runs[0][0]);
        return true;
    }
    // Spans from the two tables' runs: mark the columns each table covers.
    std::vector<unsigned char> seen(static_cast<size_t>(plan.out_w), 0);
    for (int t = 0; t < 2; ++t)
        for (uint32_t r = row.runs[t][0]; r < row.runs[t][1]; ++r)
            for (int x = plan.runs[r].begin; x < plan.runs[r].end; ++x) seen[x] |= 1 << t;
    row.spans[0] = static_cast<uint32_t>(plan.spans.size());
    for (int col = g.lo; col < g.hi; ++col) {
        const int ox = static_cast<int>(g.disp_x + col);
        const int k = seen[ox] == 1 ? kOnly0 : seen[ox] == 2 ? kOnly1 : seen[ox] == 3 ? kBoth : -1;
        if (k < 0) {
            prev_kind = -1;
            continue;
        }
        if (k != prev_kind)
            plan.spans.push_back({ox, ox, static_cast<Kind>(k), static_cast<uint32_t>(plan.weights.size())});
        ++plan.spans.back().end;
        prev_kind = k;
        if (k == kBoth) {
            const int w0 = band0[col - g.lo].Weight(fy, g.shift);
            const int w1 = band1[col - g.lo].Weight(fy, g.shift);
            if (!Fits16(w0) || !Fits16(w1)) return false;
            plan.weights.push_back(static_cast<uint16_t>(w0) | static_cast<uint32_t>(static_cast<uint16_t>(w1)) << 16);
        }
    }
    row.spans[1] = static_cast<uint32_t>(plan.spans.size());
    plan.rows.push_back(row);
    return true;
}


// Cuts every row at the strip boundaries, so that a strip walks only its
// own runs and spans, already clipped, and reads its positions and weights
// front to back: a strip's data lies together, in the order it is used.
void CutIntoStrips(Plan& plan) {
    std::vector<Row> rows;
    std::vector<Run> runs;
    std::vector<Span> spans;
    std::vector<uint32_t> pos, weights;
    pos.reserve(plan.pos.size());
    weights.reserve(plan.weights.size());
    const int strips = (plan.out_w + kStrip - 1) / kStrip;
    plan.strip_rows.assign(static_cast<size_t>(strips) + 1, 0);
    for (int k = 0; k < strips; ++k) {
        plan.strip_rows[k] = static_cast<uint32_t>(rows.size());
        const int sb = k * kStrip, se = std::min(sb + kStrip, plan.out_w);
        for (const Row& row : plan.rows) {
            Row cut = row;
            for (int t = 0; t < 2; ++t) {
                cut.runs[t][0] = static_cast<uint32_t>(runs.size());
                for (uint32_t i = row.runs[t][0]; i < row.runs[t][1]; ++i) {
                    const Run& r = plan.runs[i];
                    const int b = std::max(r.begin, sb), e = std::min(r.end, se);
                    if (b >= e) continue;
                    runs.push_back({b, e, r.cam, static_cast<uint32_t>(pos.size())});
                    const auto from = plan.pos.begin() + r.pos + (b - r.begin);
                    pos.insert(pos.end(), from, from + (e - b));
                }
                cut.runs[t][1] = static_cast<uint32_t>(runs.size());
            }
            cut.spans[0] = static_cast<uint32_t>(spans.size());
            for (uint32_t i = row.spans[0]; i < row.spans[1]; ++i) {
                const Span& sp = plan.spans[i];
                const int b = std::max(sp.begin, sb), e = std::min(sp.end, se);
                if (b >= e) continue;
                spans.push_back({b, e, sp.kind, static_cast<uint32_t>(weights.size())});
                if (sp.kind == kBoth) {
                    const auto from = plan.weights.begin() + sp.w + (b - sp.begin);
                    weights.insert(weights.end(), from, from + (e - b));
                }
            }
            cut.spans[1] = static_cast<uint32_t>(spans.size());
            // Spans lie inside runs: no run, nothing to do in this strip.
            if (cut.runs[0][0] != cut.runs[1][1]) rows.push_back(cut);
        }
    }
    plan.strip_rows[strips] = static_cast<uint32_t>(rows.size());
    plan.rows.swap(rows);
    plan.runs.swap(runs);
    plan.spans.swap(spans);
    plan.pos.swap(pos);
    plan.weights.swap(weights);
}

void Build(Plan& plan, int in_w, int in_h, int out_w, int out_h, const tag_CtrlPara& p) {
    plan.built = true;
    plan.in_w = in_w, plan.in_h = in_h, plan.out_w = out_w, plan.out_h = out_h;
    plan.para = p;
    plan.rows.clear(), plan.runs.clear(), plan.spans.clear();
    plan.pos.clear(), plan.weights.clear();
    plan.usable = in_w <= kMaxCamera && in_h <= kMaxCamera &&
                  int64_t{out_w} * out_h <= kMaxPlanPixels;
    NodeSpan read;
    Geometry g;
    if (plan.usable && PrepareGeometry(p, out_w, g)) {
        std::vector<Column> band[2] = {std::vector<Column>(kMaxOutW), std::vector<Column>(kMaxOutW)};
        WalkRows(p, g, g.lo, g.hi, out_h, band[0].data(), band[1].data(), [&](int oy, int fy) {
            if (plan.usable) plan.usable = RecordRow(plan, g, band[0].data(), band[1].data(), oy, fy);
        }, &read);
    }
    plan.node_lo = read.hi < read.lo ? 0 : read.lo;
    const int* tables[2] = {p.TB1, p.TB2};
    for (int t = 0; t < 2; ++t)
        plan.nodes[t].assign(tables[t] + plan.node_lo * 4, tables[t] + (read.hi + 1) * 4);
    if (plan.usable) CutIntoStrips(plan);
}

void BuildLut(const int* gain, const int* tcurve, int step, ColourLut& lut) {
    for (int cam = 0; cam < 4; ++cam)
        for (int x = 0; x < 256; ++x) {
            int rgb[3] = {x, x, x};
            ToneMapping(const_cast<int*>(gain) + 3 * cam, const_cast<int*>(tcurve) + 9 * cam, step,
                        rgb[0], rgb[1], rgb[2], 8);
            for (int ch = 0; ch < 3; ++ch) lut.rgb[cam][ch][x] = static_cast<unsigned char>(rgb[ch]);
        }
}

struct Frame {
    const Plan* plan;
    unsigned char* const* cams;
    unsigned char* out;
    const ComposeKernels* k;
};

// Samples and corrects table t's runs of one row of the strip starting at
// column sb.
void SampleRuns(const Frame& f, const Row& row, int t, int sb, Scratch& s) {
    const Plan& plan = *f.plan;
    const bool even = (row.oy & 1) == 0;
    unsigned char* y = s.y[t];
    unsigned char* cache = s.cache[t];
    for (uint32_t i = row.runs[t][0]; i < row.runs[t][1]; ++i) {
        const Run& r = plan.runs[i];
        // Scratch columns count from the strip's first, an even one.
        const int b = r.begin - sb, e = r.end - sb;
        const unsigned char* img = f.cams[r.cam];
        // Positions of columns b and fe.
        const uint32_t* pos = plan.pos.data() + r.pos;
        f.k->sample_luma(pos, e - b, img, plan.in_w, y + b);
        // Even pixels of even rows refresh their pair's chroma; the others
        // reuse what the pair last held, possibly from rows above.
        const int fe = b + (b & 1);
        if (even && fe < e)
            f.k->sample_chroma(pos + (fe - b), (e - fe + 1) / 2, img, plan.in_w, plan.in_h, cache + fe);
        const unsigned char* lut = plan.lut.rgb[r.cam][0];
        if (b & 1) {
            // Kernels start on a pair; the pixel before belongs to no run of
            // this camera, so correct into a spare pair.
            unsigned char pair[2];
            kComposeScalar.correct(y + b - 1, cache + b - 1, 2, lut, pair, nullptr);
            y[b] = pair[1];
        }
        if (fe < e) f.k->correct(y + fe, cache + fe, e - fe, lut, y + fe, even ? s.uv[t] + fe : nullptr);
    }
}

void RenderStrip(void* ctx, int part) {
    const Frame& f = *static_cast<const Frame*>(ctx);
    const Plan& plan = *f.plan;
    // Parts taken one after the other go to strips far apart, so that two
    // threads never write neighbouring output bytes at the same time.
    const int strips = static_cast<int>(plan.scratch.size());
    const int strip = part % 2 == 0 ? part / 2 : (strips + 1) / 2 + part / 2;
    Scratch& s = const_cast<Scratch&>(plan.scratch[strip]);
    // Every pair's chroma starts at 128 each frame.
    std::memset(s.cache, 128, sizeof s.cache);
    const int sb = strip * kStrip;
    const size_t stride = static_cast<size_t>(plan.out_w);
    for (uint32_t k = plan.strip_rows[strip]; k < plan.strip_rows[strip + 1]; ++k) {
        const Row& row = plan.rows[k];
        SampleRuns(f, row, 0, sb, s);
        SampleRuns(f, row, 1, sb, s);
        const bool even = (row.oy & 1) == 0;
        unsigned char* luma = f.out + row.oy * stride;
        unsigned char* chroma = f.out + (plan.out_h + row.oy / 2) * stride;
        for (uint32_t i = row.spans[0]; i < row.spans[1]; ++i) {
            const Span& sp = plan.spans[i];
            const int b = sp.begin, e = sp.end;
            const int fe = b + (b & 1);
            // The same columns in the strip's scratch.
            const int lb = b - sb, lfe = fe - sb;
            const int pairs = even && fe < e ? (e - fe + 1) / 2 : 0;
            if (sp.kind == kBoth) {
                // Weights of columns b and fe.
                const uint32_t* w = plan.weights.data() + sp.w;
                f.k->blend(s.y[0] + lb, s.y[1] + lb, w, e - b, luma + b);
                if (pairs)
                    f.k->blend_pairs(s.uv[0] + lfe, s.uv[1] + lfe, w + (fe - b), pairs, chroma + fe);
            } else {
                // A lone contribution passes at full weight, unchanged.
                const int t = sp.kind == kOnly0 ? 0 : 1;
                std::memcpy(luma + b, s.y[t] + lb, static_cast<size_t>(e - b));
                if (pairs) std::memcpy(chroma + fe, s.uv[t] + lfe, 2 * static_cast<size_t>(pairs));
            }
        }
    }
}

std::mutex g_plan_lock;
Plan g_plan;

}  // namespace

bool RenderPlanned(unsigned char** yuv, int in_w, int in_h, unsigned char* out, int out_w,
                   int out_h, const tag_CtrlPara& p, const int* gain, const int* tcurve,
                   int step) {
    std::unique_lock<std::mutex> lock(g_plan_lock, std::try_to_lock);
    if (!lock.owns_lock()) return false;
    Plan& plan = g_plan;
    if (!SameSource(plan, in_w, in_h, out_w, out_h, p)) Build(plan, in_w, in_h, out_w, out_h, p);
    if (!plan.usable) return false;
    // Between calibrations (and once the smoothing has settled) the
    // corrections repeat from frame to frame: rebuild the tables only when
    // they changed.
    int from[12 + 36 + 1];
    std::memcpy(from, gain, 12 * sizeof(int));
    std::memcpy(from + 12, tcurve, 36 * sizeof(int));
    from[48] = step;
    if (!plan.lut_built || std::memcmp(from, plan.lut_from, sizeof from) != 0) {
        BuildLut(gain, tcurve, step, plan.lut);
        std::memcpy(plan.lut_from, from, sizeof from);
        plan.lut_built = true;
    }
    const int parts = (out_w + kStrip - 1) / kStrip;
    if (plan.scratch.size() != static_cast<size_t>(parts)) plan.scratch.assign(static_cast<size_t>(parts), Scratch());
    Frame f = {&plan, yuv, out, &ComposeKernelsActive()};
    RunParts(parts, RenderStrip, &f);
    return true;
}

}  // namespace svc
