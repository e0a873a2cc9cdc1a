// Library-internal: the composition through a render plan.
//
// The mesh tables fix, for every output pixel, which tables contribute,
// from which camera, at which source position and with which weights. A
// plan records that once per table set; a frame then only samples, corrects
// and stores the pixels that are written, a row of runs at a time. The plan
// is rebuilt whenever anything it was built from differs, the table values
// it read included, so it never serves stale geometry.
#ifndef PIPE_COMPOSE_PLAN_H
#define PIPE_COMPOSE_PLAN_H

#include "sv_types.h"

namespace svc {

// Renders like the pixel-at-a-time composition, byte for byte, for 8-bit
// samples. False, with nothing written, where no plan applies (cameras over
// 4096 pixels, weights beyond 16 bits, a frame larger than a plan may grow,
// or another thread rendering through the plan at the same time): the caller
// then renders pixel by pixel.
bool RenderPlanned(unsigned char** yuv, int in_w, int in_h, unsigned char* out, int out_w,
                   int out_h, const tag_CtrlPara& p, const int* gain, const int* tcurve,
                   int step);

}  // namespace svc

#endif
