// A ring buffer consumer as a camera's client process runs one.
#ifndef TARVO_BENCH_RING_READER_H
#define TARVO_BENCH_RING_READER_H

#include "reader_pool.h"

#include <cstdint>

namespace tarvo::bench
{

// Attaches to the buffer with `key` and reads frames of `frameLength` bytes
// until stopped or the buffer is released; the body of a reader process.
int readRingFrames(int key, uint32_t frameLength, ReaderLink &link);

} // namespace tarvo::bench

#endif
