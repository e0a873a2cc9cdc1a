#include "log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

#include "sv_interface.h"

namespace {

// One lock for the sink and its calls: a host's sink sees one line at a
// time even when helper threads report.
std::mutex s_lock;
void (*s_sink)(const char*, void*) = sv_log_stdout;
void* s_user = nullptr;

}  // namespace

extern "C" void sv_log_stdout(const char* line, void*) {
    if (!line) return;
    std::fputs(line, stdout);
    std::fputc('\n', stdout);
}

extern "C" void sv_set_log(void (*fn)(const char* line, void* user), void* user) {
    std::lock_guard<std::mutex> hold(s_lock);
    s_sink = fn;
    s_user = user;
}

namespace svc {

void Log(const char* fmt, ...) {
    char small[256];
    std::vector<char> large;
    char* text = small;
    va_list args;
    va_start(args, fmt);
    va_list again;
    va_copy(again, args);
    const int n = std::vsnprintf(small, sizeof small, fmt, args);
    va_end(args);
    if (n >= static_cast<int>(sizeof small)) {
        large.resize(static_cast<size_t>(n) + 1);
        std::vsnprintf(large.data(), large.size(), fmt, again);
        text = large.data();
    }
    va_end(again);
    if (n < 0) return;

    std::lock_guard<std::mutex> hold(s_lock);
    if (!s_sink) return;
    // Cut in place at each line feed; a tail without one is a line too.
    for (char* line = text; *line;) {
        char* end = std::strchr(line, '\n');
        if (end) *end = '\0';
        s_sink(line, s_user);
        if (!end) break;
        line = end + 1;
    }
}

}  // namespace svc
