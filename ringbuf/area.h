// Shared layout of a ring buffer area and the process-local handle on it.
#ifndef TARVO_RINGBUF_AREA_H
#define TARVO_RINGBUF_AREA_H

#include "tarvo/ringbuf.h"
#include "tarvo/semlock.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <sched.h>
#include <sys/sem.h>

namespace tarvo::ring
{

inline constexpr uint32_t kAreaHeaderSize = 28;
inline constexpr uint32_t kCellHeaderSize = 32;
inline constexpr int kWriterKeyDistance = 16;

// The area header: seven host-order words at the start of the segment.
struct AreaHeader {
    uint32_t release;
    uint32_t error;
    uint32_t cellCount;
    uint32_t noSkip;
    uint32_t cellsBytes;
    uint32_t writeCell; // distance from the segment start
    uint32_t firstCell; // always kAreaHeaderSize
};
static_assert(sizeof(AreaHeader) == kAreaHeaderSize);

// Cell header fields: byte offsets of big-endian 32-bit values.
enum class Field : uint32_t {
    Used = 0,
    Stay = 4,
    WStat = 8,
    Seq = 12,
    Size = 16,
    Length = 20,
    Prev = 24,
    Next = 28
};

// Cell states as the writer sets them.
enum CellState : uint32_t { kEmpty = 0, kWritePosition = 1, kFull = 2, kPassedOver = 3 };

enum Hold : int { kHoldsNothing = 0, kParked = 1, kHolding = 2 };

} // namespace tarvo::ring

// A process's handle.  Cells are found as base + stored distance in every
// process, so no per-process offset is kept; segmentSize bounds every link
// followed in the segment.
struct RingBuffer {
    int shmId;
    uint32_t seq; // writer: last number given out; reader: last number read
    int hold;     // a tarvo::ring::Hold
    SemLock areaLock;
    SemLock writerLock;
    uint8_t *cell;
    char name[RB_NAME_MAX + 1];
    uint8_t *base;
    uint32_t segmentSize;
};

namespace tarvo::ring
{

inline uint8_t *const kNotAttached = reinterpret_cast<uint8_t *>(~uintptr_t{0});

inline uint32_t loadBigEndian(const uint8_t *at)
{
    return uint32_t{at[0]} << 24 | uint32_t{at[1]} << 16 | uint32_t{at[2]} << 8 | uint32_t{at[3]};
}

inline void storeBigEndian(uint8_t *at, uint32_t value)
{
    at[0] = uint8_t(value >> 24);
    at[1] = uint8_t(value >> 16);
    at[2] = uint8_t(value >> 8);
    at[3] = uint8_t(value);
}

inline uint32_t get(const uint8_t *cell, Field field)
{
    return loadBigEndian(cell + static_cast<uint32_t>(field));
}

inline void set(uint8_t *cell, Field field, uint32_t value)
{
    storeBigEndian(cell + static_cast<uint32_t>(field), value);
}

inline void add(uint8_t *cell, Field field, int32_t delta)
{
    set(cell, field, get(cell, field) + uint32_t(delta));
}

// A field read without the area lock: byte by byte, as the writer stores it.
inline uint32_t peek(const uint8_t *cell, Field field)
{
    const uint8_t *at = cell + static_cast<uint32_t>(field);
    uint32_t value = 0;
    for (int i = 0; i < 4; i++)
        value = value << 8 | __atomic_load_n(at + i, __ATOMIC_RELAXED);
    __atomic_thread_fence(__ATOMIC_ACQUIRE);
    return value;
}

// Takes the area lock as sfLock does, after a few tries that do not sleep.
// The lock is held for short spells by many processes; a waiter that sleeps
// in the kernel is handed the lock when it is given back, whether or not it
// is running, and on a machine with more busy processes than cores those
// hand-overs queue everybody behind one descheduled process.
inline int takeAreaLock(const RingBuffer *rb)
{
    constexpr int kTries = 100;
    sembuf take[2] = {{0, 0, SEM_UNDO | IPC_NOWAIT}, {0, 1, SEM_UNDO | IPC_NOWAIT}};
    for (int attempt = 1; attempt <= kTries; attempt++) {
        if (semop(rb->areaLock, take, 2) == 0)
            return 0;
        if (errno != EAGAIN)
            break;
        if (attempt % 2 == 0)
            sched_yield();
    }
    return sfLock(rb->areaLock);
}

inline AreaHeader *header(const RingBuffer *rb)
{
    return reinterpret_cast<AreaHeader *>(rb->base);
}

inline bool releasing(const RingBuffer *rb)
{
    return __atomic_load_n(&header(rb)->release, __ATOMIC_ACQUIRE) != 0;
}

inline uint8_t *firstCell(const RingBuffer *rb)
{
    return rb->base + kAreaHeaderSize;
}

inline uint8_t *cellAt(const RingBuffer *rb, uint32_t distance)
{
    return rb->base + distance;
}

inline uint32_t distanceOf(const RingBuffer *rb, const uint8_t *cell)
{
    return cell ? uint32_t(cell - rb->base) : 0;
}

// The most cells the segment can hold.  Intact cells lie in rising memory
// order, so no walk of the chain that ends within one lap needs more steps.
inline uint32_t cellLimit(const RingBuffer *rb)
{
    return (rb->segmentSize - kAreaHeaderSize) / kCellHeaderSize;
}

// Whether `cell` (whose header lies inside the segment) is whole as the
// writer keeps it: its payload ends inside the segment and its Next is 0 or
// names the cell that starts right there.  Any process can write into the
// segment, so no size is trusted and no link followed until this holds.
inline bool intact(const RingBuffer *rb, const uint8_t *cell)
{
    uint32_t distance = distanceOf(rb, cell);
    uint32_t size = get(cell, Field::Size);
    if (size > rb->segmentSize - kCellHeaderSize - distance)
        return false;
    uint32_t next = get(cell, Field::Next);
    return next == 0 ||
           (next == distance + kCellHeaderSize + size && next <= rb->segmentSize - kCellHeaderSize);
}

// The cell after an intact `cell` in memory; null after the last cell.
inline uint8_t *nextInMemory(const RingBuffer *rb, const uint8_t *cell)
{
    uint32_t next = get(cell, Field::Next);
    return next ? cellAt(rb, next) : nullptr;
}

// The cell after `cell`, wrapping from the last cell to the first; null when
// `cell` is not intact.
inline uint8_t *nextInRing(const RingBuffer *rb, const uint8_t *cell)
{
    if (!intact(rb, cell))
        return nullptr;
    uint8_t *next = nextInMemory(rb, cell);
    return next ? next : firstCell(rb);
}

// The cell an area header word names.  A distance that would put the cell
// header outside the segment names the first cell.
inline uint8_t *headerCell(const RingBuffer *rb, uint32_t distance)
{
    if (distance < kAreaHeaderSize || distance > rb->segmentSize - kCellHeaderSize)
        return firstCell(rb);
    return cellAt(rb, distance);
}

inline uint8_t *writePosition(const RingBuffer *rb)
{
    return headerCell(rb, header(rb)->writeCell);
}

// The write position as a reader sees it without the area lock: the writer
// stores it once, just before it gives the lock back.
inline uint8_t *peekWritePosition(const RingBuffer *rb)
{
    return headerCell(rb, __atomic_load_n(&header(rb)->writeCell, __ATOMIC_ACQUIRE));
}

inline void *payloadOf(uint8_t *cell)
{
    return cell + kCellHeaderSize;
}

// Give back the count the handle keeps on its cell (Used while holding,
// Stay while parked).  Called with the area lock held.
inline void giveBackPlace(RingBuffer *rb)
{
    if (rb->cell && rb->hold == kHolding)
        add(rb->cell, Field::Used, -1);
    else if (rb->cell && rb->hold == kParked)
        add(rb->cell, Field::Stay, -1);
}

} // namespace tarvo::ring

#endif
