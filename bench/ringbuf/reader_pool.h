// Reader processes for the benchmarks: each runs a body in its own process
// (fork), reports once it is ready, keeps its tally in memory shared with the
// pool, and ends when the pool raises the stop flag (or its input ends).
#ifndef TARVO_BENCH_READER_POOL_H
#define TARVO_BENCH_READER_POOL_H

#include "frame_stamps.h"

#include <sys/types.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>

namespace tarvo::bench
{

// The most readers a pool runs, and the number the fan-out runs use.
inline constexpr int kReaders = 4;
// Readers that do not get the last frame written this soon have missed it.
inline constexpr std::chrono::milliseconds kDrainLimit{100};

// What all readers got together, each out of the same frames written.
struct ReaderTotals {
    uint64_t frames;        // whole frames, in order
    uint64_t slowestFrames; // the fewest whole frames one reader got
    uint64_t missed;        // frames written that a reader never got
    uint64_t faults;        // torn, mis-sized or out-of-order frames
};

// A reader process's side of the pool.
class ReaderLink
{
  public:
    ReaderLink(ReaderTally &tally, const std::atomic<bool> &stop, int readyPipe)
        : tally(tally), stop_(stop), readyPipe_(readyPipe)
    {
    }
    ReaderTally &tally;
    bool stopRequested() const { return stop_.load(std::memory_order_acquire); }
    // Tells the pool whether the reader could start; call exactly once.
    void reportStart(bool started);

  private:
    const std::atomic<bool> &stop_;
    int readyPipe_;
};

class ReaderPool
{
  public:
    // A reader body: runs in the child process; its result is the exit status.
    using Body = std::function<int(int index, ReaderLink &link)>;
    // Wakes readers that wait for input, so that they see the stop flag.
    using Nudge = std::function<void()>;

    ReaderPool();
    // Kills and reaps readers that were not stopped (an early exit).
    ~ReaderPool();
    ReaderPool(const ReaderPool &) = delete;
    ReaderPool &operator=(const ReaderPool &) = delete;

    // Starts `readers` processes (at most kReaders); true once every one has
    // reported a start.
    bool start(const Body &body, int readers = kReaders);
    // True once every reader has got frame `number` or a later one; false
    // when `limit` passed first.
    bool awaitFrame(uint32_t number, std::chrono::milliseconds limit) const;
    // Raises the stop flag and reaps every reader, calling `nudge` about every
    // millisecond while any still runs; true when all exited with 0 in time.
    bool stopAndWait(const Nudge &nudge);
    ReaderTotals totals(uint32_t framesWritten) const;

  private:
    struct Shared;
    Shared *shared_;
    std::array<pid_t, kReaders> pids_{};
    int count_ = 0;
    int readyPipe_[2] = {-1, -1};
};

} // namespace tarvo::bench

#endif
