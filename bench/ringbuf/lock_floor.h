// The floor under every rbSafeWrite: the semaphore operations of its lock
// protocol (take the writer lock, take the area lock without waiting, give
// back the area lock, give back the writer lock), on two semaphores of their
// own that no other process touches.
#ifndef TARVO_BENCH_LOCK_FLOOR_H
#define TARVO_BENCH_LOCK_FLOOR_H

#include "call_times.h"

#include "tarvo/semlock.h"

namespace tarvo::bench
{

class LockFloor
{
  public:
    // Makes the semaphores under `key` and `key` + 16; check valid().
    explicit LockFloor(int key);
    // Removes them, also when a round was cut short.
    ~LockFloor();
    LockFloor(const LockFloor &) = delete;
    LockFloor &operator=(const LockFloor &) = delete;

    bool valid() const { return areaLock_ >= 0 && writerLock_ >= 0; }
    // One round of the four operations, timed into `times`.
    void round(CallTimes &times) const;

  private:
    SemLock areaLock_;
    SemLock writerLock_;
};

} // namespace tarvo::bench

#endif
