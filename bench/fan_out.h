// Frames per second that reach each of kReaders reader processes, through a
// ring buffer and through one Unix stream socket per reader.
#ifndef TARVO_BENCH_FAN_OUT_H
#define TARVO_BENCH_FAN_OUT_H

#include <cstdint>

namespace tarvo::bench
{

struct FanOut {
    bool completed;
    double writtenPerSecond;       // frames the writer put out
    double slowestReaderPerSecond; // whole frames the slowest reader got
    double meanReaderPerSecond;
    uint64_t dropped; // frames the writer found no room for
    uint64_t faults;  // torn, mis-sized or out-of-order frames, all readers
};

// Ring readers may skip frames (the writer never waits for them).
FanOut measureRingFanOut(int key, uint32_t frameLength);

// Socket readers get every frame (the writer blocks while a socket is full).
FanOut measureSocketFanOut(uint32_t frameLength);

} // namespace tarvo::bench

#endif
