#include "rig/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

namespace rig {

Progress::Progress(const char* label, long total)
    : label_(label), total_(total), enabled_(isatty(STDERR_FILENO) && total != 0 && total != 1) {}

Progress::~Progress() { finish(); }

void Progress::update(long done) {
    if (!enabled_) return;
    constexpr int kWidth = 40;
    if (total_ > 0) {
        // Redraw only when the bar visibly moves.
        const int permille = int(std::min(done, total_) * 1000 / total_);
        if (permille == last_permille_) return;
        last_permille_ = permille;
        const int filled = permille * kWidth / 1000;
        std::fprintf(stderr, "\r%s [%.*s%*s] %ld/%ld", label_, filled,
                     "========================================",
                     kWidth - filled, "", done, total_);
    } else {
        if (done == last_done_) return;
        last_done_ = done;
        std::fprintf(stderr, "\r%s %ld frames", label_, done);
    }
    std::fflush(stderr);
    drawn_ = true;
}

void Progress::finish() {
    if (!drawn_) return;
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    drawn_ = false;
}

FrameTimes summarize_times(std::vector<double> ms) {
    FrameTimes t;
    t.frames = long(ms.size());
    if (ms.empty()) return t;
    std::sort(ms.begin(), ms.end());
    auto rank = [&](double p) {
        const size_t r = size_t(std::ceil(p * double(ms.size())));
        return ms[std::min(ms.size(), std::max<size_t>(r, 1)) - 1];
    };
    t.median_ms = rank(0.5);
    t.p95_ms = rank(0.95);
    const double total = std::accumulate(ms.begin(), ms.end(), 0.0);
    t.fps = total > 0 ? 1000.0 * double(ms.size()) / total : 0;
    return t;
}

std::string format_times(const FrameTimes& t) {
    char line[160];
    std::snprintf(line, sizeof line,
                  "%ld frame%s, time per frame: median %.2f ms, 95th percentile %.2f ms "
                  "(%.1f fps)",
                  t.frames, t.frames == 1 ? "" : "s", t.median_ms, t.p95_ms, t.fps);
    return line;
}

}  // namespace rig
