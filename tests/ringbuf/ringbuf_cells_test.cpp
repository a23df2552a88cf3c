// The cell arithmetic a caller can observe through the shared segment:
// splits, merges, passed-over cells, readers' places, resets, reads by
// number, the chain dump and the arguments refused.
#include "tarvo/ringbuf.h"
#include "tarvo/semlock.h"

#include "support/area_view.h"
#include "support/capture.h"
#include "support/frames.h"
#include "support/ipc_keys.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <utility>

using namespace tarvo::test;

namespace
{

// Steps on a fresh area, one word each: wN / iN write an N-byte frame copied
// / in place (logging the result); r reads, hN holds the frame nearest to N
// (logging the number held, "-" for none); u lets go, n forgets the
// reader's place, z resets, d detaches the reader; =C,S,N sets cell C's
// state to S and its number to N.  The chain reads "size,state,number" per
// cell, with uN / sN for readers holding / parked.
struct Steps {
    const char *name;
    int cellSize, cellCount, noSkip;
    const char *steps, *log, *chain;
};

class Cells : public ::testing::TestWithParam<Steps>
{
};

std::string chainOf(const AreaView &view)
{
    std::ostringstream text;
    for (const CellView &cell : view.cells()) {
        text << (cell.at == 28 ? "" : " ") << cell.size << ',' << cell.state << ',' << cell.seq;
        text << (cell.used ? "u" + std::to_string(cell.used) : "")
             << (cell.stay ? "s" + std::to_string(cell.stay) : "");
    }
    return text.str();
}

TEST_P(Cells, LogAndChain)
{
    const Steps &row = GetParam();
    IpcKeys keys;
    int key = keys.next();
    RingBuffer *writer = rbInitial(key, "cells", row.cellSize, row.cellCount, row.noSkip);
    RingBuffer *reader = rbAttach(key, "reader");
    ASSERT_NE(writer, nullptr);
    AreaView view(key);
    std::istringstream words(row.steps);
    std::string word, log;
    auto note = [&](const std::string &entry) { log += (log.empty() ? "" : " ") + entry; };
    auto held = [&](void *payload) { return payload ? std::to_string(rbGetCellSeq(reader)) : "-"; };
    for (uint32_t written = 0, cell, state, seq; words >> word;) {
        int n = std::atoi(word.c_str() + 1);
        if (word[0] == 'w' || word[0] == 'i')
            note(std::to_string(writeFrame(writer, ++written, n, word[0] == 'i')));
        else if (word[0] == 'r' || word[0] == 'h')
            note(held(word[0] == 'r' ? rbLockRead(reader) : rbLockReadSync(reader, n)));
        else if (word == "u")
            rbUnlockRead(reader);
        else if (word == "n")
            rbSyncNewest(reader);
        else if (word == "z")
            rbResetAll(writer);
        else if (word == "d")
            rbDetach(std::exchange(reader, nullptr));
        else if (sscanf(word.c_str(), "=%u,%u,%u", &cell, &state, &seq) == 3) {
            view.setField(view.cells()[cell].at, AreaView::State, state);
            view.setField(view.cells()[cell].at, AreaView::Seq, seq);
        }
    }
    rbUnlockWrite(writer); // nothing reserved: changes nothing
    EXPECT_EQ(log, row.log);
    EXPECT_EQ(chainOf(view), row.chain);

    // Each cell starts where the one before it ends and names it as Prev;
    // together they fill the area, and the area counts them.
    uint32_t at = 28, prev = 0;
    for (const CellView &cell : view.cells()) {
        EXPECT_EQ(cell.at, at);
        EXPECT_EQ(cell.prev, prev);
        prev = std::exchange(at, at + 32 + cell.size);
    }
    EXPECT_EQ(at - 28, uint32_t(row.cellCount * (row.cellSize + 32)));
    EXPECT_EQ(at - 28, view.word(AreaView::CellsBytes));
    EXPECT_EQ(rbGetCellCount(writer), view.cells().size());
    rbDetach(reader);
    rbRelease(writer);
}

// The spare room behind a frame is cut off when, rounded down to 4, it is
// at least 1024 bytes; a cell too small swallows free neighbours; a held
// cell is passed over (state 3) or, with noSkip, stops the writer.
INSTANTIATE_TEST_SUITE_P(
    Ring, Cells,
    ::testing::Values(
        Steps{"FreshArea", 100, 4, 0, "", "", "496,0,0"},
        Steps{"Spare1023", 4000, 1, 0, "w2977", "1", "4000,1,1"},
        Steps{"Spare1023InPlace", 4000, 1, 0, "i2977", "1", "4000,1,1"},
        Steps{"Spare1024", 4000, 1, 0, "w2976", "1", "2976,2,1 992,1,0"},
        Steps{"Spare1025InPlace", 4000, 1, 0, "i2975", "1", "2976,2,1 992,1,0"},
        Steps{"RoundedUpTo4", 4000, 1, 0, "w101", "1", "104,2,1 3864,1,0"},
        Steps{"TooSmallSwallowsNext", 4000, 1, 0, "w100 w3000 w200", "1 1 1", "200,2,3 3768,1,0"},
        Steps{"LargerThanAreaAfterOneLap", 4000, 1, 0, "w100 w5000", "1 0", "4000,2,1"},
        Steps{"LargerInPlace", 4000, 1, 0, "w100 i5000", "1 0", "4000,2,1"},
        Steps{"FreshAreaRefusesLarger", 4000, 1, 0, "w4001 i4001", "0 0", "4000,0,0"},
        Steps{"HeldIsPassedOver", 4000, 1, 0, "w100 h1 w3000 w100", "1 1 1 1",
              "100,3,1u1 100,2,3 3736,1,0"},
        Steps{"HeldStopsNoSkip", 4000, 1, 1, "w100 h1 w3000 w100 i100", "1 1 1 0 0",
              "100,1,1u1 3868,2,2"},
        // A new reader parks on the write position; after a frame it parks
        // on the cell behind it, and forgets that place when told.
        Steps{"ReaderParksBehindWhatItRead", 8000, 1, 0, "w1000 w1000 r w1500 r r u", "1 1 - 1 3 -",
              "1000,2,1 1000,2,2 1500,2,3 4404,1,0s1"},
        Steps{"SyncNewestForgetsThePlace", 8000, 1, 0, "r w1000 r u n", "- 1 1",
              "1000,2,1 6968,1,0"},
        Steps{"PassedOverOnlyAsTheNextNumber", 8000, 1, 0,
              "w1000 w1000 w1000 w1000 h1 u =1,3,2 =2,3,5 r u r", "1 1 1 1 1 2 4",
              "1000,2,1 1000,3,2 1000,3,5 1000,2,4u1 3872,1,0"},
        Steps{"ResetRestartsNumbering", 8000, 1, 0, "w1000 w1000 w1000 h3 z u w1000 r",
              "1 1 1 3 1 1", "1000,0,1 1000,0,2 1000,0,3 1000,2,1u1 3872,1,0"},
        Steps{"NearestNumberAndTheFirstOfATie", 8000, 1, 0,
              "w1000 w1000 w1000 =0,2,3 =1,2,6 =2,2,8 h7 h7 u h-5 u h8 u h2000000 h3 d",
              "1 1 1 6 - 3 8 - 3", "1000,2,3 1000,2,6s1 1000,2,8s1 4904,1,0s1"}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(RingBuffer, DumpAndTakeOverByALaterCreator)
{
    IpcKeys keys;
    int key = keys.next();
    RingBuffer *writer = rbInitial(key, "first", 100, 4, 0);
    std::string dump = captureStdout([&] { EXPECT_EQ(rbCheckBuffer(writer), 0); });
    EXPECT_EQ(dump.substr(0, 35), "Rinbuf: Current Cell: Addr: 1c, Usa");
    EXPECT_NE(dump.find(", Writer: 1c\nRinbuf: Scan all cell 1:\n"
                        "   0 Cell Addr: 1c, Used: 0, Stay: 0, WStat: 0, Seq: 0\n"
                        "                  size: 496, length: 0, Prev: 0, Next: 0\n"),
              std::string::npos)
        << dump;
    ASSERT_EQ(writeFrame(writer, 1, 300), 1);
    RingBuffer *again = rbInitial(key, "again", 50, 4, 0); // a smaller area fits
    ASSERT_NE(again, nullptr);
    AreaView view(key);
    EXPECT_EQ(chainOf(view), "296,0,0");
    std::string out =
        captureStdout([&] { EXPECT_EQ(rbInitial(key, "larger", 200, 4, 0), nullptr); });
    EXPECT_EQ(out, "rinbuf: larger - rbInitial: shmget fail!\n");
    rbDetach(again); // the failed creator replaced the locks; only detaching is left
    rbDetach(writer);
}

TEST(RingBuffer, ArgumentsRefusedWithoutIpcObjectsAndNullHandlesDoNothing)
{
    IpcKeys keys;
    int key = keys.next();
    std::string longest(RB_NAME_MAX, 'n');
    EXPECT_EQ(rbInitial(key, (longest + "x").c_str(), 100, 4, 0), nullptr);
    EXPECT_EQ(rbInitial(key, nullptr, 100, 4, 0), nullptr);
    EXPECT_EQ(rbInitial(key, "zero", 100, 0, 0), nullptr);
    EXPECT_EQ(rbInitial(key, "huge", 1 << 30, 4, 0), nullptr);
    EXPECT_TRUE(semget(key, 0, 0) < 0 && shmget(key, 0, 0) < 0) << "no IPC object made";
    RingBuffer *rb = rbInitial(key, longest.c_str(), 100, 4, 0);
    ASSERT_NE(rb, nullptr);
    EXPECT_EQ(rbSafeWrite(rb, nullptr, 10) | rbGetError(rb), 0u);
    std::string out =
        captureStdout([&] { EXPECT_EQ(rbAttach(key + 1, longest.c_str()), nullptr); });
    EXPECT_EQ(out, "rinbuf: " + longest + " - rbInitial: semaphore create fail!\n");
    RingBuffer *reader = rbAttach(key, "reader");
    EXPECT_EQ(rbGetCellSize(reader) | rbGetCellLength(reader) | rbGetCellSeq(reader), 0u);
    rbDetach(reader);
    EXPECT_EQ(rbRelease(rb), 0);
    // A foreign segment under a key must hold the area header and one cell's.
    for (size_t size : {59, 60}) {
        int foreign = keys.next();
        sfInitial(foreign, 1), sfInitial(foreign + 16, 1), shmget(foreign, size, IPC_CREAT | 0600);
        out = captureStdout([&] { reader = rbAttach(foreign, "tiny"); });
        EXPECT_EQ(out, size < 60 ? "rinbuf: tiny - rbInitial: shmget fail!\n" : "");
        EXPECT_EQ(reader != nullptr, size == 60);
        rbDetach(reader);
    }

    rbUnlockWrite(nullptr);
    rbUnlockRead(nullptr);
    EXPECT_FALSE(rbLockWrite(nullptr, 1) || rbLockRead(nullptr) || rbLockReadSync(nullptr, 3) ||
                 rbGetPayload(nullptr));
    EXPECT_EQ(rbDetach(nullptr) | rbRelease(nullptr) | rbSafeWrite(nullptr, "x", 1) |
                  rbSyncNewest(nullptr) | rbResetAll(nullptr) | rbCheckBuffer(nullptr),
              0);
    EXPECT_EQ(rbGetCellSize(nullptr) | rbGetCellLength(nullptr) | rbGetCellSeq(nullptr) |
                  rbGetCellCount(nullptr) | rbGetError(nullptr),
              0u);
}

} // namespace
