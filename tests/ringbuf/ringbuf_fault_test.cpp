// Processes that die at the worst moments (readers holding the area lock
// or a cell, a writer holding a reservation), and another process that
// writes into the shared segment, which is created with mode 0666: the
// library must neither hand out memory past the segment nor walk a damaged
// chain for ever.
#include "tarvo/ringbuf.h"
#include "tarvo/semlock.h"

#include "support/area_view.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/frames.h"
#include "support/ipc_keys.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

using namespace tarvo::test;

namespace
{

int writeNumbered(RingBuffer *writer, uint32_t number, uint32_t length)
{
    return rbSafeWrite(writer, makeFrame(number, length).data(), length);
}

TEST(Faults, ReaderKilledHoldingTheAreaLockDoesNotStopTheWriter)
{
    IpcKeys keys;
    int key = keys.next();
    RingBuffer *writer = rbInitial(key, "lock", 16 * 1024, 4, 0);
    ASSERT_NE(writer, nullptr);
    Signal locked;
    Child reader([&] {
        sfLock(sfInitial(key, 0)); // as a reader does inside every call
        locked.raise();
        pause();
        return 0;
    });
    ASSERT_EQ(locked.await(), '!');
    reader.killAndWait();
    for (uint32_t number = 1; number <= 20; number++)
        EXPECT_EQ(writeNumbered(writer, number, 4000), 1);
    EXPECT_EQ(rbRelease(writer), 0);
}

TEST(Faults, CellOfAKilledReaderStaysHeldAndIsPassedOver)
{
    IpcKeys keys;
    int key = keys.next();
    RingBuffer *writer = rbInitial(key, "cell", 16 * 1024, 4, 0);
    ASSERT_NE(writer, nullptr);
    ASSERT_EQ(writeNumbered(writer, 1, 4000), 1);
    Signal holding;
    Child reader([&] {
        RingBuffer *rb = rbAttach(key, "doomed");
        if (rbLockReadSync(rb, 1) == nullptr)
            return 1;
        holding.raise();
        pause();
        return 0;
    });
    ASSERT_EQ(holding.await(), '!');
    reader.killAndWait();
    for (uint32_t number = 2; number <= 60; number++)
        ASSERT_EQ(writeNumbered(writer, number, 4000), 1) << "frame " << number;
    AreaView view(key);
    CellView first = view.cells().front();
    EXPECT_EQ(first.used, 1u);
    EXPECT_EQ(first.state, 3u);
    EXPECT_EQ(first.seq, 1u);
    EXPECT_TRUE(frameIsIntact(view.payload(first.at), first.length));
    EXPECT_EQ(rbRelease(writer), 0);
}

TEST(Faults, WriterKilledInsideAReservationReleasesParkedReaders)
{
    IpcKeys keys;
    int key = keys.next();
    Signal created, reserved;
    Child writer([&] {
        RingBuffer *rb = rbInitial(key, "writer", 16 * 1024, 4, 0);
        writeNumbered(rb, 1, 1000);
        created.raise();
        reserved.await();
        if (rbLockWrite(rb, 1000) == nullptr)
            return 1;
        created.raise();
        pause();
        return 0;
    });
    ASSERT_EQ(created.await(), '!');
    std::vector<std::unique_ptr<Child>> readers;
    std::vector<std::unique_ptr<Signal>> parked;
    Signal go;
    for (int i = 0; i < 2; i++) {
        parked.push_back(std::make_unique<Signal>());
        Signal &mine = *parked.back();
        readers.push_back(std::make_unique<Child>([&] {
            RingBuffer *rb = rbAttach(key, "parked");
            rbLockRead(rb); // parks on the write position after frame 1
            mine.raise();
            go.await();
            void *payload = rbLockRead(rb); // blocks on the reservation
            rbDetach(rb);
            return payload == nullptr ? 0 : 1;
        }));
    }
    for (auto &signal : parked)
        ASSERT_EQ(signal->await(), '!');
    reserved.raise();
    ASSERT_EQ(created.await(), '!');
    go.raise();
    go.raise();
    while (semctl(semget(key + 16, 0, 0), 0, GETZCNT) != 2)
        sched_yield();
    writer.killAndWait();
    for (auto &reader : readers)
        EXPECT_EQ(reader->wait(), 0) << "the wait ends with nothing new";

    // A restarted writer takes the buffer over for readers attaching after it.
    RingBuffer *restarted = rbInitial(key, "restarted", 16 * 1024, 4, 0);
    ASSERT_NE(restarted, nullptr);
    RingBuffer *reader = rbAttach(key, "fresh");
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(rbLockRead(reader), nullptr);
    ASSERT_EQ(writeNumbered(restarted, 1, 2000), 1);
    void *payload = rbLockRead(reader);
    ASSERT_NE(payload, nullptr);
    EXPECT_EQ(rbGetCellSeq(reader), 1u);
    EXPECT_TRUE(frameIsIntact(payload, rbGetCellLength(reader)));
    rbDetach(reader);
    EXPECT_EQ(rbRelease(restarted), 0);
}

// Each damage is done to a ring that a writer has filled and a reader has
// read from; the call runs in a child whose alarm turns a hang into a failure.
constexpr uint32_t kSize = 16, kNext = 28, kState = 8;
constexpr int kCellSize = 1000, kCellCount = 32; // a 33052-byte segment

struct Damage {
    const char *name;
    std::function<void(AreaView &)> damage;
    // Runs in the child; true when the call ended safely.
    std::function<bool(RingBuffer *writer, RingBuffer *reader)> call;
};

void PrintTo(const Damage &damage, std::ostream *out)
{
    *out << damage.name;
}

uint32_t writePosition(AreaView &view)
{
    return view.word(AreaView::WriteCell);
}

bool released(void *payload)
{
    return payload == RB_RELEASED;
}

const std::vector<Damage> kDamages = {
    {"HugeSizeAtTheWritePosition",
     [](AreaView &view) { view.setField(writePosition(view), kSize, 0x7FFFFFF0); },
     [](RingBuffer *writer, RingBuffer *) {
         std::vector<uint8_t> frame(8 << 20);
         return released(rbLockWrite(writer, 66104)) &&
                rbSafeWrite(writer, frame.data(), uint32_t(frame.size())) == -1;
     }},
    {"NextOutsideTheSegment",
     [](AreaView &view) { view.setField(writePosition(view), kNext, 0xFFFFFF00); },
     [](RingBuffer *writer, RingBuffer *) { return released(rbLockWrite(writer, 33000)); }},
    {"WritePositionOffTheChain",
     [](AreaView &view) {
         for (const CellView &cell : view.cells())
             view.setField(cell.at, kState, 0);
         view.setWord(AreaView::WriteCell, 29);
     },
     [](RingBuffer *, RingBuffer *reader) { return released(rbLockRead(reader)); }},
    {"CellLinkedToItself",
     [](AreaView &view) { // the reader's next cell, holding nothing new
         CellView second = view.cells()[1];
         view.setField(second.at, kState, 0);
         view.setField(second.at, kNext, second.at);
     },
     [](RingBuffer *, RingBuffer *reader) { return released(rbLockRead(reader)); }},
    {"LinkThatWouldWrapToTheFirstCell",
     [](AreaView &view) { view.setField(view.cells()[1].at, kNext, 0xFFFFFF00); },
     [](RingBuffer *writer, RingBuffer *reader) {
         return released(rbLockReadSync(reader, 424242)) && rbCheckBuffer(writer) == 0 &&
                rbResetAll(writer) == 0;
     }},
};

class DamagedArea : public ::testing::TestWithParam<Damage>
{
};

TEST_P(DamagedArea, EndsSafely)
{
    IpcKeys keys;
    int key = keys.next();
    RingBuffer *writer = rbInitial(key, "damaged", kCellSize, kCellCount, 0);
    ASSERT_NE(writer, nullptr);
    RingBuffer *reader = rbAttach(key, "reader");
    ASSERT_EQ(rbLockRead(reader), nullptr); // parks on the write position
    for (uint32_t number = 1; number <= 3; number++)
        ASSERT_EQ(writeNumbered(writer, number, 5000), 1);
    ASSERT_NE(rbLockRead(reader), nullptr);
    rbUnlockRead(reader);
    {
        AreaView view(key);
        GetParam().damage(view);
    }
    Child child(
        [&] {
            bool safe = false;
            captureStdout([&] { safe = GetParam().call(writer, reader); });
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
