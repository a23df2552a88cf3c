// The cell arithmetic a caller can observe through the shared segment:
// geometry, splits, merges, passed-over cells, resets, nearest-number reads
// and the chain dump.
#include "tarvo/ringbuf.h"

#include "support/area_view.h"
#include "support/capture.h"
#include "support/frames.h"
#include "support/ipc_keys.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using namespace tarvo::test;

namespace
{

using Values = std::vector<uint32_t>;

// One creating handle on a fresh area, a reader, and a view of the segment.
class Ring : public ::testing::Test
{
  protected:
    void create(int cellSize, int cellCount = 1, int noSkip = 0)
    {
        key_ = keys_.next();
        writer_ = rbInitial(key_, "cells", cellSize, cellCount, noSkip);
        ASSERT_NE(writer_, nullptr);
        reader_ = rbAttach(key_, "reader");
        view_ = std::make_unique<AreaView>(key_);
    }
    void TearDown() override
    {
        view_.reset();
        rbDetach(reader_);
        rbRelease(writer_);
    }
    // Writes the next numbered frame copied (or in place); the call's result.
    int write(uint32_t length, bool inPlace = false)
    {
        auto frame = makeFrame(++written_, length);
        if (!inPlace)
            return rbSafeWrite(writer_, frame.data(), length);
        void *payload = rbLockWrite(writer_, length);
        if (payload == nullptr || payload == RB_RELEASED)
            return payload == nullptr ? 0 : -1;
        std::memcpy(payload, frame.data(), length);
        rbUnlockWrite(writer_);
        return 1;
    }
    Values column(uint32_t CellView::*field) const
    {
        Values values;
        for (const CellView &cell : view_->cells())
            values.push_back(cell.*field);
        return values;
    }
    void writeThree()
    {
        for (int i = 0; i < 3; i++)
            ASSERT_EQ(write(1000), 1);
    }

    IpcKeys keys_;
    int key_ = 0;
    uint32_t written_ = 0;
    RingBuffer *writer_ = nullptr;
    RingBuffer *reader_ = nullptr;
    std::unique_ptr<AreaView> view_;
};

// Writes into one 4000-byte cell: a positive length is a copied frame, a
// negative one a frame filled in place, 0 lets the reader hold frame 1.
struct Writes {
    const char *name;
    int noSkip;
    std::vector<int> lengths;
    int lastResult;
    Values sizes, states, seqs;
};

void PrintTo(const Writes &writes, std::ostream *out)
{
    *out << writes.name;
}

class CellArithmetic : public Ring, public ::testing::WithParamInterface<Writes>
{
};

TEST_P(CellArithmetic, SizesStatesAndNumbers)
{
    const Writes &writes = GetParam();
    create(4000, 1, writes.noSkip);
    int result = 0;
    for (int length : writes.lengths) {
        if (length == 0)
            ASSERT_NE(rbLockReadSync(reader_, 1), nullptr);
        else
            result = write(uint32_t(std::abs(length)), length < 0);
    }
    rbUnlockWrite(writer_); // nothing reserved: changes nothing
    EXPECT_EQ(result, writes.lastResult);
    EXPECT_EQ(column(&CellView::size), writes.sizes);
    EXPECT_EQ(column(&CellView::state), writes.states);
    EXPECT_EQ(column(&CellView::seq), writes.seqs);
    EXPECT_EQ(rbGetCellCount(writer_), writes.sizes.size());
    EXPECT_EQ(view_->cells()[0].next, writes.sizes.size() > 1 ? 28 + 32 + writes.sizes[0] : 0);
}

// The spare room behind a frame is cut off when, rounded down to 4, it is
// at least 1024 bytes; a cell too small swallows free neighbours; a held
// cell is passed over (state 3) or, with noSkip, stops the writer.
INSTANTIATE_TEST_SUITE_P(
    Ring, CellArithmetic,
    ::testing::Values(
        Writes{"Spare1023", 0, {2977}, 1, {4000}, {1}, {1}},
        Writes{"Spare1023InPlace", 0, {-2977}, 1, {4000}, {1}, {1}},
        Writes{"Spare1024", 0, {2976}, 1, {2976, 992}, {2, 1}, {1, 0}},
        Writes{"Spare1025InPlace", 0, {-2975}, 1, {2976, 992}, {2, 1}, {1, 0}},
        Writes{"RoundedUpTo4", 0, {101}, 1, {104, 3864}, {2, 1}, {1, 0}},
        Writes{"TooSmallSwallowsNext", 0, {100, 3000, 200}, 1, {200, 3768}, {2, 1}, {3, 0}},
        Writes{"LargerThanAreaAfterOneLap", 0, {100, 5000}, 0, {4000}, {2}, {1}},
        Writes{"LargerInPlace", 0, {100, -5000}, 0, {4000}, {2}, {1}},
        Writes{"FreshAreaRefusesLarger", 0, {4001, -4001}, 0, {4000}, {0}, {0}},
        Writes{
            "HeldIsPassedOver", 0, {100, 0, 3000, 100}, 1, {100, 100, 3736}, {3, 2, 1}, {1, 3, 0}},
        Writes{"HeldStopsNoSkip", 1, {100, 0, 3000, 100, -100}, 0, {100, 3868}, {1, 2}, {1, 2}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(Ring, FreshAreaIsOneEmptyCellAndDumpsSo)
{
    create(100, 4);
    EXPECT_EQ(view_->segmentSize(), 28u + 4 * 132);
    EXPECT_EQ(view_->word(AreaView::CellsBytes), 528u);
    EXPECT_EQ(view_->word(AreaView::WriteCell), 28u);
    EXPECT_EQ(view_->word(AreaView::FirstCell), 28u);
    EXPECT_EQ(rbGetError(writer_), 0u);
    std::string dump = captureStdout([&] { EXPECT_EQ(rbCheckBuffer(writer_), 0); });
    EXPECT_EQ(dump.substr(0, 35), "Rinbuf: Current Cell: Addr: 1c, Usa");
    EXPECT_NE(dump.find(", Writer: 1c\nRinbuf: Scan all cell 1:\n"
                        "   0 Cell Addr: 1c, Used: 0, Stay: 0, WStat: 0, Seq: 0\n"
                        "                  size: 496, length: 0, Prev: 0, Next: 0\n"),
              std::string::npos)
        << dump;
}

TEST_F(Ring, ReaderParksTakesNewFramesAndPassedOverOnlyAsTheNextNumber)
{
    create(8000);
    writeThree();
    EXPECT_EQ(rbGetCellSize(reader_), 0u) << "no current cell yet";
    EXPECT_EQ(rbLockRead(reader_), nullptr) << "a new reader parks on the write position";
    EXPECT_EQ(view_->cells()[3].stay, 1u);
    ASSERT_EQ(write(1500), 1);
    void *payload = rbLockRead(reader_);
    ASSERT_NE(payload, nullptr);
    EXPECT_EQ(frameNumber(payload), 4u);
    EXPECT_EQ(rbGetCellLength(reader_), 1500u);
    EXPECT_EQ(rbGetCellSize(reader_), 1500u);
    EXPECT_TRUE(frameIsIntact(payload, 1500));
    EXPECT_EQ(rbLockRead(reader_), nullptr) << "a second lock without unlock";
    rbUnlockRead(reader_);
    EXPECT_EQ(column(&CellView::used), (Values{0, 0, 0, 0, 0}));
    EXPECT_EQ(view_->cells()[4].stay, 1u) << "parked on the cell after the one read";
    EXPECT_EQ(rbSyncNewest(reader_), 0);
    EXPECT_EQ(view_->cells()[4].stay, 0u);

    auto cells = view_->cells();
    ASSERT_NE(rbLockReadSync(reader_, 1), nullptr);
    rbUnlockRead(reader_);              // parked on frame 2's cell
    view_->setField(cells[1].at, 8, 3); // passed over, and the next number
    ASSERT_NE(rbLockRead(reader_), nullptr);
    EXPECT_EQ(rbGetCellSeq(reader_), 2u);
    rbUnlockRead(reader_);
    view_->setField(cells[2].at, 8, 3); // passed over, but not the next number
    view_->setField(cells[2].at, 12, 5);
    ASSERT_NE(rbLockRead(reader_), nullptr);
    EXPECT_EQ(rbGetCellSeq(reader_), 4u) << "frame 5 is skipped";
}

TEST_F(Ring, ResetForgetsFramesAndRestartsNumbering)
{
    create(8000);
    writeThree();
    ASSERT_NE(rbLockReadSync(reader_, 3), nullptr);
    EXPECT_EQ(rbResetAll(writer_), 0);
    EXPECT_EQ(column(&CellView::state), (Values{0, 0, 0, 1}));
    EXPECT_EQ(view_->cells()[2].used, 1u) << "a held frame stays held";
    rbUnlockRead(reader_);
    ASSERT_EQ(write(1000), 1);
    EXPECT_EQ(view_->cells()[3].seq, 1u);
    ASSERT_NE(rbLockRead(reader_), nullptr) << "frame 1 is another number than 3";
    EXPECT_EQ(rbGetCellSeq(reader_), 1u);
}

TEST_F(Ring, NearestNumberWinsAndTheFirstOfATie)
{
    create(8000);
    writeThree();
    auto cells = view_->cells();
    for (int i = 0; i < 3; i++)
        view_->setField(cells[i].at, 12, Values{3, 6, 8}[i]);
    for (auto [wanted, got] : {std::pair{7, 6}, {-5, 3}, {8, 8}}) {
        ASSERT_NE(rbLockReadSync(reader_, wanted), nullptr) << wanted;
        EXPECT_EQ(rbGetCellSeq(reader_), uint32_t(got)) << wanted;
        EXPECT_EQ(rbLockReadSync(reader_, wanted), nullptr) << "already holding";
        rbUnlockRead(reader_);
    }
    EXPECT_EQ(rbLockReadSync(reader_, 2000000), nullptr) << "everything 999999 or more away";
    ASSERT_NE(rbLockReadSync(reader_, 3), nullptr);
    rbDetach(reader_); // gives the held cell back
    reader_ = nullptr;
    EXPECT_EQ(column(&CellView::used), (Values{0, 0, 0, 0}));
}

TEST_F(Ring, CreatorTakesOverAnExistingSegmentThatIsLargeEnough)
{
    create(1000, 4);
    ASSERT_EQ(write(500), 1);
    RingBuffer *again = rbInitial(key_, "again", 500, 4, 0);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(column(&CellView::size), (Values{(500 + 32) * 4 - 32}));
    std::string out =
        captureStdout([&] { EXPECT_EQ(rbInitial(key_, "larger", 2000, 4, 0), nullptr); });
    EXPECT_EQ(out, "rinbuf: larger - rbInitial: shmget fail!\n");
    // The failed creator replaced the locks; only detaching is left.
    rbDetach(again);
    rbDetach(writer_);
    writer_ = nullptr;
}

TEST(RingBufferArguments, RefusedWithoutIpcObjectsAndNullHandlesDoNothing)
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
    EXPECT_EQ(rbSafeWrite(rb, nullptr, 10), 0);
    std::string out =
        captureStdout([&] { EXPECT_EQ(rbAttach(key + 1, longest.c_str()), nullptr); });
    EXPECT_EQ(out, "rinbuf: " + longest + " - rbInitial: semaphore create fail!\n");
    EXPECT_EQ(rbRelease(rb), 0);

    EXPECT_EQ(rbDetach(nullptr) | rbRelease(nullptr) | rbSafeWrite(nullptr, "x", 1), 0);
    EXPECT_EQ(rbLockWrite(nullptr, 1), nullptr);
    EXPECT_EQ(rbLockRead(nullptr), nullptr);
    EXPECT_EQ(rbLockReadSync(nullptr, 3), nullptr);
    EXPECT_EQ(rbGetPayload(nullptr), nullptr);
    rbUnlockWrite(nullptr);
    rbUnlockRead(nullptr);
    EXPECT_EQ(rbSyncNewest(nullptr) | rbResetAll(nullptr), 0);
    EXPECT_EQ(rbGetCellSize(nullptr) | rbGetCellLength(nullptr) | rbGetCellSeq(nullptr) |
                  rbGetCellCount(nullptr) | rbGetError(nullptr),
              0u);
}

} // namespace
