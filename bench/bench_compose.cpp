// Composition of one 1280 x 800 output from four 1280 x 720 cameras through
// a realistic four-camera table, by the library and by the plain reference.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "bench_rig.h"
#include "common/compose_reference.h"
#include "pipe/data_processing.h"

namespace {

using svtest::BenchRig;
using svtest::kOutH;
using svtest::kOutW;

void Run(benchmark::State& state, BenchRig::Compose compose) {
    BenchRig rig;
    rig.compose = compose;
    // Share of output pixels that some camera covers.
    std::fill(rig.out.begin(), rig.out.end(), 0);
    rig.Render();
    std::vector<unsigned char> first = rig.out;
    std::fill(rig.out.begin(), rig.out.end(), 1);
    rig.Render();
    size_t covered = 0;
    for (int i = 0; i < kOutW * kOutH; ++i) covered += first[i] == rig.out[i];

    for (auto _ : state) {
        rig.Render();
        benchmark::DoNotOptimize(rig.out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * int64_t{kOutW} * kOutH);
    state.counters["covered"] = double(covered) / (kOutW * kOutH);
}
void BM_DataProcessing(benchmark::State& state) { Run(state, DataProcessing); }
void BM_ComposeReference(benchmark::State& state) { Run(state, svtest::ComposeReference); }
BENCHMARK(BM_DataProcessing)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ComposeReference)->Unit(benchmark::kMillisecond);

}  // namespace
