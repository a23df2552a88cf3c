#include "owned_ring.h"

#include <cstdio>
#include <initializer_list>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

namespace tarvo::bench
{

namespace
{

constexpr int kWriterLockKeyDistance = 16;

// Removes whatever rbRelease could not, so that no run leaves objects behind.
void removeLeftovers(int key)
{
    if (int segment = shmget(key, 0, 0); segment >= 0)
        shmctl(segment, IPC_RMID, nullptr);
    for (int lockKey : {key, key + kWriterLockKeyDistance})
        if (int lock = semget(lockKey, 0, 0); lock >= 0)
            semctl(lock, 0, IPC_RMID);
}

} // namespace

OwnedRing::OwnedRing(int key, uint32_t frameLength)
    : key_(key), ring_(rbInitial(key, "bench", int(frameLength), kRingCells, 0))
{
}

OwnedRing::~OwnedRing()
{
    if (ring_ != nullptr && rbRelease(ring_) == 0)
        return;
    // A failed creation can leave its locks behind, a failed release anything.
    if (ring_ != nullptr)
        fprintf(stderr, "bench: ring 0x%x not released, removing its objects by key\n", key_);
    removeLeftovers(key_);
}

uint64_t OwnedRing::cellsBytes(uint32_t frameLength)
{
    return uint64_t{kRingCells} * (frameLength + kCellHeaderBytes);
}

} // namespace tarvo::bench
