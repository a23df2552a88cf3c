#include "fan_out.h"

#include "pacer.h"

#include <sys/resource.h>

namespace tarvo::bench
{

namespace
{

constexpr int64_t kFlatOutNanoseconds = 1'500'000'000;

struct ProcessesUsage {
    double cpuMicroseconds;
    double switches; // voluntary and involuntary context switches
};

// User and system time and context switches of `who` (RUSAGE_SELF or
// RUSAGE_CHILDREN).
ProcessesUsage usageOf(int who)
{
    rusage usage{};
    getrusage(who, &usage);
    auto micros = [](const timeval &time) {
        return double(time.tv_sec) * 1e6 + double(time.tv_usec);
    };
    return {micros(usage.ru_utime) + micros(usage.ru_stime),
            double(usage.ru_nvcsw) + double(usage.ru_nivcsw)};
}

// The writer's usage and that of every reader reaped so far.
ProcessesUsage processesUsage()
{
    ProcessesUsage self = usageOf(RUSAGE_SELF), children = usageOf(RUSAGE_CHILDREN);
    return {self.cpuMicroseconds + children.cpuMicroseconds, self.switches + children.switches};
}

} // namespace

FlatOutFanOut measureFlatOutFanOut(const TransportMaker &makeTransport)
{
    std::unique_ptr<Transport> transport = makeTransport();
    if (!transport->start())
        return {};
    int64_t start = monotonicNanoseconds(), elapsed;
    uint32_t written = 0;
    bool sound = true;
    do {
        written++;
        sound = transport->prepare(written) && transport->publish();
        elapsed = monotonicNanoseconds() - start;
    } while (sound && elapsed < kFlatOutNanoseconds);
    transport->readers().awaitFrame(written, kDrainLimit);

    FlatOutFanOut result{};
    result.completed = transport->stop() && sound;
    ReaderTotals totals = transport->readers().totals(written);
    double seconds = double(elapsed) / 1e9;
    result.dropped = transport->dropped();
    result.writtenPerSecond = double(written - result.dropped) / seconds;
    result.slowestReaderPerSecond = double(totals.slowestFrames) / seconds;
    result.meanReaderPerSecond = double(totals.frames) / kReaders / seconds;
    result.faults = totals.faults;
    return result;
}

PacedCpu measurePacedCpu(const TransportMaker &makeTransport, double framesPerSecond,
                         double seconds)
{
    PacedCpu result{};
    ProcessesUsage before = processesUsage();
    std::unique_ptr<Transport> transport = makeTransport();
    if (!transport->start())
        return result;
    auto written = uint32_t(framesPerSecond * seconds);
    Pacer pacer(framesPerSecond);
    bool sound = true;
    for (uint32_t number = 1; sound && number <= written; number++) {
        sound = transport->prepare(number);
        pacer.awaitNextFrame();
        sound = sound && transport->publish();
    }
    transport->readers().awaitFrame(written, kDrainLimit);
    result.completed = transport->stop() && sound;
    ProcessesUsage after = processesUsage();
    double cpu = after.cpuMicroseconds - before.cpuMicroseconds;
    ReaderTotals totals = transport->readers().totals(written);
    result.cpuMicrosecondsPerFrame = totals.frames ? cpu / double(totals.frames) : 0;
    result.switchesPerFrame = (after.switches - before.switches) / double(written);
    result.slowestShare = double(totals.slowestFrames) / written;
    result.dropped = transport->dropped();
    result.faults = totals.faults;
    return result;
}

} // namespace tarvo::bench
