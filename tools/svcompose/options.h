// Checks of numeric options. CLI11's own ranges let NaN through and print
// the type's limits (300 digits for a double) in their messages.
#ifndef SVCOMPOSE_OPTIONS_H
#define SVCOMPOSE_OPTIONS_H

#include <CLI/CLI.hpp>

// Any finite number.
CLI::Validator finite();
// A finite number >= low, or > low when strict.
CLI::Validator bound(double low, bool strict);
CLI::Validator at_least(double low);
// A finite number from low to high, both included.
CLI::Validator between(double low, double high);

#endif
