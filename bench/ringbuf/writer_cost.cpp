#include "writer_cost.h"

#include "owned_ring.h"
#include "pacer.h"
#include "ring_reader.h"
#include "writer_copies.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <vector>

namespace tarvo::bench
{

namespace
{

// Rounds alternate the two copies so that a change in the machine's load
// during the run weighs on both alike.
constexpr int kPacedRoundsEach = 6;
constexpr double kPacedSecondsEach = 1.5;
constexpr int kBatchesEach = 7;
constexpr int64_t kBatchNanoseconds = 120'000'000;
// Reading the clock after every 4 KiB copy would weigh on the copy itself.
constexpr int kFramesPerClockRead = 16;
// Readers that do not get the last frame this soon have missed it.
constexpr auto kDrainLimit = std::chrono::milliseconds(100);

using Rounds = std::function<void(WriterCopies &copies, WriterCost &cost)>;

// Creates a ring under `key`, starts readers, runs the timed rounds and
// counts what the readers got.
WriterCost measure(int key, uint32_t frameLength, RingReading reading, const Rounds &rounds)
{
    WriterCost cost{};
    OwnedRing ring(key, frameLength);
    if (!ring.valid())
        return cost;
    ReaderPool readers;
    if (!readers.start(
            [&](int, ReaderLink &link) { return readRingFrames(key, frameLength, reading, link); }))
        return cost;

    WriterCopies copies(ring.get(), frameLength);
    copies.warmUp();
    rounds(copies, cost);
    cost.dropped = copies.dropped();
    uint32_t written = copies.framesWritten();
    readers.awaitFrame(written, kDrainLimit);
    bool stopped = readers.stopAndWait([&] { copies.writeFrame(); });
    cost.completed = stopped && !copies.released();
    cost.readers = readers.totals(written);
    return cost;
}

struct Batch {
    int64_t nanoseconds;
    uint64_t frames;
};

// Copies back to back for about kBatchNanoseconds.
template <typename Copy> Batch timeBatch(Copy &&copy)
{
    int64_t start = monotonicNanoseconds();
    Batch batch{0, 0};
    do {
        for (int i = 0; i < kFramesPerClockRead; i++)
            copy();
        batch.frames += kFramesPerClockRead;
        batch.nanoseconds = monotonicNanoseconds() - start;
    } while (batch.nanoseconds < kBatchNanoseconds);
    return batch;
}

// The median batch's time per frame, and the time per frame of all batches.
CallCost batchCost(const std::vector<Batch> &batches)
{
    std::vector<double> perFrame;
    int64_t nanoseconds = 0;
    uint64_t frames = 0;
    for (const Batch &batch : batches) {
        perFrame.push_back(double(batch.nanoseconds) / double(batch.frames));
        nanoseconds += batch.nanoseconds;
        frames += batch.frames;
    }
    std::sort(perFrame.begin(), perFrame.end());
    return {perFrame[perFrame.size() / 2], double(nanoseconds) / double(frames)};
}

// Frames at the camera pace, the two copies in alternate rounds, every call
// timed on its own.
void timePacedRounds(WriterCopies &copies, WriterCost &cost, double framesPerSecond)
{
    int framesEach = int(framesPerSecond * kPacedSecondsEach);
    int framesPerRound = framesEach / kPacedRoundsEach;
    CallTimes copyTimes(framesEach), ringTimes(framesEach);
    Pacer pacer(framesPerSecond);
    for (int round = 0; round < kPacedRoundsEach; round++) {
        for (int i = 0; i < framesPerRound; i++) {
            pacer.awaitNextFrame();
            copies.copyFrame(&copyTimes);
        }
        for (int i = 0; i < framesPerRound; i++) {
            pacer.awaitNextFrame();
            copies.writeFrame(&ringTimes);
        }
    }
    cost.memcpyCost = copyTimes.cost();
    cost.ringCost = ringTimes.cost();
}

// Frames back to back, the two copies in alternate batches.
void timeBatches(WriterCopies &copies, WriterCost &cost)
{
    std::vector<Batch> copyBatches, ringBatches;
    for (int round = 0; round < kBatchesEach; round++) {
        copyBatches.push_back(timeBatch([&] { copies.copyFrame(); }));
        ringBatches.push_back(timeBatch([&] { copies.writeFrame(); }));
    }
    cost.memcpyCost = batchCost(copyBatches);
    cost.ringCost = batchCost(ringBatches);
}

} // namespace

WriterCost measurePacedWriterCost(int key, uint32_t frameLength, double framesPerSecond)
{
    return measure(key, frameLength, RingReading::AsConsumer,
                   [&](WriterCopies &copies, WriterCost &cost) {
                       timePacedRounds(copies, cost, framesPerSecond);
                   });
}

WriterCost measureFlatOutWriterCost(int key, uint32_t frameLength)
{
    return measure(key, frameLength, RingReading::WithBackOff, timeBatches);
}

} // namespace tarvo::bench
