#include "bmp_io.h"

#include "log.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <new>

int byte_swap = 1;

namespace {

const int kDataOffset = 54;
const int kInfoSize = 40;

// The header after the "BM" signature: field sizes in file order, and the
// positions of the fields that carry something.
const int kFieldBytes[15] = {4, 2, 2, 4, 4, 4, 4, 2, 2, 4, 4, 4, 4, 4, 4};
enum { kFileSize = 0, kOffset = 3, kInfo = 4, kWidth = 5, kHeight = 6,
       kPlanes = 7, kBits = 8 };

const char* const kReadFailed = "BMP_READ: Fatal error!";
const char* const kWriteFailed = "BMP_WRITE: Fatal error!";
const char* const kTestFailed = "BMP_WRITE_TEST: Fatal error!";

// An empty line, a heading and an indented detail: every fatal report.
int Fatal(const char* heading, const char* detail) {
    svc::Log("\n%s\n%s\n", heading, detail);
    return 1;
}

int CloseAndFail(FILE* stream, const char* heading, const char* detail) {
    fclose(stream);
    return Fatal(heading, detail);
}

// Padding bytes per row, (3 * width) % 4 in both directions so that the
// reader and the writer agree (not the common four-byte alignment).
int Padding(int width) { return static_cast<int>((3LL * width) % 4); }

// Only called once the file has shown it holds the pixels (see DataOutcome),
// so width * height is bounded by its length. A header with a side of 0 or
// less reads no pixel; its planes still get the one element that the
// reader's end-of-file test looks at.
int* NewPlane(int width, int height) {
    const size_t count = width > 0 && height > 0
                             ? static_cast<size_t>(width) * static_cast<size_t>(height) * 4
                             : 4;
    return new (std::nothrow) int[count];
}

void ReleasePlanes(int** red, int** green, int** blue) {
    for (int** plane : {red, green, blue}) {
        if (plane) {
            delete[] *plane;
            *plane = nullptr;
        }
    }
}

// Room for width * height * 4 ints per plane, deliberately generous.
// All three or none.
bool NewPlanes(int width, int height, int** red, int** green, int** blue) {
    *red = NewPlane(width, height);
    *green = *red ? NewPlane(width, height) : nullptr;
    *blue = *green ? NewPlane(width, height) : nullptr;
    if (*blue) return true;
    ReleasePlanes(red, green, blue);
    return false;
}

enum class Outcome { kComplete, kLastRedMissing, kFails };

// What bmp_read_data makes of a stream holding `available` more bytes,
// worked out without reading: every missing blue or green byte fails it,
// a missing red byte only when it is red[0]'s, and after a missing red the
// next pixel's blue is missing too. So a short stream passes only when it
// ends just before the last pixel's red byte and that pixel is not the
// top-left one.
// Bytes up to the last pixel's red byte (the last row's padding may be
// absent); LLONG_MAX stands for more than any file holds.
long long NeededBytes(int width, int height) {
    if (width <= 0 || height <= 0) return 0;
    const long long rowBytes = 3LL * width + Padding(width);
    if (height - 1 > (LLONG_MAX - 3LL * width) / rowBytes) return LLONG_MAX;
    return (height - 1) * rowBytes + 3LL * width;
}

Outcome DataOutcome(int width, int height, long long available) {
    const long long needed = NeededBytes(width, height);
    if (available >= needed) return Outcome::kComplete;
    if (available == needed - 1 && width > 1) return Outcome::kLastRedMissing;
    return Outcome::kFails;
}

// Bytes left after the current position, or -1 for a stream that cannot
// seek (a pipe): those are spooled to a temporary file first.
long long BytesLeft(FILE* in) {
    const long at = ftell(in);
    if (at < 0 || fseek(in, 0, SEEK_END) != 0) return -1;
    const long end = ftell(in);
    if (end < 0 || fseek(in, at, SEEK_SET) != 0) return -1;
    return end > at ? end - at : 0;
}

// Copies at most `limit` bytes of a stream that cannot seek into a
// temporary file positioned at its start; the copy's size is what arrived.
FILE* Spool(FILE* in, long long limit) {
    FILE* copy = tmpfile();
    if (!copy) return nullptr;
    char buffer[1 << 16];
    while (limit > 0) {
        const size_t want = limit < static_cast<long long>(sizeof buffer)
                                ? static_cast<size_t>(limit) : sizeof buffer;
        const size_t got = fread(buffer, 1, want, in);
        if (got == 0 || fwrite(buffer, 1, got, copy) != got) break;
        limit -= static_cast<long long>(got);
    }
    rewind(copy);
    return copy;
}

int DataByteFailed() {
    // The byte count was never advanced in this message: it always says 0.
    svc::Log("BMP_READ_DATA: Failed reading data byte %d.\n", 0);
    return 1;
}

}  // namespace

int read_u_short_int(unsigned short int* value, FILE* in) {
    if (!value || !in) return 1;
    const int first = fgetc(in);
    if (first == EOF) return 1;
    const int second = fgetc(in);
    if (second == EOF) return 1;
    *value = static_cast<unsigned short>(byte_swap == 1 ? first | second << 8
                                                        : first << 8 | second);
    return 0;
}

int read_u_long_int(std::uint64_t* value, FILE* in) {
    unsigned short first = 0, second = 0;
    if (!value || read_u_short_int(&first, in) || read_u_short_int(&second, in))
        return 1;
    const uint32_t bits = byte_swap == 1 ? uint32_t(second) << 16 | first
                                         : uint32_t(first) << 16 | second;
    // Sign-extended: a field of 0xFFFFFFFF reads as -1 through an int.
    *value = static_cast<std::uint64_t>(
        static_cast<std::int64_t>(static_cast<std::int32_t>(bits)));
    return 0;
}

int write_u_short_int(unsigned short int value, FILE* out) {
    if (!out) return 0;
    const int low = value & 0xFF, high = value >> 8;
    fputc(byte_swap == 1 ? low : high, out);
    fputc(byte_swap == 1 ? high : low, out);
    return 2;
}

int write_u_long_int(std::uint64_t value, FILE* out) {
    if (!out) return 0;
    const unsigned short low = value & 0xFFFF, high = (value >> 16) & 0xFFFF;
    write_u_short_int(byte_swap == 1 ? low : high, out);
    write_u_short_int(byte_swap == 1 ? high : low, out);
    return 4;
}

int bmp_read_header(FILE* in, int* width, int* height, int* offset) {
    if (!in || !width || !height || !offset) return 1;
    if (fgetc(in) != 'B' || fgetc(in) != 'M') return 1;
    std::uint64_t field[15];
    for (int i = 0; i < 15; ++i) {
        unsigned short half = 0;
        if (kFieldBytes[i] == 4 ? read_u_long_int(&field[i], in)
                                : read_u_short_int(&half, in))
            return 1;
        if (kFieldBytes[i] == 2) field[i] = half;
    }
    *width = static_cast<int>(field[kWidth]);
    *height = static_cast<int>(field[kHeight]);
    *offset = static_cast<int>(field[kOffset]);
    return 0;
}

int bmp_read_data(FILE* in, int width, int height, int* red, int* green,
                  int* blue) {
    if (!in || !red || !green || !blue) return 1;
    // Rows of no pixels read nothing, not even padding ((3 * width) % 4 is
    // not positive then): skip them all rather than count through up to
    // 2^31 of them.
    if (width <= 0) return 0;
    const int padding = Padding(width);
    for (int k = 0; k < height; ++k) {
        const long long row = static_cast<long long>(height - 1 - k) * width;
        for (long long i = row; i < row + width; ++i) {
            blue[i] = fgetc(in);
            if (blue[i] == EOF) return DataByteFailed();
            green[i] = fgetc(in);
            if (green[i] == EOF) return DataByteFailed();
            red[i] = fgetc(in);
            // Only red[0] is tested: a file ending at any other red byte
            // reads on, and fails at the next pixel's blue if there is one.
            if (red[0] == EOF) return DataByteFailed();
        }
        for (int p = 0; p < padding; ++p) fgetc(in);
    }
    return 0;
}

int bmp_read_palette(FILE* in, int count) {
    if (!in) return 1;
    for (int i = 0; i < count; ++i) {
        for (int k = 0; k < 4; ++k) {
            if (fgetc(in) == EOF) {
                svc::Log("BMP_READ_PALETTE: Failed reading palette entry %d.\n", i);
                return 1;
            }
        }
    }
    return 0;
}

int bmp_read(char* path, int* width, int* height, int** red, int** green,
             int** blue) {
    // Null on every failure, so the caller never holds a stale plane.
    for (int** plane : {red, green, blue})
        if (plane) *plane = nullptr;
    FILE* in = path ? fopen(path, "rb") : nullptr;
    if (!in)
        return Fatal("BMP_READ - Fatal error!", "  Could not open the input file.");
    int offset = 0;
    if (bmp_read_header(in, width, height, &offset) != 0)
        return CloseAndFail(in, kReadFailed, "  BMP_READ_HEADER failed.");
    // A negative offset fails to seek and leaves the stream after the header.
    fseek(in, offset, SEEK_SET);
    if (!red || !green || !blue)
        return CloseAndFail(in, kReadFailed, "  Could not allocate data storage.");
    // The planes are sized by the header; allocate them only once the file
    // has shown it holds the pixels, so a short file costs nothing.
    const long long needed = NeededBytes(*width, *height);
    long long left = BytesLeft(in);
    if (left < 0 && needed > 0) {
        FILE* copy = Spool(in, needed);
        fclose(in);
        in = copy;
        if (!in) return Fatal(kReadFailed, "  Could not allocate data storage.");
        left = BytesLeft(in);
    }
    if (DataOutcome(*width, *height, left < 0 ? 0 : left) == Outcome::kFails) {
        DataByteFailed();
        return CloseAndFail(in, kReadFailed, "  BMP_READ_DATA failed.");
    }
    if (!NewPlanes(*width, *height, red, green, blue))
        return CloseAndFail(in, kReadFailed, "  Could not allocate data storage.");
    (*red)[0] = 0;  // the data reader's end-of-file test looks at red[0]
    if (bmp_read_data(in, *width, *height, *red, *green, *blue) != 0) {
        ReleasePlanes(red, green, blue);
        return CloseAndFail(in, kReadFailed, "  BMP_READ_DATA failed.");
    }
    fclose(in);
    return 0;
}

int bmp_read_test(char* path) {
    int width = 0, height = 0;
    int *red = nullptr, *green = nullptr, *blue = nullptr;
    const int result = bmp_read(path, &width, &height, &red, &green, &blue);
    svc::Log("\nBMP_READ_TEST:\n");
    svc::Log("  XSIZE = %d.\n", width);
    svc::Log("  YSIZE = %d.\n", height);
    ReleasePlanes(&red, &green, &blue);
    return result == 0 ? 0 : Fatal("BMP_READ_TEST: Fatal error!", "  BMP_READ failed.");
}

int bmp_write_header(FILE* out, int width, int height) {
    if (!out) return 1;
    std::uint64_t field[15] = {};
    // Wraps like the 32-bit field it fills; row padding is not counted.
    field[kFileSize] = 3u * static_cast<std::uint64_t>(width) *
                       static_cast<std::uint64_t>(height) + kDataOffset;
    field[kOffset] = kDataOffset;
    field[kInfo] = kInfoSize;
    field[kWidth] = static_cast<std::uint64_t>(width);
    field[kHeight] = static_cast<std::uint64_t>(height);
    field[kPlanes] = 1;
    field[kBits] = 24;
    fputc('B', out);
    fputc('M', out);
    for (int i = 0; i < 15; ++i) {
        if (kFieldBytes[i] == 4)
            write_u_long_int(field[i], out);
        else
            write_u_short_int(static_cast<unsigned short>(field[i]), out);
    }
    return 0;
}

int bmp_write_data(FILE* out, int width, int height, int* red, int* green,
                   int* blue) {
    if (!out || !red || !green || !blue) return 1;
    const int padding = Padding(width);
    for (int k = 0; k < height; ++k) {
        const long long row = static_cast<long long>(height - 1 - k) * width;
        for (long long i = row; i < row + width; ++i) {
            fputc(blue[i], out);  // fputc keeps the low 8 bits
            fputc(green[i], out);
            fputc(red[i], out);
        }
        for (int p = 0; p < padding; ++p) fputc(0, out);
    }
    // A full disk shows only when the buffer goes out.
    return fflush(out) == 0 && !ferror(out) ? 0 : 1;
}

int bmp_write(char* path, int width, int height, int* red, int* green,
              int* blue) {
    FILE* out = path ? fopen(path, "wb") : nullptr;
    if (!out)
        return Fatal("BMP_WRITE - Fatal error!", "  Could not open the output file.");
    if (bmp_write_header(out, width, height) != 0)
        return CloseAndFail(out, kWriteFailed, "  BMP_WRITE_HEADER failed.");
    if (bmp_write_data(out, width, height, red, green, blue) != 0)
        return CloseAndFail(out, kWriteFailed, "  BMP_WRITE_DATA failed.");
    fclose(out);
    return 0;
}

int bmp_write_test(char* path) {
    const int width = 200, height = 200;
    int *red = nullptr, *green = nullptr, *blue = nullptr;
    if (!NewPlanes(width, height, &red, &green, &blue))
        return Fatal(kTestFailed, "  Unable to allocate memory for data.");
    for (int i = 0; i < height; ++i) {
        const int d = height - i;
        for (int j = 0; j < width; ++j) {
            const int k = i * width + j;
            const bool isRed = d >= j;
            // Below the anti-diagonal: blue where j >= i.
            const bool isBlue = !isRed && (width - 1) * d + (height - 1) * j >
                                              (width - 1) * (height - 1);
            red[k] = isRed ? 255 : 0;
            blue[k] = isBlue ? 255 : 0;
            green[k] = isRed || isBlue ? 0 : 255;
        }
    }
    const int result = bmp_write(path, width, height, red, green, blue);
    ReleasePlanes(&red, &green, &blue);
    return result == 0 ? 0 : Fatal(kTestFailed, "  BMP_WRITE failed.");
}
