// The two copies a writer-cost run compares: rbSafeWrite of a frame into the
// ring, and memcpy of the same frame into private buffers laid out as the
// ring's cells, taken in turn, so that both spread over as much memory.
#ifndef TARVO_BENCH_WRITER_COPIES_H
#define TARVO_BENCH_WRITER_COPIES_H

#include "call_times.h"

#include "tarvo/ringbuf.h"

#include <cstdint>
#include <vector>

namespace tarvo::bench
{

class WriterCopies
{
  public:
    WriterCopies(RingBuffer *ring, uint32_t frameLength);

    // Frames are numbered 1, 2, ... separately for each copy.  `times`, when
    // given, gets the duration of the memcpy or rbSafeWrite call alone.
    void copyFrame(CallTimes *times = nullptr);
    void writeFrame(CallTimes *times = nullptr);
    // One untimed lap of each through all cells, so that no page is touched
    // first while timed; it counts no drops.
    void warmUp();

    uint32_t framesWritten() const { return ringNumber_; }
    uint64_t dropped() const { return dropped_; }
    bool released() const { return released_; }

  private:
    RingBuffer *ring_;
    uint32_t frameLength_;
    std::vector<uint8_t> source_;
    std::vector<uint8_t> privateCells_;
    uint32_t copyNumber_ = 0;
    uint32_t ringNumber_ = 0;
    uint64_t dropped_ = 0;
    bool released_ = false;
};

} // namespace tarvo::bench

#endif
