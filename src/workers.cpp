#include "workers.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace svc {
namespace {

class Pool {
public:
    ~Pool() { Resize(1); }

    int Threads() const { return static_cast<int>(threads_.size()) + 1; }

    void Resize(int n) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
            ++generation_;
        }
        wake_.notify_all();
        for (std::thread& t : threads_) t.join();
        threads_.clear();
        stop_ = false;
        // A new helper waits for the next batch, not the last one.
        for (int i = 1; i < n; ++i) threads_.emplace_back([this, g = generation_] { Serve(g); });
    }

    void Run(int parts, void (*fn)(void*, int), void* ctx) {
        std::unique_lock<std::mutex> busy(run_, std::try_to_lock);
        if (!busy.owns_lock() || threads_.empty() || parts < 2) {
            for (int p = 0; p < parts; ++p) fn(ctx, p);
            return;
        }
        {
            std::lock_guard<std::mutex> lock(mutex_);
            fn_ = fn;
            ctx_ = ctx;
            parts_ = parts;
            next_.store(0);
            active_ = static_cast<int>(threads_.size());
            ++generation_;
        }
        wake_.notify_all();
        Work();
        // Every helper reports back, not just the parts: none may still be
        // looking at this batch when the next one is set up.
        std::unique_lock<std::mutex> lock(mutex_);
        done_.wait(lock, [this] { return active_ == 0; });
    }

private:
    void Work() {
        for (int p; (p = next_.fetch_add(1)) < parts_;) fn_(ctx_, p);
    }

    void Serve(unsigned seen) {
        for (;;) {
            {
                std::unique_lock<std::mutex> lock(mutex_);
                wake_.wait(lock, [&] { return stop_ || generation_ != seen; });
                if (stop_) return;
                seen = generation_;
            }
            Work();
            std::lock_guard<std::mutex> lock(mutex_);
            if (--active_ == 0) done_.notify_one();
        }
    }

    std::vector<std::thread> threads_;
    std::mutex run_;  // one batch of parts at a time
    std::mutex mutex_;
    std::condition_variable wake_, done_;
    unsigned generation_ = 0;
    bool stop_ = false;
    void (*fn_)(void*, int) = nullptr;
    void* ctx_ = nullptr;
    int parts_ = 0;
    std::atomic<int> next_{0};
    int active_ = 0;  // helpers still in the current batch
};

Pool& ThePool() {
    static Pool pool;
    return pool;
}

}  // namespace

int WorkerThreads() { return ThePool().Threads(); }

void SetWorkerThreads(int n) {
    if (n < 1) n = 1;
    if (n != ThePool().Threads()) ThePool().Resize(n);
}

void RunParts(int parts, void (*fn)(void*, int), void* ctx) { ThePool().Run(parts, fn, ctx); }

}  // namespace svc
