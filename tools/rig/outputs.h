// What a command writes: every file goes to a temporary name in its own
// folder and is renamed when complete, and everything the command made
// (files and folders) is remembered so that a failure can take it back.
// A reader never sees half a file, and a failed command leaves nothing.
#ifndef SVRIG_OUTPUTS_H
#define SVRIG_OUTPUTS_H

#include <cstdio>
#include <string>

namespace rig {

// Creates dir and any missing parents, remembering each one it made;
// false with a reason in err when dir is not a folder afterwards.
bool make_folders(const std::string& dir, std::string& err);

// One output file under construction. Written to a fresh temporary name in
// the target's folder; commit() renames it into place.
class OutputFile {
public:
    OutputFile() = default;
    ~OutputFile();  // an uncommitted file is removed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    bool open(const std::string& path, std::string& err);
    bool write(const void* data, size_t bytes, std::string& err);
    // fseeko for writers that go back to fill in a header (video
    // containers); the new position, or -1 with the reason in err.
    long long seek(long long offset, int whence, std::string& err);
    // Flushes, closes and renames; false (temporary removed) when any
    // write failed.
    bool commit(std::string& err);
    // Removes the temporary; nothing happens to the target.
    void abort();

private:
    FILE* file_ = nullptr;
    std::string path_, temp_;
    void* temp_entry_ = nullptr;  // its line in the registry of outputs
};

// Writes a whole file through OutputFile; false with a reason in err.
bool write_file(const std::string& path, const void* data, size_t bytes, std::string& err);

// After a failure: removes every file committed and every folder made since
// the last keep_outputs(), newest first (folders only when empty), and any
// temporary still open. Also what happens on SIGINT, SIGTERM, SIGHUP once
// remove_outputs_on_signals() ran.
void remove_outputs();
// After success: forgets them, so that nothing removes them later.
void keep_outputs();
// Installs the signal handlers, and makes a file-size limit a failed write
// (EFBIG) instead of a kill by SIGXFSZ.
void remove_outputs_on_signals();

}  // namespace rig

#endif
