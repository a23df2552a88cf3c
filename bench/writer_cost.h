// What rbSafeWrite costs the writer per frame, next to a plain copy.
#ifndef TARVO_BENCH_WRITER_COST_H
#define TARVO_BENCH_WRITER_COST_H

#include <cstdint>

namespace tarvo::bench
{

struct WriterCost {
    bool completed;
    double memcpyNanoseconds; // per frame, median of the rounds
    double ringNanoseconds;   // per frame, median of the rounds
    uint64_t dropped;         // frames rbSafeWrite found no cell for
    uint64_t readerFrames;    // whole frames the readers got, all together
    uint64_t readerFaults;
};

// Creates a ring under `key`, starts the readers, and times both copies.
WriterCost measureWriterCost(int key, uint32_t frameLength);

} // namespace tarvo::bench

#endif
