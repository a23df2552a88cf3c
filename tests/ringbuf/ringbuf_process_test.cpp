// Frames travelling between real processes: a writer, several readers, the
// reader that blocks on a reservation, release, and the failure lines of
// attaching too early.
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

enum class Style { Copy, InPlace };

constexpr int kFrames = 60;

uint32_t lengthOf(uint32_t number)
{
    return 16 + (number * 977) % 3000;
}

bool writeFrame(RingBuffer *writer, uint32_t number, Style style)
{
    uint32_t length = lengthOf(number);
    if (style == Style::Copy)
        return rbSafeWrite(writer, makeFrame(number, length).data(), length) == 1;
    void *payload = rbLockWrite(writer, length);
    if (payload == nullptr || payload == RB_RELEASED)
        return false;
    fillFrame(static_cast<uint8_t *>(payload), number, length);
    rbUnlockWrite(writer);
    return true;
}

// Reads until it has frames 1..kFrames, each intact and in order; the exit
// status says which check failed.
int readAllFrames(int key, Signal &ready)
{
    RingBuffer *reader = rbAttach(key, "reader");
    if (reader == nullptr)
        return 10;
    if (rbLockRead(reader) != nullptr) // parks on the empty write position
        return 9;
    ready.raise();
    for (uint32_t expected = 1; expected <= kFrames; expected++) {
        void *payload = rbGetPayload(reader);
        if (payload == nullptr || payload == RB_RELEASED)
            return 11;
        uint32_t length = rbGetCellLength(reader);
        if (frameNumber(payload) != expected || rbGetCellSeq(reader) != expected)
            return 12;
        if (length != lengthOf(expected) || !frameIsIntact(payload, length))
            return 13;
        rbEndPayload(reader);
    }
    rbDetach(reader);
    return 0;
}

class Travel : public ::testing::TestWithParam<Style>
{
};

TEST_P(Travel, EveryReaderGetsEveryFrameByteForByte)
{
    IpcKeys keys;
    int key = keys.next();
    RingBuffer *writer = rbInitial(key, "travel", 512 * 1024, 1, 0);
    ASSERT_NE(writer, nullptr);
    std::vector<std::unique_ptr<Signal>> ready;
    std::vector<std::unique_ptr<Child>> readers;
    for (int i = 0; i < 3; i++) {
        ready.push_back(std::make_unique<Signal>());
        Signal &mine = *ready.back();
        readers.push_back(std::make_unique<Child>([&] { return readAllFrames(key, mine); }));
    }
    for (auto &signal : ready)
        ASSERT_EQ(signal->await(), '!');
    for (uint32_t number = 1; number <= kFrames; number++)
        ASSERT_TRUE(writeFrame(writer, number, GetParam()));
    for (auto &reader : readers)
        EXPECT_EQ(reader->wait(), 0);
    EXPECT_EQ(rbRelease(writer), 0);
}

INSTANTIATE_TEST_SUITE_P(BothStyles, Travel, ::testing::Values(Style::Copy, Style::InPlace));

// Processes waiting for the semaphore to become zero.
int waitingForZero(int key)
{
    return semctl(semget(key, 0, 0), 0, GETZCNT);
}

TEST(Reservation, ParkedReaderBlocksUntilThePublish)
{
    IpcKeys keys;
    int key = keys.next();
    RingBuffer *writer = rbInitial(key, "reserve", 64 * 1024, 1, 0);
    ASSERT_NE(writer, nullptr);
    ASSERT_TRUE(writeFrame(writer, 1, Style::InPlace));
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

TEST(Release, OtherUsersGetTheReleasedValue)
{
    IpcKeys keys;
    int key = keys.next();
    RingBuffer *writer = rbInitial(key, "release", 64 * 1024, 1, 0);
    ASSERT_NE(writer, nullptr);
    ASSERT_TRUE(writeFrame(writer, 1, Style::Copy));
    Signal attached, released;
    Child reader([&] {
        RingBuffer *rb = rbAttach(key, "late");
        attached.raise();
        released.await();
        int failures = 0;
        failures += rbLockReadSync(rb, 1) != RB_RELEASED;
        failures += rbLockRead(rb) != RB_RELEASED;
        failures += rbGetPayload(rb) != RB_RELEASED;
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
}

TEST(Release, FailureLeavesTheHandleAllocated)
{
    IpcKeys keys;
    int key = keys.next();
    RingBuffer *writer = rbInitial(key, "gone", 4096, 1, 0);
    ASSERT_NE(writer, nullptr);
    semctl(semget(key, 0, 0), 0, IPC_RMID); // a stranger removes the area lock
    std::string out = captureStdout([&] { EXPECT_EQ(rbRelease(writer), -1); });
    EXPECT_EQ(out, "rinbuf: rbRelease: semaphore release fail!\n");
    EXPECT_EQ(rbDetach(writer), 0);
}

TEST(EarlyAttach, BeforeAnyCreatorPrintsTheLockLine)
{
    IpcKeys keys;
    int key = keys.next();
    std::string out = captureStdout([&] { EXPECT_EQ(rbAttach(key, "early"), nullptr); });
    EXPECT_EQ(out, "rinbuf: early - rbInitial: semaphore create fail!\n");

    int profile = keys.profileNumber();
    out = captureStdout([&] { EXPECT_EQ(pfOpen(profile), nullptr); });
    EXPECT_EQ(out, "rinbuf: Profile" + std::to_string(profile) +
                       " - rbInitial: semaphore create fail!\nprofile: streaming not ready\n");
    out = captureStdout([&] { EXPECT_EQ(pfOpen(7), nullptr); });
    EXPECT_NE(out.find("rinbuf: Profile07 - rbInitial:"), std::string::npos) << out;
}

} // namespace
