// A ring buffer's segment seen from outside: attached read-only, its area
// header and chain of cell headers copied out in one short spell under the
// area lock, and checked as data any local user could have written.
#ifndef TARVO_TOOLS_RING_SEGMENT_H
#define TARVO_TOOLS_RING_SEGMENT_H

#include <cstdint>
#include <vector>

namespace tarvo::cli
{

// Cell states as the writer sets them.
enum CellState : uint32_t { kEmpty = 0, kWritePosition = 1, kFull = 2, kPassedOver = 3 };

struct CellCopy {
    uint32_t at; // distance from the segment start
    uint32_t used, stay, state, seq, size, length, prev, next;
};

struct RingCopy {
    // The area header's words, in its order.
    uint32_t release, error, cellCount, noSkip, cellsBytes, writeCell, firstCell;
    std::vector<CellCopy> cells; // the chain from the first cell, as far as it is whole
    const char *damage;          // why the walk stopped early; null when the chain is whole
    int writerLockHeld;          // 1 a frame is being written, 0 not, -1 no writer lock
};

enum class Attach { kAttached, kNoSegment, kNotAllowed, kWrongSize, kFailed };

class RingSegment
{
  public:
    RingSegment() = default;
    ~RingSegment();
    RingSegment(const RingSegment &) = delete;
    RingSegment &operator=(const RingSegment &) = delete;

    Attach attach(int key);
    uint32_t size() const { return size_; }
    // Processes attached to the segment (this one included), -1 when the
    // segment has been removed.
    int attachedProcesses() const;
    // Whether the writer has released the ring (or the segment is removed).
    bool released() const;

    enum class Copy { kCopied, kNoLock, kLockBusy };
    // Copies header and chain while holding the area lock no longer than
    // the copy takes; kLockBusy when the lock stayed held for two seconds.
    Copy copy(RingCopy &ring) const;

  private:
    int key_ = 0;
    int id_ = -1;
    const uint8_t *base_ = nullptr;
    uint32_t size_ = 0;
};

} // namespace tarvo::cli

#endif
