#include "writer_cost.h"

#include "owned_ring.h"
#include "reader_pool.h"
#include "ring_reader.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <vector>

namespace tarvo::bench
{

namespace
{

using Clock = std::chrono::steady_clock;

// Rounds alternate the two copies so that a change in the machine's load
// during the run weighs on both alike; the median round counts.
constexpr int kRounds = 7;
constexpr auto kBatchTime = std::chrono::milliseconds(120);
// Reading the clock after every 4 KiB copy would weigh on the copy itself.
constexpr int kFramesPerClockRead = 16;

// Keeps the compiler from dropping copies into memory it never sees read.
inline void keepWritten(const void *at)
{
    asm volatile("" : : "r"(at) : "memory");
}

// Calls writeFrame(number) for about kBatchTime, numbering frames on from
// `number`; nanoseconds per frame.
template <typename WriteFrame> double timeBatch(uint32_t &number, WriteFrame &&writeFrame)
{
    Clock::time_point start = Clock::now();
    uint64_t frames = 0;
    Clock::duration elapsed;
    do {
        for (int i = 0; i < kFramesPerClockRead; i++)
            writeFrame(number++);
        frames += kFramesPerClockRead;
        elapsed = Clock::now() - start;
    } while (elapsed < kBatchTime);
    return double(std::chrono::nanoseconds(elapsed).count()) / double(frames);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

WriterCost measureWriterCost(int key, uint32_t frameLength)
{
    WriterCost cost{};
    OwnedRing ring(key, frameLength);
    if (!ring.valid()) return cost;
    ReaderPool readers;
    bool started = readers.start(
        [&](int, ReaderLink &link) { return readRingFrames(key, frameLength, link); });
    if (!started) return cost;

    std::vector<uint8_t> source(frameLength, 0x5a);
    // The plain copy goes into cells laid out as the ring's are, so both
    // copies spread over the same amount of memory.
    std::vector<uint8_t> privateCells(OwnedRing::cellsBytes(frameLength));
    const uint32_t cellStride = kCellHeaderBytes + frameLength;
    auto copyFrame = [&](uint32_t number) {
        stampFrame(source.data(), frameLength, number);
        uint8_t *to = privateCells.data() + number % kRingCells * cellStride + kCellHeaderBytes;
        std::memcpy(to, source.data(), frameLength);
        keepWritten(to);
    };
    bool released = false;
    auto writeFrame = [&](uint32_t number) {
        stampFrame(source.data(), frameLength, number);
        int result = rbSafeWrite(ring.get(), source.data(), frameLength);
        cost.dropped += result == 0;
        released |= result < 0;
    };

    // One untimed lap through both, so that no page is touched first while
    // timed; what it drops does not count.
    uint32_t copyNumber = 1, ringNumber = 1;
    for (int i = 0; i < 2 * kRingCells; i++) {
        copyFrame(copyNumber++);
        writeFrame(ringNumber++);
    }
    cost.dropped = 0;
    std::vector<double> copyTimes, ringTimes;
    for (int round = 0; round < kRounds; round++) {
        copyTimes.push_back(timeBatch(copyNumber, copyFrame));
        ringTimes.push_back(timeBatch(ringNumber, writeFrame));
    }
    cost.memcpyNanoseconds = median(copyTimes);
    cost.ringNanoseconds = median(ringTimes);

    cost.completed = readers.stopAndWait() && !released;
    for (int index = 0; index < kReaders; index++) {
        cost.readerFrames += readers.tally(index).frames;
        cost.readerFaults += readers.tally(index).faults;
    }
    return cost;
}

} // namespace tarvo::bench
