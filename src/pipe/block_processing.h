// Utilities for callers of their own; the frame cycle does not use them.
//
// BlockProcessing keeps, per slot 0..3, a 32-row by 64-column block of an
// NV12 image in sourceBuffer and refreshes it as the point of interest
// moves. All slots share one working state: not re-entrant.
#ifndef PIPE_BLOCK_PROCESSING_H
#define PIPE_BLOCK_PROCESSING_H

#include "sv_export.h"

SV_EXPORT extern const int BS_Y;  // 32 rows per block
SV_EXPORT extern const int BS_X;  // 64 columns per block
SV_EXPORT extern const int WS_Y;  // 8, unused by the functions below
SV_EXPORT extern const int WS_X;  // 8, unused by the functions below

// Four slots of 48 lines x 64 bytes: lines 0..31 luma, lines 32..47 the
// interleaved U,V rows, chroma line 32 + i serving luma rows 2i and 2i + 1.
SV_EXPORT extern unsigned char sourceBuffer[4 * 48 * 64];
// Image row (xp) and column (yp) of each slot's top-left sample.
SV_EXPORT extern int xp[4];
SV_EXPORT extern int yp[4];

// Working state kept between calls. The requested column (the counterpart
// of x0) is internal: see block_processing.cpp.
SV_EXPORT extern int x0;
SV_EXPORT extern int xt;
SV_EXPORT extern int yt;
SV_EXPORT extern int xm_org;  // first kept row in the old block
SV_EXPORT extern int xm_fnl;  // where it lands in the new block
SV_EXPORT extern int ym_org;
SV_EXPORT extern int ym_fnl;
SV_EXPORT extern int mH;      // kept rows
SV_EXPORT extern int mW;      // kept columns
SV_EXPORT extern int ii;
SV_EXPORT extern int jj;
SV_EXPORT extern int kk;
// One flag per block position, 64 per row: 1 once it holds valid data.
SV_EXPORT extern unsigned char status[8192];
// The moved block being assembled; never cleared between calls.
SV_EXPORT extern unsigned char tempBuf[48 * 64];

// Gaussian weights a1 a2 a3 / b1 b2 b3 / c1 c2 c3, summing to 1024 over the
// symmetric 5 x 5 kernel.
SV_EXPORT extern int ft[9];

// Brings the block around (row, col) into the slot: moves what it can keep
// and refetches the first missing run of every row, or fetches the whole
// block at the even origin (row, col - 2) when reload is set or the point
// left the block. width is also the row stride. Returns 0; -1 with a message
// for a slot outside 0..3 or a null image, touching nothing.
SV_EXPORT int BlockProcessing(int row, int col, bool reload, int height,
                              int width, unsigned char* image, int slot);

// 5 x 5 weighted mean of luma sample (x, y), rounded, 0..255. Near the
// border (x mod width <= 1 or > width - 3, y <= 1 or > height - 3) returns
// image[0]. -1 with a message for a null or empty image or a window that
// would leave the buffer.
SV_EXPORT int GaussianFilter(unsigned char* image, int width, int height,
                             int x, int y);

// Coarse integer approximation of sqrt(a * a + b * b), up to about 12 %
// high: (3, 4) gives 5, (100, 100) gives 156. Saturates at INT_MAX.
SV_EXPORT int CalcRadius(int a, int b);

#endif
