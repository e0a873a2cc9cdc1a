// The whole frame cycle, stage by stage, beside the OpenCV pipeline a user
// would write for the same job, on the same geometry and the same frames.
//
// Cases run interleaved (A B C ... A B C ...), so that the load other users
// put on a shared machine falls on all of them alike; ratios between rows
// are the figures to read, absolute times move with the machine. Each
// timed frame follows one untimed frame of the same case, as in a stream
// where the same work runs every frame, and takes the next frame set, so
// the input is new to the cache as a camera's would be.
//
//   bench_cycle [--reps N] [--quick] [--rig FILE] [--save DIR]
#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "img_fmt_trans.h"
#include "pipe/calib_GT.h"
#include "pipe/data_processing.h"
#include "rig/frames.h"
#include "rig/rig.h"
#include "rig/scene.h"
#include "rig/tables.h"
#include "simd/isa.h"
#include "sv_interface.h"

namespace {

constexpr int kCamW = 1280, kCamH = 720, kOutW = 1280, kOutH = 800;

[[noreturn]] void Fail(const std::string& msg) {
    std::fprintf(stderr, "bench_cycle: %s\n", msg.c_str());
    std::exit(1);
}

// ---- options ---------------------------------------------------------------

struct Options {
    int reps = 30;
    int frames = 8;  // distinct frame sets the timed frames cycle through
    bool isa_rows = true;
    bool quick = false;
    std::string rig = SV_SOURCE_DIR "/examples/rig-sedan.yaml";
    std::string save;  // folder for the two composed pictures, empty: none
    // Ground shown around the vehicle, metres. The sedan's own 3 m on every
    // side leaves most of a 1280 x 800 output empty; these fill it, leave
    // the vehicle about 15 % of it and blend about 20 % in the corners.
    double front = 0.7, side = 3.9;
};

void Usage() {
    std::puts(
        "usage: bench_cycle [--reps N] [--quick] [--frames N] [--no-isa] [--rig FILE]\n"
        "                   [--front METRES] [--side METRES] [--save DIR]\n"
        "  --reps N     timed frames per case (default 30; --quick: 5)\n"
        "  --quick      a short run: 5 repetitions, no per-instruction-set rows\n"
        "  --frames N   distinct frame sets to cycle through (default 8)\n"
        "  --no-isa     skip the full cycle at each lower instruction set\n"
        "  --rig FILE   physical rig file (default examples/rig-sedan.yaml)\n"
        "  --front M    ground shown ahead of and behind the vehicle (default 0.7)\n"
        "  --side M     ground shown left and right of the vehicle (default 3.9)\n"
        "  --save DIR   write the library's and the OpenCV pipeline's output as PNG");
}

Options Parse(int argc, char** argv) {
    Options o;
    bool reps_set = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) Fail(a + " needs a value");
            return argv[++i];
        };
        auto number = [&](double lo) {
            const std::string v = value();
            char* end = nullptr;
            const double d = std::strtod(v.c_str(), &end);
            if (end == v.c_str() || *end || !std::isfinite(d) || d < lo)
                Fail(a + " " + v + ": not a number of at least " + std::to_string(lo));
            return d;
        };
        if (a == "--reps") {
            o.reps = static_cast<int>(number(1));
            reps_set = true;
        } else if (a == "--quick") {
            o.quick = true;
        } else if (a == "--frames") {
            o.frames = static_cast<int>(number(2));
        } else if (a == "--no-isa") {
            o.isa_rows = false;
        } else if (a == "--rig") {
            o.rig = value();
        } else if (a == "--front") {
            o.front = number(0.1);
        } else if (a == "--side") {
            o.side = number(0.1);
        } else if (a == "--save") {
            o.save = value();
        } else if (a == "--help" || a == "-h") {
            Usage();
            std::exit(0);
        } else {
            Usage();
            std::exit(2);
        }
    }
    if (o.quick) {
        if (!reps_set) o.reps = 5;
        o.isa_rows = false;
    }
    return o;
}

// ---- clocks ----------------------------------------------------------------

double Ms(clockid_t id) {
    timespec ts;
    clock_gettime(id, &ts);
    return ts.tv_sec * 1e3 + ts.tv_nsec * 1e-6;
}

struct Stamp {
    double wall, thread, proc;
    static Stamp Now() {
        return {Ms(CLOCK_MONOTONIC), Ms(CLOCK_THREAD_CPUTIME_ID), Ms(CLOCK_PROCESS_CPUTIME_ID)};
    }
};

double Quantile(std::vector<double> v, double q) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const double pos = q * (v.size() - 1);
    const size_t i = static_cast<size_t>(pos);
    const double f = pos - i;
    return i + 1 < v.size() ? v[i] * (1 - f) + v[i + 1] * f : v[i];
}

// ---- workload --------------------------------------------------------------

std::string ReadText(const std::string& path) {
    std::ifstream in(path);
    if (!in) Fail("cannot read " + path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// The rig file with other ground extents: the first `key:` after
// `birdseye:` gets a new value, the rest of the file stays as written.
std::string WithExtents(std::string yaml, double front, double side) {
    const size_t block = yaml.find("birdseye:");
    if (block == std::string::npos) Fail("the rig file has no birdseye block");
    const std::pair<const char*, double> keys[] = {
        {"front:", front}, {"rear:", front}, {"left:", side}, {"right:", side}};
    for (const auto& [key, value] : keys) {
        const size_t at = yaml.find(key, block);
        if (at == std::string::npos) Fail(std::string("the birdseye block lacks ") + key);
        const size_t from = at + std::strlen(key);
        const size_t to = yaml.find_first_of("#\n", from);
        yaml.replace(from, to - from, " " + std::to_string(value) + " ");
    }
    return yaml;
}

void WriteText(const std::string& path, const std::string& text) {
    std::string err;
    if (!rig::write_text(path, text, err)) Fail(err);
}

// Per output pixel, what each mesh table contributes: the source position
// in its camera and the blend weight the library applies. Built from the
// tables the library loaded, following its mesh walk, for the 1:1 tables
// the generator writes.
struct Geometry {
    // [table][pixel]: camera (-1: nothing), source x and y in pixels, weight
    std::vector<int> cam[2];
    std::vector<float> sx[2], sy[2];
    std::vector<int> weight[2];
    int written = 0, blended = 0;
};

int PastSeams(int k, int s1, int s2) {
    if (s1 <= k) ++k;
    if (s2 <= k) ++k;
    return k;
}

Geometry MeshGeometry(const tag_CtrlPara& p) {
    if (p.ZoomFactorX != 64 || p.ZoomFactorY != 64 || p.DispCoorX || p.DispCoorY || p.ROIStartX ||
        p.ROIStartY || p.IntervalX != p.IntervalY)
        Fail("the control table is not a 1:1 table; the map builder handles only those");
    Geometry g;
    const int n = kOutW * kOutH, iv = p.IntervalY, cell16 = 1 << (iv + 4);
    for (int t = 0; t < 2; ++t) {
        g.cam[t].assign(n, -1);
        g.sx[t].assign(n, -1.f);
        g.sy[t].assign(n, -1.f);
        g.weight[t].assign(n, 0);
    }
    for (int oy = 0; oy < kOutH && oy <= p.ROIEndY; ++oy) {
        const int cy = PastSeams(oy >> iv, p.H1, p.H2);
        if (cy > p.TableHeight - 1) break;
        const int fy = (16 * oy) % cell16;
        for (int ox = 0; ox < kOutW && ox <= p.ROIEndX; ++ox) {
            const int cx = PastSeams(ox >> iv, p.L1, p.L2);
            if (cx > p.TableWidth - 2) break;
            const int fx = (16 * ox) % cell16;
            const int i = oy * kOutW + ox;
            for (int t = 0; t < 2; ++t) {
                const int* tb = t == 0 ? p.TB1 : p.TB2;
                int c[4][2][2];  // SrcX, SrcY, Weight, CamSel
                for (int a = 0; a < 2; ++a)
                    for (int b = 0; b < 2; ++b)
                        for (int f = 0; f < 4; ++f)
                            c[f][a][b] = tb[((cy + a) * p.TableWidth + cx + b) * 4 + f];
                bool seen = true;
                for (int a = 0; a < 2; ++a)
                    for (int b = 0; b < 2; ++b) seen = seen && c[0][a][b] >= 0 && c[1][a][b] >= 0;
                if (!seen) continue;
                const int x16 = BilinearInterpolation(c[0], fx, fy, iv + 4, 0);
                const int y16 = BilinearInterpolation(c[1], fx, fy, iv + 4, 0);
                const int px = x16 >> 4, py = y16 >> 4;
                if (px < 1 || px > kCamW - 2 || py < 1 || py > kCamH - 2) continue;
                const int sel = c[3][0][0];
                const bool uniform =
                    c[3][0][1] == sel && c[3][1][0] == sel && c[3][1][1] == sel;
                g.cam[t][i] = 2 * t + (uniform && sel == 1);
                g.sx[t][i] = x16 / 16.f;
                g.sy[t][i] = y16 / 16.f;
                g.weight[t][i] = uniform ? BilinearInterpolation(c[2], fx, fy, iv + 4, 0) : 0;
            }
            const bool v0 = g.cam[0][i] >= 0, v1 = g.cam[1][i] >= 0;
            // The library takes a lone table at full weight.
            if (v0 && !v1) g.weight[0][i] = 256;
            if (v1 && !v0) g.weight[1][i] = 256;
            g.written += v0 || v1;
            g.blended += v0 && v1 && g.weight[0][i] > 0 && g.weight[1][i] > 0;
        }
    }
    return g;
}

// Output pixels the library writes: the composition run over a buffer
// filled with 0 and with 1; what it leaves alone keeps the fill.
std::vector<bool> LibraryWrites() {
    std::vector<unsigned char> a(rig::nv12_bytes(kOutW, kOutH), 0), b(a.size(), 1);
    DataProcessing(YUVarray, WidthIn, HeightIn, a.data(), OutW, OutH, &Parameter, gain_cur,
                   tcurve_cur, 64, 8);
    DataProcessing(YUVarray, WidthIn, HeightIn, b.data(), OutW, OutH, &Parameter, gain_cur,
                   tcurve_cur, 64, 8);
    std::vector<bool> w(kOutW * kOutH);
    for (int i = 0; i < kOutW * kOutH; ++i) w[i] = a[i] == b[i];
    return w;
}

// Overlap samples the calibration keeps per corner region (front-left,
// front-right, rear-right, rear-left), after thinning and the consistency
// test: the calibration has real data only where these are non-zero.
std::vector<int> StatSamples() {
    int w2 = ParaStat.OutImgWidth / 2, h2 = ParaStat.OutImgHeight / 2;
    const int stride = w2;
    std::vector<unsigned char> store(size_t(w2) * h2 * 3 * 8);
    unsigned char* planes[8];
    for (int p = 0; p < 8; ++p) planes[p] = store.data() + size_t(p) * w2 * h2 * 3;
    GetStatData(YUVarray, WidthIn, HeightIn, ParaStat, planes, h2, w2, stride, g_VL, g_VH, g_rto,
                g_TolL, g_TolH, g_DS);
    std::vector<int> n(4, 0);
    for (int m = 0; m < 4; ++m)
        for (int r = 0; r < h2; ++r)
            for (int c = 0; c < w2; ++c) {
                const unsigned char* s = planes[2 * m] + (size_t(r) * stride + c) * 3;
                n[m] += s[0] || s[1] || s[2];
            }
    return n;
}

// ---- the OpenCV pipeline ---------------------------------------------------

// What a user writes in an afternoon: YUYV to BGR, a per-camera 256-entry
// correction, one remap per mesh table (its two cameras stacked into one
// source image), a weighted blend of the two, BGR to I420 and the chroma
// planes interleaved into NV12. Maps, weights and curves are made once.
struct OpenCvPipeline {
    static constexpr int kSteps = 5;
    static constexpr const char* kStepNames[kSteps] = {
        "cvtColor YUYV->BGR x4", "LUT x4", "remap x2 (INTER_LINEAR, 16SC2)", "blendLinear",
        "BGR->I420 + NV12 interleave"};

    cv::Mat stack[2];  // cameras 2t and 2t + 1, one above the other
    cv::Mat map1[2], map2[2];
    cv::Mat weight[2];
    cv::Mat lut[4];
    cv::Mat warped[2], blended, i420;

    OpenCvPipeline(const Geometry& g, const int* gains, const int* curves) {
        for (int t = 0; t < 2; ++t) {
            stack[t].create(2 * kCamH, kCamW, CV_8UC3);
            cv::Mat mx(kOutH, kOutW, CV_32F), my(kOutH, kOutW, CV_32F);
            weight[t].create(kOutH, kOutW, CV_32F);
            for (int i = 0; i < kOutW * kOutH; ++i) {
                const bool seen = g.cam[t][i] >= 0;
                // Far outside the image: the constant border, black.
                mx.at<float>(i) = seen ? g.sx[t][i] : -16.f;
                my.at<float>(i) = seen ? g.sy[t][i] + (g.cam[t][i] & 1) * kCamH : -16.f;
                weight[t].at<float>(i) = g.weight[t][i] / 256.f;
            }
            cv::convertMaps(mx, my, map1[t], map2[t], CV_16SC2);
        }
        // The library's own correction of each camera, as a table.
        for (int k = 0; k < 4; ++k) {
            lut[k].create(1, 256, CV_8UC3);
            for (int v = 0; v < 256; ++v) {
                int r = v, gr = v, b = v;
                ToneMapping(const_cast<int*>(gains) + 3 * k, const_cast<int*>(curves) + 9 * k, 64, r,
                            gr, b, 8);
                lut[k].at<cv::Vec3b>(v) = cv::Vec3b(cv::saturate_cast<uchar>(b),
                                                      cv::saturate_cast<uchar>(gr),
                                                      cv::saturate_cast<uchar>(r));
            }
        }
    }

    // One frame; with `steps`, adds each step's thread CPU time to it.
    void Frame(const uint8_t* frames, uint8_t* out, double* steps = nullptr) {
        double t0 = steps ? Ms(CLOCK_THREAD_CPUTIME_ID) : 0;
        auto lap = [&](int s) {
            if (!steps) return;
            const double t1 = Ms(CLOCK_THREAD_CPUTIME_ID);
            steps[s] += t1 - t0;
            t0 = t1;
        };
        const size_t bytes = rig::yuyv_bytes(kCamW, kCamH);
        cv::Mat cam[4];
        for (int k = 0; k < 4; ++k) {
            const cv::Mat yuyv(kCamH, kCamW, CV_8UC2, const_cast<uint8_t*>(frames) + k * bytes);
            cam[k] = stack[k / 2].rowRange((k % 2) * kCamH, (k % 2 + 1) * kCamH);
            cv::cvtColor(yuyv, cam[k], cv::COLOR_YUV2BGR_YUYV);
        }
        lap(0);
        for (int k = 0; k < 4; ++k) cv::LUT(cam[k], lut[k], cam[k]);
        lap(1);
        for (int t = 0; t < 2; ++t)
            cv::remap(stack[t], warped[t], map1[t], map2[t], cv::INTER_LINEAR,
                      cv::BORDER_CONSTANT);
        lap(2);
        cv::blendLinear(warped[0], warped[1], weight[0], weight[1], blended);
        lap(3);
        cv::cvtColor(blended, i420, cv::COLOR_BGR2YUV_I420);
        std::memcpy(out, i420.data, size_t(kOutW) * kOutH);
        const size_t q = size_t(kOutW) * kOutH / 4;
        cv::Mat u(kOutH / 2, kOutW / 2, CV_8U, i420.data + 4 * q);
        cv::Mat v(kOutH / 2, kOutW / 2, CV_8U, i420.data + 5 * q);
        cv::Mat uv(kOutH / 2, kOutW / 2, CV_8UC2, out + 4 * q);
        cv::merge(std::vector<cv::Mat>{u, v}, uv);
        if (uv.data != out + 4 * q) Fail("cv::merge reallocated the NV12 chroma plane");
        lap(4);
    }
};

// ---- cases -----------------------------------------------------------------

struct Case {
    std::string name;
    std::function<void()> prepare;  // untimed: configuration, then one untimed frame
    std::function<void()> run;      // the timed frame
    bool threaded = false;          // the thread clock misses the helpers
    std::vector<double> wall, thread, proc;
};

// Medians, and the 10th and 90th percentiles of the thread and wall clocks.
struct Row {
    double thread, proc, wall, thread10, thread90, wall10, wall90;
};

Row Summarize(const Case& c) {
    return {Quantile(c.thread, 0.5), Quantile(c.proc, 0.5),   Quantile(c.wall, 0.5),
            Quantile(c.thread, 0.1), Quantile(c.thread, 0.9), Quantile(c.wall, 0.1),
            Quantile(c.wall, 0.9)};
}

}  // namespace

int main(int argc, char** argv) {
    const Options opt = Parse(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    // -- configuration files, written where the library reads them from
    char tmpl[] = "/tmp/bench_cycle.XXXXXX";
    if (!mkdtemp(tmpl)) Fail("cannot create a temporary folder");
    const std::string dir = tmpl;
    const std::string rig_file = dir + "/rig.yaml";
    WriteText(rig_file, WithExtents(ReadText(opt.rig), opt.front, opt.side));
    rig::Rig r;
    rig::Layout layout;
    try {
        r = rig::load_rig(rig_file);
        for (const rig::Camera& c : r.cameras)
            if (c.size != cv::Size(kCamW, kCamH)) Fail("the rig's cameras are not 1280 x 720");
        rig::LayoutOptions lo;
        lo.out = cv::Size(kOutW, kOutH);
        layout = rig::make_layout(r, lo);
        rig::Settings every;
        every.StatFreq = 1;
        rig::write_tables(dir, r, layout, every);
        rig::Settings rare = every;
        rare.StatFreq = 1000;
        rig::write_settings(dir + "/setting1000.txt", rare);
    } catch (const rig::RigError& e) {
        Fail(e.what());
    }
    const std::string ctrl = dir + "/control.txt", stat = dir + "/statistics.txt";
    const std::string set1 = dir + "/setting.txt", set1000 = dir + "/setting1000.txt";

    // -- camera frames: the synthetic ground through the rig's lenses, each
    // camera with its own look, moving and drifting so that every frame set
    // differs and the calibration has something to correct
    std::printf("rendering %d frame sets of four %dx%d cameras ...\n", opt.frames, kCamW, kCamH);
    rig::SceneOptions so;
    so.speed = 0.05;
    so.drift = 0.2;
    so.drift_period = opt.frames;
    const size_t set_bytes = rig::frame_set_bytes(kCamW, kCamH);
    std::vector<std::vector<uint8_t>> frames(opt.frames, std::vector<uint8_t>(set_bytes));
    {
        const rig::Scene scene(r, so, opt.frames);
        for (int t = 0; t < opt.frames; ++t) scene.render_frame_set(t, frames[t].data());
    }
    size_t next = 0;
    auto frame = [&]() { return frames[next++ % frames.size()].data(); };

    // -- the library: one rig per process, so a configuration change is a
    // new sv_init (outside the timing)
    int loaded = 0;  // StatFreq of the loaded configuration, 0: none
    auto load = [&](int freq) {
        if (loaded == freq) return;
        if (sv_init(ctrl.c_str(), stat.c_str(), (freq == 1 ? set1 : set1000).c_str(), kCamW,
                    kCamH, kOutW, kOutH) != 0)
            Fail("sv_init refused the generated files in " + dir);
        loaded = freq;
    };
    std::vector<uint8_t> out(rig::nv12_bytes(kOutW, kOutH), 0), cv_out(out.size(), 0);
    load(1);
    for (int t = 0; t < opt.frames; ++t) sv_convert_image(frame(), 0, out.data(), 0);

    const Geometry geo = MeshGeometry(Parameter);
    const std::vector<bool> writes = LibraryWrites();
    int disagree = 0;
    for (int i = 0; i < kOutW * kOutH; ++i)
        disagree += writes[i] != (geo.cam[0][i] >= 0 || geo.cam[1][i] >= 0);
    const std::vector<int> samples = StatSamples();
    const double npx = double(kOutW) * kOutH;

    // -- the OpenCV pipeline on the same geometry, with the library's
    // current correction as its curves
    OpenCvPipeline cvp(geo, gain_cur, tcurve_cur);

    const svc::Isa best = svc::CpuIsa();
    std::printf("\nworkload: four %dx%d YUYV cameras -> %dx%d NV12, tables from %s\n", kCamW,
                kCamH, kOutW, kOutH, opt.rig.c_str());
    std::printf("  ground shown: %.2f m ahead/behind, %.2f m left/right of the vehicle\n",
                opt.front, opt.side);
    std::printf("  output pixels written %.1f %%, blended by two cameras %.1f %%, uncovered %.1f %%\n",
                100 * geo.written / npx, 100 * geo.blended / npx,
                100 * (npx - geo.written) / npx);
    std::printf("  maps vs library: %d pixel(s) disagree on coverage\n", disagree);
    std::printf("  calibration samples per overlap (FL FR RR RL): %d %d %d %d\n", samples[0],
                samples[1], samples[2], samples[3]);
    std::printf("  gains after %d frames (R G B per camera):", opt.frames);
    for (int k = 0; k < 4; ++k)
        std::printf("  %.3f %.3f %.3f", gain_cur[3 * k] / 1024.0, gain_cur[3 * k + 1] / 1024.0,
                    gain_cur[3 * k + 2] / 1024.0);
    std::printf("\n  instruction set: %s (CPU best %s); OpenCV %s\n",
                svc::IsaName(svc::ActiveIsa()), svc::IsaName(best), CV_VERSION);
    if (disagree) std::puts("  warning: the OpenCV maps do not cover what the library writes");
    for (int m = 0; m < 4; ++m)
        if (!samples[m]) std::puts("  warning: an overlap gives the calibration no samples");

    if (!opt.save.empty()) {
        std::filesystem::create_directories(opt.save);
        cvp.Frame(frames[0].data(), cv_out.data());
        sv_convert_image(frames[0].data(), 0, out.data(), 0);
        std::string err;
        if (!rig::write_png(opt.save + "/library.png", rig::nv12_to_bgr(out.data(), kOutW, kOutH),
                            err) ||
            !rig::write_png(opt.save + "/opencv.png",
                            rig::nv12_to_bgr(cv_out.data(), kOutW, kOutH), err))
            Fail(err);
        std::printf("  wrote %s/library.png and opencv.png\n", opt.save.c_str());
    }

    // -- the cases, in the order they interleave
    std::vector<Case> cases;
    auto add = [&](std::string name, std::function<void()> prepare, std::function<void()> run,
                   bool threaded = false) {
        Case c;
        c.name = std::move(name);
        c.prepare = std::move(prepare);
        c.run = std::move(run);
        c.threaded = threaded;
        cases.push_back(std::move(c));
    };
    auto cycle = [&](int freq, int threads, int isa) {
        return [&, freq, threads, isa]() {
            load(freq);
            sv_set_threads(threads);
            svc::SetIsa(isa);
            sv_convert_image(frame(), 0, out.data(), 0);
            // The timed frame must not be a calibration frame by accident.
            while (freq > 1 && g_iter % g_hfreq == 0) sv_convert_image(frame(), 0, out.data(), 0);
        };
    };
    auto convert = [&]() { sv_convert_image(frame(), 0, out.data(), 0); };
    const char* isa_name = svc::IsaName(best);
    add("library cycle, StatFreq=1, 1 thread", cycle(1, 1, best), convert);
    add("library cycle, StatFreq=1, 2 threads", cycle(1, 2, best), convert, true);
    add("library cycle, StatFreq=1000, 1 thread", cycle(1000, 1, best), convert);
    add("library cycle, StatFreq=1000, 2 threads", cycle(1000, 2, best), convert, true);
    const size_t lib_every = 0, lib_rare = 2;
    if (opt.isa_rows)
        for (int l = svc::kIsaScalar; l <= svc::kIsaNeon; ++l) {
            if (l == best || svc::SetIsa(l) != l) continue;
            add(std::string("library cycle, StatFreq=1000, ") + svc::IsaName(l),
                cycle(1000, 1, l), convert);
        }
    svc::SetIsa(best);

    // Stages alone, on the library's own buffers and tables.
    auto stage_setup = [&](std::function<void()> f) {
        return [&, f]() {
            load(1000);
            sv_set_threads(1);
            svc::SetIsa(best);
            f();
        };
    };
    auto to_nv12 = [&]() {
        const uint8_t* in = frame();
        const size_t bytes = rig::yuyv_bytes(kCamW, kCamH);
        for (int k = 0; k < 4; ++k)
            YUYV_I420(reinterpret_cast<char*>(const_cast<uint8_t*>(in) + k * bytes),
                      reinterpret_cast<char*>(YUVarray[k]), kCamW, kCamH, 3, 1);
    };
    int g_fit[12], t_fit[36];
    auto calib = [&]() {
        CalibGT(YUVarray, WidthIn, HeightIn, ParaStat, g_fit, t_fit, g_VL, g_VH, g_rto, g_TolL,
                g_TolH, g_DS, g_nData, g_beta, g_bdr, g_bdh, g_mgn);
    };
    auto compose = [&]() {
        DataProcessing(YUVarray, WidthIn, HeightIn, out.data(), OutW, OutH, &Parameter, gain_cur,
                       tcurve_cur, 64, 8);
    };
    add("  stage: YUYV_I420 x4", stage_setup(to_nv12), to_nv12);
    add("  stage: CalibGT", stage_setup([&]() { to_nv12(), calib(); }), calib);
    add("  stage: DataProcessing", stage_setup([&]() { to_nv12(), compose(); }), compose);

    double cv_steps[OpenCvPipeline::kSteps] = {};
    auto opencv = [&](int threads) {
        return [&, threads]() {
            cv::setNumThreads(threads);
            cvp.Frame(frame(), cv_out.data());
        };
    };
    const size_t cv_one = cases.size();
    add("OpenCV pipeline, 1 thread", opencv(1),
        [&]() { cvp.Frame(frame(), cv_out.data(), cv_steps); });
    add("OpenCV pipeline, 2 threads", opencv(2), [&]() { cvp.Frame(frame(), cv_out.data()); },
        true);

    std::vector<uint8_t> scratch_in(set_bytes), scratch_out(out.size(), 7);
    auto floor_copy = [&]() {
        std::memcpy(scratch_in.data(), frame(), set_bytes);
        std::memcpy(out.data(), scratch_out.data(), out.size());
    };
    add("floor: memcpy 4 inputs + output", floor_copy, floor_copy);

    // -- interleaved repetitions
    std::printf("\n%zu cases x %d repetitions, interleaved ...\n", cases.size(), opt.reps);
    for (int rep = 0; rep < opt.reps; ++rep) {
        for (Case& c : cases) {
            c.prepare();
            const Stamp a = Stamp::Now();
            c.run();
            const Stamp b = Stamp::Now();
            c.wall.push_back(b.wall - a.wall);
            c.thread.push_back(b.thread - a.thread);
            c.proc.push_back(b.proc - a.proc);
        }
    }
    sv_set_threads(1);
    cv::setNumThreads(-1);

    // -- the table
    std::printf("\nmedians of %d frames, ms per frame (instruction set %s)\n", opt.reps, isa_name);
    std::printf("%-42s %10s %9s %9s %16s %16s\n", "case", "thread-CPU", "proc-CPU", "wall",
                "thread p10..p90", "wall p10..p90");
    for (const Case& c : cases) {
        const Row s = Summarize(c);
        std::printf("%-42s %9.2f%s %9.2f %9.2f %7.2f..%-7.2f %7.2f..%-7.2f\n", c.name.c_str(),
                    s.thread, c.threaded ? "*" : " ", s.proc, s.wall, s.thread10, s.thread90,
                    s.wall10, s.wall90);
        if (&c == &cases[cv_one])
            for (int st = 0; st < OpenCvPipeline::kSteps; ++st)
                std::printf("  %-40s %9.2f\n", OpenCvPipeline::kStepNames[st],
                            cv_steps[st] / opt.reps);
    }
    std::puts("* thread-CPU counts the calling thread only; proc-CPU counts every thread");
    std::puts("  (OpenCV step rows: mean thread-CPU within the 1-thread pipeline)");

    const Row cv1 = Summarize(cases[cv_one]);
    for (size_t li : {lib_every, lib_rare}) {
        const Row lib = Summarize(cases[li]);
        std::printf("OpenCV (1 thread) / %s: %.2f by thread-CPU, %.2f by wall\n",
                    cases[li].name.c_str(), cv1.thread / lib.thread, cv1.wall / lib.wall);
    }

    sv_deinit();
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
    return 0;
}
