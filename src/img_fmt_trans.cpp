#include "img_fmt_trans.h"

#include <climits>
#include <cstddef>
#include <cstdio>

#include "img_fmt_trans_kernels.h"
#include "log.h"

namespace {

using Byte = unsigned char;

// The row kernels step by two pixels and two rows, and every byte offset
// of the image must fit in 32 bits.
bool SizeOk(const void* src, const void* dst, int w, int h) {
    return src && dst && w > 0 && h > 0 && w % 2 == 0 && h % 2 == 0 &&
           static_cast<long long>(w) * h * 2 <= INT_MAX;
}

// Row pairs [r0, r1) of a w x h image whose packed rows lie `step` bytes
// apart; each call hands one pair to the kernel with the pair's rows, luma
// rows and chroma row.
void PackedToNv12(const svc::YuyvKernels& k, const Byte* src, ptrdiff_t step, Byte* dst,
                  ptrdiff_t w, ptrdiff_t h, int r0, int r1) {
    Byte* uv = dst + w * h;
    for (ptrdiff_t r = r0; r < r1; r += 2)
        k.packed_to_nv12(src + r * step, src + (r + 1) * step, dst + r * w, dst + (r + 1) * w,
                         uv + (r / 2) * w, static_cast<int>(w));
}

// I420: U plane at w x h, V plane a quarter of that after it, each row
// pair owning w / 2 bytes of both.
void PackedToI420(const svc::YuyvKernels& k, const Byte* src, Byte* dst, ptrdiff_t w, ptrdiff_t h) {
    Byte* u = dst + w * h;
    Byte* v = u + w * h / 4;
    for (ptrdiff_t r = 0; r < h; r += 2)
        k.packed_to_i420(src + r * 2 * w, src + (r + 1) * 2 * w, dst + r * w, dst + (r + 1) * w,
                         u + (r / 2) * (w / 2), v + (r / 2) * (w / 2), static_cast<int>(w));
}

void Nv12ToPacked(const svc::YuyvKernels& k, const Byte* src, Byte* dst, ptrdiff_t w, ptrdiff_t h) {
    const Byte* uv = src + w * h;
    for (ptrdiff_t r = 0; r < h; r += 2)
        k.nv12_to_packed(src + r * w, src + (r + 1) * w, uv + (r / 2) * w, dst + r * 2 * w,
                         dst + (r + 1) * 2 * w, static_cast<int>(w));
}

void I420ToPacked(const svc::YuyvKernels& k, const Byte* src, Byte* dst, ptrdiff_t w, ptrdiff_t h) {
    const Byte* u = src + w * h;
    const Byte* v = u + w * h / 4;
    for (ptrdiff_t r = 0; r < h; r += 2)
        k.i420_to_packed(src + r * w, src + (r + 1) * w, u + (r / 2) * (w / 2), v + (r / 2) * (w / 2),
                         dst + r * 2 * w, dst + (r + 1) * 2 * w, static_cast<int>(w));
}

}  // namespace

void YUYV_I420(char* src, char* dst, int width, int height, int srcCode,
               int dstCode) {
    const bool toPlanar = srcCode == 3 && (dstCode == 0 || dstCode == 1);
    const bool toPacked = dstCode == 3 && (srcCode == 0 || srcCode == 1);
    if (!toPlanar && !toPacked) return;
    if (!SizeOk(src, dst, width, height)) {
        svc::Log("error! YUYV_I420 needs an even image size and two buffers (%d x %d)\n",
                    width, height);
        return;
    }
    const Byte* s = reinterpret_cast<const Byte*>(src);
    Byte* d = reinterpret_cast<Byte*>(dst);
    const svc::YuyvKernels& k = svc::YuyvKernelsInUse();
    if (srcCode == 3 && dstCode == 1)
        PackedToNv12(k, s, 2 * static_cast<ptrdiff_t>(width), d, width, height, 0, height);
    else if (srcCode == 3)
        PackedToI420(k, s, d, width, height);
    else if (srcCode == 1)
        Nv12ToPacked(k, s, d, width, height);
    else
        I420ToPacked(k, s, d, width, height);
}

namespace svc {

void ConvertYuyvToNv12Rows(const unsigned char* src, unsigned char* dst, int width, int height,
                           int row_begin, int row_end) {
    if (!SizeOk(src, dst, width, height) || row_begin < 0 || row_begin % 2 || row_end % 2 ||
        row_begin > row_end || row_end > height) {
        svc::Log("error! ConvertYuyvToNv12Rows needs an even image size, two buffers and even "
                    "rows 0 <= begin <= end <= height (%d x %d, rows %d..%d)\n",
                    width, height, row_begin, row_end);
        return;
    }
    PackedToNv12(YuyvKernelsInUse(), src, 2 * static_cast<ptrdiff_t>(width), dst, width, height,
                 row_begin, row_end);
}

void ConvertYuyvToNv12RowsStrided(const unsigned char* src, ptrdiff_t src_stride,
                                  unsigned char* dst, int width, int height, int row_begin,
                                  int row_end) {
    if (!SizeOk(src, dst, width, height) || row_begin < 0 || row_begin % 2 || row_end % 2 ||
        row_begin > row_end || row_end > height || src_stride < 2 * static_cast<ptrdiff_t>(width)) {
        svc::Log("error! ConvertYuyvToNv12RowsStrided needs an even image size, two buffers, "
                    "a stride of at least a row and even rows 0 <= begin <= end <= height "
                    "(%d x %d, stride %td, rows %d..%d)\n",
                    width, height, src_stride, row_begin, row_end);
        return;
    }
    PackedToNv12(YuyvKernelsInUse(), src, src_stride, dst, width, height, row_begin, row_end);
}

}  // namespace svc
