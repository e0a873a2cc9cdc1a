// The svcompose element: four YUY2 cameras in (front, rear, left, right),
// one NV12 bird's-eye view out, through libsvcompose.
//
// GstVideoAggregator pairs the cameras' frames by running time and drives
// the output frame rate; this file only negotiates, loads the library and
// hands each frame set over. The library keeps its rig in process-wide
// globals, so one element at a time may run in a process.
#include <atomic>
#include <cstring>
#include <string>

#include <gst/gst.h>
#include <gst/video/gstvideoaggregator.h>
#include <gst/video/video.h>

#include "pipe/data_processing.h"
#include "sv_interface.h"

GST_DEBUG_CATEGORY_STATIC(sv_debug);
#define GST_CAT_DEFAULT sv_debug

namespace {

constexpr int kCameras = 4;
const char* const kCameraNames[kCameras] = {"front", "rear", "left", "right"};
// The composition's chroma cache limits the output width; the library's
// load-time limit bounds every other side.
constexpr int kMaxOutWidth = 1280;
constexpr int kMaxSide = 8192;
// What the library's arithmetic produces: full-range BT.601, transfer and
// primaries passed through from the cameras.
constexpr const char* kColorimetry = "1:4:0:0";

#define SV_CAMERA_CAPS \
    "video/x-raw, format=(string)YUY2, width=(int)[2, 8192], height=(int)[2, 8192], " \
    "framerate=(fraction)[0/1, 2147483647/1]"
#define SV_OUTPUT_CAPS \
    "video/x-raw, format=(string)NV12, width=(int)[2, 1280], height=(int)[2, 8192], " \
    "framerate=(fraction)[0/1, 2147483647/1]"

GstStaticPadTemplate sink_templates[kCameras] = {
    GST_STATIC_PAD_TEMPLATE("sink_0", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(SV_CAMERA_CAPS)),
    GST_STATIC_PAD_TEMPLATE("sink_1", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(SV_CAMERA_CAPS)),
    GST_STATIC_PAD_TEMPLATE("sink_2", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(SV_CAMERA_CAPS)),
    GST_STATIC_PAD_TEMPLATE("sink_3", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(SV_CAMERA_CAPS)),
};
GstStaticPadTemplate src_template =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS(SV_OUTPUT_CAPS));

enum {
    PROP_0, PROP_CONTROL, PROP_STATISTICS, PROP_SETTING, PROP_CAMERA_SIZE, PROP_BACKGROUND,
    PROP_THREADS
};

}  // namespace

G_BEGIN_DECLS
#define GST_TYPE_SV_COMPOSE (gst_sv_compose_get_type())
G_DECLARE_FINAL_TYPE(GstSvCompose, gst_sv_compose, GST, SV_COMPOSE, GstVideoAggregator)
G_END_DECLS

struct _GstSvCompose {
    GstVideoAggregator parent;
    GstVideoAggregatorPad* cameras[kCameras];

    // Properties, under the object lock.
    gchar* control;
    gchar* statistics;
    gchar* setting;
    gchar* camera_size;  // "WxH" or null
    guint background;  // 0xRRGGBB
    gint threads;

    // Streaming state, from start() to stop().
    bool owner;          // holds the process's one library instance
    int table_w, table_h;  // output size the control table declares
    int want_w, want_h;    // camera-size; 0: any the tables suit
    int reach_x, reach_y;  // farthest camera pixel the tables sample; -1: none
    int cam_w, cam_h, out_w, out_h;  // sizes sv_init last ran with; 0: not loaded
    int threads_applied;
    guint8* frame_set;  // four YUY2 frames back to back
    guint8* composed;   // the library's output, rows without padding
};

G_DEFINE_TYPE(GstSvCompose, gst_sv_compose, GST_TYPE_VIDEO_AGGREGATOR)

namespace {

std::atomic<GstSvCompose*> g_owner{nullptr};

std::string size_text(int w, int h) { return std::to_string(w) + "x" + std::to_string(h); }

// Loads the library with the element's files; false with the library's
// verdict on stdout.
bool load_library(GstSvCompose* self, int cam_w, int cam_h, int out_w, int out_h) {
    self->cam_w = self->cam_h = self->out_w = self->out_h = 0;
    GST_OBJECT_LOCK(self);
    const std::string ctrl = self->control, stat = self->statistics, set = self->setting;
    GST_OBJECT_UNLOCK(self);
    if (sv_init(ctrl.c_str(), stat.c_str(), set.c_str(), cam_w, cam_h, out_w, out_h) != 0) {
        sv_deinit();
        return false;
    }
    self->cam_w = cam_w, self->cam_h = cam_h, self->out_w = out_w, self->out_h = out_h;
    return true;
}

void free_buffers(GstSvCompose* self) {
    g_free(self->frame_set);
    g_free(self->composed);
    self->frame_set = self->composed = nullptr;
}

void release_library(GstSvCompose* self) {
    if (!self->owner) return;
    if (self->cam_w) sv_deinit();
    self->cam_w = self->cam_h = self->out_w = self->out_h = 0;
    free_buffers(self);
    self->owner = false;
    g_owner.store(nullptr);
}

// The farthest camera pixel either mesh table samples, in whole pixels.
void measure_reach(GstSvCompose* self) {
    self->reach_x = self->reach_y = -1;
    const long nodes = long(Parameter.TableWidth) * Parameter.TableHeight;
    for (const int* tb : {Parameter.TB1, Parameter.TB2})
        for (long i = 0; tb && i < nodes; ++i) {
            const int* n = tb + 4 * i;
            if (n[0] < 0 || n[1] < 0) continue;
            self->reach_x = MAX(self->reach_x, n[0] >> 4);
            self->reach_y = MAX(self->reach_y, n[1] >> 4);
        }
}

// Empty when camera frames of w x h suit the tables: inside the frame,
// and reaching past its middle in one direction at least (tables made for
// cameras twice the size would otherwise compose a corner of each frame).
std::string camera_size_problem(const GstSvCompose* self, int w, int h) {
    if (w % 2 || h % 2) return "camera frames of " + size_text(w, h) + " need an even width and height";
    if (self->want_w && (w != self->want_w || h != self->want_h))
        return "camera frames of " + size_text(w, h) + " differ from camera-size " +
               size_text(self->want_w, self->want_h);
    if (self->reach_x < 0) return "";
    const bool beyond = self->reach_x >= w || self->reach_y >= h;
    const bool small = self->reach_x < w / 2 && self->reach_y < h / 2;
    if (!beyond && !small) return "";
    return "camera frames of " + size_text(w, h) + " do not suit the control table, which samples " +
           "camera pixels up to x " + std::to_string(self->reach_x) + ", y " +
           std::to_string(self->reach_y) + ": were the tables made for these cameras?";
}

// "WxH": two whole numbers from 1 to 8192, nothing else.
bool parse_size(const char* text, int& w, int& h) {
    int* side[2] = {&w, &h};
    for (int i = 0; i < 2; ++i) {
        long v = 0;
        const char* start = text;
        while (g_ascii_isdigit(*text) && v <= kMaxSide) v = v * 10 + (*text++ - '0');
        if (text == start || v < 1 || v > kMaxSide) return false;
        *side[i] = int(v);
        if (*text++ != (i == 0 ? 'x' : '\0')) return false;
    }
    return true;
}

gboolean sv_start(GstAggregator* agg) {
    GstSvCompose* self = GST_SV_COMPOSE(agg);
    GST_OBJECT_LOCK(self);
    const bool named = self->control && self->statistics && self->setting;
    GST_OBJECT_UNLOCK(self);
    if (!named) {
        GST_ELEMENT_ERROR(self, RESOURCE, NOT_FOUND,
                          ("svcompose needs its three configuration files: set the control, "
                           "statistics and setting properties"),
                          (nullptr));
        return FALSE;
    }
    GstSvCompose* none = nullptr;
    if (!g_owner.compare_exchange_strong(none, self)) {
        GST_ELEMENT_ERROR(self, RESOURCE, BUSY,
                          ("another svcompose element is already running in this process"),
                          ("the library composes one camera rig per process: run each rig in a "
                           "process of its own"));
        return FALSE;
    }
    self->owner = true;
    self->threads_applied = -1;
    GST_OBJECT_LOCK(self);
    const std::string want = self->camera_size ? self->camera_size : "";
    GST_OBJECT_UNLOCK(self);
    self->want_w = self->want_h = 0;
    if (!want.empty() && !parse_size(want.c_str(), self->want_w, self->want_h)) {
        release_library(self);
        GST_ELEMENT_ERROR(self, RESOURCE, SETTINGS,
                          ("camera-size %s: expected WIDTHxHEIGHT, e.g. 1280x720", want.c_str()),
                          (nullptr));
        return FALSE;
    }
    // Loaded once with room for any table, to refuse bad files now rather
    // than at the first frame, and to learn the tables' output size and reach.
    if (!load_library(self, 2, 2, kMaxOutWidth, kMaxSide)) {
        release_library(self);
        GST_ELEMENT_ERROR(self, RESOURCE, SETTINGS,
                          ("the library rejected its configuration files (its messages are on "
                           "stdout)"),
                          ("control %s, statistics %s, setting %s", self->control,
                           self->statistics, self->setting));
        return FALSE;
    }
    self->table_w = Parameter.OutImgWidth;
    self->table_h = Parameter.OutImgHeight;
    measure_reach(self);
    if (self->reach_x < 0)
        GST_ELEMENT_WARNING(self, RESOURCE, SETTINGS,
                            ("the control table lets no camera see anything: the output stays "
                             "background"),
                            (nullptr));
    return GST_AGGREGATOR_CLASS(gst_sv_compose_parent_class)->start(agg);
}

gboolean sv_stop(GstAggregator* agg) {
    GstSvCompose* self = GST_SV_COMPOSE(agg);
    release_library(self);
    return GST_AGGREGATOR_CLASS(gst_sv_compose_parent_class)->stop(agg);
}

GstCaps* camera_caps(GstSvCompose* self, GstPad* pad, GstCaps* filter) {
    GstCaps* any = gst_pad_get_pad_template_caps(pad);
    GstCaps* caps = gst_caps_new_empty();
    // The camera-size first; any other size is judged when it arrives,
    // where the refusal can say why.
    if (self->owner && self->want_w) {
        GstCaps* sized = gst_caps_copy(any);
        gst_caps_set_simple(sized, "width", G_TYPE_INT, self->want_w, "height", G_TYPE_INT,
                            self->want_h, nullptr);
        caps = gst_caps_merge(caps, sized);
    }
    caps = gst_caps_merge(caps, any);
    if (filter) {
        GstCaps* both = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(caps);
        caps = both;
    }
    return caps;
}

gboolean sv_sink_query(GstAggregator* agg, GstAggregatorPad* pad, GstQuery* query) {
    GstSvCompose* self = GST_SV_COMPOSE(agg);
    switch (GST_QUERY_TYPE(query)) {
    case GST_QUERY_CAPS: {
        GstCaps* filter = nullptr;
        gst_query_parse_caps(query, &filter);
        GstCaps* caps = camera_caps(self, GST_PAD(pad), filter);
        gst_query_set_caps_result(query, caps);
        gst_caps_unref(caps);
        return TRUE;
    }
    case GST_QUERY_ACCEPT_CAPS: {
        // Sizes are judged when the caps arrive, where the refusal can say
        // why.
        GstCaps* caps = nullptr;
        gst_query_parse_accept_caps(query, &caps);
        GstCaps* tmpl = gst_pad_get_pad_template_caps(GST_PAD(pad));
        gst_query_set_accept_caps_result(query, gst_caps_is_subset(caps, tmpl));
        gst_caps_unref(tmpl);
        return TRUE;
    }
    default:
        return GST_AGGREGATOR_CLASS(gst_sv_compose_parent_class)->sink_query(agg, pad, query);
    }
}

int camera_index(GstSvCompose* self, GstAggregatorPad* pad) {
    for (int k = 0; k < kCameras; ++k)
        if (GST_AGGREGATOR_PAD(self->cameras[k]) == pad) return k;
    return -1;
}

gboolean sv_sink_event(GstAggregator* agg, GstAggregatorPad* pad, GstEvent* event) {
    GstSvCompose* self = GST_SV_COMPOSE(agg);
    if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS) {
        GstCaps* caps = nullptr;
        gst_event_parse_caps(event, &caps);
        GstVideoInfo info;
        std::string problem;
        if (!gst_video_info_from_caps(&info, caps)) {
            problem = "unreadable camera caps";
        } else {
            problem = camera_size_problem(self, info.width, info.height);
            // The library takes one size for all four cameras.
            for (int k = 0; k < kCameras && problem.empty(); ++k) {
                const GstVideoInfo& other = self->cameras[k]->info;
                if (GST_AGGREGATOR_PAD(self->cameras[k]) == pad || !other.finfo ||
                    GST_VIDEO_INFO_FORMAT(&other) == GST_VIDEO_FORMAT_UNKNOWN)
                    continue;
                if (other.width != info.width || other.height != info.height)
                    problem = "camera frames of " + size_text(info.width, info.height) +
                              " differ from the " + kCameraNames[k] + " camera's " +
                              size_text(other.width, other.height) +
                              ": all four cameras need one size";
            }
        }
        if (!problem.empty()) {
            const int k = camera_index(self, pad);
            GST_ELEMENT_ERROR(self, CORE, NEGOTIATION, ("%s", problem.c_str()),
                              ("on %s (%s camera): %" GST_PTR_FORMAT, GST_PAD_NAME(pad),
                               k >= 0 ? kCameraNames[k] : "?", caps));
            gst_event_unref(event);
            return FALSE;
        }
    }
    return GST_AGGREGATOR_CLASS(gst_sv_compose_parent_class)->sink_event(agg, pad, event);
}

// The table's output size first, then whatever size downstream insists
// on; always NV12 in the library's colorimetry.
GstCaps* sv_update_caps(GstVideoAggregator* vagg, GstCaps* downstream) {
    GstSvCompose* self = GST_SV_COMPOSE(vagg);
    GstCaps* ours = gst_caps_from_string(SV_OUTPUT_CAPS);
    gst_caps_set_simple(ours, "colorimetry", G_TYPE_STRING, kColorimetry, "pixel-aspect-ratio",
                        GST_TYPE_FRACTION, 1, 1, nullptr);
    GstCaps* wanted = gst_caps_new_empty();
    if (self->table_w > 0 && self->table_h > 0) {
        GstCaps* sized = gst_caps_copy(ours);
        gst_caps_set_simple(sized, "width", G_TYPE_INT, self->table_w, "height", G_TYPE_INT,
                            self->table_h, nullptr);
        wanted = gst_caps_merge(wanted, sized);
    }
    wanted = gst_caps_merge(wanted, ours);
    GstCaps* result = gst_caps_intersect_full(wanted, downstream, GST_CAPS_INTERSECT_FIRST);
    gst_caps_unref(wanted);
    return result;
}

// Rows of a mapped plane into or out of a buffer without padding.
void copy_rows(guint8* dst, int dst_stride, const guint8* src, int src_stride, int bytes, int rows) {
    for (int y = 0; y < rows; ++y)
        std::memcpy(dst + size_t(y) * dst_stride, src + size_t(y) * src_stride, size_t(bytes));
}

GstFlowReturn sv_create_output_buffer(GstVideoAggregator* vagg, GstBuffer** outbuf) {
    GstSvCompose* self = GST_SV_COMPOSE(vagg);
    // A frame set needs all four cameras. One that has ended ends the
    // stream; one that has not started yet holds the output back.
    for (GstVideoAggregatorPad* cam : self->cameras)
        if (!gst_video_aggregator_pad_has_current_buffer(cam)) {
            *outbuf = nullptr;
            return gst_aggregator_pad_is_eos(GST_AGGREGATOR_PAD(cam)) ? GST_FLOW_EOS : GST_FLOW_OK;
        }
    // Caps events are handled in this thread, after the buffers behind them
    // were queued: a camera whose caps were refused still has frames
    // waiting, and nothing to read them by.
    for (GstVideoAggregatorPad* cam : self->cameras)
        if (!cam->info.finfo || GST_VIDEO_INFO_FORMAT(&cam->info) == GST_VIDEO_FORMAT_UNKNOWN) {
            *outbuf = nullptr;
            return GST_FLOW_NOT_NEGOTIATED;
        }
    return GST_VIDEO_AGGREGATOR_CLASS(gst_sv_compose_parent_class)->create_output_buffer(vagg, outbuf);
}

// sv_init again when the negotiated sizes differ from those it last ran
// with, sv_set_threads when the property changed.
bool ensure_library(GstSvCompose* self, int cam_w, int cam_h, int out_w, int out_h) {
    if (self->cam_w != cam_w || self->cam_h != cam_h || self->out_w != out_w ||
        self->out_h != out_h) {
        free_buffers(self);
        if (!load_library(self, cam_w, cam_h, out_w, out_h)) {
            GST_ELEMENT_ERROR(self, RESOURCE, SETTINGS,
                              ("the library refused cameras of %s with an output of %s (its "
                               "messages are on stdout)",
                               size_text(cam_w, cam_h).c_str(), size_text(out_w, out_h).c_str()),
                              (nullptr));
            return false;
        }
        self->frame_set = static_cast<guint8*>(g_malloc(size_t(8) * cam_w * cam_h));
        self->composed = static_cast<guint8*>(g_malloc(size_t(out_w) * out_h * 3 / 2));
    }
    GST_OBJECT_LOCK(self);
    const int threads = self->threads;
    GST_OBJECT_UNLOCK(self);
    if (threads != self->threads_applied) {
        sv_set_threads(threads);
        self->threads_applied = threads;
    }
    return true;
}

void fill_background(GstSvCompose* self) {
    GST_OBJECT_LOCK(self);
    const guint rgb = self->background;
    GST_OBJECT_UNLOCK(self);
    int y = 0, u = 0, v = 0;
    RGB2YUV(int(rgb >> 16 & 0xff), int(rgb >> 8 & 0xff), int(rgb & 0xff), y, u, v, 8, 8);
    const size_t luma = size_t(self->out_w) * self->out_h;
    std::memset(self->composed, y, luma);
    guint8* uv = self->composed + luma;
    for (size_t i = 0; i < luma / 2; i += 2) uv[i] = guint8(u), uv[i + 1] = guint8(v);
}

GstFlowReturn sv_aggregate_frames(GstVideoAggregator* vagg, GstBuffer* outbuf) {
    GstSvCompose* self = GST_SV_COMPOSE(vagg);
    GstVideoFrame* in[kCameras];
    for (int k = 0; k < kCameras; ++k) {
        in[k] = gst_video_aggregator_pad_get_prepared_frame(self->cameras[k]);
        if (!in[k]) {
            GST_ELEMENT_ERROR(self, STREAM, FAILED, ("cannot map the %s camera's frame", kCameraNames[k]),
                              (nullptr));
            return GST_FLOW_ERROR;
        }
    }
    const int cam_w = GST_VIDEO_FRAME_WIDTH(in[0]), cam_h = GST_VIDEO_FRAME_HEIGHT(in[0]);
    for (GstVideoFrame* f : in)
        if (GST_VIDEO_FRAME_WIDTH(f) != cam_w || GST_VIDEO_FRAME_HEIGHT(f) != cam_h) {
            GST_ELEMENT_ERROR(self, CORE, NEGOTIATION, ("the four cameras' frames differ in size"),
                              (nullptr));
            return GST_FLOW_NOT_NEGOTIATED;
        }
    if (!ensure_library(self, cam_w, cam_h, GST_VIDEO_INFO_WIDTH(&vagg->info),
                        GST_VIDEO_INFO_HEIGHT(&vagg->info)))
        return GST_FLOW_ERROR;

    const int row = 2 * cam_w;
    for (int k = 0; k < kCameras; ++k)
        copy_rows(self->frame_set + size_t(k) * row * cam_h, row,
                  static_cast<const guint8*>(GST_VIDEO_FRAME_PLANE_DATA(in[k], 0)),
                  GST_VIDEO_FRAME_PLANE_STRIDE(in[k], 0), row, cam_h);
    fill_background(self);
    sv_convert_image(self->frame_set, 0, self->composed, 0);

    GstVideoFrame out;
    if (!gst_video_frame_map(&out, &vagg->info, outbuf, GST_MAP_WRITE)) {
        GST_ELEMENT_ERROR(self, STREAM, FAILED, ("cannot map the output frame"), (nullptr));
        return GST_FLOW_ERROR;
    }
    const size_t luma = size_t(self->out_w) * self->out_h;
    copy_rows(static_cast<guint8*>(GST_VIDEO_FRAME_PLANE_DATA(&out, 0)),
              GST_VIDEO_FRAME_PLANE_STRIDE(&out, 0), self->composed, self->out_w, self->out_w,
              self->out_h);
    copy_rows(static_cast<guint8*>(GST_VIDEO_FRAME_PLANE_DATA(&out, 1)),
              GST_VIDEO_FRAME_PLANE_STRIDE(&out, 1), self->composed + luma, self->out_w,
              self->out_w, self->out_h / 2);
    gst_video_frame_unmap(&out);
    return GST_FLOW_OK;
}

void sv_set_property(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
    GstSvCompose* self = GST_SV_COMPOSE(object);
    GST_OBJECT_LOCK(self);
    switch (id) {
    case PROP_CONTROL:
        g_free(self->control);
        self->control = g_value_dup_string(value);
        break;
    case PROP_STATISTICS:
        g_free(self->statistics);
        self->statistics = g_value_dup_string(value);
        break;
    case PROP_SETTING:
        g_free(self->setting);
        self->setting = g_value_dup_string(value);
        break;
    case PROP_CAMERA_SIZE:
        g_free(self->camera_size);
        self->camera_size = g_value_dup_string(value);
        break;
    case PROP_BACKGROUND:
        self->background = g_value_get_uint(value);
        break;
    case PROP_THREADS:
        self->threads = g_value_get_int(value);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
    GST_OBJECT_UNLOCK(self);
}

void sv_get_property(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
    GstSvCompose* self = GST_SV_COMPOSE(object);
    GST_OBJECT_LOCK(self);
    switch (id) {
    case PROP_CONTROL: g_value_set_string(value, self->control); break;
    case PROP_STATISTICS: g_value_set_string(value, self->statistics); break;
    case PROP_SETTING: g_value_set_string(value, self->setting); break;
    case PROP_CAMERA_SIZE: g_value_set_string(value, self->camera_size); break;
    case PROP_BACKGROUND: g_value_set_uint(value, self->background); break;
    case PROP_THREADS: g_value_set_int(value, self->threads); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
    GST_OBJECT_UNLOCK(self);
}

void sv_finalize(GObject* object) {
    GstSvCompose* self = GST_SV_COMPOSE(object);
    release_library(self);
    g_free(self->control);
    g_free(self->statistics);
    g_free(self->setting);
    g_free(self->camera_size);
    G_OBJECT_CLASS(gst_sv_compose_parent_class)->finalize(object);
}

}  // namespace

static void gst_sv_compose_class_init(GstSvComposeClass* klass) {
    GObjectClass* object_class = G_OBJECT_CLASS(klass);
    GstElementClass* element_class = GST_ELEMENT_CLASS(klass);
    GstAggregatorClass* agg_class = GST_AGGREGATOR_CLASS(klass);
    GstVideoAggregatorClass* vagg_class = GST_VIDEO_AGGREGATOR_CLASS(klass);

    object_class->set_property = sv_set_property;
    object_class->get_property = sv_get_property;
    object_class->finalize = sv_finalize;
    const auto flags = GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                   GST_PARAM_MUTABLE_READY);
    g_object_class_install_property(
        object_class, PROP_CONTROL,
        g_param_spec_string("control", "Control table", "Control table file (mesh tables)",
                            nullptr, flags));
    g_object_class_install_property(
        object_class, PROP_STATISTICS,
        g_param_spec_string("statistics", "Statistics table", "Statistics table file", nullptr,
                            flags));
    g_object_class_install_property(
        object_class, PROP_SETTING,
        g_param_spec_string("setting", "Settings", "Setting file of the calibration", nullptr,
                            flags));
    g_object_class_install_property(
        object_class, PROP_CAMERA_SIZE,
        g_param_spec_string("camera-size", "Camera size",
                            "Size of the camera frames the tables were made for, WxH; unset: "
                            "any size the tables' source positions fit",
                            nullptr, flags));
    g_object_class_install_property(
        object_class, PROP_BACKGROUND,
        g_param_spec_uint("background", "Background",
                          "Colour of the pixels no camera covers, 0xRRGGBB", 0, 0xffffff, 0,
                          GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                      GST_PARAM_MUTABLE_PLAYING)));
    g_object_class_install_property(
        object_class, PROP_THREADS,
        g_param_spec_int("threads", "Threads",
                         "Threads of the frame cycle (0: one per core); the output is the same "
                         "for any number",
                         0, 1024, 1,
                         GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                     GST_PARAM_MUTABLE_PLAYING)));

    for (auto& t : sink_templates)
        gst_element_class_add_static_pad_template_with_gtype(element_class, &t,
                                                             GST_TYPE_VIDEO_AGGREGATOR_PAD);
    gst_element_class_add_static_pad_template_with_gtype(element_class, &src_template,
                                                         GST_TYPE_AGGREGATOR_PAD);
    gst_element_class_set_static_metadata(
        element_class, "Surround view composer", "Filter/Editor/Video/Compositor",
        "Composes a bird's-eye view from four fisheye cameras (sink_0 front, sink_1 rear, "
        "sink_2 left, sink_3 right) and matches their colour",
        "svcompose developers");

    agg_class->start = sv_start;
    agg_class->stop = sv_stop;
    agg_class->sink_query = sv_sink_query;
    agg_class->sink_event = sv_sink_event;
    vagg_class->update_caps = sv_update_caps;
    vagg_class->create_output_buffer = sv_create_output_buffer;
    vagg_class->aggregate_frames = sv_aggregate_frames;
    // Cameras arrive in the library's format; there is nothing to convert.
    vagg_class->find_best_format = nullptr;
}

static void gst_sv_compose_init(GstSvCompose* self) {
    self->threads = 1;
    for (int k = 0; k < kCameras; ++k) {
        GstPadTemplate* templ =
            gst_element_class_get_pad_template(GST_ELEMENT_GET_CLASS(self), sink_templates[k].name_template);
        GstPad* pad = GST_PAD(g_object_new(GST_TYPE_VIDEO_AGGREGATOR_PAD, "name",
                                           sink_templates[k].name_template, "direction",
                                           GST_PAD_SINK, "template", templ, nullptr));
        self->cameras[k] = GST_VIDEO_AGGREGATOR_PAD(pad);
        gst_element_add_pad(GST_ELEMENT(self), pad);
    }
}

static gboolean plugin_init(GstPlugin* plugin) {
    GST_DEBUG_CATEGORY_INIT(sv_debug, "svcompose", 0, "surround view composer");
    return gst_element_register(plugin, "svcompose", GST_RANK_NONE, GST_TYPE_SV_COMPOSE);
}

// GST_PLUGIN_DEFINE names the package through this macro.
#define PACKAGE "svcompose"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, svcompose,
                  "Bird's-eye surround view from four fisheye cameras", plugin_init, SV_VERSION,
                  "Proprietary", "svcompose", "svcompose")
