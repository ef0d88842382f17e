// The pool: workers sleep on a condition variable until a round of pieces is
// posted, then take piece numbers one at a time under the lock (pieces are
// coarse: a share of a block's or a strip's rows), and the last one to
// finish wakes the caller.
// glibc gives threads malloc arenas of their own, up to eight a core, and
// each arena keeps what was freed into it resident for reuse: GDAL's cache
// blocks and the buffers its reads allocate on the workers would then sit
// once in every arena a worker touched, so memory would grow with the
// thread count and the core count. A pool of several threads bounds the
// arenas to kArenas for the process, shared by any number of threads: two
// keep most of what one would save (each arena may hold about GDAL's block
// cache over again) while halving the contention for the allocator's lock;
// small allocations go through glibc's per-thread caches either way.
#include "WorkerPool.h"

#include <exception>
#include <mutex>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace isodata {

namespace {

constexpr int kArenas = 2;

void BoundArenas() {
#if defined(__GLIBC__)
    static std::once_flag once;
    std::call_once(once, [] { mallopt(M_ARENA_MAX, kArenas); });
#endif
}

} // namespace

WorkerPool::WorkerPool(int threads) {
    if (threads > 1) BoundArenas();
    for (int i = 1; i < threads; ++i) workers_.emplace_back([this] { Work(); });
}

WorkerPool::~WorkerPool() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (std::thread& t : workers_) t.join();
}

void WorkerPool::RunPieces() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (next_ < count_) {
        const std::size_t i = next_++;
        ++busy_;
        lock.unlock();
        try {
            (*piece_)(i);
        } catch (...) {
            lock.lock();
            if (!failure_) failure_ = std::current_exception();
            lock.unlock();
        }
        lock.lock();
        if (--busy_ == 0 && next_ >= count_) finished_.notify_all();
    }
}

void WorkerPool::Work() {
    std::uint64_t seen = 0;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            wake_.wait(lock, [&] { return stopping_ || round_ != seen; });
            if (stopping_) return;
            seen = round_;
        }
        RunPieces();
    }
}

void WorkerPool::ForEach(std::size_t count, const std::function<void(std::size_t)>& piece) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        piece_ = &piece;
        count_ = count;
        next_ = 0;
        failure_ = nullptr;
        ++round_;
    }
    wake_.notify_all();
    RunPieces();
    std::unique_lock<std::mutex> lock(mutex_);
    finished_.wait(lock, [&] { return next_ >= count_ && busy_ == 0; });
    piece_ = nullptr;
    count_ = 0;
    if (failure_) std::rethrow_exception(failure_);
}

} // namespace isodata
