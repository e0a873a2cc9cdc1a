// Instruction sets the row kernels come in, and which one is in force.
//
// Every kernel has a portable version; the others are chosen once, from what
// the CPU reports, in dispatch.cpp. Tests lower the level to hold each
// variant against the portable one on the same machine.
#ifndef SIMD_ISA_H
#define SIMD_ISA_H

#include "sv_export.h"

namespace svc {

enum Isa : int {
    kIsaScalar = 0,
    kIsaSse41 = 1,
    kIsaAvx2 = 2,
    kIsaAvx512 = 3,  // F, BW, VL and VBMI together
    kIsaNeon = 4,
};

// The best level this build and this CPU both support.
SV_EXPORT Isa CpuIsa();

// The level the kernels use now: CpuIsa() unless lowered by SetIsa.
SV_EXPORT Isa ActiveIsa();

// Uses `isa` from now on if the CPU supports it, otherwise leaves the level
// unchanged; returns the level in force. For tests and benches: the frame
// cycle must not be running meanwhile.
SV_EXPORT Isa SetIsa(int isa);

// Name for messages and bench labels: "scalar", "sse4.1", "avx2", "avx512",
// "neon".
SV_EXPORT const char* IsaName(int isa);

}  // namespace svc

#endif
