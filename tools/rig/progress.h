// Progress bar and frame-time summary for multi-frame runs.
#ifndef SVRIG_PROGRESS_H
#define SVRIG_PROGRESS_H

#include <string>
#include <vector>

namespace rig {

// A one-line bar on stderr, redrawn in place; silent when stderr is not a
// terminal or there is at most one frame (total < 0: count unknown).
class Progress {
public:
    Progress(const char* label, long total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void update(long done);
    // Clears the bar so that later output starts on a clean line.
    void finish();

private:
    const char* label_;
    long total_;
    bool enabled_;
    bool drawn_ = false;
    int last_permille_ = -1;
    long last_done_ = -1;
};

struct FrameTimes {
    long frames = 0;
    double median_ms = 0;
    double p95_ms = 0;
    double fps = 0;  // frames over the summed frame times
};

// Nearest-rank percentiles of the per-frame times.
FrameTimes summarize_times(std::vector<double> ms);

// "N frames, time per frame: median X ms, 95th percentile Y ms (Z fps)"
std::string format_times(const FrameTimes& t);

}  // namespace rig

#endif
