#include "writer_cost.h"

#include "lock_floor.h"
#include "owned_ring.h"
#include "pacer.h"
#include "ring_reader.h"
#include "writer_copies.h"

namespace tarvo::bench
{

namespace
{

// Rounds alternate the two copies and the lock floor, so that a change in the
// machine's load during the run weighs on all alike.
constexpr int kPacedRoundsEach = 6;
constexpr double kPacedSecondsEach = 1.5;

// Frames at the camera pace, the two copies and the lock floor in alternate
// rounds, every call timed on its own.
void timePacedRounds(WriterCopies &copies, const LockFloor &floor, WriterCost &cost,
                     double framesPerSecond)
{
    int framesEach = int(framesPerSecond * kPacedSecondsEach);
    int framesPerRound = framesEach / kPacedRoundsEach;
    CallTimes copyTimes(framesEach), ringTimes(framesEach), floorTimes(framesEach);
    Pacer pacer(framesPerSecond);
    for (int round = 0; round < kPacedRoundsEach; round++) {
        for (int i = 0; i < framesPerRound; i++) {
            pacer.awaitNextFrame();
            floor.round(floorTimes);
        }
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
    cost.floorCost = floorTimes.cost();
}

} // namespace

WriterCost measureWriterCost(int key, uint32_t frameLength, double framesPerSecond, int readers)
{
    WriterCost cost{};
    OwnedRing ring(key, frameLength);
    LockFloor floor(key + 1);
    if (!ring.valid() || !floor.valid())
        return cost;
    ReaderPool pool;
    auto read = [&](int, ReaderLink &link) {
        return readRingFrames(key, frameLength, RingReading::AsConsumer, link);
    };
    if (!pool.start(read, readers))
        return cost;

    WriterCopies copies(ring.get(), frameLength);
    copies.warmUp();
    timePacedRounds(copies, floor, cost, framesPerSecond);
    cost.dropped = copies.dropped();
    uint32_t written = copies.framesWritten();
    pool.awaitFrame(written, kDrainLimit);
    bool stopped = pool.stopAndWait([&] { copies.writeFrame(); });
    cost.completed = stopped && !copies.released();
    cost.readers = pool.totals(written);
    return cost;
}

} // namespace tarvo::bench
