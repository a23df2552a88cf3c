// What rbSafeWrite costs the writer per frame, next to a plain memcpy of the
// same frame, with kReaders reader processes attached and reading.
#ifndef TARVO_BENCH_WRITER_COST_H
#define TARVO_BENCH_WRITER_COST_H

#include "call_times.h"
#include "reader_pool.h"

#include <cstdint>

namespace tarvo::bench
{

struct WriterCost {
    bool completed;
    CallCost memcpyCost; // per frame
    CallCost ringCost;   // per frame
    uint64_t dropped;    // frames rbSafeWrite found no cell for
    ReaderTotals readers;
};

// A camera's pace: one frame every 1 / framesPerSecond s, each copy timed on
// its own; readers consume as a camera's clients do.  Median and mean of the
// calls.
WriterCost measurePacedWriterCost(int key, uint32_t frameLength, double framesPerSecond);

// Stress: frames back to back, timed in batches; readers read as fast as they
// can.  Median of the batches' per-frame times, and the mean over all frames.
WriterCost measureFlatOutWriterCost(int key, uint32_t frameLength);

} // namespace tarvo::bench

#endif
