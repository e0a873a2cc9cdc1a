// One calibration (statistics, thinning, fit) of four 1280 x 720 cameras
// through the rig's 128 x 168 statistics table with the default settings,
// by the library and by the plain reference.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "bench_rig.h"
#include "common/calib_reference.h"
#include "pipe/calib_GT.h"

namespace {

using Calib = void (*)(unsigned char**, int, int, tag_StatPara&, int*, int*, int, int, int, int,
                       int, int, int, float, int, int, float);

void Run(benchmark::State& state, Calib calib) {
    svtest::BenchRig rig;
    svtest::StatRig st;
    unsigned char* imgs[4] = {rig.cams[0].data(), rig.cams[1].data(), rig.cams[2].data(),
                              rig.cams[3].data()};
    int gain[12] = {}, tcurve[36] = {};
    for (auto _ : state) {
        calib(imgs, svtest::kInW, svtest::kInH, st.stat, gain, tcurve, 8, 248, 14, 16, 128, 4, 4,
              0.1f, 4, 16, 0.05f);
        benchmark::DoNotOptimize(gain);
        benchmark::ClobberMemory();
    }
    // Shows that the fit ran: identity gains would mean no data.
    state.counters["gain3R"] = gain[9];
    state.counters["tc3G128"] = tcurve[3 * 9 + 4];
}
void BM_CalibGT(benchmark::State& state) { Run(state, CalibGT); }
void BM_CalibReference(benchmark::State& state) { Run(state, svtest::RefCalibGT); }
BENCHMARK(BM_CalibGT)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CalibReference)->Unit(benchmark::kMicrosecond);

}  // namespace
