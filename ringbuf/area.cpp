// Creating, attaching, detaching and removing a ring buffer area.
#include "area.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/ipc.h>
#include <sys/shm.h>

using namespace tarvo::ring;

namespace
{

constexpr int kMode = 0666;

// Segment size for a creator, or 0 when the geometry is refused.
int64_t creatorSegmentSize(int cellSize, int cellCount)
{
    if (cellCount < 1)
        return 0;
    int64_t size = (int64_t{cellSize} + kCellHeaderSize) * cellCount + kAreaHeaderSize;
    return size > INT_MAX ? 0 : size;
}

// The whole area becomes one empty cell that is also the write position.
void initialiseArea(RingBuffer *rb, uint32_t cellsBytes, int noSkip)
{
    AreaHeader *area = header(rb);
    area->release = 0;
    area->error = 0;
    area->cellCount = 1;
    area->noSkip = uint32_t(noSkip);
    area->cellsBytes = cellsBytes;
    area->writeCell = kAreaHeaderSize;
    area->firstCell = kAreaHeaderSize;
    uint8_t *cell = firstCell(rb);
    std::memset(cell, 0, kCellHeaderSize);
    set(cell, Field::Size, cellsBytes - kCellHeaderSize);
    rb->cell = cell;
}

// Removes a lock unless an earlier attempt did; false while it is held.
bool removeLock(SemLock &lock)
{
    if (lock < 0)
        return true;
    if (sfRelease(lock) < 0)
        return false;
    lock = -1;
    return true;
}

RingBuffer *failInitial(RingBuffer *rb, const char *what)
{
    printf("rinbuf: %s - rbInitial: %s fail!\n", rb->name, what);
    rbDetach(rb);
    return nullptr;
}

} // namespace

extern "C" {

RingBuffer *rbInitial(int key, const char *name, int cellSize, int cellCount, int noSkip)
{
    if (name == nullptr || strnlen(name, RB_NAME_MAX + 1) > RB_NAME_MAX)
        return nullptr;
    bool creator = cellSize > 0;
    int64_t shmSize = creator ? creatorSegmentSize(cellSize, cellCount) : 0;
    if (creator && shmSize == 0)
        return nullptr;

    auto *rb = static_cast<RingBuffer *>(calloc(1, sizeof(RingBuffer)));
    if (rb == nullptr)
        return nullptr;
    rb->areaLock = sfInitial(key, creator);
    rb->writerLock = sfInitial(key + kWriterKeyDistance, creator);
    rb->base = kNotAttached;
    strcpy(rb->name, name);
    if (rb->areaLock < 0 || rb->writerLock < 0)
        return failInitial(rb, "semaphore create");

    rb->shmId = shmget(key, size_t(shmSize), creator ? IPC_CREAT | kMode : kMode);
    if (rb->shmId < 0)
        return failInitial(rb, "shmget");
    shmid_ds status{};
    shmctl(rb->shmId, IPC_STAT, &status);
    if (status.shm_segsz < kAreaHeaderSize + kCellHeaderSize)
        return failInitial(rb, "shmget");
    rb->segmentSize = uint32_t(status.shm_segsz);
    void *base = shmat(rb->shmId, nullptr, 0);
    if (base == reinterpret_cast<void *>(-1))
        return failInitial(rb, "shmat");
    rb->base = static_cast<uint8_t *>(base);
    if (creator)
        initialiseArea(rb, uint32_t(shmSize) - kAreaHeaderSize, noSkip);
    return rb;
}

RingBuffer *rbAttach(int key, const char *name)
{
    return rbInitial(key, name, 0, 0, 0);
}

int rbDetach(RingBuffer *rb)
{
    if (rb == nullptr)
        return 0;
    if (rb->base != kNotAttached) {
        takeAreaLock(rb);
        giveBackPlace(rb);
        sfUnlock(rb->areaLock);
        shmdt(rb->base);
    }
    free(rb);
    return 0;
}

int rbRelease(RingBuffer *rb)
{
    if (rb == nullptr)
        return 0;
    __atomic_store_n(&header(rb)->release, 1u, __ATOMIC_RELEASE);
    sfWaitUnlock(rb->areaLock);
    sfWaitUnlock(rb->writerLock);
    if (rb->shmId >= 0) {
        if (shmctl(rb->shmId, IPC_RMID, nullptr) == -1) {
            puts("rinbuf: rbRelease: shmctl fail!");
            return -1;
        }
        rb->shmId = -1;
    }
    if (!removeLock(rb->areaLock) || !removeLock(rb->writerLock)) {
        puts("rinbuf: rbRelease: semaphore release fail!");
        return -1;
    }
    shmdt(rb->base);
    free(rb);
    return 0;
}

} // extern "C"
