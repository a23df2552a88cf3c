#include "fan_out.h"

#include "interruptions.h"
#include "pacer.h"

#include <algorithm>
#include <chrono>

namespace tarvo::bench
{

namespace
{

constexpr double kProbeSeconds = 0.3;
constexpr uint32_t kLeastProbeFrames = 100;
// The search doubles the pace from here until a probe fails, then halves the
// gap between the best pace and the failed one until it is this narrow.
constexpr double kFirstPace = 250;
constexpr double kLowestPace = 10;
constexpr double kResolution = 0.05;
constexpr int64_t kSearchNanoseconds = 20'000'000'000;
// The writer keeps its pace when it puts out at least kLeastShare of the
// frames no later than kSensorBuffers frame times after their time (a sensor
// would have lost the others), or kLeastAllowance when that is longer (the
// machine's scheduling hiccups).  A reader keeps up when it gets at least
// kLeastShare of the frames.
constexpr double kLeastShare = 0.99;
constexpr int kSensorBuffers = 4;
constexpr int64_t kLeastAllowance = 20'000'000;
// Readers that do not get the last frame this soon have missed it.
constexpr auto kDrainLimit = std::chrono::milliseconds(100);

struct Probe {
    bool completed;
    bool writerKeptPace;
    uint32_t written;
    double seconds;
    ReaderTotals readers;
    uint64_t dropped;

    bool readersKeptUp() const { return readers.slowestFrames >= kLeastShare * written; }
};

// Frames for about kProbeSeconds at `pace`.  Each frame is got ready first
// and published at its time, so a ring writer holds its reservation while it
// waits, as a camera producer does while the sensor delivers.
Probe probe(const TransportMaker &makeTransport, double pace)
{
    Probe result{};
    std::unique_ptr<Transport> transport = makeTransport();
    if (!transport->start())
        return result;
    result.written = std::max(uint32_t(pace * kProbeSeconds), kLeastProbeFrames);
    int64_t start = monotonicNanoseconds();
    Pacer pacer(pace);
    int64_t allowance = std::max(kSensorBuffers * pacer.period(), kLeastAllowance);
    bool sound = true;
    uint32_t late = 0;
    for (uint32_t number = 1; sound && number <= result.written; number++) {
        sound = transport->prepare(number);
        pacer.awaitNextFrame();
        sound = sound && transport->publish();
        late += pacer.lateness() > allowance;
    }
    result.seconds = double(monotonicNanoseconds() - start) / 1e9;
    result.writerKeptPace = result.written - late >= kLeastShare * result.written;
    transport->readers().awaitFrame(result.written, kDrainLimit);
    result.completed = transport->stop() && sound;
    result.readers = transport->readers().totals(result.written);
    result.dropped = transport->dropped();
    return result;
}

} // namespace

PacedFanOut findHighestPace(const TransportMaker &makeTransport)
{
    PacedFanOut result{};
    result.limit = "-";
    int64_t end = monotonicNanoseconds() + kSearchNanoseconds;
    double pace = kFirstPace;
    for (;;) {
        Probe run = probe(makeTransport, pace);
        result.probes++;
        // One hiccup of a shared machine must not end the search: a pace
        // fails only when a second probe at it fails too.
        if (run.completed && !interrupted() && !(run.writerKeptPace && run.readersKeptUp())) {
            run = probe(makeTransport, pace);
            result.probes++;
        }
        if (!run.completed || interrupted())
            return result;
        result.dropped += run.dropped;
        result.faults += run.readers.faults;
        if (run.writerKeptPace && run.readersKeptUp()) {
            result.framesPerSecond = pace;
            result.slowestReaderPerSecond = double(run.readers.slowestFrames) / run.seconds;
            result.slowestShare = double(run.readers.slowestFrames) / run.written;
        } else {
            result.failedPace = pace;
            result.limit = run.writerKeptPace ? "readers" : "writer";
        }
        double best = result.framesPerSecond, failed = result.failedPace;
        if (monotonicNanoseconds() >= end || (failed != 0 && failed < kLowestPace) ||
            (failed != 0 && failed - best <= kResolution * failed))
            break;
        pace = failed == 0 ? 2 * pace : best == 0 ? failed / 2 : (best + failed) / 2;
    }
    result.completed = true;
    return result;
}

} // namespace tarvo::bench
