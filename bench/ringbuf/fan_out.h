// Frames per second that reach each of kReaders reader processes, through a
// ring buffer and through one Unix stream socket per reader.
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

// A camera's way: the writer puts frames out at a fixed pace.  The highest
// pace is searched at which the writer keeps it and every reader gets nearly
// every frame.
struct PacedFanOut {
    bool completed;
    double framesPerSecond;        // the highest pace sustained; 0 for none
    double slowestReaderPerSecond; // whole frames the slowest reader got there
    double slowestShare;           // of the frames written, there
    double failedPace;             // the lowest pace that failed; 0 for none
    const char *limit;             // what failed there: "writer", "readers" or "-"
    int probes;
    uint64_t dropped; // frames the writer found no room for, all probes
    uint64_t faults;  // torn, mis-sized or out-of-order frames, all probes
};

PacedFanOut findHighestPace(const TransportMaker &makeTransport);

} // namespace tarvo::bench

#endif
