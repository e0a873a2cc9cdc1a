// The corrections in use (per-camera gains and tone curves) as a JSON file:
// written at the end of a run so another tool can score or inspect them,
// read back to start a run where an earlier one ended.
#ifndef SVCOMPOSE_CORRECTIONS_H
#define SVCOMPOSE_CORRECTIONS_H

#include <string>

struct Corrections {
    int gain[12];    // Q10, camera * 3 + channel (R, G, B)
    int tcurve[36];  // levels at 64, 128, 192: camera * 9 + channel * 3 + k
};

// Per camera (front, back, left, right) its "gain_q10", its "tcurve" levels
// and, in "lut_rgb", what the library's ToneMapping makes of every input
// level 0..255 in R, G and B.
std::string corrections_json(const Corrections& c);

// Reads "gain_q10" and "tcurve" of the four cameras; false with a reason in
// err (the file's name first) when the file is missing, not JSON, or lacks
// a value or holds one the library would refuse.
bool read_corrections(const std::string& path, Corrections& c, std::string& err);

#endif
