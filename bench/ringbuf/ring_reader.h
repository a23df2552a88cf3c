// Ring buffer consumers, the body of a reader process.
#ifndef TARVO_BENCH_RING_READER_H
#define TARVO_BENCH_RING_READER_H

#include "reader_pool.h"

#include <cstdint>

namespace tarvo::bench
{

enum class RingReading {
    // As a camera's client reads a stream: rbGetPayload (which asks again
    // without sleeping until a frame comes), check, rbEndPayload.
    AsConsumer,
    // rbLockRead, and a 75 us sleep whenever nothing is new: a reader as
    // fast as the machine lets it be without starving the writer of cores.
    WithBackOff,
};

// Attaches to the buffer with `key` and reads frames of `frameLength` bytes
// until stopped or the buffer is released.  The reader takes its place on the
// write position before it reports a start, so it sees every frame written
// after that.
int readRingFrames(int key, uint32_t frameLength, RingReading reading, ReaderLink &link);

} // namespace tarvo::bench

#endif
