/* A host written in C: the interface header must compile as C89 and the
 * entry points must link by their plain names. Writes a minimal set of
 * configuration files (every mesh node unseen, so nothing is rendered) and
 * runs one frame; then a rig that renders, once through one packed frame
 * set and once through four separate padded camera buffers into a padded
 * two-plane output, which must give the same bytes. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "sv_interface.h"

enum { W = 16, H = 16 };

static const char kNode[] = "-1 -1 256 0\n";

static int write_file(const char* path, const char* head, int nodes) {
    FILE* f = fopen(path, "w");
    int i, t;
    if (!f) return 0;
    fputs(head, f);
    for (t = 0; t < 2; ++t) {
        fputs(t == 0 ? "TB1:\n{\n" : "}\nTB2:\n{\n", f);
        for (i = 0; i < nodes; ++i) fputs(kNode, f);
    }
    fputs("}\n", f);
    return fclose(f) == 0;
}

static int fail(const char* what) {
    printf("c_host: %s\n", what);
    return 1;
}

/* Both tables see every node: TB1 camera 0 above camera 1, TB2 camera 2
 * left of camera 3, each node a little further into its camera than the
 * last, so every camera row is sampled somewhere. */
static int write_seen_table(const char* path, const char* head) {
    FILE* f = fopen(path, "w");
    int t, r, c;
    if (!f) return 0;
    fputs(head, f);
    for (t = 0; t < 2; ++t) {
        fputs(t == 0 ? "TB1:\n{\n" : "}\nTB2:\n{\n", f);
        for (r = 0; r < 3; ++r)
            for (c = 0; c < 3; ++c)
                fprintf(f, "%d %d 128 %d\n", 96 * c + 8 + 16 * t, 96 * r + 8,
                        t == 0 ? (r == 2) : 2 + (c == 2));
    }
    fputs("}\n", f);
    return fclose(f) == 0;
}

enum { FRAMES = 3, PAD_IN = 6, PAD_Y = 4, PAD_UV = 2 };

/* FRAMES frames through sv_convert_frames from four padded buffers into a
 * padded output, each compared with the packed run's output in ref. */
static int strided_frames_match(const unsigned char* input, const unsigned char* ref) {
    enum { CS = 2 * W + PAD_IN, YS = W + PAD_Y, UVS = W + PAD_UV };
    static unsigned char cams[4][CS * H];
    static unsigned char y[YS * H], uv[UVS * H / 2];
    const unsigned char* cam[4];
    int stride[4];
    int frame, k, r;
    for (k = 0; k < 4; ++k) {
        memset(cams[k], 0xA5, sizeof cams[k]);
        for (r = 0; r < H; ++r) memcpy(cams[k] + r * CS, input + (k * H + r) * 2 * W, 2 * W);
        cam[k] = cams[k];
        stride[k] = CS;
    }
    memset(y, 0x5A, sizeof y);
    memset(uv, 0x5A, sizeof uv);
    for (r = 0; r < H; ++r) memset(y + r * YS, 7, W);
    for (r = 0; r < H / 2; ++r) memset(uv + r * UVS, 7, W);
    for (frame = 0; frame < FRAMES; ++frame) {
        if (sv_convert_frames(cam, stride, y, YS, uv, UVS) != 0) return 0;
        for (r = 0; r < H; ++r)
            if (memcmp(y + r * YS, ref + (frame * 3 * H / 2 + r) * W, W) != 0 || y[r * YS + W] != 0x5A)
                return 0;
        for (r = 0; r < H / 2; ++r)
            if (memcmp(uv + r * UVS, ref + (frame * 3 * H / 2 + H + r) * W, W) != 0 ||
                uv[r * UVS + W] != 0x5A)
                return 0;
    }
    return 1;
}

int main(void) {
    static const char kTable[] =
        "OutImgWidth: 16\nOutImgHeight: 16\nTableWidth: 3\nTableHeight: 3\n"
        "IntervalX: 3\nIntervalY: 3\nDispCoorX: 0\nDispCoorY: 0\n"
        "ROIStartX: 0\nROIStartY: 0\nROIEndX: 15\nROIEndY: 15\n"
        "ZoomFactorX: 64\nZoomFactorY: 64\nL1: 100\nL2: 101\nH1: 100\nH2: 101\n";
    static const char kSettings[] =
        "StatFreq=1\nStatL=8\nStatH=248\nThresRatio=14\nThresL=16\n"
        "ThresH=128\nDSIntvl=4\nnDataL=4\nbeta=0.1\ntcRatio=4\ntcH=16\n"
        "gMgn=0.05\nSpd=1\n";
    unsigned char* input = calloc(8 * W * H, 1);
    unsigned char* output = malloc(W * H * 3 / 2);
    FILE* f;
    int i;

    if (!input || !output) return fail("out of memory");
    memset(output, 7, W * H * 3 / 2);
    if (!write_file("host_ctrl.txt", kTable, 9) || !write_file("host_stat.txt", kTable, 9))
        return fail("cannot write the table files");
    f = fopen("host_setting.txt", "w");
    if (!f || fputs(kSettings, f) < 0 || fclose(f) != 0) return fail("cannot write the setting file");

    if (sv_init("host_missing.txt", "host_stat.txt", "host_setting.txt", W, H, W, H) != -1)
        return fail("sv_init accepted a missing control file");
    if (sv_deinit() != 0) return fail("sv_deinit after a failed sv_init");

    if (sv_init("host_ctrl.txt", "host_stat.txt", "host_setting.txt", W, H, W, H) != 0)
        return fail("sv_init rejected valid files");
    if (sv_convert_image(input, 8 * W * H, output, W * H * 3 / 2) != 0)
        return fail("sv_convert_image did not return 0");
    for (i = 0; i < W * H * 3 / 2; ++i)
        if (output[i] != 7) return fail("an unseen pixel was written");
    if (sv_deinit() != 0) return fail("sv_deinit did not return 0");

    {
        static unsigned char ref[FRAMES * W * H * 3 / 2];
        int gains[12], curves[36], frame;
        unsigned seed = 1;
        for (i = 0; i < 8 * W * H; ++i) {
            seed = seed * 1103515245u + 12345u;
            input[i] = (unsigned char)(seed >> 16);
        }
        if (!write_seen_table("host_seen.txt", kTable)) return fail("cannot write the rendering table");
        sv_get_corrections(gains, curves);
        if (sv_init("host_seen.txt", "host_seen.txt", "host_setting.txt", W, H, W, H) != 0)
            return fail("sv_init rejected the rendering table");
        memset(output, 7, W * H * 3 / 2);
        for (frame = 0; frame < FRAMES; ++frame) {
            sv_convert_image(input, 0, output, 0);
            memcpy(ref + frame * W * H * 3 / 2, output, W * H * 3 / 2);
        }
        for (i = 0; i < W * H * 3 / 2 && output[i] == 7; ++i) {}
        if (i == W * H * 3 / 2) return fail("the rendering table rendered nothing");
        /* the same start: corrections as before the packed run */
        sv_set_corrections(gains, curves);
        if (sv_init("host_seen.txt", "host_seen.txt", "host_setting.txt", W, H, W, H) != 0)
            return fail("sv_init rejected the rendering table");
        if (!strided_frames_match(input, ref))
            return fail("sv_convert_frames differs from sv_convert_image");
        sv_deinit();
    }

    free(input);
    free(output);
    puts("c_host: ok");
    return 0;
}
