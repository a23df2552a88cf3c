// Processes that die at the worst moments (readers holding the area lock or
// a cell, a writer inside a reservation), and another process that writes
// into the shared segment, which is created with mode 0666: every call must
// end, and no payload handed out may run past the segment.
#include "tarvo/ringbuf.h"
#include "tarvo/semlock.h"

#include "support/area_view.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/frames.h"
#include "support/ipc_keys.h"

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <string>
#include <vector>

using namespace tarvo::test;

namespace
{

TEST(Killed, ReadersHoldingTheAreaLockOrACellStopNothing)
{
    IpcKeys keys;
    int key = keys.next();
    RingBuffer *writer = rbInitial(key, "killed", 16 * 1024, 4, 0);
    ASSERT_EQ(writeFrame(writer, 1, 4000), 1);
    Signal ready;
    Child cellHolder([&] {
        ready.raise(rbLockReadSync(rbAttach(key, "holds a cell"), 1) ? '!' : '?');
        return pause();
    });
    ASSERT_EQ(ready.await(), '!');
    Child lockHolder([&] {
        ready.raise(sfLock(sfInitial(key, 0)) == 0 ? '!' : '?'); // as inside every call
        return pause();
    });
    ASSERT_EQ(ready.await(), '!');
    cellHolder.killAndWait();
    lockHolder.killAndWait();
    for (uint32_t number = 2; number <= 60; number++)
        ASSERT_EQ(writeFrame(writer, number, 4000), 1) << "frame " << number;
    AreaView view(key);
    CellView first = view.cells().front();
    EXPECT_EQ(first.used, 1u) << "the dead reader's frame stays held";
    EXPECT_EQ(first.state, 3u) << "and is passed over";
    EXPECT_TRUE(frameIsIntact(view.payload(first.at), 1, first.length));
    EXPECT_EQ(rbRelease(writer), 0);
}

// Parked readers block on a reservation until the writer publishes it, and
// until it dies inside the next one; a restarted writer takes over.
TEST(Killed, WriterInsideAReservation)
{
    IpcKeys keys;
    int key = keys.next();
    Signal fromWriter, toWriter, ready, go;
    Child writer([&] {
        RingBuffer *rb = rbInitial(key, "writer", 16 * 1024, 4, 0);
        fromWriter.raise(writeFrame(rb, 1, 1000) == 1 ? '!' : '?');
        for (uint32_t number = 2; number <= 3; number++) { // dies inside the second
            toWriter.await();
            auto *payload = static_cast<uint8_t *>(rbLockWrite(rb, 1000));
            fromWriter.raise(payload ? '!' : '?');
            toWriter.await();
            fillFrame(payload, number, 1000);
            rbUnlockWrite(rb);
        }
        return 0;
    });
    ASSERT_EQ(fromWriter.await(), '!');
    std::deque<Child> readers;
    for (int i = 0; i < 2; i++)
        readers.emplace_back([&] {
            RingBuffer *rb = rbAttach(key, "parked");
            rbLockRead(rb); // parks on the write position after frame 1
            ready.raise();
            go.await();
            void *payload = rbLockRead(rb);
            bool published = payload && rbGetCellSeq(rb) == 2 && heldFrameIsIntact(rb, payload);
            rbUnlockRead(rb);
            ready.raise(published ? '!' : '?');
            go.await();
            bool quiet = rbLockRead(rb) == nullptr; // nothing new after the death
            return published && quiet && rbDetach(rb) == 0 ? 0 : 1;
        });
    for (int round = 0; round < 2; round++) {
        for (int i = 0; i < 2; i++)
            ASSERT_EQ(ready.await(), '!');
        toWriter.raise();
        ASSERT_EQ(fromWriter.await(), '!') << "reserved";
        go.raise();
        go.raise();
        awaitBlockedOn(semget(key + 16, 0, 0), 2);
        round == 0 ? toWriter.raise() : void(writer.killAndWait());
    }
    for (Child &reader : readers)
        EXPECT_EQ(reader.wait(), 0);

    RingBuffer *restarted = rbInitial(key, "restarted", 16 * 1024, 4, 0);
    RingBuffer *reader = rbAttach(key, "fresh");
    ASSERT_EQ(rbLockRead(reader), nullptr);
    ASSERT_EQ(writeFrame(restarted, 1, 2000), 1);
    void *payload = rbLockRead(reader);
    EXPECT_TRUE(payload && rbGetCellSeq(reader) == 1 && heldFrameIsIntact(reader, payload));
    rbDetach(reader);
    EXPECT_EQ(rbRelease(restarted), 0);
}

// A damage done to a ring that a writer has filled and a reader has read
// from, and calls that must end safely after it (true when they did).
struct Damage {
    const char *name;
    std::function<void(AreaView &)> damage;
    std::function<bool(RingBuffer *writer, RingBuffer *reader)> calls;
};

const Damage kDamages[] = {
    {"HugeSizeAtTheWritePosition",
     [](AreaView &area) { area.setField(area.word(area.WriteCell), area.Size, 0x7FFFFFF0); },
     [](RingBuffer *writer, RingBuffer *) {
         std::vector<uint8_t> frame(8 << 20);
         return rbLockWrite(writer, 66104) == RB_RELEASED &&
                rbSafeWrite(writer, frame.data(), uint32_t(frame.size())) == -1;
     }},
    {"NextOutsideTheSegment",
     [](AreaView &area) { area.setField(area.word(area.WriteCell), area.Next, 0xFFFFFF00); },
     [](RingBuffer *writer, RingBuffer *) { return rbLockWrite(writer, 33000) == RB_RELEASED; }},
    {"WritePositionOffTheChain",
     [](AreaView &area) {
         for (const CellView &cell : area.cells())
             area.setField(cell.at, area.State, 0);
         area.setWord(area.WriteCell, 29);
     },
     [](RingBuffer *, RingBuffer *reader) { return rbLockRead(reader) == RB_RELEASED; }},
    {"CellLinkedToItself", // the reader's next cell, holding nothing new
     [](AreaView &area) {
         area.setField(area.cells()[1].at, area.State, 0);
         area.setField(area.cells()[1].at, area.Next, area.cells()[1].at);
     },
     [](RingBuffer *, RingBuffer *reader) { return rbLockRead(reader) == RB_RELEASED; }},
    {"LinkThatWouldWrapToTheFirstCell",
     [](AreaView &area) { area.setField(area.cells()[1].at, area.Next, 0xFFFFFF00); },
     [](RingBuffer *writer, RingBuffer *reader) {
         return rbLockReadSync(reader, 424242) == RB_RELEASED && rbCheckBuffer(writer) == 0 &&
                rbResetAll(writer) == 0;
     }},
};

using DamagedArea = ::testing::TestWithParam<Damage>;

// The calls run in a child whose alarm turns a hang into a failure.
TEST_P(DamagedArea, EndsSafely)
{
    IpcKeys keys;
    int key = keys.next();
    RingBuffer *writer = rbInitial(key, "damaged", 1000, 32, 0); // a 33052-byte segment
    RingBuffer *reader = rbAttach(key, "reader");
    ASSERT_EQ(rbLockRead(reader), nullptr); // parks on the write position
    for (uint32_t number = 1; number <= 3; number++)
        ASSERT_EQ(writeFrame(writer, number, 5000), 1);
    ASSERT_NE(rbLockRead(reader), nullptr);
    rbUnlockRead(reader);
    AreaView area(key);
    GetParam().damage(area);
    Child child(
        [&] {
            bool safe = false;
            captureStdout([&] { safe = GetParam().calls(writer, reader); });
            return safe ? 0 : 1;
        },
        20);
    EXPECT_EQ(child.wait(), 0);
    rbDetach(reader);
    rbRelease(writer);
}

INSTANTIATE_TEST_SUITE_P(Hostile, DamagedArea, ::testing::ValuesIn(kDamages),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
