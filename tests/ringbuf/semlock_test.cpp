// Semaphore locks shared by key between processes.
#include "tarvo/semlock.h"

#include "support/child.h"
#include "support/ipc_keys.h"

#include <gtest/gtest.h>

using tarvo::test::Child;
using tarvo::test::IpcKeys;
using tarvo::test::Signal;

TEST(SemLock, CreatorStartsFreshAndOpenersFindIt)
{
    IpcKeys keys;
    int key = keys.next();
    EXPECT_EQ(sfInitial(key, 0), -1) << "opening before any creator";

    SemLock first = sfInitial(key, 1);
    ASSERT_GE(first, 0);
    EXPECT_EQ(sfLocked(first), 0);
    EXPECT_EQ(sfInitial(key, 0), first);

    // A second creator throws the free set away and starts afresh.
    SemLock second = sfInitial(key, 1);
    ASSERT_GE(second, 0);
    EXPECT_NE(second, first);
    EXPECT_EQ(sfLocked(second), 0);
    EXPECT_EQ(sfLocked(first), -1) << "the old identifier is gone";
    EXPECT_EQ(sfRelease(first), -1);
    EXPECT_EQ(sfRelease(second), 0);
    EXPECT_EQ(sfInitial(key, 0), -1);
}

TEST(SemLock, HeldSetSurvivesReleaseAndRecreation)
{
    IpcKeys keys;
    int key = keys.next();
    SemLock lock = sfInitial(key, 1);
    ASSERT_EQ(sfLock(lock), 0);
    EXPECT_EQ(sfLocked(lock), 1);
    EXPECT_EQ(sfRelease(lock), -1);
    EXPECT_EQ(sfInitial(key, 1), -1) << "creating over a held set fails";
    EXPECT_EQ(sfLocked(lock), 1);
    EXPECT_EQ(sfUnlock(lock), 0);
    EXPECT_EQ(sfWaitUnlock(lock), 0);
    EXPECT_EQ(sfRelease(lock), 0);
}

TEST(SemLock, ExcludesOtherProcessesUntilUnlocked)
{
    IpcKeys keys;
    SemLock lock = sfInitial(keys.next(), 1);
    ASSERT_EQ(sfLock(lock), 0);
    Signal locked;
    Child other([&] {
        int result = sfLock(lock);
        locked.raise();
        return result == 0 && sfLocked(lock) == 1 ? 0 : 1;
    });
    // The other process queues on the semaphore until we let go.
    while (semctl(lock, 0, GETZCNT) != 1)
        sched_yield();
    EXPECT_EQ(sfUnlock(lock), 0);
    EXPECT_EQ(locked.await(), '!');
    EXPECT_EQ(other.wait(), 0);
    // The child's exit gave its lock back through the undo record.
    EXPECT_EQ(sfLocked(lock), 0);
}

TEST(SemLock, KilledHolderGivesTheLockBack)
{
    IpcKeys keys;
    SemLock lock = sfInitial(keys.next(), 1);
    Signal locked;
    Child holder([&] {
        sfLock(lock);
        locked.raise();
        pause();
        return 0;
    });
    ASSERT_EQ(locked.await(), '!');
    EXPECT_EQ(sfLocked(lock), 1);
    holder.killAndWait();
    EXPECT_EQ(sfLocked(lock), 0);
    EXPECT_EQ(sfLock(lock), 0);
    EXPECT_EQ(sfUnlock(lock), 0);
}

TEST(SemLock, BadIdentifiersFail)
{
    EXPECT_EQ(sfLocked(-1), -1);
    EXPECT_EQ(sfRelease(-1), -1);
    EXPECT_EQ(sfLock(-1), -1);
    EXPECT_EQ(sfWaitUnlock(-1), -1);
}
