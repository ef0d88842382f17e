// A fixed set of threads that share out the independent pieces of a pass:
// the caller hands over a count of pieces and a function, and gets control
// back once every piece is done. Pieces write to places of their own, so the
// outcome does not depend on which thread did which piece; whatever must
// happen in order (sums, files, progress) the caller does afterwards.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace isodata {

class WorkerPool {
public:
    // threads counts the caller: 1 runs everything on the caller's thread.
    explicit WorkerPool(int threads);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    int Threads() const { return static_cast<int>(workers_.size()) + 1; }

    // Runs piece(i) for every i < count, spread over the threads, the caller
    // taking its share; returns when all are done. An exception from a piece
    // is rethrown here once every piece has ended.
    void ForEach(std::size_t count, const std::function<void(std::size_t)>& piece);

private:
    void Work();
    void RunPieces();

    std::vector<std::thread> workers_;
    std::mutex mutex_;
    std::condition_variable wake_, finished_;
    const std::function<void(std::size_t)>* piece_ = nullptr;
    std::size_t count_ = 0, next_ = 0, busy_ = 0;
    std::uint64_t round_ = 0;
    bool stopping_ = false;
    std::exception_ptr failure_;
};

// Runs piece(i) for i < count on pool, or in order on this thread when pool is null.
inline void ForEachPiece(WorkerPool* pool, std::size_t count, const std::function<void(std::size_t)>& piece) {
    if (pool && pool->Threads() > 1 && count > 1) return pool->ForEach(count, piece);
    for (std::size_t i = 0; i < count; ++i) piece(i);
}

// The pieces [begin, end) of n items cut into about `pieces` runs of whole
// items: piece p of Pieces(n, k) covers [Begin(p), Begin(p + 1)).
struct Pieces {
    std::size_t items, count;
    Pieces(std::size_t n, std::size_t wanted) : items(n), count(n == 0 ? 0 : (wanted < n ? wanted : n)) {}
    std::size_t Begin(std::size_t p) const { return count == 0 ? 0 : items * p / count; }
};

// How many pieces to cut a pass's unit of work into for pool: a few per
// thread, so that uneven pieces even out; 1 without a pool.
inline std::size_t PiecesFor(const WorkerPool* pool) {
    return pool && pool->Threads() > 1 ? static_cast<std::size_t>(pool->Threads()) * 4 : 1;
}

} // namespace isodata
