// System V keys unique to one test process, and removal of everything made
// under them when the test ends, also when it fails.
#ifndef TARVO_TESTS_IPC_KEYS_H
#define TARVO_TESTS_IPC_KEYS_H

#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <vector>

namespace tarvo::test
{

// Hands out keys spaced 32 apart (a ring buffer uses K and K + 16) from a
// range derived from the process id; removes every object under them on
// destruction.
class IpcKeys
{
  public:
    IpcKeys() : next_(0x10000000 + (getpid() % 0x100000) * 0x200) {}
    ~IpcKeys()
    {
        for (int key : issued_) {
            removeAll(key);
            removeAll(key + 16);
        }
    }
    IpcKeys(const IpcKeys &) = delete;
    IpcKeys &operator=(const IpcKeys &) = delete;

    int next()
    {
        int key = next_;
        next_ += 32;
        issued_.push_back(key);
        removeAll(key);
        removeAll(key + 16);
        return key;
    }

    // A profile number whose key lies in this process's range.
    int profileNumber() { return next() - 4097; }

    static void removeAll(int key)
    {
        int shm = shmget(key, 0, 0);
        if (shm >= 0)
            shmctl(shm, IPC_RMID, nullptr);
        int sem = semget(key, 0, 0);
        if (sem >= 0)
            semctl(sem, 0, IPC_RMID);
        int queue = msgget(key, 0);
        if (queue >= 0)
            msgctl(queue, IPC_RMID, nullptr);
    }

  private:
    int next_;
    std::vector<int> issued_;
};

} // namespace tarvo::test

#endif
