// The writer's handle on a ring buffer it creates, released (segment and both
// locks removed) when the handle goes out of scope, early exits included.
#ifndef TARVO_BENCH_OWNED_RING_H
#define TARVO_BENCH_OWNED_RING_H

#include "tarvo/ringbuf.h"

#include <cstdint>

namespace tarvo::bench
{

// Cells per ring: several frames fit, so readers that back off can catch up.
inline constexpr int kRingCells = 8;
inline constexpr uint32_t kCellHeaderBytes = 32;

class OwnedRing
{
  public:
    // A ring of kRingCells cells of `frameLength` bytes; check valid().
    OwnedRing(int key, uint32_t frameLength);
    ~OwnedRing();
    OwnedRing(const OwnedRing &) = delete;
    OwnedRing &operator=(const OwnedRing &) = delete;

    bool valid() const { return ring_ != nullptr; }
    RingBuffer *get() const { return ring_; }
    // Bytes of cells (headers included) that frames are written into.
    static uint64_t cellsBytes(uint32_t frameLength);

  private:
    int key_;
    RingBuffer *ring_;
};

} // namespace tarvo::bench

#endif
