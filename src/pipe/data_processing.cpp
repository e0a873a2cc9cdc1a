#include "pipe/data_processing.h"

// Composition has not landed yet: renders nothing.
int DataProcessing(unsigned char**, int, int, unsigned char*, int, int,
                   tag_CtrlPara*, int*, int*, int, int) {
    return 1;
}
