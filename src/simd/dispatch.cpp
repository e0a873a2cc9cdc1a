// Kernel tables in force, one accessor per module. A module's variants are
// declared in its *_kernels.h; see dispatch.h.
#include "simd/dispatch.h"

#include "img_fmt_trans_kernels.h"

namespace svc {

// (accessors are added here, one per module)

// No AVX-512 table: with frames in from memory, AVX2 already moves the
// bytes as fast as memcpy does.
const YuyvKernels& YuyvKernelsInUse() {
    return PickKernels<YuyvKernels>(ActiveIsa(), kYuyvScalar, SV_X86_KERNEL(kYuyvSse41),
                                    SV_X86_KERNEL(kYuyvAvx2), nullptr, SV_NEON_KERNEL(kYuyvNeon));
}

}  // namespace svc
