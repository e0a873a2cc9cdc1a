// Uncompressed 24-bit BMP files as three planes of int (one value 0..255
// per pixel), for hosts and tools that dump or load images.
//
// Planes are row-major from the top-left pixel. bmp_read allocates each one
// with new int[width * height * 4] (four times the pixel count); the caller
// releases them with delete[]. Functions return 0 for success and 1 for
// failure and report on stdout, except where noted.
//
// Rows are padded with (3 * width) % 4 bytes, by the writer and the reader
// alike. That agrees with the common four-byte alignment only for widths
// whose remainder mod 4 is 0 or 2; files of other widths round-trip through
// this module but not through other decoders.
#ifndef BMP_IO_H
#define BMP_IO_H

#include <cstdint>
#include <cstdio>

#include "sv_export.h"

// Byte order of every 16- and 32-bit field: 1 (the default, as in BMP
// files) means least significant byte first, anything else most
// significant first. A 32-bit field is two 16-bit halves in the same order.
SV_EXPORT extern int byte_swap;

// Reads a whole file. On failure the file is closed and *red, *green,
// *blue are null (the planes it allocated are released). The planes are
// allocated only after the file's length shows how the data read will end,
// so a header declaring more pixels than the file holds costs no memory;
// the result and the messages are those of reading it byte by byte. A
// stream that cannot seek is first copied to a temporary file, at most the
// bytes the header declares.
SV_EXPORT int bmp_read(char* path, int* width, int* height, int** red,
                       int** green, int** blue);
// Reads the 54-byte header; *offset is where the pixel rows start. Width,
// height and offset are returned as the file gives them; only a short read
// or a wrong signature fails.
SV_EXPORT int bmp_read_header(FILE* in, int* width, int* height, int* offset);
// Reads height rows bottom-up (blue, green, red per pixel) into planes of
// at least width * height ints. A missing blue or green byte fails the
// read; after a red byte only red[0] is tested for EOF, so a stream ending
// at the last pixel's red byte (of a row wider than 1) reads, leaving -1
// there. Missing padding is not an error. red[0] must not hold -1 (EOF)
// beforehand: that fails the read.
SV_EXPORT int bmp_read_data(FILE* in, int width, int height, int* red,
                            int* green, int* blue);
// Skips count palette entries of 4 bytes.
SV_EXPORT int bmp_read_palette(FILE* in, int count);
// Reads a file and prints its size.
SV_EXPORT int bmp_read_test(char* path);

// Writes a whole file; each plane value is written as its low 8 bits.
SV_EXPORT int bmp_write(char* path, int width, int height, int* red,
                        int* green, int* blue);
// Returns 0 (1 only for a null stream).
SV_EXPORT int bmp_write_header(FILE* out, int width, int height);
// Returns 0 (1 only for a null stream or plane).
SV_EXPORT int bmp_write_data(FILE* out, int width, int height, int* red,
                             int* green, int* blue);
// Writes a 200 x 200 image: red where row + column <= 200, else blue where
// column >= row, else green.
SV_EXPORT int bmp_write_test(char* path);

// Field readers: 1 when the stream ends inside the field, else 0.
// The 32-bit field is sign-extended into 64 bits. std::uint64_t is
// unsigned long on 64-bit Linux, so the symbols there are unchanged; on
// 32-bit targets, where unsigned long has 32 bits, it stays 64 bits wide.
SV_EXPORT int read_u_long_int(std::uint64_t* value, FILE* in);
SV_EXPORT int read_u_short_int(unsigned short int* value, FILE* in);
// Field writers: return 4 and 2, the bytes written (0 for a null stream).
SV_EXPORT int write_u_long_int(std::uint64_t value, FILE* out);
SV_EXPORT int write_u_short_int(unsigned short int value, FILE* out);

#endif
