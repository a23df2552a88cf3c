// Readers: following the writer around the ring, holding one frame at a
// time, parking on the write position when caught up.
#include "area.h"

using namespace tarvo::ring;

namespace
{

// No frame is this far from a wanted number.
constexpr uint32_t kNoDistance = 999999;

// Hold `cell` for reading; called with the area lock held, gives it back.
// A cell whose payload would run past the segment is never handed out: the
// area was damaged by another process, and the reader is told as on release.
void *take(RingBuffer *rb, uint8_t *cell)
{
    if (!intact(rb, cell)) {
        sfUnlock(rb->areaLock);
        return RB_RELEASED;
    }
    add(cell, Field::Used, 1);
    rb->cell = cell;
    rb->seq = get(cell, Field::Seq);
    rb->hold = kHolding;
    sfUnlock(rb->areaLock);
    return payloadOf(cell);
}

bool isNewFrame(const RingBuffer *rb, const uint8_t *cell)
{
    uint32_t state = get(cell, Field::WStat);
    uint32_t seq = get(cell, Field::Seq);
    // A passed-over frame counts only as the very next number; an ordinary
    // frame counts whenever it is not the one read last.
    return (state == kPassedOver && seq == rb->seq + 1) || (state == kFull && seq != rb->seq);
}

// Waits while a frame may be being written into `cell`: until the writer
// lock is free, or the cell shows a frame.  rbSafeWrite marks its cell full
// before it copies, and holds the area lock until the copy is done; a reader
// that sees the mark goes on to wait for that lock rather than sleep on the
// writer lock, which the writer would then have to wake on its way out.  The
// few looks before the sleep span the writer's way from one lock to the mark.
// A cell already stamped with the next number was reserved with rbLockWrite,
// whose writer keeps the lock until it publishes: no look can end that wait.
void awaitWriter(RingBuffer *rb, const uint8_t *cell)
{
    if (peek(cell, Field::Seq) == rb->seq + 1) {
        sfWaitUnlock(rb->writerLock);
        return;
    }
    constexpr int kTries = 3;
    sembuf look = {0, 0, SEM_UNDO | IPC_NOWAIT};
    for (int attempt = 1; attempt <= kTries; attempt++) {
        if (semop(rb->writerLock, &look, 1) == 0 || errno != EAGAIN)
            return;
        if (peek(cell, Field::WStat) != kWritePosition)
            return;
    }
    sfWaitUnlock(rb->writerLock);
}

// The wait of a reader parked on `cell`: while a frame is being written
// there it blocks until the writer publishes it, then takes the frame if it
// is new.  The area lock is taken only when the cell looks like a new frame,
// so a reader that polls a quiet ring costs the writer nothing.
void *awaitFrame(RingBuffer *rb, uint8_t *cell)
{
    if (peek(cell, Field::WStat) == kWritePosition)
        awaitWriter(rb, cell);
    if (releasing(rb))
        return RB_RELEASED;
    // A torn look at Seq while the writer stores it can only send the reader
    // away empty this time; what it takes is decided under the lock.
    if (peek(cell, Field::WStat) != kFull || peek(cell, Field::Seq) == rb->seq)
        return nullptr;
    takeAreaLock(rb);
    if (get(cell, Field::WStat) == kFull && get(cell, Field::Seq) != rb->seq) {
        if (intact(rb, cell)) // the place is given back only with a frame taken
            add(cell, Field::Stay, -1);
        return take(rb, cell);
    }
    sfUnlock(rb->areaLock);
    return nullptr;
}

// Park on the write position and wait there.  Called with the area lock
// held, gives it back.
void *park(RingBuffer *rb, uint8_t *cell)
{
    add(cell, Field::Stay, 1);
    rb->hold = kParked;
    rb->cell = cell;
    sfUnlock(rb->areaLock);
    return awaitFrame(rb, cell);
}

// Take the first new frame from `cell` up to the write position, or park
// there.  Called with the area lock held.  A walk that never meets the write
// position within the cells the segment can hold, or meets a cell that is
// not intact, ends as on release: the area was damaged.
void *scanFrom(RingBuffer *rb, uint8_t *cell)
{
    uint8_t *writeCell = writePosition(rb);
    for (uint32_t steps = cellLimit(rb); cell != writeCell; steps--) {
        if (releasing(rb) || steps == 0) {
            sfUnlock(rb->areaLock);
            return RB_RELEASED;
        }
        if (isNewFrame(rb, cell))
            return take(rb, cell);
        cell = nextInRing(rb, cell);
        if (cell == nullptr) {
            sfUnlock(rb->areaLock);
            return RB_RELEASED;
        }
    }
    return park(rb, cell);
}

uint32_t distanceBetween(int wanted, uint32_t seq)
{
    int32_t difference = int32_t(uint32_t(wanted) - seq);
    return difference < 0 ? 0u - uint32_t(difference) : uint32_t(difference);
}

// Hold the full cell whose number is nearest to `wanted`, walking the chain
// once in memory order; the first of equally near cells wins.
void *lockNearest(RingBuffer *rb, int wanted)
{
    rb->cell = nullptr;
    takeAreaLock(rb);
    uint8_t *chosen = nullptr;
    uint32_t best = kNoDistance;
    // Intact cells lie in rising memory order, so this walk ends by itself.
    for (uint8_t *cell = firstCell(rb); cell; cell = nextInMemory(rb, cell)) {
        if (releasing(rb) || !intact(rb, cell)) {
            sfUnlock(rb->areaLock);
            return RB_RELEASED;
        }
        uint32_t state = get(cell, Field::WStat);
        if (state != kFull && state != kPassedOver)
            continue;
        uint32_t distance = distanceBetween(wanted, get(cell, Field::Seq));
        if (distance < best) {
            chosen = cell;
            best = distance;
            if (distance == 0)
                break;
        }
    }
    if (chosen == nullptr) {
        sfUnlock(rb->areaLock);
        return nullptr;
    }
    return take(rb, chosen);
}

} // namespace

extern "C" {

void *rbLockRead(RingBuffer *rb)
{
    if (rb == nullptr || rb->hold == kHolding)
        return nullptr;
    // A reader parked on the write position would leave its place and take
    // it again at once; it waits there without the lock instead, so that
    // readers polling for the next frame leave the lock to the writer.
    if (rb->hold == kParked && rb->cell == peekWritePosition(rb))
        return awaitFrame(rb, rb->cell);
    takeAreaLock(rb);
    uint8_t *cell = rb->cell;
    if (cell == nullptr) {
        cell = writePosition(rb);
    } else if (rb->hold == kParked) {
        rb->hold = kHoldsNothing;
        add(cell, Field::Stay, -1);
    }
    return scanFrom(rb, cell);
}

void *rbLockReadSync(RingBuffer *rb, int seq)
{
    if (rb == nullptr || rb->hold == kHolding)
        return nullptr;
    if (seq != 0)
        return lockNearest(rb, seq);
    if (rb->hold == kHoldsNothing)
        rb->cell = nullptr;
    return rbLockRead(rb);
}

void rbUnlockRead(RingBuffer *rb)
{
    if (rb == nullptr || rb->cell == nullptr || rb->hold != kHolding)
        return;
    takeAreaLock(rb);
    uint8_t *cell = rb->cell;
    add(cell, Field::Used, -1);
    if (cell != writePosition(rb)) {
        // A damaged link keeps the reader on its cell; its next read says so.
        if (uint8_t *next = nextInRing(rb, cell))
            cell = next;
    }
    add(cell, Field::Stay, 1);
    rb->cell = cell;
    rb->hold = kParked;
    sfUnlock(rb->areaLock);
}

int rbSyncNewest(RingBuffer *rb)
{
    if (rb == nullptr)
        return 0;
    takeAreaLock(rb);
    giveBackPlace(rb);
    rb->hold = kHoldsNothing;
    rb->cell = nullptr;
    sfUnlock(rb->areaLock);
    return 0;
}

} // extern "C"
