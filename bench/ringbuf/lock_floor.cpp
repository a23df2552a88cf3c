#include "lock_floor.h"

#include <sys/ipc.h>
#include <sys/sem.h>

namespace tarvo::bench
{

namespace
{

constexpr int kWriterLockKeyDistance = 16;

void remove(SemLock lock)
{
    if (lock >= 0 && sfRelease(lock) != 0)
        semctl(lock, 0, IPC_RMID);
}

} // namespace

LockFloor::LockFloor(int key)
    : areaLock_(sfInitial(key, 1)), writerLock_(sfInitial(key + kWriterLockKeyDistance, 1))
{
}

LockFloor::~LockFloor()
{
    remove(areaLock_);
    remove(writerLock_);
}

// The area lock is taken as the writer first tries it: both operations in
// one call, without waiting.
void LockFloor::round(CallTimes &times) const
{
    times.time([&] {
        sembuf take[2] = {{0, 0, SEM_UNDO | IPC_NOWAIT}, {0, 1, SEM_UNDO | IPC_NOWAIT}};
        sfLock(writerLock_);
        semop(areaLock_, take, 2);
        sfUnlock(areaLock_);
        sfUnlock(writerLock_);
    });
}

} // namespace tarvo::bench
