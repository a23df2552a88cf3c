// The cell arithmetic a caller can observe through the shared segment:
// geometry, splits, merges, passed-over cells, resets, nearest-number reads
// and the chain dump.
#include "tarvo/ringbuf.h"

#include "support/area_view.h"
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

constexpr uint32_t kFirst = 28;
constexpr uint32_t kCellHeader = 32;

enum class Style { Copy, InPlace };

// One creating handle on a fresh area and a view of its segment.
class Ring : public ::testing::Test
{
  protected:
    void create(int cellSize, int cellCount = 1, int noSkip = 0)
    {
        key_ = keys_.next();
        writer_ = rbInitial(key_, "cells", cellSize, cellCount, noSkip);
        ASSERT_NE(writer_, nullptr);
        view_ = std::make_unique<AreaView>(key_);
        ASSERT_TRUE(view_->attached());
    }
    void TearDown() override
    {
        view_.reset();
        for (RingBuffer *reader : readers_)
            rbDetach(reader);
        if (writer_)
            rbRelease(writer_);
    }
    RingBuffer *attachReader()
    {
        RingBuffer *reader = rbAttach(key_, "reader");
        readers_.push_back(reader);
        return reader;
    }
    // Writes the next numbered frame; the result of the write call.
    int write(uint32_t length, Style style = Style::Copy)
    {
        auto frame = makeFrame(++written_, length);
        if (style == Style::Copy)
            return rbSafeWrite(writer_, frame.data(), length);
        void *payload = rbLockWrite(writer_, length);
        if (payload == nullptr || payload == RB_RELEASED)
            return payload == nullptr ? 0 : -1;
        std::memcpy(payload, frame.data(), length);
        rbUnlockWrite(writer_);
        return 1;
    }
    std::vector<uint32_t> sizes() const
    {
        std::vector<uint32_t> result;
        for (const CellView &cell : view_->cells())
            result.push_back(cell.size);
        return result;
    }
    std::vector<uint32_t> states() const
    {
        std::vector<uint32_t> result;
        for (const CellView &cell : view_->cells())
            result.push_back(cell.state);
        return result;
    }

    IpcKeys keys_;
    int key_ = 0;
    uint32_t written_ = 0;
    RingBuffer *writer_ = nullptr;
    std::vector<RingBuffer *> readers_;
    std::unique_ptr<AreaView> view_;
};

TEST_F(Ring, FreshAreaIsOneEmptyCellCoveringTheSegment)
{
    create(100, 4);
    EXPECT_EQ(view_->segmentSize(), 28u + 4 * 132);
    EXPECT_EQ(view_->word(AreaView::CellCount), 1u);
    EXPECT_EQ(view_->word(AreaView::CellsBytes), 528u);
    EXPECT_EQ(view_->word(AreaView::WriteCell), kFirst);
    EXPECT_EQ(view_->word(AreaView::FirstCell), kFirst);
    auto cells = view_->cells();
    ASSERT_EQ(cells.size(), 1u);
    EXPECT_EQ(cells[0].size, 496u);
    EXPECT_EQ(cells[0].state, 0u);
    EXPECT_EQ(cells[0].prev, 0u);
    EXPECT_EQ(rbGetCellCount(writer_), 1u);
    EXPECT_EQ(rbGetError(writer_), 0u);

    std::string dump = captureStdout([&] { EXPECT_EQ(rbCheckBuffer(writer_), 0); });
    EXPECT_EQ(dump.substr(0, 35), "Rinbuf: Current Cell: Addr: 1c, Usa");
    EXPECT_NE(dump.find(", Writer: 1c\nRinbuf: Scan all cell 1:\n"
                        "   0 Cell Addr: 1c, Used: 0, Stay: 0, WStat: 0, Seq: 0\n"
                        "                  size: 496, length: 0, Prev: 0, Next: 0\n"),
              std::string::npos)
        << dump;
}

// A fresh 4000-byte cell after one write: the cut keeps the frame's length
// rounded up to 4 when at least 1024 spare bytes remain.
struct SplitCase {
    uint32_t length;
    std::vector<uint32_t> sizes;
};

class Split : public Ring, public ::testing::WithParamInterface<std::tuple<SplitCase, Style>>
{
};

TEST_P(Split, CutsAtTheThreshold)
{
    auto [split, style] = GetParam();
    create(4000);
    ASSERT_EQ(write(split.length, style), 1);
    EXPECT_EQ(sizes(), split.sizes);
    EXPECT_EQ(rbGetCellCount(writer_), split.sizes.size());
    auto cells = view_->cells();
    EXPECT_EQ(cells[0].seq, 1u);
    EXPECT_EQ(cells[0].length, split.length);
    if (cells.size() == 2) {
        EXPECT_EQ(states(), (std::vector<uint32_t>{2, 1}));
        EXPECT_EQ(view_->word(AreaView::WriteCell), kFirst + kCellHeader + cells[0].size);
        EXPECT_EQ(cells[1].prev, kFirst);
        EXPECT_EQ(cells[0].next, cells[1].at);
    } else {
        // No split: the frame's cell is the only one, and the write position
        // wraps round onto it.
        EXPECT_EQ(states(), (std::vector<uint32_t>{1}));
        EXPECT_EQ(view_->word(AreaView::WriteCell), kFirst);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Threshold, Split,
    ::testing::Combine(::testing::Values(SplitCase{2977, {4000}},      // 1023 spare -> 1020
                                         SplitCase{2976, {2976, 992}}, // exactly 1024
                                         SplitCase{2975, {2976, 992}}, // 1025 -> 1024
                                         SplitCase{101, {104, 3864}}, SplitCase{100, {100, 3868}}),
                       ::testing::Values(Style::Copy, Style::InPlace)));

TEST_F(Ring, TooSmallWritePositionSwallowsFreeNeighbours)
{
    create(4000);
    ASSERT_EQ(write(100), 1);  // [100 full][3868 write position]
    ASSERT_EQ(write(3000), 1); // fills the second cell, no split: wraps to the first
    EXPECT_EQ(sizes(), (std::vector<uint32_t>{100, 3868}));
    EXPECT_EQ(view_->word(AreaView::WriteCell), kFirst);
    // 200 bytes do not fit the first cell: it swallows the second (losing
    // frame 2), takes the frame and splits again.
    ASSERT_EQ(write(200), 1);
    EXPECT_EQ(sizes(), (std::vector<uint32_t>{200, 3768}));
    EXPECT_EQ(view_->cells()[0].seq, 3u);
    EXPECT_EQ(rbGetCellCount(writer_), 2u);
}

// The write position is the last cell and cannot take the frame: it is
// merged into the cell before it, which becomes the write position, and the
// search ends after one lap.  Run in a child so that a search that never
// ends fails the test instead of hanging it.
TEST_F(Ring, FrameLargerThanTheAreaIsDroppedAfterOneLap)
{
    for (Style style : {Style::Copy, Style::InPlace}) {
        create(4000);
        ASSERT_EQ(write(100), 1);
        Child oversized([&] { return write(5000, style) == 0 ? 0 : 1; }, 10);
        EXPECT_EQ(oversized.wait(), 0) << (style == Style::Copy ? "copy" : "in place");
        EXPECT_EQ(sizes(), (std::vector<uint32_t>{4000}));
        EXPECT_EQ(view_->word(AreaView::WriteCell), kFirst);
        rbRelease(writer_);
        writer_ = nullptr;
    }
}

TEST_F(Ring, FreshAreaDropsAFrameLargerThanItself)
{
    create(4000);
    EXPECT_EQ(write(4001), 0);
    EXPECT_EQ(write(4001, Style::InPlace), 0);
    EXPECT_EQ(write(4000), 1);
}

TEST_F(Ring, HeldCellIsPassedOverOrStopsTheWriterWithNoSkip)
{
    for (int noSkip : {0, 1}) {
        create(4000, 1, noSkip);
        RingBuffer *reader = attachReader();
        ASSERT_EQ(write(100), 1);
        ASSERT_NE(rbLockReadSync(reader, 1), nullptr); // holds frame 1 in the first cell
        ASSERT_EQ(write(3000), 1);                     // write position wraps onto it
        EXPECT_EQ(view_->cells()[0].used, 1u);
        if (noSkip) {
            EXPECT_EQ(write(100), 0);
            EXPECT_EQ(write(100, Style::InPlace), 0);
            EXPECT_EQ(states(), (std::vector<uint32_t>{1, 2}));
        } else {
            ASSERT_EQ(write(100), 1);
            EXPECT_EQ(states(), (std::vector<uint32_t>{3, 2, 1}));
            EXPECT_EQ(sizes(), (std::vector<uint32_t>{100, 100, 3736}));
            EXPECT_EQ(view_->cells()[1].seq, 3u);
        }
        rbUnlockRead(reader);
        rbDetach(reader);
        readers_.clear();
        rbRelease(writer_);
        writer_ = nullptr;
    }
}

TEST_F(Ring, ReaderTakesAPassedOverFrameOnlyAsTheNextNumber)
{
    create(8000);
    RingBuffer *reader = attachReader();
    for (int i = 0; i < 3; i++)
        ASSERT_EQ(write(1000), 1);
    auto cells = view_->cells();
    ASSERT_NE(rbLockReadSync(reader, 1), nullptr);
    rbUnlockRead(reader); // parked on frame 2's cell

    view_->setField(cells[1].at, 8, 3); // passed over, and the next number
    ASSERT_NE(rbLockRead(reader), nullptr);
    EXPECT_EQ(rbGetCellSeq(reader), 2u);
    rbUnlockRead(reader);

    view_->setField(cells[2].at, 8, 3); // passed over, but not the next number
    view_->setField(cells[2].at, 12, 5);
    EXPECT_EQ(rbLockRead(reader), nullptr);
    EXPECT_EQ(view_->cells()[3].stay, 1u) << "parked on the write position";
}

TEST_F(Ring, ResetForgetsFramesAndRestartsNumbering)
{
    create(8000);
    RingBuffer *reader = attachReader();
    for (int i = 0; i < 3; i++)
        ASSERT_EQ(write(1000), 1);
    ASSERT_NE(rbLockReadSync(reader, 3), nullptr);
    EXPECT_EQ(rbResetAll(writer_), 0);
    EXPECT_EQ(states(), (std::vector<uint32_t>{0, 0, 0, 1}));
    EXPECT_EQ(view_->cells()[2].used, 1u) << "a held frame stays held";
    rbUnlockRead(reader);
    ASSERT_EQ(write(1000), 1);
    EXPECT_EQ(view_->cells()[3].seq, 1u);
    // The reader last read frame 3; the new frame 1 is another number.
    void *payload = rbLockRead(reader);
    ASSERT_NE(payload, nullptr);
    EXPECT_EQ(rbGetCellSeq(reader), 1u);
}

TEST_F(Ring, NearestNumberWinsAndTheFirstOfATie)
{
    create(8000);
    RingBuffer *reader = attachReader();
    for (int i = 0; i < 3; i++)
        ASSERT_EQ(write(1000), 1);
    auto cells = view_->cells();
    view_->setField(cells[0].at, 12, 3);
    view_->setField(cells[1].at, 12, 6);
    view_->setField(cells[2].at, 12, 8);

    ASSERT_NE(rbLockReadSync(reader, 7), nullptr);
    EXPECT_EQ(rbGetCellSeq(reader), 6u);
    EXPECT_EQ(rbLockReadSync(reader, 7), nullptr) << "already holding";
    rbUnlockRead(reader);

    view_->setField(cells[2].at, 12, 7);
    ASSERT_NE(rbLockReadSync(reader, 7), nullptr);
    EXPECT_EQ(rbGetCellSeq(reader), 7u);
    rbUnlockRead(reader);

    ASSERT_NE(rbLockReadSync(reader, -5), nullptr);
    EXPECT_EQ(rbGetCellSeq(reader), 3u);
    rbUnlockRead(reader);

    EXPECT_EQ(rbLockReadSync(reader, 2000000), nullptr) << "everything 999999 or more away";
}

TEST_F(Ring, NewReaderParksOnTheWritePositionUntilTheNextFrame)
{
    create(8000);
    for (int i = 0; i < 3; i++)
        ASSERT_EQ(write(1000), 1);
    RingBuffer *reader = attachReader();
    EXPECT_EQ(rbGetCellSize(reader), 0u) << "no current cell yet";
    EXPECT_EQ(rbLockRead(reader), nullptr);
    EXPECT_EQ(view_->cells()[3].stay, 1u);
    ASSERT_EQ(write(1500), 1);
    void *payload = rbLockRead(reader);
    ASSERT_NE(payload, nullptr);
    EXPECT_EQ(frameNumber(payload), 4u);
    EXPECT_EQ(rbGetCellLength(reader), 1500u);
    EXPECT_EQ(rbGetCellSize(reader), 1500u);
    EXPECT_TRUE(frameIsIntact(payload, 1500));
    EXPECT_EQ(rbLockRead(reader), nullptr) << "a second lock without unlock";
    rbUnlockRead(reader);
    EXPECT_EQ(view_->cells()[3].used, 0u);
    EXPECT_EQ(view_->cells()[4].stay, 1u) << "parked on the cell after the one read";
    EXPECT_EQ(rbSyncNewest(reader), 0);
    EXPECT_EQ(view_->cells()[4].stay, 0u);
    EXPECT_EQ(rbGetCellSeq(reader), 0u);
}

TEST_F(Ring, CreatorTakesOverAnExistingSegmentThatIsLargeEnough)
{
    create(1000, 4);
    ASSERT_EQ(write(500), 1);
    RingBuffer *again = rbInitial(key_, "again", 500, 4, 0);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(sizes(), (std::vector<uint32_t>{(500 + 32) * 4 - 32}));
    rbDetach(writer_);
    writer_ = again;

    std::string out =
        captureStdout([&] { EXPECT_EQ(rbInitial(key_, "larger", 2000, 4, 0), nullptr); });
    EXPECT_EQ(out, "rinbuf: larger - rbInitial: shmget fail!\n");
    // The failed creator replaced the locks; only detaching is left.
    rbDetach(writer_);
    writer_ = nullptr;
}

TEST(RingBufferNames, LongNamesAndBadGeometryAreRefusedWithoutIpcObjects)
{
    IpcKeys keys;
    int key = keys.next();
    std::string longest(RB_NAME_MAX, 'n');
    EXPECT_EQ(rbInitial(key, (longest + "x").c_str(), 100, 4, 0), nullptr);
    EXPECT_EQ(rbInitial(key, nullptr, 100, 4, 0), nullptr);
    EXPECT_EQ(rbInitial(key, "zero", 100, 0, 0), nullptr);
    EXPECT_EQ(rbInitial(key, "huge", 1 << 30, 4, 0), nullptr);
    EXPECT_LT(semget(key, 0, 0), 0);
    EXPECT_LT(shmget(key, 0, 0), 0);

    RingBuffer *rb = rbInitial(key, longest.c_str(), 100, 4, 0);
    ASSERT_NE(rb, nullptr);
    std::string out =
        captureStdout([&] { EXPECT_EQ(rbAttach(key + 1, longest.c_str()), nullptr); });
    EXPECT_EQ(out, "rinbuf: " + longest + " - rbInitial: semaphore create fail!\n");
    EXPECT_EQ(rbRelease(rb), 0);
}

TEST(RingBufferNullHandle, EveryCallDoesNothing)
{
    EXPECT_EQ(rbDetach(nullptr), 0);
    EXPECT_EQ(rbRelease(nullptr), 0);
    EXPECT_EQ(rbSafeWrite(nullptr, "x", 1), 0);
    EXPECT_EQ(rbLockWrite(nullptr, 1), nullptr);
    rbUnlockWrite(nullptr);
    EXPECT_EQ(rbLockRead(nullptr), nullptr);
    EXPECT_EQ(rbLockReadSync(nullptr, 3), nullptr);
    rbUnlockRead(nullptr);
    EXPECT_EQ(rbSyncNewest(nullptr), 0);
    EXPECT_EQ(rbGetCellSize(nullptr), 0u);
    EXPECT_EQ(rbGetCellLength(nullptr), 0u);
    EXPECT_EQ(rbGetCellSeq(nullptr), 0u);
    EXPECT_EQ(rbGetCellCount(nullptr), 0u);
    EXPECT_EQ(rbGetError(nullptr), 0u);
    EXPECT_EQ(rbResetAll(nullptr), 0);
    EXPECT_EQ(rbGetPayload(nullptr), nullptr);
}

TEST_F(Ring, UnlockWriteWithoutAReservationChangesNothing)
{
    create(4000);
    rbUnlockWrite(writer_);
    EXPECT_EQ(states(), (std::vector<uint32_t>{0}));
    EXPECT_EQ(rbSafeWrite(writer_, nullptr, 10), 0);
    EXPECT_EQ(rbGetCellCount(writer_), 1u);
}

} // namespace
