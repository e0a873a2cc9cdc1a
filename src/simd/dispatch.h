// The one place that chooses a kernel variant per instruction set.
//
// Each module with row kernels declares a table of function pointers in its
// own *_kernels.h, with one constant table per variant (kFooScalar,
// kFooSse41, kFooAvx2, kFooAvx512, kFooNeon; only those the build compiles
// exist), and adds one accessor here that returns the table for
// ActiveIsa(). Callers fetch the table once per call, never per pixel.
#ifndef SIMD_DISPATCH_H
#define SIMD_DISPATCH_H

#include "simd/isa.h"

namespace svc {

template <class K>
struct Same {
    using Type = K;
};

// The variant for `isa`, falling back level by level to the portable one
// where a variant was not built. Null entries are variants not built.
template <class K>
const K& PickKernels(Isa isa, const K& scalar, const typename Same<K>::Type* sse41,
                     const typename Same<K>::Type* avx2, const typename Same<K>::Type* avx512,
                     const typename Same<K>::Type* neon) {
    switch (isa) {
        case kIsaAvx512:
            if (avx512) return *avx512;
            [[fallthrough]];
        case kIsaAvx2:
            if (avx2) return *avx2;
            [[fallthrough]];
        case kIsaSse41:
            if (sse41) return *sse41;
            break;
        case kIsaNeon:
            if (neon) return *neon;
            break;
        case kIsaScalar:
            break;
    }
    return scalar;
}

}  // namespace svc

// Which variant files this build compiles (set by CMake for the library).
#if defined(SV_HAVE_X86_KERNELS)
#define SV_X86_KERNEL(name) (&(name))
#else
#define SV_X86_KERNEL(name) nullptr
#endif
#if defined(SV_HAVE_NEON_KERNELS)
#define SV_NEON_KERNEL(name) (&(name))
#else
#define SV_NEON_KERNEL(name) nullptr
#endif

#endif
