// Locks and frames between real processes: semaphore locks by key, every
// frame to every reader in both write styles (profile readers among them),
// release, and the failure lines.
#include "tarvo/profile.h"
#include "tarvo/ringbuf.h"
#include "tarvo/semlock.h"

#include "support/capture.h"
#include "support/child.h"
#include "support/frames.h"
#include "support/ipc_keys.h"

#include <gtest/gtest.h>

#include <deque>
#include <string>

using namespace tarvo::test;

namespace
{

constexpr uint32_t kFrames = 60;

TEST(SemLock, CreatorStartsFreshOpenersFindItAndAHeldLockStays)
{
    IpcKeys keys;
    int key = keys.next();
    EXPECT_EQ(sfInitial(key, 0), -1) << "opening before any creator";
    SemLock first = sfInitial(key, 1);
    ASSERT_GE(first, 0);
    EXPECT_EQ(sfInitial(key, 0), first);
    SemLock lock = sfInitial(key, 1); // a second creator starts afresh
    EXPECT_NE(lock, first);
    EXPECT_EQ(sfLocked(first), -1) << "the old identifier is gone";

    EXPECT_EQ(sfLock(lock), 0);
    EXPECT_EQ(sfLocked(lock), 1);
    EXPECT_EQ(sfRelease(lock), -1) << "a held lock is not removed";
    EXPECT_EQ(sfInitial(key, 1), -1) << "nor created over";
    Child waiter([&] { return sfLock(lock) == 0 && sfLocked(lock) == 1 ? 0 : 1; });
    awaitBlockedOn(lock, 1);
    EXPECT_EQ(sfUnlock(lock), 0);
    EXPECT_EQ(waiter.wait(), 0);
    EXPECT_EQ(sfLocked(lock), 0) << "the waiter's exit gave it back";
    EXPECT_EQ(sfWaitUnlock(lock), 0);
    EXPECT_EQ(sfRelease(lock), 0);
    EXPECT_EQ(sfLocked(-1) | sfRelease(-1) | sfLock(-1) | sfWaitUnlock(-1), -1);
}

// Reads frames 1..kFrames, each intact and in order, through the ring or as
// a profile; then, told of the release, sees it in every way of reading.
int readAllFrames(int profile, bool asProfile, Signal &ready, Signal &released)
{
    ProfileStream *stream = asProfile ? pfOpen(profile) : nullptr;
    RingBuffer *ring = asProfile ? stream->ring : rbAttach(pfGetPKey(profile), "reader");
    rbLockRead(ring); // parks on the empty write position
    ready.raise();
    bool inOrder = true;
    for (uint32_t expected = 1; inOrder && expected <= kFrames; expected++) {
        int length = asProfile ? pfRead(stream) : 0;
        void *payload = asProfile ? stream->payload : rbGetPayload(ring);
        inOrder = payload != nullptr && payload != RB_RELEASED && rbGetCellSeq(ring) == expected &&
                  heldFrameIsIntact(ring, payload) &&
                  (!asProfile || length == int(rbGetCellLength(ring)));
        if (inOrder && !asProfile)
            rbEndPayload(ring);
    }
    ready.raise(inOrder ? '!' : '?');
    released.await();
    bool seen = asProfile
                    ? (pfRead(stream), stream->payload == RB_RELEASED)
                    : rbLockReadSync(ring, 1) == RB_RELEASED && rbLockRead(ring) == RB_RELEASED &&
                          rbGetPayload(ring) == RB_RELEASED;
    bool counted = !asProfile || (stream->frames == int(kFrames) + 1 && stream->profile == profile);
    asProfile ? pfClose(stream) : void(rbDetach(ring));
    return seen && counted ? 0 : 1;
}

using Travel = ::testing::TestWithParam<bool>;

TEST_P(Travel, EveryReaderGetsEveryFrameByteForByteThenTheRelease)
{
    IpcKeys keys;
    int profile = keys.profileNumber(), key = pfGetPKey(profile);
    RingBuffer *writer = rbInitial(key, "travel", 512 * 1024, 1, 0);
    ASSERT_NE(writer, nullptr);
    Signal ready, released;
    std::deque<Child> readers;
    for (int i = 0; i < 3; i++)
        readers.emplace_back([&, i] { return readAllFrames(profile, i == 0, ready, released); });
    for (int i = 0; i < 3; i++)
        ASSERT_EQ(ready.await(), '!');
    for (uint32_t number = 1; number <= kFrames; number++)
        ASSERT_EQ(writeFrame(writer, number, frameLength(number), GetParam()), 1);
    for (int i = 0; i < 3; i++)
        ASSERT_EQ(ready.await(), '!');
    EXPECT_EQ(rbRelease(writer), 0);
    for (int i = 0; i < 3; i++)
        released.raise();
    for (Child &reader : readers)
        EXPECT_EQ(reader.wait(), 0);
    EXPECT_TRUE(shmget(key, 0, 0) < 0 && semget(key, 0, 0) < 0 && semget(key + 16, 0, 0) < 0)
        << "nothing is left";
}

INSTANTIATE_TEST_SUITE_P(CopiedOrInPlace, Travel, ::testing::Bool());

TEST(Lines, ProfileBeforeItsCreatorAndALockRemovedByAStranger)
{
    IpcKeys keys;
    int profile = keys.profileNumber(), key = pfGetPKey(profile);
    std::string out = captureStdout([&] { EXPECT_EQ(pfOpen(profile), nullptr); });
    EXPECT_EQ(out, "rinbuf: Profile" + std::to_string(profile) +
                       " - rbInitial: semaphore create fail!\nprofile: streaming not ready\n");
    out = captureStdout([&] { EXPECT_EQ(pfOpen(7), nullptr); });
    EXPECT_NE(out.find("rinbuf: Profile07 - rbInitial:"), std::string::npos) << out;
    EXPECT_EQ(pfGetPKey(12), 4109);
    pfClose(nullptr);
    pfUnlock(nullptr);
    EXPECT_EQ(pfRead(nullptr), 0);

    RingBuffer *writer = rbInitial(key, "gone", 4096, 1, 0);
    semctl(semget(key, 0, 0), 0, IPC_RMID);
    out = captureStdout([&] { EXPECT_EQ(rbRelease(writer), -1); });
    EXPECT_EQ(out, "rinbuf: rbRelease: semaphore release fail!\n");
    EXPECT_EQ(rbDetach(writer), 0);
}

} // namespace
