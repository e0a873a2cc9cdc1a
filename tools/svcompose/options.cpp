#include "options.h"

#include <charconv>
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

CLI::Validator whole(long long low, long long high) {
    const std::string text = CLI::detail::to_string(low) + " to " + CLI::detail::to_string(high);
    return CLI::Validator(
        [=](std::string& v) -> std::string {
            long long x = 0;
            const char* end = v.data() + v.size();
            const auto r = std::from_chars(v.data(), end, x);
            if (r.ec == std::errc::result_out_of_range)
                return "must be a whole number from " + text + ", got " + v;
            if (r.ec != std::errc() || r.ptr != end || v.empty())
                return "expected a whole number, got '" + v + "'";
            if (x < low) return "must be >=" + CLI::detail::to_string(low) + ", got " + v;
            if (x > high) return "must be at most " + CLI::detail::to_string(high) + ", got " + v;
            return "";
        },
        text);
}

CLI::Validator finite() { return number(-HUGE_VAL, HUGE_VAL, false, "finite"); }

CLI::Validator bound(double low, bool strict) {
    return number(low, HUGE_VAL, strict, (strict ? ">" : ">=") + CLI::detail::to_string(low));
}

CLI::Validator at_least(double low) { return bound(low, false); }

CLI::Validator between(double low, double high) {
    return number(low, high, false,
                  CLI::detail::to_string(low) + " to " + CLI::detail::to_string(high));
}
