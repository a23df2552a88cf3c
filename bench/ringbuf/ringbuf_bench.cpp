/*
 * Ring buffer benchmark, two measurements in one run, each with four reader
 * processes (fork) attached, and each done two ways: camera-like (the writer
 * puts out frames at a fixed pace, readers consume as a camera's clients do)
 * and as flat-out stress (the writer puts out frames back to back).
 *
 * 1. Writer cost: nanoseconds per frame that rbSafeWrite takes, against a
 *    plain memcpy of the same frame into private buffers as large as the
 *    ring's cells.  Target: at most 1.5x memcpy at 64 KiB, 1.15x at 1 MiB.
 * 2. Fan-out: frames per second that reach each reader through the ring
 *    (rbLockWrite / rbUnlockWrite), against the same frames written to one
 *    Unix stream socket per reader.  Target: at least 4x the sockets at
 *    64 KiB.
 *
 * Data: frames of 4 KiB, 64 KiB and 1 MiB, numbered in their first and last
 * four bytes, which every reader checks; rings of 8 cells of one frame each.
 * Times vary between machines, ratios hold.  Exit status 1 when a run could
 * not complete or a reader saw a damaged frame; a missed target is reported,
 * not failed.
 */
#include "fan_out.h"
#include "interruptions.h"
#include "owned_ring.h"
#include "reader_pool.h"
#include "writer_cost.h"

#include <cstdio>
#include <unistd.h>

using namespace tarvo::bench;

namespace
{

struct FrameCase {
    uint32_t length;
    const char *label;
    double cameraPace;       // frames per second of the camera-like writer cost
    double writerCostTarget; // highest ratio to memcpy; 0 for none
    double fanOutTarget;     // lowest ratio to sockets; 0 for none
};

constexpr FrameCase kCases[] = {
    {4 << 10, "4 KiB", 2000, 0, 0},
    {64 << 10, "64 KiB", 2000, 1.5, 4},
    {1 << 20, "1 MiB", 200, 1.15, 0},
};

// Keys spaced 32 apart (a ring uses K and K + 16), 32 of them in a range of
// this process.
int ringKey(int index)
{
    return 0x30000000 + (getpid() % 0x100000) * 0x400 + index * 32;
}

// "met" / "MISSED" against a target, "-" without one.
void printVerdict(double ratio, double target, bool atMost)
{
    if (target == 0)
        printf("  %-16s", "-");
    else
        printf("  %s %4.2fx %-6s", atMost ? "<=" : ">=", target,
               (atMost ? ratio <= target : ratio >= target) ? "met" : "MISSED");
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

void printHeader()
{
    printf("libTarvo ring buffer benchmark: %ld cores (load average %.2f), %d reader processes, "
           "%d-cell rings\n",
           sysconf(_SC_NPROCESSORS_ONLN), loadAverage(), kReaders, kRingCells);
    printf("Frames of 4 KiB, 64 KiB, 1 MiB, numbered in their first and last 4 bytes, which "
           "readers check.\n\n");
}

// One row of the writer cost table; false when the readers saw damage.
bool printWriterCost(const char *rows, const FrameCase &frame, const char *pace,
                     const WriterCost &cost)
{
    double medianRatio = cost.ringCost.medianNanoseconds / cost.memcpyCost.medianNanoseconds;
    double meanRatio = cost.ringCost.meanNanoseconds / cost.memcpyCost.meanNanoseconds;
    printf("   %-11s %-6s %6s  %8.0f %8.0f  %8.0f %8.0f  %7.2fx %7.2fx", rows, frame.label, pace,
           cost.memcpyCost.medianNanoseconds, cost.memcpyCost.meanNanoseconds,
           cost.ringCost.medianNanoseconds, cost.ringCost.meanNanoseconds, medianRatio, meanRatio);
    printVerdict(meanRatio, frame.writerCostTarget, true);
    printf(" %7llu %9llu %9llu %6llu\n", (unsigned long long)cost.dropped,
           (unsigned long long)cost.readers.frames, (unsigned long long)cost.readers.missed,
           (unsigned long long)cost.readers.faults);
    fflush(stdout);
    return cost.readers.faults == 0;
}

bool runWriterCost(int &keyIndex)
{
    printf("1. Writer cost: rbSafeWrite against memcpy of the same frame into 8 private buffers\n"
           "   in turn.  Target: <= 1.5x memcpy at 64 KiB, <= 1.15x at 1 MiB, judged on the "
           "mean.\n"
           "   camera-like: a frame every 1/pace s, each call timed on its own; readers consume\n"
           "     as a camera's clients do (rbGetPayload, check, rbEndPayload), rbGetPayload\n"
           "     asking again without sleeping until a frame comes.\n"
           "   flat-out stress: frames back to back, timed in 120 ms batches (median batch,\n"
           "     mean of all); readers read all they can, sleeping 75 us when caught up, so\n"
           "     the memcpy batches run while they poll an idle ring.\n"
           "   Reader frames, missed: all four readers together.\n");
    printf("   %-11s %-6s %6s  %-17s  %-17s  %-17s  %-16s %7s %9s %9s %6s\n", "rows", "frame",
           "pace/s", "memcpy ns", "rbSafeWrite ns", "ratio", "target (mean)", "dropped", "reader",
           "missed", "faults");
    printf("   %-11s %-6s %6s  %8s %8s  %8s %8s  %8s %8s  %-16s %7s %9s\n", "", "", "", "median",
           "mean", "median", "mean", "median", "mean", "", "", "frames");
    bool sound = true;
    for (const FrameCase &frame : kCases) {
        WriterCost cost =
            measurePacedWriterCost(ringKey(keyIndex++), frame.length, frame.cameraPace);
        char pace[16];
        snprintf(pace, sizeof pace, "%.0f", frame.cameraPace);
        if (!cost.completed) {
            printf("   camera-like %-6s run failed\n", frame.label);
            return false;
        }
        sound = printWriterCost("camera-like", frame, pace, cost) && sound;
        if (interrupted())
            return false;
    }
    for (const FrameCase &frame : kCases) {
        WriterCost cost = measureFlatOutWriterCost(ringKey(keyIndex++), frame.length);
        if (!cost.completed) {
            printf("   flat-out    %-6s run failed\n", frame.label);
            return false;
        }
        sound = printWriterCost("flat-out", frame, "-", cost) && sound;
        if (interrupted())
            return false;
    }
    return sound;
}

// Ring and socket columns of one camera-like fan-out row.
void printPaced(const PacedFanOut &fan)
{
    printf(" %7.0f %7.0f %5.1f%% %7.0f %-7s %2d", fan.framesPerSecond, fan.slowestReaderPerSecond,
           100 * fan.slowestShare, fan.failedPace, fan.limit, fan.probes);
}

bool runPacedFanOut(int &keyIndex)
{
    printf("\n2a. Fan-out, camera-like: the highest pace at which the writer keeps its pace\n"
           "    (>= 99%% of frames out within 4 frame times, or 20 ms if longer, of their\n"
           "    time) and every reader gets >= 99%% of the frames; from 250/s doubled, then\n"
           "    bisected to 5%%, probes of 0.3 s and at least 100 frames.  The ring writer\n"
           "    reserves a cell (rbLockWrite), fills it and holds it until the frame's time\n"
           "    (rbUnlockWrite); ring readers consume with rbGetPayload.  Socket writes block.\n"
           "    Reader, got: frames per second the slowest reader got at that pace, and its\n"
           "    share of the frames.  Failed, by: the lowest pace that failed, and who fell\n"
           "    short there.  n: probes.  Ratio: of the readers' frames per second.\n"
           "    Target: >= 4x the sockets at 64 KiB.\n");
    printf("   %-6s %-41s %-41s %7s  %-16s %7s %6s\n", "", "ring", "sockets", "ratio", "target",
           "dropped", "faults");
    printf("   %-6s %7s %7s %6s %7s %-7s %2s %7s %7s %6s %7s %-7s %2s %7s\n", "frame", "pace/s",
           "reader", "got", "failed", "by", "n", "pace/s", "reader", "got", "failed", "by", "n",
           "reader");
    bool sound = true;
    for (const FrameCase &frame : kCases) {
        int key = ringKey(keyIndex++);
        PacedFanOut ring = findHighestPace(
            [&] { return makeRingTransport(key, frame.length, RingReading::AsConsumer); });
        PacedFanOut sockets =
            ring.completed ? findHighestPace([&] { return makeSocketTransport(frame.length); })
                           : PacedFanOut{};
        if (!ring.completed || !sockets.completed) {
            // A search ends early on an interruption, which main reports.
            if (!interrupted())
                printf("   %-6s run failed\n", frame.label);
            return false;
        }
        double ratio = ring.slowestReaderPerSecond / sockets.slowestReaderPerSecond;
        printf("   %-6s", frame.label);
        printPaced(ring);
        printPaced(sockets);
        printf(" %6.2fx", ratio);
        printVerdict(ratio, frame.fanOutTarget, false);
        printf(" %7llu %6llu\n", (unsigned long long)ring.dropped,
               (unsigned long long)(ring.faults + sockets.faults));
        fflush(stdout);
        sound = sound && ring.faults + sockets.faults == 0;
        if (interrupted())
            return false;
    }
    return sound;
}

bool runFlatOutFanOut(int &keyIndex)
{
    printf("\n2b. Fan-out, flat-out stress: frames back to back for 1.5 s.  Whole frames per\n"
           "    second each reader gets, slowest reader (mean in brackets).  Ring readers may\n"
           "    skip frames (the writer never waits for them; they sleep 75 us when caught\n"
           "    up); socket readers get every frame.\n");
    printf("   %-6s %10s %21s %21s %7s %8s %7s\n", "frame", "ring out/s", "ring per reader/s",
           "socket per reader/s", "ratio", "dropped", "faults");
    bool sound = true;
    for (const FrameCase &frame : kCases) {
        int key = ringKey(keyIndex++);
        FlatOutFanOut ring = measureFlatOutFanOut(
            [&] { return makeRingTransport(key, frame.length, RingReading::WithBackOff); });
        FlatOutFanOut sockets =
            ring.completed ? measureFlatOutFanOut([&] { return makeSocketTransport(frame.length); })
                           : FlatOutFanOut{};
        if (!ring.completed || !sockets.completed) {
            printf("   %-6s run failed\n", frame.label);
            return false;
        }
        double ratio = ring.slowestReaderPerSecond / sockets.slowestReaderPerSecond;
        printf("   %-6s %10.0f %9.0f (%9.0f) %9.0f (%9.0f) %6.2fx %8llu %7llu\n", frame.label,
               ring.writtenPerSecond, ring.slowestReaderPerSecond, ring.meanReaderPerSecond,
               sockets.slowestReaderPerSecond, sockets.meanReaderPerSecond, ratio,
               (unsigned long long)ring.dropped,
               (unsigned long long)(ring.faults + sockets.faults));
        fflush(stdout);
        sound = sound && ring.faults + sockets.faults == 0;
        if (interrupted())
            return false;
    }
    return sound;
}

} // namespace

int main()
{
    holdBackInterruptions();
    printHeader();
    int keyIndex = 0;
    bool sound = runWriterCost(keyIndex);
    sound = sound && !interrupted() && runPacedFanOut(keyIndex);
    sound = sound && !interrupted() && runFlatOutFanOut(keyIndex);
    if (interrupted())
        printf("interrupted\n");
    return sound ? 0 : 1;
}
