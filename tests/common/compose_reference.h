// The plain, pixel-by-pixel composition that the library's fast path must
// match byte for byte.
#ifndef TESTS_COMMON_COMPOSE_REFERENCE_H
#define TESTS_COMMON_COMPOSE_REFERENCE_H

#include "sv_types.h"

namespace svtest {

// Columns of the chroma cache per table: the composition's first width,
// and the widest output the library composes.
constexpr int kCacheColumns = 1280;
constexpr int kWideCacheColumns = 4096;

// DataProcessing's rendering without its refusals, through a chroma cache of
// cache_w columns per table: call it only with arguments that DataProcessing
// accepts. An output wider than the cache is not rendered at all (the
// library refuses it). Returns 1.
int ComposeReference(unsigned char** YUV, int WidthIn, int HeightIn,
                     unsigned char* out, int OutW, int OutH, tag_CtrlPara* para,
                     int* gain, int* tcurve, int step, int bits, int cache_w);

// With the first cache width, kCacheColumns.
int ComposeReference(unsigned char** YUV, int WidthIn, int HeightIn,
                     unsigned char* out, int OutW, int OutH, tag_CtrlPara* para,
                     int* gain, int* tcurve, int step, int bits);

// With the library's widest cache, kWideCacheColumns.
int ComposeReferenceWide(unsigned char** YUV, int WidthIn, int HeightIn,
                         unsigned char* out, int OutW, int OutH, tag_CtrlPara* para,
                         int* gain, int* tcurve, int step, int bits);

}  // namespace svtest

#endif
