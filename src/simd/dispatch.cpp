// Kernel tables in force, one accessor per module. A module's variants are
// declared in its *_kernels.h; see dispatch.h.
#include "simd/dispatch.h"

namespace svc {

// (accessors are added here, one per module)

}  // namespace svc
