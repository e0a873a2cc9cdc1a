#include "simd/isa.h"

#include <atomic>

#if defined(__x86_64__) || defined(__i386__)
#define SV_X86 1
#endif
#if defined(__aarch64__)
#define SV_NEON 1
#endif

namespace svc {
namespace {

#if SV_X86
// Each level needs the one below it, and the operating system must save
// the wider registers.
Isa DetectX86() {
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("sse4.1")) return kIsaScalar;
    if (!__builtin_cpu_supports("avx2")) return kIsaSse41;
    if (!__builtin_cpu_supports("avx512f") || !__builtin_cpu_supports("avx512bw") ||
        !__builtin_cpu_supports("avx512vl") || !__builtin_cpu_supports("avx512vbmi"))
        return kIsaAvx2;
    return kIsaAvx512;
}
#endif

Isa Detect() {
#if SV_X86
    return DetectX86();
#elif SV_NEON
    // Advanced SIMD is part of every aarch64 CPU.
    return kIsaNeon;
#else
    return kIsaScalar;
#endif
}

// Levels other than scalar that this CPU can run: x86 levels nest, NEON
// stands alone.
bool Supported(int isa, Isa best) {
    if (isa == kIsaScalar) return true;
    if (best == kIsaNeon) return isa == kIsaNeon;
    return isa >= kIsaSse41 && isa <= kIsaAvx512 && isa <= best;
}

std::atomic<int>& Active() {
    static std::atomic<int> active{CpuIsa()};
    return active;
}

}  // namespace

Isa CpuIsa() {
    static const Isa best = Detect();
    return best;
}

Isa ActiveIsa() { return static_cast<Isa>(Active().load(std::memory_order_relaxed)); }

Isa SetIsa(int isa) {
    if (Supported(isa, CpuIsa())) Active().store(isa, std::memory_order_relaxed);
    return ActiveIsa();
}

const char* IsaName(int isa) {
    switch (isa) {
        case kIsaScalar: return "scalar";
        case kIsaSse41: return "sse4.1";
        case kIsaAvx2: return "avx2";
        case kIsaAvx512: return "avx512";
        case kIsaNeon: return "neon";
    }
    return "unknown";
}

}  // namespace svc
