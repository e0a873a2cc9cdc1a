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

// A whole number (decimal, optional minus sign) from low to high, both
// included. Give the option's type range at most: a value CLI11 would
// have to wrap or clamp must fail here instead.
CLI::Validator whole(long long low, long long high);

#endif
