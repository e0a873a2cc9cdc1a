// bmp_read over a fuzzed file.
#include "bmp_io.h"
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = fuzz::put("image.bmp", std::string(reinterpret_cast<const char*>(data), size));
    int width = 0, height = 0;
    int *r = nullptr, *g = nullptr, *b = nullptr;
    if (bmp_read(const_cast<char*>(path.c_str()), &width, &height, &r, &g, &b) == 0 &&
        width > 0 && height > 0) {
        // Touch the last pixel of each plane: the sizes must be true.
        const size_t last = size_t(width) * size_t(height) - 1;
        volatile int sum = r[0] + g[0] + b[0] + r[last] + g[last] + b[last];
        (void)sum;
    }
    delete[] r;
    delete[] g;
    delete[] b;
    return 0;
}
