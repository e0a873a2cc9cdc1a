// The plain, pixel-by-pixel composition that the library's fast path must
// match byte for byte.
#ifndef TESTS_COMMON_COMPOSE_REFERENCE_H
#define TESTS_COMMON_COMPOSE_REFERENCE_H

#include "sv_types.h"

namespace svtest {

// DataProcessing's rendering without its refusals: call it only with
// arguments that DataProcessing accepts. Returns 1.
int ComposeReference(unsigned char** YUV, int WidthIn, int HeightIn,
                     unsigned char* out, int OutW, int OutH, tag_CtrlPara* para,
                     int* gain, int* tcurve, int step, int bits);

}  // namespace svtest

#endif
