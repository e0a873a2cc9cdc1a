// Kernel tables in force, one accessor per module. A module's variants are
// declared in its *_kernels.h; see dispatch.h.
#include "simd/dispatch.h"

#include "pipe/compose_kernels.h"
#include "img_fmt_trans_kernels.h"

namespace svc {

const ComposeKernels& ComposeKernelsActive() {
    return PickKernels(ActiveIsa(), kComposeScalar, SV_X86_KERNEL(kComposeSse41),
                       SV_X86_KERNEL(kComposeAvx2), SV_X86_KERNEL(kComposeAvx512),
                       SV_NEON_KERNEL(kComposeNeon));
}

// No AVX-512 table: with frames in from memory, AVX2 already moves the
// bytes as fast as memcpy does.
const YuyvKernels& YuyvKernelsInUse() {
    return PickKernels<YuyvKernels>(ActiveIsa(), kYuyvScalar, SV_X86_KERNEL(kYuyvSse41),
                                    SV_X86_KERNEL(kYuyvAvx2), nullptr, SV_NEON_KERNEL(kYuyvNeon));
}

}  // namespace svc
