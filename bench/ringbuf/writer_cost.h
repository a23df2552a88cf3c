// What rbSafeWrite costs the writer per frame, next to a plain memcpy of the
// same frame, with reader processes attached and consuming as a camera's
// clients do.
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
    CallCost floorCost;  // per round of the lock floor's operations
    uint64_t dropped;    // frames rbSafeWrite found no cell for
    ReaderTotals readers;
};

// A camera's pace: one frame every 1 / framesPerSecond s, each copy timed on
// its own, with `readers` processes reading; the lock floor (semaphores under
// `key` + 1 and + 17) is timed at the same pace.  Median and mean of the calls.
WriterCost measureWriterCost(int key, uint32_t frameLength, double framesPerSecond, int readers);

} // namespace tarvo::bench

#endif
