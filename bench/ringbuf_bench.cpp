/*
 * Ring buffer benchmark, two measurements in one run, each with four reader
 * processes (fork) attached:
 *
 * 1. Writer cost: nanoseconds per frame that rbSafeWrite takes, against a
 *    plain memcpy of the same frame into a private buffer as large as the
 *    ring's cells.  Target: at most 1.5x memcpy at 64 KiB, 1.15x at 1 MiB.
 * 2. Fan-out: whole frames per second that reach each reader through the
 *    ring (rbLockWrite / rbUnlockWrite), against the same frames written to
 *    one Unix stream socket per reader.  Ring readers may skip frames, as the
 *    writer never waits for them; socket readers get every frame.  Target: at
 *    least 4x the sockets at 64 KiB.
 *
 * Data: frames of 4 KiB, 64 KiB and 1 MiB, numbered in their first and last
 * four bytes, which every reader checks; rings of 8 cells of one frame each.
 * Times vary between machines, ratios hold.  Exit status 1 when a run could
 * not complete or a reader saw a damaged frame; a missed target is reported,
 * not failed.
 */
#include "fan_out.h"
#include "owned_ring.h"
#include "reader_pool.h"
#include "writer_cost.h"

#include <csignal>
#include <cstdio>
#include <unistd.h>

using namespace tarvo::bench;

namespace
{

struct FrameCase {
    uint32_t length;
    const char *label;
    double writerCostTarget; // highest ratio to memcpy; 0 for none
    double fanOutTarget;     // lowest ratio to sockets; 0 for none
};

constexpr FrameCase kCases[] = {
    {4 << 10, "4 KiB", 0, 0},
    {64 << 10, "64 KiB", 1.5, 4},
    {1 << 20, "1 MiB", 1.15, 0},
};

// Keys spaced 32 apart (a ring uses K and K + 16) in a range of this process.
int ringKey(int index)
{
    return 0x30000000 + (getpid() % 0x100000) * 0x100 + index * 32;
}

// Interruptions are held back and looked at between runs, so that no system
// call of a run is cut short and every ring is released on the way out.
void holdBackInterruptions()
{
    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGINT);
    sigaddset(&held, SIGTERM);
    sigaddset(&held, SIGHUP);
    sigprocmask(SIG_BLOCK, &held, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

bool interrupted()
{
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGINT) || sigismember(&pending, SIGTERM) ||
           sigismember(&pending, SIGHUP);
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

void printHeader()
{
    printf("libTarvo ring buffer benchmark (%ld cores, %d reader processes, %d-cell rings)\n",
           sysconf(_SC_NPROCESSORS_ONLN), kReaders, kRingCells);
    printf("Frames of 4 KiB, 64 KiB, 1 MiB, numbered in their first and last 4 bytes, which "
           "readers check.\n\n");
}

bool runWriterCost(int &keyIndex)
{
    printf("1. Writer cost: rbSafeWrite against memcpy of the same frame into a private buffer\n"
           "   of the ring's size; readers read every frame they can (backing off 75 us when\n"
           "   caught up).  Target: <= 1.5x memcpy at 64 KiB, <= 1.15x at 1 MiB.\n");
    printf("   %-7s %12s %14s %7s  %-16s %8s %13s %7s\n", "frame", "memcpy ns", "rbSafeWrite ns",
           "ratio", "target", "dropped", "reader frames", "faults");
    bool sound = true;
    for (const FrameCase &frame : kCases) {
        WriterCost cost = measureWriterCost(ringKey(keyIndex++), frame.length);
        if (!cost.completed) {
            printf("   %-7s run failed\n", frame.label);
            return false;
        }
        double ratio = cost.ringNanoseconds / cost.memcpyNanoseconds;
        printf("   %-7s %12.0f %14.0f %6.2fx", frame.label, cost.memcpyNanoseconds,
               cost.ringNanoseconds, ratio);
        printVerdict(ratio, frame.writerCostTarget, true);
        printf(" %8llu %13llu %7llu\n", (unsigned long long)cost.dropped,
               (unsigned long long)cost.readerFrames, (unsigned long long)cost.readerFaults);
        fflush(stdout);
        sound = sound && cost.readerFaults == 0;
        if (interrupted()) return false;
    }
    return sound;
}

bool runFanOut(int &keyIndex)
{
    printf("\n2. Fan-out: whole frames per second each reader gets, slowest reader (mean in\n"
           "   brackets).  Ring readers may skip frames (the writer never waits for them);\n"
           "   socket readers get every frame.  Target: >= 4x the sockets at 64 KiB.\n");
    printf("   %-7s %10s %21s %21s %7s  %-16s %8s %7s\n", "frame", "ring out/s",
           "ring per reader/s", "socket per reader/s", "ratio", "target", "dropped", "faults");
    bool sound = true;
    for (const FrameCase &frame : kCases) {
        FanOut ring = measureRingFanOut(ringKey(keyIndex++), frame.length);
        FanOut sockets = ring.completed ? measureSocketFanOut(frame.length) : FanOut{};
        if (!ring.completed || !sockets.completed) {
            printf("   %-7s run failed\n", frame.label);
            return false;
        }
        double ratio = ring.slowestReaderPerSecond / sockets.slowestReaderPerSecond;
        printf("   %-7s %10.0f %9.0f (%9.0f) %9.0f (%9.0f) %6.2fx", frame.label,
               ring.writtenPerSecond, ring.slowestReaderPerSecond, ring.meanReaderPerSecond,
               sockets.slowestReaderPerSecond, sockets.meanReaderPerSecond, ratio);
        printVerdict(ratio, frame.fanOutTarget, false);
        printf(" %8llu %7llu\n", (unsigned long long)ring.dropped,
               (unsigned long long)(ring.faults + sockets.faults));
        fflush(stdout);
        sound = sound && ring.faults + sockets.faults == 0;
        if (interrupted()) return false;
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
    sound = sound && !interrupted() && runFanOut(keyIndex);
    if (interrupted()) printf("interrupted\n");
    return sound ? 0 : 1;
}
