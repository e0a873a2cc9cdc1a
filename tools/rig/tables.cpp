#include "rig/tables.h"

#include <algorithm>
#include <cmath>

namespace rig {

namespace {

const int kStep = 8;  // output pixels between mesh nodes (Interval 3)

// One axis of the control mesh: logical nodes 0..n-1 every kStep pixels,
// two of them doubled (seams s1 < s2). The table holds n + 2 node lines;
// the copy before a seam closes the cells on its left, the copy after it
// opens the cells on its right.
struct Axis {
    int n, s1, s2;
    int size() const { return n + 2; }
    // Table line of logical node p, seen from cell `cell` (p or p - 1).
    int line(int p, int cell) const {
        const bool after = cell == p;
        return p + (p > s1 || (p == s1 && after)) + (p > s2 || (p == s2 && after));
    }
    // The library's L/H values: table index of the closing copy.
    int tag1() const { return s1; }
    int tag2() const { return s2 + 1; }
};

int weight_tb1(const cv::Rect2d& box, cv::Point2d p) {
    // Front/rear share by the angle around the nearest vehicle corner:
    // 256 straight ahead of or behind the box, 0 beside it. Inside the box
    // both tables only carry extension nodes; split them evenly.
    const double ex = std::max({box.x - p.x, p.x - box.br().x, 0.0});
    const double ey = std::max({box.y - p.y, p.y - box.br().y, 0.0});
    if (ex == 0 && ey == 0) return 128;
    return static_cast<int>(std::lround(256 * std::atan2(ey, ex) / (CV_PI / 2)));
}

void set_node(int* n, cv::Point2d px, int weight, int cam) {
    n[0] = static_cast<int>(std::lround(px.x * 16));  // 1/16 camera pixel
    n[1] = static_cast<int>(std::lround(px.y * 16));
    n[2] = weight;
    n[3] = cam;
}

void clear_table(MeshTable* t, int width, int height) {
    t->width = width;
    t->height = height;
    t->values.assign(static_cast<size_t>(width) * height * 4, 0);
    for (size_t i = 0; i < t->values.size(); i += 4) t->values[i] = t->values[i + 1] = -1;
}

// What a table renders in one logical cell: a camera (0..3) or nothing,
// whether that camera owns the cell, and whether it is the rear panel.
struct CellUse {
    int cam = -1;
    bool owned = false;
    bool panel = false;
};

class ControlBuilder {
public:
    ControlBuilder(const Rig& rig, const Layout& l) : rig_(rig), l_(l) {
        const int nx = l.out.width / kStep + 1, ny = l.out.height / kStep + 1;
        const cv::Rect2d& v = l.vehicle;
        // Seams on the node line nearest the box centre; an unused seam
        // doubles the last node line, where no cell opens after it.
        const int cx = static_cast<int>(std::lround((v.x + v.width / 2) / kStep));
        const int cy = static_cast<int>(std::lround((v.y + v.height / 2) / kStep));
        const int panel = l.rear_panel.empty() ? nx - 1 : l.rear_panel.x / kStep;
        ax_ = {nx, cx, panel};
        ay_ = {ny, cy, ny - 1};
    }

    ControlTable build() {
        ControlTable t;
        t.OutImgWidth = l_.out.width;
        t.OutImgHeight = l_.out.height;
        t.ROIEndX = (ax_.n - 1) * kStep - 1;
        t.ROIEndY = (ay_.n - 1) * kStep - 1;
        t.L1 = ax_.tag1();
        t.L2 = ax_.tag2();
        t.H1 = ay_.tag1();
        t.H2 = ay_.tag2();
        MeshTable* tables[2] = {&t.tb1, &t.tb2};
        for (int k = 0; k < 2; ++k) {
            clear_table(tables[k], ax_.size(), ay_.size());
            nodes_[k].assign(static_cast<size_t>(ax_.size()) * ay_.size(), NodeState());
        }
        for (int k = 0; k < 2; ++k)
            for_cells([&](int i, int j) {
                const CellUse u = cell_use(k, i, j);
                if (u.owned) fill_cell(k, i, j, u, tables[k]);
            });
        // Where the owner cannot see a cell beside the vehicle, the other
        // table's camera fills in: its weight there is 0, which the library
        // raises to 256 wherever the owner's cell renders nothing.
        for_cells([&](int i, int j) {
            if (!beside_vehicle(i, j) || renders(0, i, j) || renders(1, i, j)) return;
            for (int k = 0; k < 2; ++k) fill_cell(k, i, j, cell_use(k, i, j), tables[k]);
        });
        for (int k = 0; k < 2; ++k) {
            for_cells([&](int i, int j) {
                if (renders(k, i, j)) balance_cell(k, i, j, cell_use(k, i, j));
            });
            MeshTable* tb = tables[k];
            for (int r = 0; r < tb->height; ++r)
                for (int c = 0; c < tb->width; ++c) {
                    const NodeState& s = nodes_[k][static_cast<size_t>(r) * tb->width + c];
                    int* n = tb->node(r, c);
                    if (s.seen) set_node(n, s.n ? s.px + s.corr / s.n : s.px, s.weight, n[3]);
                }
        }
        return t;
    }

private:
    struct NodeState {
        bool done = false, seen = false;
        cv::Point2d px, corr;  // exact source position, summed corrections
        int n = 0, weight = 0;
    };

    template <class F>
    void for_cells(F f) const {
        for (int i = 0; i + 1 < ay_.n; ++i)
            for (int j = 0; j + 1 < ax_.n; ++j) f(i, j);
    }

    // The bird's-eye cells: TB1 takes the front camera above seam row H1
    // and the rear one below, TB2 the left camera left of seam column L1 and
    // the right one beyond; TB1 also takes the rear panel. Each camera owns
    // the closed zone beyond one side of the vehicle box (front above its
    // top edge, and so on) and every cell that reaches into it.
    CellUse cell_use(int table, int i, int j) const {
        CellUse u;
        const double x0 = j * kStep, y0 = i * kStep, x1 = x0 + kStep, y1 = y0 + kStep;
        const cv::Rect2d& v = l_.vehicle;
        const cv::Rect& p = l_.rear_panel;
        if (x0 < l_.birdseye.width && y0 < l_.birdseye.height) {
            if (table == 0) {
                u.cam = i < ay_.s1 ? kFront : kRear;
                u.owned = u.cam == kFront ? y0 < v.y : y1 > v.br().y;
            } else {
                u.cam = j < ax_.s1 ? kLeft : kRight;
                u.owned = u.cam == kLeft ? x0 < v.x : x1 > v.br().x;
            }
        } else if (table == 0 && !p.empty() && x0 >= p.x && x1 <= p.br().x && y0 >= p.y &&
                   y1 <= p.br().y) {
            u.cam = kRear;
            u.owned = u.panel = true;
        }
        return u;
    }

    bool beside_vehicle(int i, int j) const {
        const cv::Rect2d cell(j * kStep, i * kStep, kStep, kStep);
        return j * kStep < l_.birdseye.width && i * kStep < l_.birdseye.height &&
               (cell & l_.vehicle).area() < cell.area();
    }

    NodeState& state(int k, int i, int j, int a, int b) {
        return nodes_[k][static_cast<size_t>(ay_.line(i + a, i)) * ax_.size() + ax_.line(j + b, j)];
    }

    bool renders(int k, int i, int j) {
        for (int a = 0; a < 2; ++a)
            for (int b = 0; b < 2; ++b)
                if (!state(k, i, j, a, b).seen) return false;
        return true;
    }

    // Every corner of a used cell, so one node past the zone where the cell
    // only reaches into it, since a cell with any unseen corner renders
    // nothing. Cells sharing a node line agree on its camera (the seams
    // separate the others).
    void fill_cell(int k, int i, int j, CellUse u, MeshTable* t) {
        if (u.cam < 0) return;
        for (int a = 0; a < 2; ++a)
            for (int b = 0; b < 2; ++b) {
                NodeState& s = state(k, i, j, a, b);
                if (s.done) continue;
                s.done = true;
                const cv::Point2d o((j + b) * kStep, (i + a) * kStep);
                t->node(ay_.line(i + a, i), ax_.line(j + b, j))[3] = u.cam & 1;  // CamSel
                s.seen = source(u, o, &s.px);
                if (u.panel) {
                    s.weight = 256;
                } else {
                    const int w1 = weight_tb1(l_.vehicle, o);
                    s.weight = u.cam < kLeft ? w1 : 256 - w1;
                }
            }
    }

    // Bilinear interpolation of exact node values errs most at the cell
    // centre, all one way where the mapping curves; shifting the corners by
    // half that error splits it between nodes and centre.
    void balance_cell(int k, int i, int j, CellUse u) {
        NodeState* c[4] = {&state(k, i, j, 0, 0), &state(k, i, j, 0, 1), &state(k, i, j, 1, 0),
                           &state(k, i, j, 1, 1)};
        cv::Point2d mid;
        if (!source(u, cv::Point2d((j + 0.5) * kStep, (i + 0.5) * kStep), &mid)) return;
        const cv::Point2d e = mid - (c[0]->px + c[1]->px + c[2]->px + c[3]->px) * 0.25;
        for (NodeState* s : c) {
            s->corr += e * 0.5;
            ++s->n;
        }
    }

    bool source(CellUse u, cv::Point2d o, cv::Point2d* px) const {
        const bool seen =
            u.panel ? panel_pixel(o, px) : rig_.canvas_to_pixel(u.cam, l_.to_canvas(o), px);
        return seen && rig_.cameras[u.cam].sees(*px, l_.border);
    }

    // Rear panel: a pinhole along the rear camera's axis, mirrored as a
    // rear-view mirror shows the scene.
    bool panel_pixel(cv::Point2d o, cv::Point2d* px) const {
        const cv::Rect& p = l_.rear_panel;
        const double cx = p.x + (p.width - 1) / 2.0, cy = p.y + (p.height - 1) / 2.0;
        const cv::Vec3d dir(-(o.x - cx) / l_.rear_focal, (o.y - cy) / l_.rear_focal, 1);
        return rig_.cameras[kRear].distort(dir, px);
    }

    const Rig& rig_;
    const Layout& l_;
    Axis ax_{}, ay_{};
    std::vector<NodeState> nodes_[2];
};

}  // namespace

ControlTable make_control_table(const Rig& rig, const Layout& layout) {
    return ControlBuilder(rig, layout).build();
}

cv::Point2d stat_to_canvas(const Rig& rig, cv::Point2d s) {
    const StatTable t;
    return {(s.x + 0.5) * rig.canvas.size.width / t.OutImgWidth - 0.5,
            (s.y + 0.5) * rig.canvas.size.height / t.OutImgHeight - 0.5};
}

StatTable make_stat_table(const Rig& rig, double border) {
    StatTable t;
    const int nx = t.OutImgWidth / kStep + 1, ny = t.OutImgHeight / kStep + 1;
    clear_table(&t.tb1, nx, ny);
    clear_table(&t.tb2, nx, ny);
    const auto overlaps = rig.canvas.overlaps();
    for (int i = 0; i < ny; ++i)
        for (int j = 0; j < nx; ++j) {
            // Quarters of the statistics image: TB1 front above the middle
            // row, rear below; TB2 left of the middle column, right beyond.
            const int cam1 = i * kStep < t.OutImgHeight / 2 ? kFront : kRear;
            const int cam2 = j * kStep < t.OutImgWidth / 2 ? kLeft : kRight;
            t.tb1.node(i, j)[3] = cam1 & 1;
            t.tb2.node(i, j)[3] = cam2 & 1;
            const int region = cam1 == kFront ? (cam2 == kLeft ? 0 : 1) : (cam2 == kRight ? 2 : 3);
            const cv::Point2d c = stat_to_canvas(rig, cv::Point2d(j * kStep, i * kStep));
            const cv::Rect2d& r = overlaps[region];
            if (c.x < r.x || c.y < r.y || c.x > r.br().x || c.y > r.br().y) continue;
            cv::Point2d p1, p2;
            if (!rig.canvas_to_pixel(cam1, c, &p1) || !rig.canvas_to_pixel(cam2, c, &p2) ||
                !rig.cameras[cam1].sees(p1, border) || !rig.cameras[cam2].sees(p2, border))
                continue;
            // Any positive weight admits the sample.
            set_node(t.tb1.node(i, j), p1, 256, cam1 & 1);
            set_node(t.tb2.node(i, j), p2, 256, cam2 & 1);
        }
    return t;
}

}  // namespace rig
