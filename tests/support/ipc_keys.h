// System V keys unique to one test process, and removal of everything made
// under them when the test ends, also when it fails.
#pragma once

#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <vector>

namespace tarvo::test
{

// Hands out keys spaced 32 apart (a ring buffer uses K and K + 16) from a
// range derived from the process id.
class IpcKeys
{
  public:
    IpcKeys() : next_(0x10000000 + (getpid() % 0x100000) * 0x200) {}
    ~IpcKeys()
    {
        for (int key : issued_)
            removeAll(key);
    }
    IpcKeys(const IpcKeys &) = delete;
    IpcKeys &operator=(const IpcKeys &) = delete;

    int next()
    {
        issued_.push_back(next_);
        removeAll(next_);
        next_ += 32;
        return issued_.back();
    }
    // A profile number whose key lies in this process's range.
    int profileNumber() { return next() - 4097; }

    // Removes the segment, semaphores and queue under `key` and `key` + 16.
    static void removeAll(int key)
    {
        for (int at : {key, key + 16}) {
            shmctl(shmget(at, 0, 0), IPC_RMID, nullptr);
            semctl(semget(at, 0, 0), 0, IPC_RMID);
            msgctl(msgget(at, 0), IPC_RMID, nullptr);
        }
    }

  private:
    int next_;
    std::vector<int> issued_;
};

} // namespace tarvo::test
