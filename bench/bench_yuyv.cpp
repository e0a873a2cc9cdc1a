// The frame cycle's input conversion: four 1280 x 720 YUYV frames into NV12
// (YUYV_I420 with codes 3, 1), at each instruction-set level this CPU runs,
// beside the plain loops it replaced and memcpy of the same input and of the
// same output volume. The buffers are reused every iteration, as in a frame
// loop.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "common/yuyv_reference.h"
#include "img_fmt_trans.h"
#include "simd/isa.h"

namespace {

constexpr int kW = 1280, kH = 720, kCameras = 4;
constexpr size_t kPacked = size_t{kW} * kH * 2, kNv12 = size_t{kW} * kH * 3 / 2;

struct Frames {
    std::vector<unsigned char> in = std::vector<unsigned char>(kCameras * kPacked);
    std::vector<unsigned char> out = std::vector<unsigned char>(kCameras * kNv12);
    Frames() {
        std::mt19937 rng(1);
        for (unsigned char& b : in) b = static_cast<unsigned char>(rng());
    }
};

// Converts `cameras` frames of w x h per iteration at the level range(0).
void Convert(benchmark::State& state, int w, int h, int cameras) {
    const int isa = static_cast<int>(state.range(0));
    svc::SetIsa(isa);
    state.SetLabel(svc::IsaName(isa));
    const size_t packed = size_t(w) * h * 2, nv12 = size_t(w) * h * 3 / 2;
    Frames f;
    for (auto _ : state) {
        for (int k = 0; k < cameras; ++k)
            YUYV_I420(reinterpret_cast<char*>(f.in.data() + k * packed),
                      reinterpret_cast<char*>(f.out.data() + k * nv12), w, h, 3, 1);
        benchmark::DoNotOptimize(f.out.data());
        benchmark::ClobberMemory();
    }
    svc::SetIsa(svc::CpuIsa());
    state.SetBytesProcessed(state.iterations() * int64_t(cameras * (packed + nv12)));
}

// The levels this CPU runs that have a table of their own (AVX-512 would
// run the AVX2 one).
void Levels(benchmark::internal::Benchmark* b) {
    for (int isa : {svc::kIsaScalar, svc::kIsaSse41, svc::kIsaAvx2, svc::kIsaNeon})
        if (svc::SetIsa(isa) == isa) b->Arg(isa);
    svc::SetIsa(svc::CpuIsa());
}

// The frame cycle's four cameras.
void BM_YuyvToNv12(benchmark::State& state) { Convert(state, kW, kH, kCameras); }
BENCHMARK(BM_YuyvToNv12)
    ->Apply(Levels)
    ->Unit(benchmark::kMicrosecond);

// One 320 x 240 frame, 270 kB in and out: within the L2 cache, so this
// shows what the kernels cost apart from memory traffic.
void BM_YuyvToNv12InL2(benchmark::State& state) { Convert(state, 320, 240, 1); }
BENCHMARK(BM_YuyvToNv12InL2)
    ->Apply(Levels)
    ->Unit(benchmark::kMicrosecond);

void BM_YuyvToNv12Plain(benchmark::State& state) {
    Frames f;
    for (auto _ : state) {
        for (int k = 0; k < kCameras; ++k)
            svtest::YuyvReference(f.in.data() + k * kPacked, f.out.data() + k * kNv12, kW, kH, 3, 1);
        benchmark::DoNotOptimize(f.out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * int64_t(kCameras * (kPacked + kNv12)));
}
BENCHMARK(BM_YuyvToNv12Plain)->Unit(benchmark::kMicrosecond);

// Arg 0: the four input frames (what the conversion reads); arg 1: the
// four NV12 images' worth (what it writes).
void BM_Memcpy(benchmark::State& state) {
    Frames f;
    const bool input = state.range(0) == 0;
    const size_t bytes = kCameras * (input ? kPacked : kNv12);
    std::vector<unsigned char> to(bytes);
    state.SetLabel(input ? "4 x YUYV bytes" : "4 x NV12 bytes");
    for (auto _ : state) {
        std::memcpy(to.data(), f.in.data(), bytes);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * int64_t(2 * bytes));
}
BENCHMARK(BM_Memcpy)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace
