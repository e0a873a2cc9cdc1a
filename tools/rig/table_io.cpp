// Writers of the three files sv_init reads.
#include <charconv>
#include <cstdio>
#include <string>

#include "rig/outputs.h"
#include "rig/tables.h"

namespace rig {

namespace {

void append_int(std::string* s, int v) {
    char buf[16];
    const auto r = std::to_chars(buf, buf + sizeof buf, v);
    s->append(buf, r.ptr);
}

void append_tag(std::string* s, const char* tag, int v) {
    s->append(tag);
    s->push_back(' ');
    append_int(s, v);
    s->push_back('\n');
}

// The reader skips exactly seven characters from the start of "TB1:", so
// the header is "TB1:", a line feed, "{" and a line feed. The token after
// the TB1 values stands for the TB2 header. One node row per line.
void append_table(std::string* s, const char* tag, const MeshTable& t) {
    s->append(tag);
    s->append("\n{\n");
    for (int r = 0; r < t.height; ++r) {
        for (int c = 0; c < t.width; ++c) {
            const int* n = t.node(r, c);
            for (int k = 0; k < 4; ++k) {
                append_int(s, n[k]);
                s->push_back(k < 3 ? ',' : ' ');
            }
        }
        s->back() = '\n';
    }
    s->append("}\n");
}

void save(const std::string& path, const std::string& text) {
    std::string err;
    if (!write_file(path, text.data(), text.size(), err)) throw RigError(err);
}

void append_mesh_tags(std::string* s, int ow, int oh, const MeshTable& t, int ix, int iy) {
    append_tag(s, "OutImgWidth:", ow);
    append_tag(s, "OutImgHeight:", oh);
    append_tag(s, "TableWidth:", t.width);
    append_tag(s, "TableHeight:", t.height);
    append_tag(s, "IntervalX:", ix);
    append_tag(s, "IntervalY:", iy);
}

// A camera the mesh never samples would leave its side of the output blank
// without a word.
void check_every_camera_seen(const Rig& rig, const ControlTable& t) {
    for (int cam = 0; cam < 4; ++cam) {
        const MeshTable& tb = cam < kLeft ? t.tb1 : t.tb2;
        bool seen = false;
        for (size_t i = 0; i < tb.values.size() && !seen; i += 4)
            seen = tb.values[i] >= 0 && tb.values[i + 3] == (cam & 1);
        if (!seen)
            throw RigError("camera " + rig.cameras[cam].name +
                           " sees none of its part of the output: check its lens, its pose and "
                           "the border");
    }
}

}  // namespace

void write_control_table(const std::string& path, const ControlTable& t) {
    std::string s;
    s.reserve(static_cast<size_t>(t.tb1.width) * t.tb1.height * 2 * 20 + 1024);
    s.append("# svcompose control table: bird's-eye mesh, nodes every 8 output pixels\n"
             "# node: source x, source y (1/16 camera pixel, negative = unseen), weight (256 = 1), camera\n");
    append_mesh_tags(&s, t.OutImgWidth, t.OutImgHeight, t.tb1, t.IntervalX, t.IntervalY);
    append_tag(&s, "DispCoorX:", t.DispCoorX);
    append_tag(&s, "DispCoorY:", t.DispCoorY);
    append_tag(&s, "ROIStartX:", t.ROIStartX);
    append_tag(&s, "ROIStartY:", t.ROIStartY);
    append_tag(&s, "ROIEndX:", t.ROIEndX);
    append_tag(&s, "ROIEndY:", t.ROIEndY);
    append_tag(&s, "ZoomFactorX:", t.ZoomFactorX);
    append_tag(&s, "ZoomFactorY:", t.ZoomFactorY);
    append_tag(&s, "L1:", t.L1);
    append_tag(&s, "L2:", t.L2);
    append_tag(&s, "H1:", t.H1);
    append_tag(&s, "H2:", t.H2);
    append_table(&s, "TB1:", t.tb1);
    append_table(&s, "TB2:", t.tb2);
    save(path, s);
}

void write_stat_table(const std::string& path, const StatTable& t) {
    std::string s;
    s.append("# svcompose statistics table: the four corner overlaps on a 128 x 168 grid\n");
    append_mesh_tags(&s, t.OutImgWidth, t.OutImgHeight, t.tb1, t.IntervalX, t.IntervalY);
    append_table(&s, "TB1:", t.tb1);
    append_table(&s, "TB2:", t.tb2);
    save(path, s);
}

void write_settings(const std::string& path, const Settings& v) {
    char buf[512];
    std::snprintf(buf, sizeof buf,
                  "# svcompose settings: photometric calibration and smoothing\n"
                  "StatFreq=%d\nStatL=%d\nStatH=%d\nThresRatio=%d\nThresL=%d\nThresH=%d\n"
                  "DSIntvl=%d\nnDataL=%d\nbeta=%g\ntcRatio=%d\ntcH=%d\ngMgn=%g\nSpd=%d\n",
                  v.StatFreq, v.StatL, v.StatH, v.ThresRatio, v.ThresL, v.ThresH, v.DSIntvl,
                  v.nDataL, static_cast<double>(v.beta), v.tcRatio, v.tcH,
                  static_cast<double>(v.gMgn), v.Spd);
    save(path, buf);
}

void write_tables(const std::string& dir, const Rig& rig, const Layout& layout,
                  const Settings& settings) {
    const ControlTable control = make_control_table(rig, layout);
    check_every_camera_seen(rig, control);
    write_control_table(dir + "/control.txt", control);
    write_stat_table(dir + "/statistics.txt", make_stat_table(rig, layout.border));
    write_settings(dir + "/setting.txt", settings);
}

}  // namespace rig
