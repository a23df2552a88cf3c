// The writer: finding a cell for a frame, filling it, and splitting off the
// spare room behind it as the next write position.
#include "area.h"

#include <cstring>

using namespace tarvo::ring;

namespace
{

constexpr int32_t kSplitThreshold = 1024;

enum class WriteStyle { Copy, InPlace };
enum class Outcome { Found, NoCell, Released, Damaged };

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

// `cell` swallows the intact cell `next` that follows it, header and all.
void absorbNext(RingBuffer *rb, uint8_t *cell, uint8_t *next)
{
    set(cell, Field::Size, get(cell, Field::Size) + get(next, Field::Size) + kCellHeaderSize);
    set(cell, Field::Next, get(next, Field::Next));
    if (uint8_t *after = nextInMemory(rb, next))
        set(after, Field::Prev, distanceOf(rb, cell));
    header(rb)->cellCount--;
}

bool isFree(const uint8_t *cell)
{
    return get(cell, Field::Used) == 0 && get(cell, Field::Stay) == 0;
}

// The intact cell whose Next leads to `cell`, as its Prev names it; `cell`
// itself when Prev is 0 (the first cell), null when Prev leads elsewhere.
uint8_t *checkedPrevious(const RingBuffer *rb, uint8_t *cell)
{
    uint32_t prev = get(cell, Field::Prev);
    if (prev == 0)
        return cell;
    if (prev < kAreaHeaderSize || prev >= distanceOf(rb, cell))
        return nullptr;
    uint8_t *previous = cellAt(rb, prev);
    return intact(rb, previous) && nextInMemory(rb, previous) == cell ? previous : nullptr;
}

// Walks the ring from the write position for a cell of at least `length`
// bytes, merging free neighbours of cells that are too small, passing over
// cells that readers hold and giving up the frames of cells that can grow no
// further.  Called with both locks held.  Ends after one lap at the latest:
// whenever the write position is merged away, the cell that swallowed it
// becomes the write position, so the lap's end stays reachable.  A lap
// takes at most cellLimit steps and as many merges, counted afresh whenever
// the write position moves; a chain that is not intact, or a lap that takes
// more steps, was damaged by another process.
Search findCell(RingBuffer *rb, uint32_t length, WriteStyle style)
{
    AreaHeader *area = header(rb);
    uint8_t *cell = rb->cell;
    const uint32_t lapSteps = 2 * cellLimit(rb) + 1;
    for (uint32_t steps = lapSteps; steps > 0; steps--) {
        if (releasing(rb))
            return {Outcome::Released, nullptr};
        if (!intact(rb, cell))
            return {Outcome::Damaged, nullptr};
        uint8_t *next = nextInMemory(rb, cell);
        if (next && !intact(rb, next))
            return {Outcome::Damaged, nullptr};
        if (get(cell, Field::Used) != 0) {
            if (area->noSkip != 0)
                return {Outcome::NoCell, nullptr};
            set(cell, Field::WStat, kPassedOver);
        } else if (length <= get(cell, Field::Size)) {
            return {Outcome::Found, cell};
        } else if (next && isFree(next)) {
            absorbNext(rb, cell, next);
            if (style == WriteStyle::InPlace &&
                get(cell, Field::Next) == distanceOf(rb, rb->cell)) {
                moveWritePosition(rb, cell);
                steps = lapSteps + 1;
            }
            continue;
        } else if (uint8_t *previous = checkedPrevious(rb, cell); previous == nullptr) {
            return {Outcome::Damaged, nullptr};
        } else if (previous != cell && isFree(cell) &&
                   (style == WriteStyle::Copy || get(previous, Field::WStat) != kPassedOver)) {
            absorbNext(rb, previous, cell);
            if (rb->cell == cell) {
                moveWritePosition(rb, previous);
                steps = lapSteps + 1;
            }
            cell = previous;
        } else {
            set(cell, Field::WStat, kEmpty);
        }
        cell = nextInRing(rb, cell);
        if (cell == nullptr)
            return {Outcome::Damaged, nullptr};
        if (cell == rb->cell)
            return {Outcome::NoCell, nullptr};
    }
    return {Outcome::Damaged, nullptr};
}

// Splits the room behind the frame in `cell` off as a new empty cell when it
// is 1024 bytes or more (rounded down to a multiple of 4) and returns the
// next write position; null when the cell was damaged meanwhile (it then
// stays the write position, and the next write finds the damage).
uint8_t *splitAfterFrame(RingBuffer *rb, uint8_t *cell)
{
    if (!intact(rb, cell))
        return nullptr;
    uint32_t size = get(cell, Field::Size);
    uint32_t length = get(cell, Field::Length);
    uint32_t spare = length <= size ? (size - length) & ~3u : 0;
    if (int32_t(spare) < kSplitThreshold)
        return nextInRing(rb, cell);
    set(cell, Field::Size, size - spare);
    uint8_t *split = cell + kCellHeaderSize + (size - spare);
    std::memset(split, 0, kCellHeaderSize);
    set(split, Field::Size, spare - kCellHeaderSize);
    set(split, Field::Prev, distanceOf(rb, cell));
    set(split, Field::Next, get(cell, Field::Next));
    if (uint8_t *after = nextInMemory(rb, cell))
        set(after, Field::Prev, distanceOf(rb, split));
    set(cell, Field::Next, distanceOf(rb, split));
    header(rb)->cellCount++;
    return split;
}

void advanceWritePosition(RingBuffer *rb, uint8_t *filled)
{
    uint8_t *next = splitAfterFrame(rb, filled);
    if (next == nullptr)
        return;
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
    if (found.outcome == Outcome::Released || found.outcome == Outcome::Damaged)
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
        return found.outcome == Outcome::NoCell ? nullptr : RB_RELEASED;
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
