/*
 * Ring buffer benchmark: three measurements in one run, every figure a ratio
 * between two things measured side by side.
 *
 * 1. Writer cost over the lock floor.  The floor is what the lock protocol
 *    must spend on every frame: the four semaphore operations of one
 *    rbSafeWrite, alone in a loop at the same pace.  rbSafeWrite's time less a plain memcpy of
 *    the same frame (into private buffers as large as the ring's cells) is
 *    given as a multiple of it, with 0, 1 and 4 readers consuming.
 *    Target: at most 1.25x the floor with readers attached.
 * 2. Fan-out, flat out: frames per second that reach each of 4 readers
 *    through the ring (rbLockWrite / rbUnlockWrite) against one Unix stream
 *    socket per reader.  Target: at least 1.5x at 64 KiB, 4x at 1 MiB.
 * 3. Fan-out at a camera's pace: CPU time of all processes per frame a
 *    reader got, ring against sockets.  Target: at most 0.5x.  The context
 *    switches of the same runs per frame written follow in a table of their
 *    own, without a target: they tell where the time of 3 goes.
 *
 * Frames are numbered in their first and last four bytes, which every reader
 * checks; rings have 8 cells of one frame each.  Exit status 1 when a run
 * could not complete or a reader saw a damaged frame; a missed target is
 * reported, not failed.
 */
#include "fan_out.h"
#include "interruptions.h"
#include "owned_ring.h"
#include "reader_pool.h"
#include "writer_cost.h"

#include <cstdio>
#include <unistd.h>
#include <vector>

using namespace tarvo::bench;

namespace
{

struct FrameSize {
    uint32_t length;
    const char *label;
};

constexpr FrameSize k4KiB{4 << 10, "4 KiB"}, k64KiB{64 << 10, "64 KiB"},
    k512KiB{512 << 10, "512 KiB"}, k1MiB{1 << 20, "1 MiB"};

constexpr double kWriterPace = 2000;
constexpr int kReaderCounts[] = {0, 1, kReaders};
constexpr double kFloorTarget = 1.25;
constexpr double kCameraPaces[] = {30, 240};
constexpr double kCameraSeconds = 2;
constexpr double kCpuTarget = 0.5;

// Keys spaced 32 apart (a ring uses K and K + 16, the lock floor K + 1 and
// K + 17), 32 of them in a range of this process.
int ringKey(int index)
{
    return 0x30000000 + (getpid() % 0x100000) * 0x400 + index * 32;
}

// The one-minute load average, or -1 when it cannot be read: figures taken
// while other work runs are worth less.
double loadAverage()
{
    double load = -1;
    if (FILE *file = fopen("/proc/loadavg", "r")) {
        if (fscanf(file, "%lf", &load) != 1)
            load = -1;
        fclose(file);
    }
    return load;
}

// "met" / "MISSED" against a target, "-" without one.
void printVerdict(double ratio, double target, bool atMost)
{
    if (target == 0)
        printf("  %-15s", "-");
    else
        printf("  %s %4.2fx %-6s", atMost ? "<=" : ">=", target,
               (atMost ? ratio <= target : ratio >= target) ? "met" : "MISSED");
}

bool runWriterCost(int &keyIndex)
{
    printf("1. rbSafeWrite less memcpy, as a multiple of the lock floor (its four semaphore\n"
           "   operations alone).  A call every 0.5 ms, each timed on its own; memcpy,\n"
           "   rbSafeWrite and the floor in alternate rounds; readers consume as a camera's\n"
           "   clients do (rbGetPayload, check, rbEndPayload).\n"
           "   Target: <= %.2fx the floor with readers, judged on the median (the mean also\n"
           "   holds every time another process had the core).\n",
           kFloorTarget);
    printf("   %-6s %7s %7s  %-15s  %-15s  %-15s  %-15s %7s %6s\n", "frame", "readers", "floor",
           "memcpy ns", "rbSafeWrite ns", "over floor", "target (median)", "missed", "faults");
    printf("   %-6s %7s %7s  %7s %7s  %7s %7s  %7s %7s\n", "", "", "ns", "median", "mean", "median",
           "mean", "median", "mean");
    bool sound = true;
    for (const FrameSize &frame : {k4KiB, k64KiB}) {
        for (int readers : kReaderCounts) {
            int key = ringKey(keyIndex++);
            WriterCost cost = measureWriterCost(key, frame.length, kWriterPace, readers);
            if (!cost.completed) {
                printf("   %-6s %7d run failed\n", frame.label, readers);
                return false;
            }
            double medianOver =
                (cost.ringCost.medianNanoseconds - cost.memcpyCost.medianNanoseconds) /
                cost.floorCost.medianNanoseconds;
            double meanOver = (cost.ringCost.meanNanoseconds - cost.memcpyCost.meanNanoseconds) /
                              cost.floorCost.meanNanoseconds;
            printf("   %-6s %7d %7.0f  %7.0f %7.0f  %7.0f %7.0f  %6.2fx %6.2fx", frame.label,
                   readers, cost.floorCost.medianNanoseconds, cost.memcpyCost.medianNanoseconds,
                   cost.memcpyCost.meanNanoseconds, cost.ringCost.medianNanoseconds,
                   cost.ringCost.meanNanoseconds, medianOver, meanOver);
            printVerdict(medianOver, readers > 0 ? kFloorTarget : 0, true);
            printf(" %7llu %6llu\n", (unsigned long long)cost.readers.missed,
                   (unsigned long long)cost.readers.faults);
            fflush(stdout);
            sound = sound && cost.readers.faults == 0;
            if (interrupted())
                return false;
        }
    }
    return sound;
}

bool runFlatOutFanOut(int &keyIndex)
{
    printf("\n2. Fan-out to %d readers, flat out: frames back to back for 1.5 s; whole frames\n"
           "   per second each reader gets, slowest reader (mean in brackets).  Ring readers\n"
           "   may skip frames (they sleep 75 us when caught up); socket readers get every\n"
           "   frame.  Target: >= 1.5x the sockets at 64 KiB, >= 4x at 1 MiB.\n",
           kReaders);
    printf("   %-6s %10s %21s %21s %7s  %-15s %7s %6s\n", "frame", "ring out/s",
           "ring per reader/s", "socket per reader/s", "ratio", "target", "dropped", "faults");
    struct Case {
        FrameSize frame;
        double target;
    };
    bool sound = true;
    for (const Case &row : {Case{k64KiB, 1.5}, Case{k1MiB, 4}}) {
        int key = ringKey(keyIndex++);
        uint32_t length = row.frame.length;
        FlatOutFanOut ring = measureFlatOutFanOut(
            [&] { return makeRingTransport(key, length, RingReading::WithBackOff); });
        FlatOutFanOut sockets =
            ring.completed ? measureFlatOutFanOut([&] { return makeSocketTransport(length); })
                           : FlatOutFanOut{};
        if (!ring.completed || !sockets.completed) {
            printf("   %-6s run failed\n", row.frame.label);
            return false;
        }
        double ratio = ring.slowestReaderPerSecond / sockets.slowestReaderPerSecond;
        printf("   %-6s %10.0f %9.0f (%9.0f) %9.0f (%9.0f) %6.2fx", row.frame.label,
               ring.writtenPerSecond, ring.slowestReaderPerSecond, ring.meanReaderPerSecond,
               sockets.slowestReaderPerSecond, sockets.meanReaderPerSecond, ratio);
        printVerdict(ratio, row.target, false);
        printf(" %7llu %6llu\n", (unsigned long long)ring.dropped,
               (unsigned long long)(ring.faults + sockets.faults));
        fflush(stdout);
        sound = sound && ring.faults + sockets.faults == 0;
        if (interrupted())
            return false;
    }
    return sound;
}

struct PacedSwitches {
    const char *frame;
    double pace;
    double ring;
    double sockets;
};

void printPacedSwitches(const std::vector<PacedSwitches> &rows)
{
    printf("\n4. Context switches of all processes per frame written, in the runs of 3\n"
           "   (voluntary and involuntary; a writer and %d readers that each sleep once\n"
           "   per frame make %d).\n",
           kReaders, kReaders + 1);
    printf("   %-7s %6s  %8s %8s\n", "frame", "pace/s", "ring", "sockets");
    for (const PacedSwitches &row : rows)
        printf("   %-7s %6.0f  %8.2f %8.2f\n", row.frame, row.pace, row.ring, row.sockets);
}

bool runPacedCpu(int &keyIndex)
{
    printf("\n3. Fan-out to %d readers at a camera's pace, %.0f s per row: CPU time of all\n"
           "   processes per frame a reader got.  The ring writer reserves each cell\n"
           "   (rbLockWrite), fills it, holds it until the frame's time and publishes it\n"
           "   (rbUnlockWrite); ring readers consume with rbGetPayload.  Got: the slowest\n"
           "   reader's share of the frames.  Target: ring <= %.1fx the sockets.\n",
           kReaders, kCameraSeconds, kCpuTarget);
    printf("   %-7s %6s  %-16s  %-16s %7s  %-15s %7s %6s\n", "frame", "pace/s", "ring us    got",
           "sockets us  got", "ratio", "target", "dropped", "faults");
    bool sound = true;
    std::vector<PacedSwitches> switches;
    for (const FrameSize &frame : {k64KiB, k512KiB}) {
        for (double pace : kCameraPaces) {
            int key = ringKey(keyIndex++);
            uint32_t length = frame.length;
            PacedCpu ring = measurePacedCpu(
                [&] { return makeRingTransport(key, length, RingReading::AsConsumer); }, pace,
                kCameraSeconds);
            PacedCpu sockets = ring.completed
                                   ? measurePacedCpu([&] { return makeSocketTransport(length); },
                                                     pace, kCameraSeconds)
                                   : PacedCpu{};
            if (!ring.completed || !sockets.completed) {
                printf("   %-7s %6.0f run failed\n", frame.label, pace);
                return false;
            }
            double ratio = ring.cpuMicrosecondsPerFrame / sockets.cpuMicrosecondsPerFrame;
            printf("   %-7s %6.0f  %7.1f %6.1f%%  %7.1f %6.1f%% %6.2fx", frame.label, pace,
                   ring.cpuMicrosecondsPerFrame, 100 * ring.slowestShare,
                   sockets.cpuMicrosecondsPerFrame, 100 * sockets.slowestShare, ratio);
            printVerdict(ratio, kCpuTarget, true);
            printf(" %7llu %6llu\n", (unsigned long long)ring.dropped,
                   (unsigned long long)(ring.faults + sockets.faults));
            fflush(stdout);
            switches.push_back({frame.label, pace, ring.switchesPerFrame, sockets.switchesPerFrame});
            sound = sound && ring.faults + sockets.faults == 0;
            if (interrupted())
                return false;
        }
    }
    printPacedSwitches(switches);
    return sound;
}

} // namespace

int main()
{
    holdBackInterruptions();
    printf("libTarvo ring buffer benchmark: %ld cores, load average %.2f at the start, "
           "%d-cell rings\n\n",
           sysconf(_SC_NPROCESSORS_ONLN), loadAverage(), kRingCells);
    int keyIndex = 0;
    bool sound = runWriterCost(keyIndex);
    sound = sound && !interrupted() && runFlatOutFanOut(keyIndex);
    sound = sound && !interrupted() && runPacedCpu(keyIndex);
    printf("\nload average %.2f at the end\n", loadAverage());
    if (interrupted())
        printf("interrupted\n");
    return sound ? 0 : 1;
}
