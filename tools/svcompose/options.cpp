#include "options.h"

#include <cmath>
#include <cstdio>
#include <string>

namespace {

// text: the condition as help and messages show it, e.g. ">=1".
CLI::Validator number(double low, double high, bool strict, const std::string& text) {
    return CLI::Validator(
        [=](std::string& v) -> std::string {
            double x = 0;
            char tail = 0;
            if (std::sscanf(v.c_str(), "%lf%c", &x, &tail) != 1)
                return "expected a number, got '" + v + "'";
            if (!std::isfinite(x)) return "expected a finite number, got " + v;
            if ((strict ? x <= low : x < low) || x > high) return "must be " + text + ", got " + v;
            return "";
        },
        text);
}

}  // namespace

CLI::Validator finite() { return number(-HUGE_VAL, HUGE_VAL, false, "finite"); }

CLI::Validator bound(double low, bool strict) {
    return number(low, HUGE_VAL, strict, (strict ? ">" : ">=") + CLI::detail::to_string(low));
}

CLI::Validator at_least(double low) { return bound(low, false); }

CLI::Validator between(double low, double high) {
    return number(low, high, false,
                  CLI::detail::to_string(low) + " to " + CLI::detail::to_string(high));
}
