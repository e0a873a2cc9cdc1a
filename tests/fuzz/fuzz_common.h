// Shared by the fuzz targets: one input cut into the files the library
// reads, a scratch folder for them, and the library's globals back at
// their initial values, so that every input runs alone whatever ran before.
#ifndef SVCOMPOSE_FUZZ_COMMON_H
#define SVCOMPOSE_FUZZ_COMMON_H

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "sv_interface.h"

namespace fuzz {

// Parts of an input are separated by this line; a missing part is empty.
constexpr char kCut[] = "\n%%\n";

inline std::vector<std::string> split(const uint8_t* data, size_t size, size_t parts) {
    const std::string all(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> out;
    size_t at = 0;
    while (out.size() + 1 < parts) {
        const size_t cut = all.find(kCut, at);
        if (cut == std::string::npos) break;
        out.push_back(all.substr(at, cut - at));
        at = cut + sizeof kCut - 1;
    }
    out.push_back(at <= all.size() ? all.substr(at) : std::string());
    out.resize(parts);
    return out;
}

// A folder of this process, made once; the library's messages go to
// /dev/null (a fuzzer runs millions of inputs).
inline const std::string& scratch() {
    static const std::string dir = [] {
        const int null = open("/dev/null", O_WRONLY);
        if (null >= 0) {
            std::fflush(stdout);
            dup2(null, STDOUT_FILENO);
            close(null);
        }
        const char* tmp = std::getenv("TMPDIR");
        std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/svcompose-fuzz-XXXXXX";
        if (!mkdtemp(tmpl.data())) std::abort();
        return tmpl;
    }();
    static const bool cleanup = [] {
        std::atexit([] {
            std::error_code ec;
            std::filesystem::remove_all(dir, ec);
        });
        return true;
    }();
    (void)cleanup;
    return dir;
}

// Writes bytes to scratch()/name; returns the path.
inline std::string put(const char* name, const std::string& bytes) {
    const std::string path = scratch() + "/" + name;
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) std::abort();
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
    return path;
}

// Settings, corrections and the last fit as a fresh process has them: a
// value the setting file fails to parse keeps the previous one, and the
// corrections carry over from one sv_init to the next.
inline void reset_library() {
    g_hfreq = 1, g_VL = 8, g_VH = 248, g_rto = 14, g_TolL = 16, g_TolH = 128, g_DS = 4;
    g_nData = 4, g_beta = 0.1f, g_bdr = 4, g_bdh = 16, g_mgn = 0.05f, g_S = 1;
    for (int i = 0; i < 12; ++i) gain_cur[i] = 1024, gain[i] = 0;
    for (int i = 0; i < 36; ++i) tcurve_cur[i] = 64 * (i % 3 + 1), tcurve[i] = 0;
}

}  // namespace fuzz

#endif
