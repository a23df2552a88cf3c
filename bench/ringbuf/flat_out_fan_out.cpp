#include "fan_out.h"

#include "pacer.h"

#include <chrono>

namespace tarvo::bench
{

namespace
{

constexpr int64_t kRunNanoseconds = 1'500'000'000;
// Readers that do not get the last frame this soon have missed it.
constexpr auto kDrainLimit = std::chrono::milliseconds(100);

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
    } while (sound && elapsed < kRunNanoseconds);
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

} // namespace tarvo::bench
