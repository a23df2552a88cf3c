// Two-state inter-process locks on one System V semaphore.
#include "tarvo/semlock.h"

#include <sys/ipc.h>
#include <sys/sem.h>

namespace
{

constexpr int kMode = 0666;

// The caller-defined argument of semctl(SETVAL).
union SemArgument {
    int value;
    semid_ds *status;
    unsigned short *values;
};

// Every control call works on semaphore 0 with a zero fourth argument.
int control(SemLock lock, int command)
{
    return semctl(lock, 0, command, 0);
}

int operate(SemLock lock, sembuf *ops, size_t count)
{
    return semop(lock, ops, count);
}

} // namespace

extern "C" {

SemLock sfInitial(int key, int create)
{
    if (create == 0) {
        int id = semget(key, 1, kMode);
        return id < 0 ? -1 : id;
    }
    int id = semget(key, 1, IPC_CREAT | IPC_EXCL | kMode);
    if (id < 0) {
        // A set left by an earlier run: throw it away unless it is held.
        sfRelease(semget(key, 1, kMode));
        id = semget(key, 1, IPC_CREAT | IPC_EXCL | kMode);
        if (id < 0)
            return -1;
    }
    SemArgument free{.value = 0};
    if (semctl(id, 0, SETVAL, free) < 0)
        return -1;
    return id;
}

int sfLock(SemLock lock)
{
    sembuf ops[2] = {{0, 0, SEM_UNDO}, {0, 1, SEM_UNDO}};
    return operate(lock, ops, 2);
}

int sfUnlock(SemLock lock)
{
    sembuf op = {0, -1, SEM_UNDO};
    return operate(lock, &op, 1);
}

int sfWaitUnlock(SemLock lock)
{
    sembuf op = {0, 0, SEM_UNDO};
    return operate(lock, &op, 1);
}

int sfLocked(SemLock lock)
{
    return control(lock, GETVAL);
}

int sfRelease(SemLock lock)
{
    if (sfLocked(lock) != 0)
        return -1;
    return control(lock, IPC_RMID);
}

} // extern "C"
