// The svcompose element in real pipelines: its output against the library
// run directly on the same camera frames, and its refusals.
#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "common/scratch.h"
#include "common/synthetic_rig.h"
#include "sv_interface.h"

using namespace svtest;

namespace {

constexpr int W = 136, H = 176;  // cameras; the tables render kSW x kSH
const int kOff[4][2] = {{0, 0}, {16, 0}, {0, 16}, {16, 16}};
const char* const kPatterns[4] = {"smpte", "ball", "snow", "checkers-8"};

std::string Tables() { return ScratchPath("gst_tables.txt"); }
std::string Setting() { return ScratchPath("gst_setting.txt"); }

void IdentityCorrections() {
    int g[12], tc[36];
    for (int i = 0; i < 36; ++i) tc[i] = 64 * (i % 3 + 1), g[i / 3] = 1024;
    ASSERT_EQ(sv_set_corrections(g, tc), 0);
}

struct Outcome {
    std::string error;  // the first error message on the bus, empty when none
    std::vector<std::vector<guint8>> out, cam[4];
    std::string out_caps;
};

std::vector<std::vector<guint8>> Drain(GstElement* pipeline, const char* name, std::string* caps = nullptr) {
    std::vector<std::vector<guint8>> frames;
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), name);
    if (!sink) return frames;
    while (GstSample* s = gst_app_sink_try_pull_sample(GST_APP_SINK(sink), 0)) {
        GstMapInfo map;
        GstBuffer* b = gst_sample_get_buffer(s);
        if (gst_buffer_map(b, &map, GST_MAP_READ)) {
            frames.emplace_back(map.data, map.data + map.size);
            gst_buffer_unmap(b, &map);
        }
        if (caps && caps->empty()) {
            gchar* text = gst_caps_to_string(gst_sample_get_caps(s));
            *caps = text;
            g_free(text);
        }
        gst_sample_unref(s);
    }
    gst_object_unref(sink);
    return frames;
}

// Runs the pipeline to EOS or the first error. Appsinks keep everything
// they get (no dropping), so the frames are there to compare afterwards.
Outcome Launch(const std::string& description) {
    Outcome r;
    GError* err = nullptr;
    GstElement* pipeline = gst_parse_launch(description.c_str(), &err);
    if (!pipeline) {
        r.error = err ? err->message : "cannot parse";
        g_clear_error(&err);
        return r;
    }
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* msg = gst_bus_timed_pop_filtered(bus, 10 * GST_SECOND,
                                                 GstMessageType(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    if (!msg) {
        r.error = "timeout";
    } else if (GST_MESSAGE_TYPE(msg) == GST_MESSAGE_ERROR) {
        gst_message_parse_error(msg, &err, nullptr);
        r.error = err->message;
        g_clear_error(&err);
    }
    if (msg) gst_message_unref(msg);
    gst_object_unref(bus);
    r.out = Drain(pipeline, "out", &r.out_caps);
    for (int k = 0; k < 4; ++k) r.cam[k] = Drain(pipeline, ("cam" + std::to_string(k)).c_str());
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    return r;
}

std::string Element(const std::string& extra = "") {
    return "svcompose name=sv control=" + Tables() + " statistics=" + Tables() + " setting=" +
           Setting() + " " + extra + " ! appsink name=out sync=false wait-on-eos=false ";
}

// Camera k: a test pattern of w x h, num frames, into sink_k; with tee,
// also into appsink camk.
std::string Camera(int k, int frames, int w = W, int h = H, bool tee = false) {
    std::string s = "videotestsrc pattern=" + std::string(kPatterns[k]) + " num-buffers=" +
                    std::to_string(frames) + " ! video/x-raw,format=YUY2,width=" + std::to_string(w) +
                    ",height=" + std::to_string(h) + ",framerate=25/1 ! ";
    if (tee)
        s += "tee name=t" + std::to_string(k) + " ! queue ! sv.sink_" + std::to_string(k) + " t" +
             std::to_string(k) + ". ! queue ! appsink name=cam" + std::to_string(k) + " sync=false wait-on-eos=false ";
    else
        s += "sv.sink_" + std::to_string(k) + " ";
    return s;
}

class GstElementTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        gst_init(nullptr, nullptr);
        WriteTable(Tables(), QuadMesh(kOff));
        WriteSettings(Setting(), 1, 2);
    }
    void SetUp() override {
        GstElementFactory* f = gst_element_factory_find("svcompose");
        if (!f) GTEST_SKIP() << "svcompose element not found: GST_PLUGIN_PATH should name the build's gst folder";
        gst_object_unref(f);
    }
};

// Five frame sets through the element, calibrating and smoothing (Spd 2)
// on two threads, against sv_convert_image on the frames the cameras sent.
TEST_F(GstElementTest, OutputIsTheLibrarysByteForByte) {
    IdentityCorrections();
    std::string desc = Element("background=0x204060 threads=2");
    for (int k = 0; k < 4; ++k) desc += Camera(k, 5, W, H, true);
    const Outcome r = Launch(desc);
    ASSERT_EQ(r.error, "");
    ASSERT_EQ(r.out.size(), 5u);
    EXPECT_NE(r.out_caps.find("format=(string)NV12, width=(int)128, height=(int)168"), std::string::npos)
        << r.out_caps;
    EXPECT_NE(r.out_caps.find("colorimetry=(string)1:4:0:0"), std::string::npos) << r.out_caps;

    IdentityCorrections();
    ASSERT_EQ(sv_init(Tables().c_str(), Tables().c_str(), Setting().c_str(), W, H, kSW, kSH), 0);
    int y, u, v;
    RGB2YUV(0x20, 0x40, 0x60, y, u, v, 8, 8);
    std::vector<guint8> set(8 * W * H), out(kSW * kSH * 3 / 2);
    for (size_t i = 0; i < r.out.size(); ++i) {
        for (int k = 0; k < 4; ++k) {
            ASSERT_EQ(r.cam[k].at(i).size(), 2u * W * H);
            std::copy(r.cam[k][i].begin(), r.cam[k][i].end(), set.begin() + k * 2 * W * H);
        }
        for (size_t p = 0; p < out.size(); ++p) out[p] = p < size_t(kSW * kSH) ? y : p % 2 ? v : u;
        sv_convert_image(set.data(), 0, out.data(), 0);
        EXPECT_TRUE(r.out[i] == out) << "frame " << i;
    }
    sv_deinit();
    // The vehicle box of the quad mesh is empty, so the background shows.
    EXPECT_EQ(std::count(r.out[0].begin(), r.out[0].begin() + kSW * kSH, guint8(y)) > 0, true);
}

// The shortest camera ends the stream: no frame set is composed without it.
TEST_F(GstElementTest, FirstCameraToEndEndsTheStream) {
    std::string desc = Element();
    for (int k = 0; k < 4; ++k) desc += Camera(k, k == 2 ? 2 : 4);
    const Outcome r = Launch(desc);
    EXPECT_EQ(r.error, "");
    EXPECT_EQ(r.out.size(), 2u);
}

// Objects the leaks tracer sees alive, when the test runs under it
// (GST_TRACERS=leaks); -1 without it.
int LiveObjects() {
    // Streaming threads drop their last references as they wind down;
    // counting before they have would race with them.
    gst_task_cleanup_all();
    GList* tracers = gst_tracing_get_active_tracers();
    int live = -1;
    for (GList* t = tracers; t; t = t->next)
        if (g_str_has_prefix(G_OBJECT_TYPE_NAME(t->data), "GstLeaksTracer")) {
            GstStructure* info = nullptr;
            g_signal_emit_by_name(t->data, "get-live-objects", &info);
            const GValue* list = gst_structure_get_value(info, "live-objects-list");
            live = int(gst_value_list_get_size(list));
            gst_structure_free(info);
        }
    g_list_free_full(tracers, gst_object_unref);
    return live;
}

// A long run leaves no buffer, caps or pad behind: the second run ends
// with as many objects alive as the first.
TEST_F(GstElementTest, LongRunLeavesNothingAlive) {
    if (LiveObjects() < 0) GTEST_SKIP() << "needs GST_TRACERS=leaks";
    auto run = [](int frames) {
        std::string desc = Element();
        for (int k = 0; k < 4; ++k) desc += Camera(k, frames);
        return Launch(desc);
    };
    ASSERT_EQ(run(2).out.size(), 2u);
    const int before = LiveObjects();
    ASSERT_EQ(run(300).out.size(), 300u);
    EXPECT_EQ(LiveObjects(), before);
}

TEST_F(GstElementTest, RefusalsNameTheProblem) {
    const std::string cams = Camera(0, 1) + Camera(1, 1) + Camera(2, 1);
    const struct { std::string desc, message; } cases[] = {
        {Element() + cams + Camera(3, 1, 64, 48),
         "camera frames of 64x48 do not suit the control table, which samples camera pixels up to "
         "x 129, y 169: were the tables made for these cameras?"},
        {Element("camera-size=136x176") + cams + Camera(3, 1, 138, 176),
         "camera frames of 138x176 differ from camera-size 136x176"},
        {Element("camera-size=136x") + cams + Camera(3, 1),
         "camera-size 136x: expected WIDTHxHEIGHT, e.g. 1280x720"},
        {"svcompose name=sv ! fakesink " + cams + Camera(3, 1),
         "svcompose needs its three configuration files: set the control, statistics and setting "
         "properties"},
        {"svcompose name=sv control=" + Tables() + " statistics=" + Tables() + " setting=" + Tables() +
             " ! fakesink " + cams + Camera(3, 1),
         "the library rejected its configuration files (its messages are on stdout)"},
        // The library keeps one rig per process.
        {Element() + cams + Camera(3, 1) + " svcompose name=sv2 control=" + Tables() + " statistics=" +
             Tables() + " setting=" + Setting() + " ! fakesink",
         "another svcompose element is already running in this process"},
    };
    for (const auto& c : cases) EXPECT_EQ(Launch(c.desc).error, c.message) << c.desc;
}

}  // namespace
