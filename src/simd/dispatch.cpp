// Kernel tables in force, one accessor per module. A module's variants are
// declared in its *_kernels.h; see dispatch.h.
#include "simd/dispatch.h"

#include "pipe/compose_kernels.h"

namespace svc {

const ComposeKernels& ComposeKernelsActive() {
    return PickKernels(ActiveIsa(), kComposeScalar, SV_X86_KERNEL(kComposeSse41),
                       SV_X86_KERNEL(kComposeAvx2), SV_X86_KERNEL(kComposeAvx512),
                       SV_NEON_KERNEL(kComposeNeon));
}

}  // namespace svc
