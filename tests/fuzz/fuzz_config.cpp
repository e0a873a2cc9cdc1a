// sv_init over fuzzed control, statistics and setting files. Input: the
// three files, in that order, separated by fuzz::kCut lines.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto parts = fuzz::split(data, size, 3);
    const std::string ctrl = fuzz::put("control.txt", parts[0]);
    const std::string stat = fuzz::put("statistics.txt", parts[1]);
    const std::string setting = fuzz::put("setting.txt", parts[2]);
    fuzz::reset_library();
    // Room for 19 x 15 control nodes; the cameras only size YUVarray.
    sv_init(ctrl.c_str(), stat.c_str(), setting.c_str(), 64, 48, 128, 96);
    sv_deinit();
    return 0;
}
