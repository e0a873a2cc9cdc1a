// Feeds files to a fuzz target without libFuzzer, so that every build
// replays the seeds and the regression inputs. Arguments: files or
// folders (their files, in name order).
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        std::error_code ec;
        if (fs::is_directory(argv[i], ec)) {
            for (const auto& e : fs::recursive_directory_iterator(argv[i]))
                if (e.is_regular_file() && e.path().filename().string()[0] != '.')
                    files.push_back(e.path());
        } else if (fs::is_regular_file(argv[i], ec)) {
            files.push_back(argv[i]);
        } else {
            std::fprintf(stderr, "replay: %s: no such file or folder\n", argv[i]);
            return 2;
        }
    }
    std::sort(files.begin(), files.end());
    for (const auto& f : files) {
        std::ifstream in(f, std::ios::binary);
        const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
        std::fprintf(stderr, "replay: %s\n", f.c_str());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::fprintf(stderr, "replay: %zu inputs, no crash\n", files.size());
    return files.empty() ? 1 : 0;
}
