// The writer: finding a cell for a frame, filling it, and splitting off the
// spare room behind it as the next write position.
#include "area.h"

#include <cstring>

using namespace tarvo::ring;

namespace
{

constexpr int32_t kSplitThreshold = 1024;

enum class WriteStyle { Copy, InPlace };
enum class Outcome { Found, NoCell, Released };

struct Search {
    Outcome outcome;
    uint8_t *cell;
};

// The write position moves in the handle during a search; the area learns
// it in leaveArea.
void moveWritePosition(RingBuffer *rb, uint8_t *cell)
{
    rb->cell = cell;
}

// Ends the writer's turn on the area.  The area's write position is stored
// once, just before the lock is given back, so that a parked reader peeking
// at it without the lock never sees a position the search merely passed.
void leaveArea(RingBuffer *rb)
{
    __atomic_store_n(&header(rb)->writeCell, distanceOf(rb, rb->cell), __ATOMIC_RELEASE);
    sfUnlock(rb->areaLock);
}

// `cell` swallows the cell after it, header and all.
void absorbNext(RingBuffer *rb, uint8_t *cell)
{
    uint8_t *next = cellAt(rb, get(cell, Field::Next));
    set(cell, Field::Size, get(cell, Field::Size) + get(next, Field::Size) + kCellHeaderSize);
    set(cell, Field::Next, get(next, Field::Next));
    if (uint8_t *after = cellAt(rb, get(next, Field::Next)))
        set(after, Field::Prev, distanceOf(rb, cell));
    header(rb)->cellCount--;
}

bool isFree(const uint8_t *cell)
{
    return get(cell, Field::Used) == 0 && get(cell, Field::Stay) == 0;
}

// Walks the ring from the write position for a cell of at least `length`
// bytes, merging free neighbours of cells that are too small, passing over
// cells that readers hold and giving up the frames of cells that can grow no
// further.  Called with both locks held.  Ends after one lap at the latest:
// whenever the write position is merged away, the cell that swallowed it
// becomes the write position, so the lap's end stays reachable.
Search findCell(RingBuffer *rb, uint32_t length, WriteStyle style)
{
    AreaHeader *area = header(rb);
    uint8_t *cell = rb->cell;
    for (;;) {
        if (releasing(rb))
            return {Outcome::Released, nullptr};
        if (get(cell, Field::Used) != 0) {
            if (area->noSkip != 0)
                return {Outcome::NoCell, nullptr};
            set(cell, Field::WStat, kPassedOver);
        } else if (length <= get(cell, Field::Size)) {
            return {Outcome::Found, cell};
        } else if (uint8_t *next = cellAt(rb, get(cell, Field::Next)); next && isFree(next)) {
            absorbNext(rb, cell);
            if (style == WriteStyle::InPlace && get(cell, Field::Next) == distanceOf(rb, rb->cell))
                moveWritePosition(rb, cell);
            continue;
        } else if (uint8_t *previous = cellAt(rb, get(cell, Field::Prev));
                   previous && isFree(cell) &&
                   (style == WriteStyle::Copy || get(previous, Field::WStat) != kPassedOver)) {
            absorbNext(rb, previous);
            if (rb->cell == cell)
                moveWritePosition(rb, previous);
            cell = previous;
        } else {
            set(cell, Field::WStat, kEmpty);
        }
        cell = nextInRing(rb, cell);
        if (cell == rb->cell)
            return {Outcome::NoCell, nullptr};
    }
}

// Splits the room behind the frame in `cell` off as a new empty cell when it
// is 1024 bytes or more (rounded down to a multiple of 4) and returns the
// next write position.
uint8_t *splitAfterFrame(RingBuffer *rb, uint8_t *cell)
{
    uint32_t spare = (get(cell, Field::Size) - get(cell, Field::Length)) & ~3u;
    if (int32_t(spare) < kSplitThreshold)
        return nextInRing(rb, cell);
    set(cell, Field::Size, get(cell, Field::Size) - spare);
    uint8_t *split = cell + kCellHeaderSize + get(cell, Field::Size);
    std::memset(split, 0, kCellHeaderSize);
    set(split, Field::Size, spare - kCellHeaderSize);
    set(split, Field::Prev, distanceOf(rb, cell));
    set(split, Field::Next, get(cell, Field::Next));
    if (uint8_t *after = cellAt(rb, get(cell, Field::Next)))
        set(after, Field::Prev, distanceOf(rb, split));
    set(cell, Field::Next, distanceOf(rb, split));
    header(rb)->cellCount++;
    return split;
}

void advanceWritePosition(RingBuffer *rb, uint8_t *filled)
{
    uint8_t *next = splitAfterFrame(rb, filled);
    moveWritePosition(rb, next);
    set(next, Field::WStat, kWritePosition);
}

void stampFrame(RingBuffer *rb, uint8_t *cell, uint32_t length)
{
    rb->seq++;
    set(cell, Field::Seq, rb->seq);
    set(cell, Field::Length, length);
}

} // namespace

extern "C" {

int rbSafeWrite(RingBuffer *rb, const void *data, uint32_t length)
{
    if (rb == nullptr || rb->cell == nullptr || (data == nullptr && length != 0))
        return 0;
    sfLock(rb->writerLock);
    takeAreaLock(rb);
    Search found = findCell(rb, length, WriteStyle::Copy);
    if (found.outcome == Outcome::Found) {
        stampFrame(rb, found.cell, length);
        set(found.cell, Field::WStat, kFull);
        if (length != 0)
            std::memcpy(payloadOf(found.cell), data, length);
        advanceWritePosition(rb, found.cell);
    }
    leaveArea(rb);
    sfUnlock(rb->writerLock);
    if (found.outcome == Outcome::Released)
        return -1;
    return found.outcome == Outcome::Found ? 1 : 0;
}

void *rbLockWrite(RingBuffer *rb, uint32_t length)
{
    if (rb == nullptr || rb->cell == nullptr)
        return nullptr;
    sfLock(rb->writerLock);
    takeAreaLock(rb);
    Search found = findCell(rb, length, WriteStyle::InPlace);
    if (found.outcome != Outcome::Found) {
        leaveArea(rb);
        sfUnlock(rb->writerLock);
        return found.outcome == Outcome::Released ? RB_RELEASED : nullptr;
    }
    set(found.cell, Field::WStat, kWritePosition);
    moveWritePosition(rb, found.cell);
    stampFrame(rb, found.cell, length);
    leaveArea(rb);
    if (releasing(rb)) {
        sfUnlock(rb->writerLock);
        return RB_RELEASED;
    }
    return payloadOf(found.cell);
}

void rbUnlockWrite(RingBuffer *rb)
{
    if (rb == nullptr || rb->cell == nullptr || sfLocked(rb->writerLock) == 0)
        return;
    uint8_t *cell = rb->cell;
    set(cell, Field::WStat, kFull);
    sfUnlock(rb->writerLock);
    takeAreaLock(rb);
    advanceWritePosition(rb, cell);
    leaveArea(rb);
}

} // extern "C"
