// Locks and frames between real processes: semaphore locks by key, every
// frame to every reader in both write styles (profile readers among them),
// the reader that blocks on a reservation, release, and the failure lines.
#include "tarvo/profile.h"
#include "tarvo/ringbuf.h"
#include "tarvo/semlock.h"

#include "support/capture.h"
#include "support/child.h"
#include "support/frames.h"
#include "support/ipc_keys.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using namespace tarvo::test;

namespace
{

constexpr uint32_t kFrames = 60;

uint32_t lengthOf(uint32_t number)
{
    return 16 + (number * 977) % 3000;
}

bool writeFrame(RingBuffer *writer, uint32_t number, bool inPlace)
{
    uint32_t length = lengthOf(number);
    if (!inPlace)
        return rbSafeWrite(writer, makeFrame(number, length).data(), length) == 1;
    void *payload = rbLockWrite(writer, length);
    if (payload == nullptr || payload == RB_RELEASED)
        return false;
    fillFrame(static_cast<uint8_t *>(payload), number, length);
    rbUnlockWrite(writer);
    return true;
}

// Processes waiting for the semaphore with this key to become zero.
int waitingForZero(int key)
{
    return semctl(semget(key, 0, 0), 0, GETZCNT);
}

TEST(SemLock, CreatorStartsFreshOpenersFindItAndAKilledHolderGivesItBack)
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

    Signal locked;
    Child holder([&] {
        sfLock(lock);
        locked.raise();
        pause();
        return 0;
    });
    ASSERT_EQ(locked.await(), '!');
    EXPECT_EQ(sfLocked(lock), 1);
    EXPECT_EQ(sfRelease(lock), -1) << "a held lock is not removed";
    EXPECT_EQ(sfInitial(key, 1), -1) << "nor created over";
    holder.killAndWait();
    EXPECT_EQ(sfLocked(lock), 0) << "given back by the kernel";
    EXPECT_EQ(sfLock(lock), 0);
    Child waiter([&] { return sfLock(lock) == 0 && sfLocked(lock) == 1 ? 0 : 1; });
    while (semctl(lock, 0, GETZCNT) != 1)
        sched_yield();
    EXPECT_EQ(sfUnlock(lock), 0);
    EXPECT_EQ(waiter.wait(), 0);
    EXPECT_EQ(sfWaitUnlock(lock), 0);
    EXPECT_EQ(sfRelease(lock), 0);
    EXPECT_EQ(sfLocked(-1) | sfRelease(-1) | sfLock(-1) | sfWaitUnlock(-1), -1);
}

// Reads frames 1..kFrames, each intact and in order, through the ring or
// as a profile; the exit status says which check failed.
int readAllFrames(int profile, bool asProfile, Signal &ready)
{
    ProfileStream *stream = asProfile ? pfOpen(profile) : nullptr;
    RingBuffer *ring = asProfile ? stream->ring : rbAttach(pfGetPKey(profile), "reader");
    if (ring == nullptr || rbLockRead(ring) != nullptr) // parks on the empty write position
        return 10;
    ready.raise();
    for (uint32_t expected = 1; expected <= kFrames; expected++) {
        int got = asProfile ? pfRead(stream) : 0;
        void *payload = asProfile ? stream->payload : rbGetPayload(ring);
        if (payload == nullptr || payload == RB_RELEASED)
            return 11;
        uint32_t length = rbGetCellLength(ring);
        if (frameNumber(payload) != expected || rbGetCellSeq(ring) != expected)
            return 12;
        if (length != lengthOf(expected) || !frameIsIntact(payload, length))
            return 13;
        if (asProfile && (got != int(length) || stream->profile != profile))
            return 15;
        if (!asProfile)
            rbEndPayload(ring);
    }
    if (asProfile && (stream->frames != int(kFrames) || (pfRead(stream), stream->payload)))
        return 14; // nothing more comes: the wait gives up
    asProfile ? pfClose(stream) : void(rbDetach(ring));
    return 0;
}

class Travel : public ::testing::TestWithParam<bool>
{
};

TEST_P(Travel, EveryReaderGetsEveryFrameByteForByte)
{
    IpcKeys keys;
    int profile = keys.profileNumber();
    RingBuffer *writer = rbInitial(pfGetPKey(profile), "travel", 512 * 1024, 1, 0);
    ASSERT_NE(writer, nullptr);
    std::vector<std::unique_ptr<Signal>> ready;
    std::vector<std::unique_ptr<Child>> readers;
    for (int i = 0; i < 3; i++) {
        ready.push_back(std::make_unique<Signal>());
        Signal &mine = *ready.back();
        readers.push_back(
            std::make_unique<Child>([&, i] { return readAllFrames(profile, i == 0, mine); }));
    }
    for (auto &signal : ready)
        ASSERT_EQ(signal->await(), '!');
    for (uint32_t number = 1; number <= kFrames; number++)
        ASSERT_TRUE(writeFrame(writer, number, GetParam()));
    for (auto &reader : readers)
        EXPECT_EQ(reader->wait(), 0);
    EXPECT_EQ(rbRelease(writer), 0);
}

INSTANTIATE_TEST_SUITE_P(CopiedOrInPlace, Travel, ::testing::Bool());

TEST(Reservation, ParkedReaderBlocksUntilThePublish)
{
    IpcKeys keys;
    int key = keys.next();
    RingBuffer *writer = rbInitial(key, "reserve", 64 * 1024, 1, 0);
    ASSERT_TRUE(writeFrame(writer, 1, true));
    Signal parked, reserved;
    Child reader([&] {
        RingBuffer *rb = rbAttach(key, "parked");
        rbLockRead(rb); // parks on the write position after frame 1
        parked.raise();
        reserved.await();
        void *payload = rbLockRead(rb); // blocks on the reservation
        if (payload == nullptr || frameNumber(payload) != 2)
            return 1;
        return frameIsIntact(payload, rbGetCellLength(rb)) ? 0 : 2;
    });
    ASSERT_EQ(parked.await(), '!');
    void *payload = rbLockWrite(writer, lengthOf(2));
    ASSERT_NE(payload, nullptr);
    reserved.raise();
    while (waitingForZero(key + 16) != 1)
        sched_yield();
    fillFrame(static_cast<uint8_t *>(payload), 2, lengthOf(2));
    rbUnlockWrite(writer);
    EXPECT_EQ(reader.wait(), 0);
    EXPECT_EQ(rbRelease(writer), 0);
}

TEST(Release, OtherUsersGetTheReleasedValueAndNothingIsLeft)
{
    IpcKeys keys;
    int profile = keys.profileNumber(), key = pfGetPKey(profile);
    RingBuffer *writer = rbInitial(key, "release", 64 * 1024, 1, 0);
    ASSERT_TRUE(writeFrame(writer, 1, false));
    Signal attached, released;
    Child reader([&] {
        RingBuffer *rb = rbAttach(key, "late");
        ProfileStream *stream = pfOpen(profile);
        attached.raise();
        released.await();
        int failures = rbLockReadSync(rb, 1) != RB_RELEASED;
        failures += rbLockRead(rb) != RB_RELEASED;
        failures += rbGetPayload(rb) != RB_RELEASED;
        pfRead(stream);
        failures += stream->payload != RB_RELEASED || stream->frames != 1;
        pfClose(stream);
        rbDetach(rb);
        return failures;
    });
    ASSERT_EQ(attached.await(), '!');
    EXPECT_EQ(rbRelease(writer), 0);
    released.raise();
    EXPECT_EQ(reader.wait(), 0);
    EXPECT_LT(shmget(key, 0, 0), 0);
    EXPECT_LT(semget(key, 0, 0), 0);
    EXPECT_LT(semget(key + 16, 0, 0), 0);

    writer = rbInitial(key, "gone", 4096, 1, 0);
    semctl(semget(key, 0, 0), 0, IPC_RMID); // a stranger removes the area lock
    std::string out = captureStdout([&] { EXPECT_EQ(rbRelease(writer), -1); });
    EXPECT_EQ(out, "rinbuf: rbRelease: semaphore release fail!\n");
    EXPECT_EQ(rbDetach(writer), 0);
}

TEST(EarlyAttach, BeforeAnyCreatorPrintsTheLockLine)
{
    IpcKeys keys;
    int profile = keys.profileNumber();
    std::string out = captureStdout([&] { EXPECT_EQ(pfOpen(profile), nullptr); });
    EXPECT_EQ(out, "rinbuf: Profile" + std::to_string(profile) +
                       " - rbInitial: semaphore create fail!\nprofile: streaming not ready\n");
    out = captureStdout([&] { EXPECT_EQ(pfOpen(7), nullptr); });
    EXPECT_NE(out.find("rinbuf: Profile07 - rbInitial:"), std::string::npos) << out;
    EXPECT_EQ(pfGetPKey(0), 4097);
    EXPECT_EQ(pfGetPKey(12), 4109);
    pfClose(nullptr);
    pfUnlock(nullptr);
    EXPECT_EQ(pfRead(nullptr), 0);
}

} // namespace
