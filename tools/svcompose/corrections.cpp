#include "corrections.h"

#include <fstream>
#include <sstream>

#include <opencv2/core.hpp>

#include "pipe/data_processing.h"
#include "rig/frames.h"

namespace {

// The photometric tools' camera names, in the library's camera order.
const char* const kNames[4] = {"front", "back", "left", "right"};

std::string list(const int* v, int n) {
    std::string s = "[";
    for (int i = 0; i < n; ++i) s += (i ? ", " : "") + std::to_string(v[i]);
    return s + "]";
}

// n whole numbers from a JSON array; false unless it holds exactly that.
bool read_ints(const cv::FileNode& node, int* out, int n) {
    if (!node.isSeq() || int(node.size()) != n) return false;
    int i = 0;
    for (const cv::FileNode& v : node) {
        if (!v.isInt()) return false;
        out[i++] = int(v);
    }
    return true;
}

}  // namespace

std::string corrections_json(const Corrections& c) {
    std::string s = "{\n";
    for (int k = 0; k < 4; ++k) {
        Corrections copy = c;  // ToneMapping takes non-const pointers
        int lut[3][256];
        for (int v = 0; v < 256; ++v) {
            int rgb[3] = {v, v, v};
            // The channels are independent: one call gives all three tables.
            ToneMapping(copy.gain + 3 * k, copy.tcurve + 9 * k, 64, rgb[0], rgb[1], rgb[2], 8);
            for (int ch = 0; ch < 3; ++ch) lut[ch][v] = rgb[ch];
        }
        s += std::string(" \"") + kNames[k] + "\": {\n  \"gain_q10\": " + list(c.gain + 3 * k, 3) +
             ",\n  \"tcurve\": [" + list(c.tcurve + 9 * k, 3) + ", " + list(c.tcurve + 9 * k + 3, 3) +
             ", " + list(c.tcurve + 9 * k + 6, 3) + "],\n  \"lut_rgb\": [\n   " + list(lut[0], 256) +
             ",\n   " + list(lut[1], 256) + ",\n   " + list(lut[2], 256) + "]\n }" +
             (k < 3 ? ",\n" : "\n");
    }
    return s + "}\n";
}

bool read_corrections(const std::string& path, Corrections& c, std::string& err) {
    if (!rig::check_file(path, err)) return false;
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    cv::FileStorage fs;
    try {
        fs.open(text.str(), cv::FileStorage::READ | cv::FileStorage::MEMORY | cv::FileStorage::FORMAT_JSON);
    } catch (const cv::Exception&) {
        fs.release();
    }
    if (!fs.isOpened() || !fs.root().isMap()) {
        err = path + " is not a JSON object of per-camera corrections";
        return false;
    }
    for (int k = 0; k < 4; ++k) {
        const cv::FileNode cam = fs[kNames[k]];
        const std::string where = path + ": " + kNames[k];
        if (!cam.isMap()) {
            err = where + " is missing";
            return false;
        }
        if (!read_ints(cam["gain_q10"], c.gain + 3 * k, 3)) {
            err = where + " needs \"gain_q10\": three whole numbers (R, G, B; 1024 = 1.0)";
            return false;
        }
        const cv::FileNode tc = cam["tcurve"];
        bool ok = tc.isSeq() && tc.size() == 3;
        for (int ch = 0; ok && ch < 3; ++ch) ok = read_ints(tc[ch], c.tcurve + 9 * k + 3 * ch, 3);
        if (!ok) {
            err = where + " needs \"tcurve\": three lists (R, G, B) of three whole numbers";
            return false;
        }
        for (int ch = 0; ch < 3; ++ch) {
            const int g = c.gain[3 * k + ch];
            if (g < 1 || g > 65535) {
                err = where + " gain_q10 " + std::to_string(g) + " is outside 1..65535";
                return false;
            }
        }
        for (int i = 0; i < 9; ++i) {
            const int t = c.tcurve[9 * k + i];
            if (t < 0 || t > 255) {
                err = where + " tcurve level " + std::to_string(t) + " is outside 0..255";
                return false;
            }
        }
    }
    return true;
}
