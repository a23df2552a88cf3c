// Frames handed to kReaders reader processes through a ring buffer and
// through one Unix stream socket per reader: how many per second at most, and
// what they cost the machine at a camera's pace.
#ifndef TARVO_BENCH_FAN_OUT_H
#define TARVO_BENCH_FAN_OUT_H

#include "transport.h"

#include <cstdint>

namespace tarvo::bench
{

// Stress: the writer puts frames out back to back for a while.
struct FlatOutFanOut {
    bool completed;
    double writtenPerSecond;       // frames the writer put out
    double slowestReaderPerSecond; // whole frames the slowest reader got
    double meanReaderPerSecond;
    uint64_t dropped; // frames the writer found no room for
    uint64_t faults;  // torn, mis-sized or out-of-order frames, all readers
};

FlatOutFanOut measureFlatOutFanOut(const TransportMaker &makeTransport);

// A camera's way: the writer puts frames out at a fixed pace for a while,
// each got ready first and published at its time (a ring writer holds its
// reservation meanwhile, as a camera producer does while the sensor
// delivers).  The CPU time of all processes, writer and readers, is counted
// from the readers' start to their end.
struct PacedCpu {
    bool completed;
    double cpuMicrosecondsPerFrame; // over the frames all readers got
    double switchesPerFrame;        // context switches of all processes per frame written
    double slowestShare;            // of the frames written, the slowest reader got
    uint64_t dropped;               // frames the writer found no room for
    uint64_t faults;                // torn, mis-sized or out-of-order frames, all readers
};

PacedCpu measurePacedCpu(const TransportMaker &makeTransport, double framesPerSecond,
                         double seconds);

} // namespace tarvo::bench

#endif
