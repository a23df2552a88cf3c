// Another process writes into the shared segment (it is created with mode
// 0666): the library must neither hand out memory past the segment nor walk
// a damaged chain for ever.  Each case damages a ring that a writer has
// filled and a reader has read from, then runs one call in a child process
// whose alarm turns a hang into a failure.
#include "tarvo/ringbuf.h"

#include "support/area_view.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/frames.h"
#include "support/ipc_keys.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

using namespace tarvo::test;

namespace
{

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
        ASSERT_EQ(rbSafeWrite(writer, makeFrame(number, 5000).data(), 5000), 1);
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
