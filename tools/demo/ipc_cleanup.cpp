// Finding and removing the demo's System V objects by key.
#include "ipc_cleanup.h"

#include "tarvo/profile.h"
#include "tarvo/schedule.h"

#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>

namespace demo
{
namespace
{

// A ring buffer's writer lock lies this far above its key.
constexpr int kWriterLockOffset = 16;

int removeSemaphore(int key)
{
    int id = semget(key, 0, 0);
    return id >= 0 && semctl(id, 0, IPC_RMID) == 0 ? 1 : 0;
}

int removeSegment(int key)
{
    int id = shmget(key, 0, 0);
    return id >= 0 && shmctl(id, IPC_RMID, nullptr) == 0 ? 1 : 0;
}

int removeQueue(int key)
{
    int id = msgget(key, 0);
    return id >= 0 && msgctl(id, IPC_RMID, nullptr) == 0 ? 1 : 0;
}

} // namespace

bool profileInUse(const Config &config)
{
    int id = shmget(pfGetPKey(config.profile), 0, 0);
    shmid_ds status;
    return id >= 0 && shmctl(id, IPC_STAT, &status) == 0 && status.shm_nattch > 0;
}

int removeDemoObjects(const Config &config)
{
    int ring = pfGetPKey(config.profile);
    return removeSegment(ring) + removeSemaphore(ring) + removeSemaphore(ring + kWriterLockOffset) +
           removeQueue(config.eventKey()) + removeSemaphore(config.eventKey()) +
           removeSemaphore(SD_LOCK_KEY);
}

} // namespace demo
