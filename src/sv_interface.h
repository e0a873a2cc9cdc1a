/* svcompose: the host interface.

   A host calls sv_init once with the three configuration files and the
   camera and output sizes, then sv_convert_image once per frame set (four
   packed YUYV frames back to back), and sv_deinit at the end. Everything
   before the C++ section has C linkage and compiles as C89, so a plain C
   host can include this header.

   Colour: the arithmetic is full-range BT.601 (Y and chroma 0..255, chroma
   centred on 128). Convert limited-range (16..235) frames to full range
   first, and tag the NV12 output as full range. */
#ifndef SV_INTERFACE_H
#define SV_INTERFACE_H

#include "sv_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Returns 0 on success, -1 when a configuration file cannot be read, lacks
   a required entry or holds a value the frame cycle cannot run with. */
SV_EXPORT int sv_init(const char* ctrlPath, const char* statPath,
                      const char* settingPath, int widthIn, int heightIn,
                      int outW, int outH);

/* input: 8 * WidthIn * HeightIn bytes (cameras 0..3, YUYV).
   output: OutW * OutH * 3 / 2 bytes of NV12; pixels no camera covers are
   left as the caller had them. The two integers are accepted and unused.
   Always returns 0. */
SV_EXPORT int sv_convert_image(unsigned char* input, int inputSize,
                               unsigned char* output, int outputSize);

/* The same frame cycle, byte for byte, for a host whose cameras deliver
   four separate buffers (V4L2, GStreamer) and whose display wants its own
   row pitch: no copy into one frame set. cam[k] is camera k's YUYV frame,
   WidthIn x HeightIn, its rows cam_stride[k] bytes apart (at least
   2 * WidthIn). The output is NV12 in two planes: OutH luma rows of OutW
   bytes at out_y, out_y_stride apart, and OutH / 2 rows of OutW bytes of
   U, V pairs at out_uv, out_uv_stride apart (both at least OutW). Pixels no
   camera covers and the bytes past each row are left as the caller had
   them. Returns 0, or -1 with a message and nothing done on a null pointer,
   a stride shorter than its row, or a call without a successful sv_init. */
SV_EXPORT int sv_convert_frames(const unsigned char* const cam[4], const int cam_stride[4],
                                unsigned char* out_y, int out_y_stride,
                                unsigned char* out_uv, int out_uv_stride);

/* Releases what sv_init allocated. Always returns 0. */
SV_EXPORT int sv_deinit(void);

/* Threads for the frame cycle's conversion and composition: 1 (the default)
   runs everything on the caller's thread, n > 1 splits the work over n
   threads, 0 takes one per available core. The output is the same, byte for
   byte, for every n. Returns the number of threads now in use, or -1 (and
   changes nothing) for a negative n. Call it between frames, not during one. */
SV_EXPORT int sv_set_threads(int n);

/* The corrections in use: gains in Q10 (1024 = 1.0), index camera * 3 +
   channel (R, G, B); tone-curve levels at inputs 64/128/192, index
   camera * 9 + channel * 3 + k. A host saves them at shutdown and restores
   them after sv_init, so the picture resumes where it was instead of starting
   uncorrected. sv_get_corrections returns 0, or -1 on a null pointer. */
SV_EXPORT int sv_get_corrections(int gain[12], int tcurve[36]);

/* Makes the given values both the corrections in use and the calibration's
   current target (the next calibration moves on from them). Returns 0, or -1
   and changes nothing on a null pointer, a gain outside 1..65535 or a
   tone-curve level outside 0..255. */
SV_EXPORT int sv_set_corrections(const int gain[12], const int tcurve[36]);

/* Where the library's messages go: every line it reports (the "error! ..."
   lines, the BMP reports) is handed to fn, without its line feed, with the
   user pointer given here. The default prints each line and a line feed on
   stdout; sv_set_log(NULL, NULL) silences the library and
   sv_set_log(sv_log_stdout, NULL) restores the default. Calls to fn never
   overlap; fn must not call back into the library. */
SV_EXPORT void sv_set_log(void (*fn)(const char* line, void* user), void* user);

/* The default sink: the line and a line feed on stdout. */
SV_EXPORT void sv_log_stdout(const char* line, void* user);

#ifdef __cplusplus
}  /* extern "C" */

#include <cstdio>

#include "sv_types.h"

/* Sizes, frame counter and image set. */
SV_EXPORT extern int WidthIn;
SV_EXPORT extern int HeightIn;
SV_EXPORT extern int OutW;
SV_EXPORT extern int OutH;
SV_EXPORT extern int STATW;
SV_EXPORT extern int STATH;
SV_EXPORT extern int g_iter;
SV_EXPORT extern unsigned char* YUVarray[4];

/* Corrections: gains in Q10 (1024 = 1.0), index camera * 3 + channel;
   tone-curve levels at inputs 64/128/192, index camera * 9 + channel * 3 + k. */
SV_EXPORT extern int gain[12];
SV_EXPORT extern int tcurve[36];
SV_EXPORT extern int gain_cur[12];
SV_EXPORT extern int tcurve_cur[36];

SV_EXPORT extern tag_CtrlPara Parameter;
SV_EXPORT extern tag_StatPara ParaStat;

/* The thirteen settings of the setting file. */
SV_EXPORT extern int g_hfreq;
SV_EXPORT extern unsigned char g_VL;
SV_EXPORT extern unsigned char g_VH;
SV_EXPORT extern int g_rto;
SV_EXPORT extern int g_TolL;
SV_EXPORT extern int g_TolH;
SV_EXPORT extern int g_DS;
SV_EXPORT extern int g_nData;
SV_EXPORT extern float g_beta;
SV_EXPORT extern int g_bdr;
SV_EXPORT extern int g_bdh;
SV_EXPORT extern float g_mgn;
SV_EXPORT extern int g_S;
/* Which fit the calibration runs: 0 (the default) the gain and tone-curve
   fit of CalibGT, 1 the enhanced fit of CalibEnhanced. Set by the optional
   setting key "FitMode=". */
SV_EXPORT extern int g_fitMode;

/* Configuration readers. Each reports through the log (see sv_set_log) and returns
   true when the file was opened and every tag was found. */
SV_EXPORT bool ReadInTable(char* path, tag_CtrlPara* record);
SV_EXPORT bool ReadInTable(char* path, tag_StatPara* record);
SV_EXPORT bool ReadInSetting(char* path, int& StatFreq, unsigned char& StatL,
                             unsigned char& StatH, int& ThresRatio,
                             int& ThresL, int& ThresH, int& DSIntvl,
                             int& nDataL, float& beta, int& tcRatio, int& tcH,
                             float& gMgn, int& Spd);
/* The same, and the optional "FitMode=" into FitMode: 0 when the key is
   absent; a value other than 0 or 1 is reported and fails the file. */
SV_EXPORT bool ReadInSetting(char* path, int& StatFreq, unsigned char& StatL,
                             unsigned char& StatH, int& ThresRatio,
                             int& ThresL, int& ThresH, int& DSIntvl,
                             int& nDataL, float& beta, int& tcRatio, int& tcH,
                             float& gMgn, int& Spd, int& FitMode);

/* Opens like fopen and stores the stream (or null) in *stream; always
   returns 0, so callers test the stream. */
SV_EXPORT int fopen_s(FILE** stream, const char* path, const char* mode);

#endif  /* __cplusplus */

#endif
