// Accessors for the handle's cell and the area header, the reset, and the
// diagnostic dump of the chain.
#include "area.h"

#include <cstdio>

using namespace tarvo::ring;

namespace
{

uint32_t currentCellField(const RingBuffer *rb, Field field)
{
    return rb && rb->cell ? get(rb->cell, field) : 0;
}

void printCell(const RingBuffer *rb, int number, const uint8_t *cell)
{
    printf("   %d Cell Addr: %x, Used: %d, Stay: %d, WStat: %d, Seq: %d\n", number,
           distanceOf(rb, cell), get(cell, Field::Used), get(cell, Field::Stay),
           get(cell, Field::WStat), get(cell, Field::Seq));
    printf("                  size: %d, length: %d, Prev: %x, Next: %x\n", get(cell, Field::Size),
           get(cell, Field::Length), get(cell, Field::Prev), get(cell, Field::Next));
}

} // namespace

extern "C" {

uint32_t rbGetCellSize(RingBuffer *rb)
{
    return currentCellField(rb, Field::Size);
}

uint32_t rbGetCellLength(RingBuffer *rb)
{
    return currentCellField(rb, Field::Length);
}

uint32_t rbGetCellSeq(RingBuffer *rb)
{
    return currentCellField(rb, Field::Seq);
}

uint32_t rbGetCellCount(RingBuffer *rb)
{
    return rb ? header(rb)->cellCount : 0;
}

uint32_t rbGetError(RingBuffer *rb)
{
    return rb ? header(rb)->error : 0;
}

int rbResetAll(RingBuffer *rb)
{
    if (rb == nullptr || rb->cell == nullptr)
        return 0;
    takeAreaLock(rb);
    // A damaged chain ends the walk at the damage or after one lap's worth
    // of cells.
    uint8_t *cell = rb->cell;
    uint32_t steps = cellLimit(rb);
    do {
        set(cell, Field::WStat, kEmpty);
        cell = nextInRing(rb, cell);
    } while (cell != nullptr && cell != rb->cell && --steps > 0);
    set(rb->cell, Field::WStat, kWritePosition);
    rb->seq = 0;
    sfUnlock(rb->areaLock);
    return 0;
}

int rbCheckBuffer(RingBuffer *rb)
{
    if (rb == nullptr)
        return 0;
    takeAreaLock(rb);
    const AreaHeader *area = header(rb);
    printf("Rinbuf: Current Cell: Addr: %x, Usage: %d, Seq: %d, Offset: %x, Writer: %x\n",
           distanceOf(rb, rb->cell), rb->hold, rb->seq, unsigned(uintptr_t(rb->base)),
           area->writeCell);
    printf("Rinbuf: Scan all cell %d:\n", area->cellCount);
    // Intact cells lie in rising memory order; the walk ends after the first
    // cell that is not intact.
    int number = 0;
    for (const uint8_t *cell = firstCell(rb); cell; cell = nextInMemory(rb, cell)) {
        printCell(rb, number++, cell);
        if (!intact(rb, cell))
            break;
    }
    return sfUnlock(rb->areaLock);
}

} // extern "C"
