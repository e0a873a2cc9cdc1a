#include "common/yuyv_reference.h"

namespace svtest {
namespace {

using Byte = unsigned char;

// Where the chroma of one row pair lives in a 4:2:0 image. NV12 interleaves
// U and V in one row (step 2, V one byte after U); I420 keeps two planes
// (step 1). Either way the k-th chroma pair of a row is u[k * step], v[k * step].
struct ChromaRows {
    Byte* u;
    Byte* v;
    int step;     // distance between neighbouring U samples in a row
    int rowSize;  // advance per row pair
};

ChromaRows Chroma(Byte* image, int w, int h, int code) {
    Byte* planes = image + w * h;
    if (code == 1) return {planes, planes + 1, 2, w};
    return {planes, image + (w * h * 5) / 4, 1, w / 2};
}

// Packed to 4:2:0: the pair's chroma comes from its first row only
// (vertical decimation, no averaging).
void PackedToPlanar(const Byte* src, Byte* dst, int w, int h, ChromaRows c) {
    for (int r = 0; r < h; r += 2) {
        const Byte* s0 = src + r * 2 * w;
        const Byte* s1 = s0 + 2 * w;
        Byte* y0 = dst + r * w;
        Byte* y1 = y0 + w;
        Byte* u = c.u;
        Byte* v = c.v;
        for (int x = 0; x < w; x += 2, u += c.step, v += c.step) {
            y0[x] = s0[2 * x];
            *u = s0[2 * x + 1];
            y0[x + 1] = s0[2 * x + 2];
            *v = s0[2 * x + 3];
            y1[x] = s1[2 * x];
            y1[x + 1] = s1[2 * x + 2];
        }
        c.u += c.rowSize;
        c.v += c.rowSize;
    }
}

// 4:2:0 to packed: both rows of a pair carry the pair's one chroma row.
void PlanarToPacked(const Byte* src, Byte* dst, int w, int h, ChromaRows c) {
    for (int r = 0; r < h; r += 2) {
        const Byte* y0 = src + r * w;
        const Byte* y1 = y0 + w;
        Byte* o0 = dst + r * 2 * w;
        Byte* o1 = o0 + 2 * w;
        const Byte* u = c.u;
        const Byte* v = c.v;
        for (int x = 0; x < w; x += 2, u += c.step, v += c.step) {
            o0[2 * x] = y0[x];
            o0[2 * x + 1] = *u;
            o0[2 * x + 2] = y0[x + 1];
            o0[2 * x + 3] = *v;
            o1[2 * x] = y1[x];
            o1[2 * x + 1] = *u;
            o1[2 * x + 2] = y1[x + 1];
            o1[2 * x + 3] = *v;
        }
        c.u += c.rowSize;
        c.v += c.rowSize;
    }
}

}  // namespace

void YuyvReference(const unsigned char* src, unsigned char* dst, int width,
                   int height, int srcCode, int dstCode) {
    const bool toPlanar = srcCode == 3 && (dstCode == 0 || dstCode == 1);
    const bool toPacked = dstCode == 3 && (srcCode == 0 || srcCode == 1);
    Byte* d = dst;
    if (toPlanar)
        PackedToPlanar(src, d, width, height, Chroma(d, width, height, dstCode));
    else if (toPacked)
        PlanarToPacked(src, d, width, height,
                       Chroma(const_cast<Byte*>(src), width, height, srcCode));
}

}  // namespace svtest
