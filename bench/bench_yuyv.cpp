// The frame cycle's input conversion: four 1280 x 720 YUYV frames into NV12
// (YUYV_I420 with codes 3, 1), at each instruction-set level this CPU runs,
// beside the plain loops it replaced and memcpy of the same input and of the
// same output volume. All
// buffers stay hot in cache between iterations, as in a frame loop.
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

void BM_YuyvToNv12(benchmark::State& state) {
    const int isa = static_cast<int>(state.range(0));
    if (svc::SetIsa(isa) != isa) {
        state.SkipWithError("instruction set not supported here");
        svc::SetIsa(svc::CpuIsa());
        return;
    }
    state.SetLabel(svc::IsaName(isa));
    Frames f;
    for (auto _ : state) {
        for (int k = 0; k < kCameras; ++k)
            YUYV_I420(reinterpret_cast<char*>(f.in.data() + k * kPacked),
                      reinterpret_cast<char*>(f.out.data() + k * kNv12), kW, kH, 3, 1);
        benchmark::DoNotOptimize(f.out.data());
        benchmark::ClobberMemory();
    }
    svc::SetIsa(svc::CpuIsa());
    state.SetBytesProcessed(state.iterations() * int64_t(kCameras * (kPacked + kNv12)));
}
BENCHMARK(BM_YuyvToNv12)
    ->DenseRange(svc::kIsaScalar, svc::kIsaNeon)
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
