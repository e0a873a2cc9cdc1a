// The three stages of a frame, each at every instruction-set level the CPU
// runs, on the bench rig: four 1280 x 720 cameras into a 1280 x 800 output.
// Needs nothing but the library, so it also runs on ARM boards and under
// qemu-user (where the times are emulated and say nothing about hardware).
//
//   bench_stages [repetitions]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "bench_rig.h"
#include "img_fmt_trans.h"
#include "pipe/calib_GT.h"
#include "pipe/data_processing.h"
#include "simd/isa.h"

namespace {

double ThreadMs() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec * 1e-6;
}

struct Stage {
    const char* name;
    std::vector<double> ms[5];  // per level
};

}  // namespace

int main(int argc, char** argv) {
    const int reps = argc > 1 ? std::max(1, std::atoi(argv[1])) : 20;
    svtest::BenchRig rig;
    svtest::StatRig st;
    unsigned char* imgs[4] = {rig.cams[0].data(), rig.cams[1].data(), rig.cams[2].data(),
                              rig.cams[3].data()};
    // Packed frames to convert, made from the rig's own images.
    const int frame = 2 * svtest::kInW * svtest::kInH;
    std::vector<unsigned char> yuyv(4 * static_cast<size_t>(frame));
    std::vector<unsigned char> nv12(static_cast<size_t>(svtest::kInW) * svtest::kInH * 3 / 2);
    for (int k = 0; k < 4; ++k)
        YUYV_I420(reinterpret_cast<char*>(imgs[k]), reinterpret_cast<char*>(yuyv.data() + k * frame),
                  svtest::kInW, svtest::kInH, 1, 3);
    int gain[12] = {}, tcurve[36] = {};

    std::vector<int> levels;
    for (int isa = svc::kIsaScalar; isa <= svc::kIsaNeon; ++isa)
        if (svc::SetIsa(isa) == isa) levels.push_back(isa);

    Stage stages[3] = {{"YUYV_I420 x4", {}}, {"CalibGT", {}}, {"DataProcessing", {}}};
    // Interleaved: every stage at every level once per repetition, the
    // first repetition not counted.
    for (int r = -1; r < reps; ++r)
        for (int isa : levels) {
            svc::SetIsa(isa);
            double t = ThreadMs();
            for (int k = 0; k < 4; ++k)
                YUYV_I420(reinterpret_cast<char*>(yuyv.data() + k * frame), reinterpret_cast<char*>(nv12.data()),
                          svtest::kInW, svtest::kInH, 3, 1);
            const double convert = ThreadMs() - t;
            t = ThreadMs();
            CalibGT(imgs, svtest::kInW, svtest::kInH, st.stat, gain, tcurve, 8, 248, 14, 16, 128, 4, 4, 0.1f,
                    4, 16, 0.05f);
            const double calib = ThreadMs() - t;
            t = ThreadMs();
            rig.Render();
            const double render = ThreadMs() - t;
            if (r < 0) continue;
            stages[0].ms[isa].push_back(convert);
            stages[1].ms[isa].push_back(calib);
            stages[2].ms[isa].push_back(render);
        }
    svc::SetIsa(svc::CpuIsa());

    std::printf("median thread CPU ms per frame, %d repetitions, bench rig (1280x720 cameras, 1280x800 out)\n",
                reps);
    std::printf("%-16s", "stage");
    for (int isa : levels) std::printf("%10s", svc::IsaName(isa));
    std::printf("\n");
    for (Stage& s : stages) {
        std::printf("%-16s", s.name);
        for (int isa : levels) {
            std::vector<double>& v = s.ms[isa];
            std::sort(v.begin(), v.end());
            std::printf("%10.3f", v[v.size() / 2]);
        }
        std::printf("\n");
    }
    return 0;
}
