/* A host written in C: the interface header must compile as C and the
 * three entry points must link by their plain names. Writes a minimal set
 * of configuration files (every mesh node unseen, so nothing is rendered),
 * runs one frame and checks the results. */
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

    free(input);
    free(output);
    puts("c_host: ok");
    return 0;
}
