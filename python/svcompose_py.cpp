// The svcompose Python module: the frame cycle on numpy arrays, the
// corrections, and table generation from a rig.
//
// The library keeps one rig per process, so one Compositor may be open at a
// time. Library messages are caught while a call runs: a failing call
// raises svcompose.Error with them, and any a successful call reports are
// printed as the library would.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <climits>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "sv_interface.h"

#ifdef SVCOMPOSE_PY_RIG
#include "rig/frames.h"
#include "rig/outputs.h"
#include "rig/scene.h"
#include "rig/tables.h"
#endif

namespace py = pybind11;

namespace {

struct Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

using Size = std::pair<int, int>;  // width, height

void Collect(const char* line, void* user) {
    std::string& text = *static_cast<std::string*>(user);
    if (!text.empty()) text += '\n';
    text += line;
}

// Runs call with the library's messages caught (and without the GIL: the
// arrays it works on are held by the caller). Returns its result and the
// messages, one per line.
template <typename F>
auto Caught(F call) {
    std::string text;
    decltype(call()) result;
    {
        py::gil_scoped_release unlocked;
        sv_set_log(Collect, &text);
        result = call();
        sv_set_log(sv_log_stdout, nullptr);
    }
    return std::make_pair(result, text);
}

void PrintAny(const std::string& text) {
    if (!text.empty()) py::print(text);
}

bool s_open = false;  // the library's one rig

void CheckSize(const Size& s, const char* what) {
    if (s.first <= 0 || s.second <= 0 || s.first % 2 || s.second % 2)
        throw py::value_error(std::string(what) + " must be a positive even (width, height), got (" +
                              std::to_string(s.first) + ", " + std::to_string(s.second) + ")");
}

// Camera k's frame as the library takes it: H x W x 2 bytes with pixel
// pairs packed (a row stride of its own is fine, anything else is copied).
py::array CameraFrame(py::handle obj, int k, int w, int h) {
    py::array a = py::array::ensure(obj);
    const std::string which = "frames: camera " + std::to_string(k);
    if (!a) throw py::type_error(which + " is not an array");
    if (!a.dtype().is(py::dtype::of<uint8_t>()))
        throw py::type_error(which + " has dtype " + py::str(a.dtype()).cast<std::string>() +
                             ", expected uint8 YUYV");
    if (a.ndim() != 3 || a.shape(0) != h || a.shape(1) != w || a.shape(2) != 2) {
        std::string shape;
        for (py::ssize_t i = 0; i < a.ndim(); ++i) shape += (i ? ", " : "") + std::to_string(a.shape(i));
        throw py::value_error(which + " has shape (" + shape + "), expected (" + std::to_string(h) + ", " +
                              std::to_string(w) + ", 2)");
    }
    if (a.strides(2) != 1 || a.strides(1) != 2 || a.strides(0) < 2 * w || a.strides(0) > INT_MAX)
        a = py::module_::import("numpy").attr("ascontiguousarray")(a);
    return a;
}

class Compositor {
public:
    Compositor(const std::string& control, const std::string& statistics, const std::string& setting,
               Size camera, Size output, int threads) {
        CheckSize(camera, "camera_size");
        CheckSize(output, "output_size");
        if (threads < 0) throw py::value_error("threads must be 0 (one per core) or more");
        if (s_open)
            throw Error("svcompose keeps one rig per process and another Compositor is open: "
                        "close() it (or leave its with-block) first");
        auto r = Caught([&] {
            return sv_init(control.c_str(), statistics.c_str(), setting.c_str(), camera.first,
                           camera.second, output.first, output.second);
        });
        if (r.first != 0) {
            sv_deinit();
            throw Error(r.second);
        }
        PrintAny(r.second);
        s_open = open_ = true;
        camera_ = camera, output_ = output;
        sv_set_threads(threads);
    }
    ~Compositor() { Close(); }

    void Close() {
        if (!open_) return;
        sv_deinit();
        open_ = s_open = false;
    }

    py::array Convert(py::object frames, std::optional<py::array> out) {
        if (!open_) throw Error("this Compositor is closed");
        const int w = camera_.first, h = camera_.second, ow = output_.first, oh = output_.second;
        py::array result = out ? *out : Background();
        CheckOutput(result);

        // One contiguous (4, H, W, 2) array into a plain NV12 image: the
        // packed frame-set call.
        py::array whole = py::array::ensure(frames);
        const bool plainOut = result.strides(0) == ow;
        if (whole && whole.ndim() == 4 && whole.shape(0) == 4 &&
            whole.dtype().is(py::dtype::of<uint8_t>()) && plainOut &&
            (whole.flags() & py::array::c_style) && whole.shape(1) == h && whole.shape(2) == w &&
            whole.shape(3) == 2) {
            auto* in = static_cast<unsigned char*>(const_cast<void*>(whole.data()));
            auto* o = static_cast<unsigned char*>(result.mutable_data());
            Finish(Caught([&] { return sv_convert_image(in, 0, o, 0); }), true);
            return result;
        }

        if (!py::isinstance<py::sequence>(frames) || py::len(frames) != 4)
            throw py::value_error("frames: expected four (H, W, 2) uint8 arrays or one (4, H, W, 2) array");
        py::sequence cams = py::reinterpret_borrow<py::sequence>(frames);
        py::array cam[4];
        const unsigned char* ptr[4];
        int stride[4];
        for (int k = 0; k < 4; ++k) {
            cam[k] = CameraFrame(cams[k], k, w, h);
            ptr[k] = static_cast<const unsigned char*>(cam[k].data());
            stride[k] = static_cast<int>(cam[k].strides(0));
        }
        auto* y = static_cast<unsigned char*>(result.mutable_data());
        const int s = static_cast<int>(result.strides(0));
        Finish(Caught([&] { return sv_convert_frames(ptr, stride, y, s, y + static_cast<size_t>(s) * oh, s); }),
               false);
        return result;
    }

    static py::tuple Corrections() {
        py::array_t<int> g({4, 3}), t({4, 3, 3});
        sv_get_corrections(g.mutable_data(), t.mutable_data());
        return py::make_tuple(g, t);
    }

    static void SetCorrections(py::tuple gt) {
        if (py::len(gt) != 2) throw py::value_error("corrections: expected (gain, tcurve)");
        using Ints = py::array_t<int, py::array::c_style | py::array::forcecast>;
        Ints g = Ints::ensure(gt[0]), t = Ints::ensure(gt[1]);
        if (!g || !t || g.size() != 12 || t.size() != 36)
            throw py::value_error("corrections: expected 12 gains (4, 3) and 36 tone-curve levels (4, 3, 3)");
        auto r = Caught([&] { return sv_set_corrections(g.data(), t.data()); });
        if (r.first != 0) throw Error(r.second);
    }

    Size camera_size() const { return camera_; }
    Size output_size() const { return output_; }
    int frame() const { return open_ ? g_iter : 0; }
    bool closed() const { return !open_; }

private:
    // Black: luma 0, chroma 128.
    py::array Background() const {
        const int ow = output_.first, oh = output_.second;
        py::array_t<uint8_t> a({oh * 3 / 2, ow});
        std::memset(a.mutable_data(), 0, static_cast<size_t>(ow) * oh);
        std::memset(a.mutable_data() + static_cast<size_t>(ow) * oh, 128, static_cast<size_t>(ow) * oh / 2);
        return a;
    }

    void CheckOutput(const py::array& o) const {
        const int ow = output_.first, oh = output_.second;
        if (!o.dtype().is(py::dtype::of<uint8_t>()) || o.ndim() != 2 || o.shape(0) != oh * 3 / 2 ||
            o.shape(1) != ow || o.strides(1) != 1 || o.strides(0) < ow || o.strides(0) > INT_MAX ||
            !o.writeable())
            throw py::value_error("out: expected a writeable uint8 array of shape (" + std::to_string(oh * 3 / 2) +
                                  ", " + std::to_string(ow) + ") with rows of contiguous bytes");
    }

    // sv_convert_image reports failure only by its messages.
    static void Finish(const std::pair<int, std::string>& r, bool messagesMeanFailure) {
        if (r.first != 0 || (messagesMeanFailure && !r.second.empty())) throw Error(r.second);
        PrintAny(r.second);
    }

    bool open_ = false;
    Size camera_, output_;
};

// One Compositor's calls at a time: the library's state is process-wide.
std::mutex s_calls;

#ifdef SVCOMPOSE_PY_RIG
py::dict MakeTables(const std::string& rigPath, const std::string& outDir, std::optional<Size> camera,
                    std::optional<Size> output) {
    if (camera) CheckSize(*camera, "camera_size");
    if (output) CheckSize(*output, "output_size");
    if (camera && (camera->first < 8 || camera->second < 8 ||
                   rig::frame_set_bytes(camera->first, camera->second) >= (size_t(1) << 31)))
        throw py::value_error("camera_size: cameras need at least 8 x 8 pixels and a frame set "
                              "(8 x width x height bytes) below 2 GiB");
    Size cam, out;
    try {
        rig::Rig r = rig::load_rig(rigPath);
        if (camera) rig::scale_cameras(r, cv::Size(camera->first, camera->second));
        rig::LayoutOptions lo;
        lo.out = output ? cv::Size(output->first, output->second) : r.output.size;
        lo.rear_view = r.output.rear_view;
        lo.rear_fov_deg = r.output.rear_fov_deg;
        const rig::Layout layout = rig::make_layout(r, lo);
        std::string err;
        if (!rig::make_folders(outDir, err)) throw Error(err);
        rig::write_tables(outDir, r, layout, rig::Settings());
        cam = {r.cameras[0].size.width, r.cameras[0].size.height};
        out = {layout.out.width, layout.out.height};
    } catch (const rig::RigError& e) {
        throw Error(e.what());
    }
    py::dict d;
    d["control"] = outDir + "/control.txt";
    d["statistics"] = outDir + "/statistics.txt";
    d["setting"] = outDir + "/setting.txt";
    d["camera_size"] = cam;
    d["output_size"] = out;
    return d;
}
#endif

}  // namespace

PYBIND11_MODULE(svcompose, m) {
    m.doc() = "Bird's-eye surround view from four fisheye YUYV cameras into NV12, with colour matching";
    py::register_exception<Error>(m, "Error", PyExc_RuntimeError);

    py::class_<Compositor>(m, "Compositor", R"(The library's frame cycle for one rig.

Compositor(control, statistics, setting, camera_size, output_size, threads=1)
reads the three configuration files for cameras of camera_size and an output
of output_size, both (width, height). One may be open per process; close()
it, or use it in a with-block, before opening the next. Raises svcompose.Error
with the library's messages when the files are refused.)")
        .def(py::init<const std::string&, const std::string&, const std::string&, Size, Size, int>(),
             py::arg("control"), py::arg("statistics"), py::arg("setting"), py::arg("camera_size"),
             py::arg("output_size"), py::arg("threads") = 1)
        .def("convert",
             [](Compositor& c, py::object frames, std::optional<py::array> out) {
                 std::unique_lock<std::mutex> hold(s_calls, std::try_to_lock);
                 if (!hold) throw Error("another thread is converting: one frame at a time");
                 return c.Convert(frames, out);
             },
             py::arg("frames"), py::arg("out") = py::none(),
             R"(One frame: frames is four (H, W, 2) uint8 YUYV arrays (front, rear, left,
right; row strides of their own are used as they are) or one (4, H, W, 2)
array. Returns the NV12 image as a (OutH * 3 / 2, OutW) uint8 array: luma
rows, then rows of U, V pairs. Pixels no camera covers keep what out held
(default: a new black image).)")
        .def_property("corrections", [](Compositor&) { return Compositor::Corrections(); },
                      [](Compositor&, py::tuple gt) { Compositor::SetCorrections(gt); },
                      "(gain, tcurve): int32 arrays (4, 3) in Q10 (1024 = 1.0) and (4, 3, 3), the "
                      "tone-curve levels at 64, 128, 192 per camera and channel (R, G, B); settable")
        .def_property_readonly("camera_size", &Compositor::camera_size)
        .def_property_readonly("output_size", &Compositor::output_size)
        .def_property_readonly("frame", &Compositor::frame, "frames converted since it was opened")
        .def_property_readonly("closed", &Compositor::closed)
        .def("close", &Compositor::Close, "Releases the library's buffers; the next Compositor may open.")
        .def("__enter__", [](Compositor& c) -> Compositor& { return c; }, py::return_value_policy::reference)
        .def("__exit__", [](Compositor& c, py::args) { c.Close(); });

#ifdef SVCOMPOSE_PY_RIG
    m.def("make_tables", &MakeTables, py::arg("rig_path"), py::arg("out_dir"), py::arg("camera_size") = py::none(),
          py::arg("output_size") = py::none(),
          R"(Writes control.txt, statistics.txt and setting.txt into out_dir for a rig
(a physical rig file or a homography folder), cameras scaled to camera_size
and an output of output_size (defaults: the rig's). Returns the arguments of
Compositor: dict(control=..., statistics=..., setting=..., camera_size=...,
output_size=...).)");
#endif
}
