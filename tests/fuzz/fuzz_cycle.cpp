// Whole frame cycles with fuzzed tables, settings and frames. Input: five
// bytes (camera width, camera height, output width, output height, frames
// and threads), then the control, statistics and setting files and the
// camera bytes, separated by fuzz::kCut lines. Sizes stay small so that
// each input runs in milliseconds.
#include <algorithm>
#include <cstdlib>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 5) return 0;
    const int cam_w = 2 * (2 + data[0] % 31), cam_h = 2 * (2 + data[1] % 31);
    const int out_w = 2 * (1 + data[2] % 40), out_h = 2 * (1 + data[3] % 40);
    const int frames = 1 + (data[4] & 3), threads = 1 + ((data[4] >> 2) & 1);
    const auto parts = fuzz::split(data + 5, size - 5, 4);
    const std::string ctrl = fuzz::put("control.txt", parts[0]);
    const std::string stat = fuzz::put("statistics.txt", parts[1]);
    const std::string setting = fuzz::put("setting.txt", parts[2]);
    fuzz::reset_library();
    if (sv_init(ctrl.c_str(), stat.c_str(), setting.c_str(), cam_w, cam_h, out_w, out_h) != 0) {
        sv_deinit();
        return 0;
    }
    std::vector<uint8_t> in(size_t(8) * cam_w * cam_h);
    const std::string& pixels = parts[3];
    for (size_t i = 0; i < in.size(); ++i)
        in[i] = pixels.empty() ? uint8_t(i * 37 + (i >> 7)) : uint8_t(pixels[i % pixels.size()]);
    // Guard bytes after the output: the composition must stay inside.
    const size_t out_bytes = size_t(out_w) * out_h * 3 / 2;
    std::vector<uint8_t> out(out_bytes + 64, 0x5a);
    sv_set_threads(threads);
    for (int f = 0; f < frames; ++f) sv_convert_image(in.data(), 0, out.data(), 0);
    sv_set_threads(1);
    if (std::any_of(out.begin() + out_bytes, out.end(), [](uint8_t v) { return v != 0x5a; }))
        std::abort();
    sv_deinit();
    return 0;
}
