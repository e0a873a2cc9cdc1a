#include "rig/outputs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

namespace rig {

namespace {

// The registry is read by a signal handler, so it never moves what it
// holds: entries live in fixed blocks that are linked, never reallocated,
// and an entry is published by bumping the count after it is complete.
enum Kind : int { kGone = 0, kFile = 1, kFolder = 2 };

struct Entry {
    char* path;
    std::atomic<int> kind;
};

constexpr int kBlock = 1024;
struct Block {
    Entry entries[kBlock];
    Block* prev = nullptr;
    std::atomic<int> used{0};
};

std::atomic<Block*> g_last{nullptr};

Entry* remember(const std::string& path, Kind kind) {
    Block* b = g_last.load();
    if (!b || b->used.load() == kBlock) {
        Block* fresh = new Block;
        fresh->prev = b;
        g_last.store(fresh);
        b = fresh;
    }
    const int i = b->used.load();
    Entry& e = b->entries[i];
    e.path = strdup(path.c_str());
    e.kind.store(e.path ? kind : kGone);
    b->used.store(i + 1);
    return &e;
}

// Async-signal-safe: unlink and rmdir only, newest first so that a folder
// is empty by the time its turn comes.
void remove_all() {
    for (Block* b = g_last.load(); b; b = b->prev)
        for (int i = b->used.load() - 1; i >= 0; --i) {
            Entry& e = b->entries[i];
            const int kind = e.kind.exchange(kGone);
            if (kind == kFile) unlink(e.path);
            if (kind == kFolder) rmdir(e.path);
        }
}

void on_signal(int sig) {
    remove_all();
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}

// mkstemp makes files only their owner can read; outputs get what any
// other file of the user would.
mode_t file_mode() {
    static const mode_t mode = [] {
        const mode_t mask = umask(0);
        umask(mask);
        return mode_t(0666 & ~mask);
    }();
    return mode;
}

std::string reason() { return std::strerror(errno); }

}  // namespace

bool make_folders(const std::string& dir, std::string& err) {
    namespace fs = std::filesystem;
    std::error_code ec;
    // Parents first: collect the missing levels, then create them in order.
    std::vector<fs::path> missing;
    for (fs::path p = fs::path(dir).lexically_normal(); !p.empty() && !fs::exists(p, ec);
         p = p.parent_path()) {
        missing.push_back(p);
        if (p == p.parent_path()) break;
    }
    for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
        if (mkdir(it->c_str(), 0777) == 0)
            remember(it->string(), kFolder);
        else if (errno != EEXIST)
            break;
    }
    if (fs::is_directory(dir, ec)) return true;
    err = "cannot create the folder " + dir;
    return false;
}

OutputFile::~OutputFile() { abort(); }

bool OutputFile::open(const std::string& path, std::string& err) {
    abort();
    path_ = path;
    const std::filesystem::path p(path);
    const std::string folder = p.has_parent_path() ? p.parent_path().string() + "/" : "";
    temp_ = folder + "." + p.filename().string() + ".part-XXXXXX";
    const int fd = mkstemp(temp_.data());
    if (fd < 0) {
        err = "cannot write " + path + ": " + reason();
        temp_.clear();
        return false;
    }
    temp_entry_ = remember(temp_, kFile);
    fchmod(fd, file_mode());
    file_ = fdopen(fd, "wb");
    if (!file_) {
        err = "cannot write " + path + ": " + reason();
        close(fd);
        abort();
        return false;
    }
    return true;
}

bool OutputFile::write(const void* data, size_t bytes, std::string& err) {
    if (file_ && std::fwrite(data, 1, bytes, file_) == bytes) return true;
    err = "cannot write " + path_ + (file_ ? ": " + reason() : "");
    return false;
}

long long OutputFile::seek(long long offset, int whence, std::string& err) {
    if (file_ && fseeko(file_, off_t(offset), whence) == 0) {
        const off_t at = ftello(file_);
        if (at >= 0) return at;
    }
    err = "cannot write " + path_ + (file_ ? ": " + reason() : "");
    return -1;
}

bool OutputFile::commit(std::string& err) {
    if (!file_) {
        err = "cannot write " + path_;
        return false;
    }
    bool ok = std::fflush(file_) == 0 && !std::ferror(file_);
    std::string why = ok ? "" : reason();
    if (std::fclose(file_) != 0 && ok) {
        ok = false;
        why = reason();
    }
    file_ = nullptr;
    if (ok && std::rename(temp_.c_str(), path_.c_str()) != 0) {
        ok = false;
        why = reason();
    }
    if (!ok) {
        err = "cannot write " + path_ + ": " + why;
        abort();
        return false;
    }
    // The temporary's entry now names nothing; the target takes its place.
    static_cast<Entry*>(temp_entry_)->kind.store(kGone);
    remember(path_, kFile);
    temp_entry_ = nullptr;
    temp_.clear();
    return true;
}

void OutputFile::abort() {
    if (file_) std::fclose(file_);
    file_ = nullptr;
    if (!temp_.empty()) std::remove(temp_.c_str());
    if (temp_entry_) static_cast<Entry*>(temp_entry_)->kind.store(kGone);
    temp_entry_ = nullptr;
    temp_.clear();
}

bool write_file(const std::string& path, const void* data, size_t bytes, std::string& err) {
    OutputFile f;
    return f.open(path, err) && f.write(data, bytes, err) && f.commit(err);
}

void remove_outputs() { remove_all(); }

void keep_outputs() {
    for (Block* b = g_last.load(); b; b = b->prev)
        for (int i = 0; i < b->used.load(); ++i) b->entries[i].kind.store(kGone);
}

void remove_outputs_on_signals() {
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) std::signal(sig, on_signal);
    std::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace rig
