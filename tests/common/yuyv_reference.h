// The plain YUYV <-> 4:2:0 conversion, kept as the reference that the
// row kernels of every instruction set are held against byte for byte.
#ifndef SVTEST_YUYV_REFERENCE_H
#define SVTEST_YUYV_REFERENCE_H

namespace svtest {

// Same codes and pairs as YUYV_I420; sizes must be even and positive
// (no checks, no messages).
void YuyvReference(const unsigned char* src, unsigned char* dst, int width,
                   int height, int srcCode, int dstCode);

}  // namespace svtest

#endif
