// Benchmark frames carry their number in their first and last four bytes, so
// a reader can tell a whole frame from a torn one by looking at eight bytes.
#ifndef TARVO_BENCH_FRAME_STAMPS_H
#define TARVO_BENCH_FRAME_STAMPS_H

#include <atomic>
#include <cstdint>
#include <cstring>

namespace tarvo::bench
{

// Bytes of each stamp; frames are never shorter.
inline constexpr uint32_t kStampBytes = 4;

inline void stampFrame(uint8_t *frame, uint32_t length, uint32_t number)
{
    std::memcpy(frame, &number, kStampBytes);
    std::memcpy(frame + length - kStampBytes, &number, kStampBytes);
}

// What one reader received: good frames, faults (torn, mis-sized or out of
// order) and the number of the last frame.  Lives in memory shared with the
// process that started the reader, which reads it while the reader runs.
struct ReaderTally {
    std::atomic<uint64_t> frames;
    std::atomic<uint64_t> faults;
    std::atomic<uint32_t> lastNumber;
};
static_assert(std::atomic<uint64_t>::is_always_lock_free, "tallies are shared between processes");

// Judges the frames one reader receives, in the order received.
class FrameCheck
{
  public:
    // EveryFrame: each number must be the one after the last (a stream);
    // MaySkip: each number must only be above the last (a ring).
    enum class Order { EveryFrame, MaySkip };

    FrameCheck(uint32_t length, Order order, ReaderTally &tally)
        : length_(length), order_(order), tally_(tally)
    {
    }

    void take(const uint8_t *frame, uint32_t length)
    {
        if (length != length_) {
            count(tally_.faults);
            return;
        }
        uint32_t first, last;
        std::memcpy(&first, frame, kStampBytes);
        std::memcpy(&last, frame + length - kStampBytes, kStampBytes);
        bool inOrder = order_ == Order::EveryFrame ? first == lastNumber_ + 1 : first > lastNumber_;
        count(first == last && inOrder ? tally_.frames : tally_.faults);
        lastNumber_ = first;
        tally_.lastNumber.store(first, std::memory_order_relaxed);
    }

  private:
    // Only the reader writes its tally, so no read-modify-write is needed.
    static void count(std::atomic<uint64_t> &counter)
    {
        counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }

    uint32_t length_;
    Order order_;
    ReaderTally &tally_;
    uint32_t lastNumber_ = 0;
};

} // namespace tarvo::bench

#endif
