/*
 * Inter-process locks: one System V semaphore (number 0 of a one-semaphore
 * set) used as a two-state lock shared by key.  Value 0 is free, 1 is held.
 * Every operation blocks and carries SEM_UNDO, so a lock held by a process
 * that dies is given back by the kernel.  Nothing is printed; results are
 * those of the system calls (-1 with errno set).
 */
#ifndef TARVO_SEMLOCK_H
#define TARVO_SEMLOCK_H

#include "api.h"

TARVO_BEGIN_DECLS

/* A semaphore identifier as semget returned it; negative means no lock. */
typedef int SemLock;

/*
 * create == 0: open the set under key (mode 0666), -1 when there is none.
 * create != 0: make a fresh, free set.  A set left under the key by an
 * earlier run is removed first unless it is held at that moment, in which
 * case the result is -1.
 */
TARVO_API SemLock sfInitial(int key, int create);

/* Wait until the lock is free and take it, atomically: 0, or -1. */
TARVO_API int sfLock(SemLock lock);

/* Give the lock back (value - 1).  Not checked: on a free lock this blocks
 * until somebody raises the value. */
TARVO_API int sfUnlock(SemLock lock);

/* Block until the lock is free without taking it: 0, or -1. */
TARVO_API int sfWaitUnlock(SemLock lock);

/* The semaphore's value: 0 free, 1 held, -1 on error (bad identifier). */
TARVO_API int sfLocked(SemLock lock);

/* Remove the set: 0; -1 when it is held (or sfLocked fails), nothing removed. */
TARVO_API int sfRelease(SemLock lock);

TARVO_END_DECLS

#endif
