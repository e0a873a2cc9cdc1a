#include "pipe/block_processing.h"

#include "log.h"

#include <climits>
#include <cstdio>
#include <cstring>

const int BS_Y = 32;
const int BS_X = 64;
const int WS_Y = 8;
const int WS_X = 8;

unsigned char sourceBuffer[4 * 48 * 64];
int xp[4];
int yp[4];
int x0, xt, yt, xm_org, xm_fnl, ym_org, ym_fnl, mH, mW, ii, jj, kk;
unsigned char status[8192];
unsigned char tempBuf[48 * 64];
int ft[9] = {38, 40, 41, 40, 43, 43, 41, 43, 44};

// Internal unlike its siblings: an exported data symbol y0 would interpose
// on the maths library's Bessel function y0 in every host linking both, and
// it could not be declared where <cmath> is included. Keep <cmath> out of
// this file.
static int y0;

namespace {

using Byte = unsigned char;

const int kLine = 64;            // bytes per block line
const int kChroma = 32;          // first chroma line of a block
const int kSlot = 48 * kLine;    // bytes per slot

int Clamp0(int v) { return v < 0 ? 0 : v; }

// NV12 bytes of a width x height image: the luma plane and height / 2
// chroma rows.
long ImageBytes(int height, int width) {
    return static_cast<long>(width) * height + static_cast<long>(height / 2) * width;
}

// Copies n bytes from image offset at into dst. A run past the right edge
// reads on into the next row, as the block cache always has; only the end of
// the image stops it, and what lies beyond that in dst is left as it was.
void CopyRun(Byte* dst, const Byte* image, long at, int n, long size) {
    if (n > size - at) n = static_cast<int>(size - at);
    if (n > 0) memcpy(dst, image + at, n);
}

long LumaAt(int r, int c, int width) { return static_cast<long>(r) * width + c; }

long ChromaAt(int r, int c, int height, int width) {
    return static_cast<long>(width) * height + static_cast<long>(r / 2) * width + c;
}

// A row's chroma exists when the row is even and is not the unpaired last
// row of an odd height.
bool HasChroma(int r, int height) { return r % 2 == 0 && r / 2 < height / 2; }

void FetchWhole(Byte* block, int height, int width, const Byte* image) {
    const long size = ImageBytes(height, width);
    for (ii = 0; ii < BS_Y; ++ii) {
        const int r = x0 + ii;
        // Rows outside the image keep what they held.
        if (r < 0 || r >= height || y0 > width) continue;
        CopyRun(block + ii * kLine, image, LumaAt(r, y0, width), BS_X, size);
        if (HasChroma(r, height))
            CopyRun(block + (kChroma + ii / 2) * kLine, image,
                    ChromaAt(r, y0, height, width), BS_X, size);
    }
}

// One axis of a move: origin o, request t. Nothing moves while t lies
// within reach past o; otherwise the block re-centres half a block before
// t, keeping the overlap. The offsets are worked out before the new origin
// t - half is clamped at 0.
void PlanAxis(int t, int reach, int half, int size, int& o, int& tt, int& org,
              int& fnl, int& keep) {
    if (t >= o && t <= o + reach) {
        org = fnl = 0;
        keep = size;
        return;
    }
    tt = t;
    if (t > o + reach) {
        org = t - o - half;
        fnl = 0;
        keep = o + size + half - t;
    } else {
        org = 0;
        fnl = o - t + half;
        // For columns 16 short of the overlap t + 32 - o, as shipped.
        keep = t + 16 - o;
    }
    o = Clamp0(t - half);
}

// Copies the surviving part through tempBuf and flags it in status.
void MoveKept(Byte* block) {
    memset(status, 0, sizeof status);
    if (mH == 32 && mW == 64) {
        memset(status, 1, 32 * kLine);
        return;
    }
    if (mH < 1 || mW < 1) return;
    for (ii = 0; ii < mH; ++ii) {
        const int from = xm_org + ii, to = xm_fnl + ii;
        memcpy(tempBuf + to * kLine + ym_fnl, block + from * kLine + ym_org, mW);
        if (ii % 2 == 0)
            memcpy(tempBuf + (kChroma + to / 2) * kLine + ym_fnl,
                   block + (kChroma + from / 2) * kLine + ym_org, mW);
        memset(status + to * kLine + ym_fnl, 1, mW);
    }
    memcpy(block, tempBuf, kSlot);
}

// Fetches the first run of missing positions in every block row; a run
// outside the image becomes black (luma 0, chroma 128).
void RefillFirstRuns(Byte* block, int bx, int by, int height, int width,
                     const Byte* image) {
    const long size = ImageBytes(height, width);
    for (ii = 0; ii < BS_Y; ++ii) {
        const Byte* flags = status + ii * kLine;
        for (jj = 0; jj < BS_X && flags[jj]; ++jj) {
        }
        if (jj == BS_X) continue;
        for (kk = jj; kk + 1 < BS_X && !flags[kk + 1]; ++kk) {
        }
        const int n = kk - jj + 1, r = bx + ii, c = by + jj;
        Byte* luma = block + ii * kLine + jj;
        Byte* uv = block + (kChroma + ii / 2) * kLine + jj;
        // Parity of the image row when copying, of the block row when
        // filling: they differ only for an odd origin, kept as shipped.
        if (r >= 0 && r < height && c >= 0 && c < width) {
            CopyRun(luma, image, LumaAt(r, c, width), n, size);
            if (HasChroma(r, height))
                CopyRun(uv, image, ChromaAt(r, c, height, width), n, size);
        } else {
            memset(luma, 0, n);
            if (ii % 2 == 0) memset(uv, 128, n);
        }
    }
}

}  // namespace

int BlockProcessing(int row, int col, bool reload, int height, int width,
                    unsigned char* image, int slot) {
    if (slot < 0 || slot > 3 || !image) {
        svc::Log("error! BlockProcessing needs a slot 0..3 and an image\n");
        return -1;
    }
    Byte* block = sourceBuffer + slot * kSlot;
    // Even origin, 2 columns left of the request; divisions truncate.
    x0 = (row / 2) * 2;
    y0 = (Clamp0(col - 2) / 2) * 2;
    int& bx = xp[slot];
    int& by = yp[slot];
    const bool near = bx - 32 < x0 && x0 < bx + 32 && by - 64 < y0 && y0 < by + 64;
    if (reload || !near) {
        bx = x0;
        by = y0;
        FetchWhole(block, height, width, image);
        return 0;
    }
    PlanAxis(x0, 29, 16, 32, bx, xt, xm_org, xm_fnl, mH);
    PlanAxis(y0, 59, 32, 64, by, yt, ym_org, ym_fnl, mW);
    MoveKept(block);
    RefillFirstRuns(block, bx, by, height, width, image);
    return 0;
}

int GaussianFilter(unsigned char* image, int width, int height, int x, int y) {
    if (!image || width < 1 || height < 1) {
        svc::Log("error! GaussianFilter needs a non-empty image\n");
        return -1;
    }
    const int xr = x % width;
    if (xr <= 1 || xr > width - 3 || y <= 1 || y > height - 3)
        return image[0];  // the border result, deliberately not (x, y)
    // The window uses x itself: an x past the row reaches the rows below.
    if (static_cast<long>(y + 2) * width + x + 2 >=
        static_cast<long>(width) * height) {
        svc::Log("error! GaussianFilter window outside the image\n");
        return -1;
    }
    int sum = 0;
    for (int dy = -2; dy <= 2; ++dy) {
        const int* w = ft + 3 * (2 - (dy < 0 ? -dy : dy));  // row a, b or c
        const Byte* s = image + static_cast<long>(y + dy) * width + x;
        sum += w[0] * (s[-2] + s[2]) + w[1] * (s[-1] + s[1]) + w[2] * s[0];
    }
    const int v = (sum + 512) / 1024;  // weights in Q10, rounded
    return v < 0 ? 0 : v > 255 ? 255 : v;
}

int CalcRadius(int a, int b) {
    // 64-bit, so |INT_MIN| and the doublings cannot overflow; wherever the
    // 32-bit rule does not overflow the result is the same.
    const long long p = a < 0 ? -static_cast<long long>(a) : a;
    const long long q = b < 0 ? -static_cast<long long>(b) : b;
    const long long m = p > q ? p : q;
    const long long d = p > q ? p - q : q - p;
    long long r;
    if (4 * q < p)
        r = 2 * p + q + (p - 4 * q) / 8;
    else if (4 * p < q)
        r = 2 * q + p + (q - 4 * p) / 8;
    else if (4 * d < m)
        r = p + q + m + (m - 4 * d) / 8;
    else
        r = p + q + m;
    r /= 2;
    return r > INT_MAX ? INT_MAX : static_cast<int>(r);
}
