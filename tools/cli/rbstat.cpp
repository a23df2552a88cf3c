// tarvo-rbstat: a ring buffer's header and chain of cells, or, with --watch,
// its frame rate and frame sizes as they go by; it changes nothing in the
// segment.
#include "cli.h"
#include "ring_segment.h"

#include "tarvo/profile.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>

using namespace tarvo::cli;

namespace
{

const char kUsage[] =
    "Usage: tarvo-rbstat (--key K | --profile N) [--watch [--seconds S]]\n"
    "\n"
    "Shows a ring buffer without disturbing its writer: the segment is attached\n"
    "read-only and the area lock is held only while the cell headers are copied.\n"
    "\n"
    "  --key K       the ring buffer's key (decimal, or hex with 0x)\n"
    "  --profile N   streaming profile N, the ring with key N + 4097\n"
    "  --watch       every second, one line: frames per second, the newest frame's\n"
    "                number, the sizes of the frames seen (the chain is sampled ten\n"
    "                times a second) and the readers holding or parked on cells\n"
    "  --seconds S   stop watching after S seconds (default: until interrupted)\n"
    "\n"
    "Cells are listed from the start of the segment: offset, state (empty, write\n"
    "position, frame, passed over: a frame the writer passed while readers held it),\n"
    "frame number, length, payload size, readers holding it, readers parked on it.\n"
    "\n"
    "Exit status: 0 shown; 1 no such ring, no access, the ring was released, or its\n"
    "area lock stayed held for 2 s; 2 usage error; 3 the chain of cells is damaged\n"
    "(a restarted writer re-creates it).\n";

constexpr long kSampleMilliseconds = 100;
constexpr int kSamplesPerLine = 1000 / kSampleMilliseconds;

const char *stateName(uint32_t state)
{
    static const char *const names[] = {"empty", "write position", "frame", "passed over"};
    return state < 4 ? names[state] : "unknown";
}

bool holdsFrame(const CellCopy &cell)
{
    return cell.state == kFull || cell.state == kPassedOver;
}

// One copy of the ring; false after saying why none could be made.
bool takeCopy(const CommandLine &tool, const RingSegment &segment, int key, RingCopy &ring)
{
    RingSegment::Copy result = segment.copy(ring);
    if (result == RingSegment::Copy::kCopied && ring.release == 0)
        return true;
    if (result == RingSegment::Copy::kLockBusy)
        tool.failure("the area lock of key %d stayed held for 2 s: is a process stopped or stuck "
                     "inside the ring? (ipcs -s; ps)",
                     key);
    else if (segment.released())
        tool.failure("the ring with key %d was released by its writer", key);
    else
        tool.failure("the ring with key %d has no area lock: is the segment a ring buffer's? "
                     "(ipcs -m -s)",
                     key);
    return false;
}

void printRing(int key, const RingSegment &segment, const RingCopy &ring)
{
    std::printf("ring key %d (0x%x): segment %u bytes, %d processes attached (this one too)\n", key,
                unsigned(key), segment.size(), segment.attachedProcesses());
    std::printf("area: %u cells, %u cell bytes, noSkip %u, error %u, write position at %u, "
                "writer lock %s\n",
                ring.cellCount, ring.cellsBytes, ring.noSkip, ring.error, ring.writeCell,
                ring.writerLockHeld > 0    ? "held"
                : ring.writerLockHeld == 0 ? "free"
                                           : "missing");
    std::printf("cell    offset  state                 frame     length       size  held "
                "parked\n");
    uint32_t oldest = 0, newest = 0, frames = 0;
    for (size_t i = 0; i < ring.cells.size(); i++) {
        const CellCopy &cell = ring.cells[i];
        std::printf("%4zu %9u  %-15s %11u %10u %10u %5u %6u%s\n", i, cell.at, stateName(cell.state),
                    cell.seq, cell.length, cell.size, cell.used, cell.stay,
                    cell.at == ring.writeCell ? "  <- writer" : "");
        if (holdsFrame(cell)) {
            oldest = frames == 0 || cell.seq < oldest ? cell.seq : oldest;
            newest = cell.seq > newest ? cell.seq : newest;
            frames++;
        }
    }
    if (ring.damage)
        std::printf("damaged at cell %zu: %s\n", ring.cells.size() - 1, ring.damage);
    if (frames > 0)
        std::printf("%u frames in the ring, numbers %u to %u\n", frames, oldest, newest);
    else
        std::printf("no frames in the ring\n");
}

// What a watch learns from the samples of one second.
struct Tally {
    uint32_t seen = 0, smallest = 0, largest = 0;
    uint64_t bytes = 0;

    void add(uint32_t length)
    {
        smallest = seen == 0 || length < smallest ? length : smallest;
        largest = length > largest ? length : largest;
        bytes += length;
        seen++;
    }
};

double secondsBetween(const timespec &from, const timespec &to)
{
    return double(to.tv_sec - from.tv_sec) + double(to.tv_nsec - from.tv_nsec) / 1e9;
}

// The highest frame number in the copy; 0 when it holds no frame.
uint32_t newestFrame(const RingCopy &ring)
{
    uint32_t newest = 0;
    for (const CellCopy &cell : ring.cells)
        if (holdsFrame(cell) && cell.seq > newest)
            newest = cell.seq;
    return newest;
}

void tallyFramesAfter(const RingCopy &ring, uint32_t newest, Tally &tally)
{
    for (const CellCopy &cell : ring.cells)
        if (holdsFrame(cell) && cell.seq > newest)
            tally.add(cell.length);
}

void printWatchLine(const RingCopy &ring, double framesPerSecond, uint32_t newest,
                    const Tally &tally)
{
    uint32_t held = 0, parked = 0;
    for (const CellCopy &cell : ring.cells) {
        held += cell.used;
        parked += cell.stay;
    }
    char clock[16];
    time_t now = time(nullptr);
    strftime(clock, sizeof clock, "%H:%M:%S", localtime(&now));
    std::printf("%s %7.1f frames/s  newest %u  ", clock, framesPerSecond, newest);
    if (tally.seen > 0)
        std::printf("sizes %u..%u bytes, mean %llu (%u seen)", tally.smallest, tally.largest,
                    (unsigned long long)(tally.bytes / tally.seen), tally.seen);
    else
        std::printf("no new frames");
    std::printf("  held %u parked %u%s\n", held, parked, ring.damage ? "  (chain damaged)" : "");
    std::fflush(stdout);
}

int watch(const CommandLine &line, const RingSegment &segment, int key, long seconds)
{
    RingCopy ring;
    if (!takeCopy(line, segment, key, ring))
        return kExitFailure;
    uint32_t newest = newestFrame(ring);
    timespec lineStart;
    clock_gettime(CLOCK_MONOTONIC, &lineStart);
    uint32_t lineStartNewest = newest;
    for (long lines = 0; seconds == 0 || lines < seconds; lines++) {
        Tally tally;
        for (int sample = 0; sample < kSamplesPerLine; sample++) {
            timespec pause{0, kSampleMilliseconds * 1000000};
            nanosleep(&pause, nullptr);
            if (!takeCopy(line, segment, key, ring))
                return kExitFailure;
            uint32_t now = newestFrame(ring);
            if (now < newest) // numbering restarted: a new writer, or a reset
                newest = lineStartNewest = 0;
            tallyFramesAfter(ring, newest, tally);
            newest = now;
        }
        timespec lineEnd;
        clock_gettime(CLOCK_MONOTONIC, &lineEnd);
        printWatchLine(ring, (newest - lineStartNewest) / secondsBetween(lineStart, lineEnd),
                       newest, tally);
        lineStart = lineEnd;
        lineStartNewest = newest;
    }
    return kExitOk;
}

int attachFailure(const CommandLine &line, Attach result, int key, const RingSegment &segment)
{
    switch (result) {
    case Attach::kNoSegment:
        return line.failure("no ring buffer with key %d: is the writer running? (ipcs -m)", key);
    case Attach::kNotAllowed:
        return line.failure("no access to the ring buffer with key %d: run as its writer's user "
                            "or as root",
                            key);
    case Attach::kWrongSize:
        return line.failure("the segment with key %d is %u bytes, too small or too large for a "
                            "ring buffer: is the key right? (ipcs -m)",
                            key, segment.size());
    default:
        return line.failure("cannot attach the segment with key %d: %s", key, std::strerror(errno));
    }
}

} // namespace

int main(int argc, char **argv)
{
    CommandLine line("tarvo-rbstat", kUsage, argc, argv);
    if (line.helpWanted())
        return kExitOk;
    long key = 0, profile = -1, seconds = 0;
    bool watching = false, keyGiven = false;
    while (!line.done()) {
        if (line.option("--key")) {
            if (!line.number(INT_MIN, INT_MAX, key))
                return kExitUsage;
            keyGiven = true;
        } else if (line.option("--profile")) {
            if (!line.number(0, INT_MAX - 4097, profile))
                return kExitUsage;
        } else if (line.option("--watch")) {
            watching = true;
        } else if (line.option("--seconds")) {
            if (!line.number(1, LONG_MAX, seconds))
                return kExitUsage;
        } else if (const char *extra = line.plain()) {
            return line.usageError("unexpected argument \"%s\"", extra);
        } else {
            return kExitUsage;
        }
    }
    if (seconds > 0 && !watching)
        return line.usageError("--seconds goes with --watch");
    if (keyGiven == (profile >= 0))
        return line.usageError("give either --key or --profile");
    if (profile >= 0)
        key = pfGetPKey(int(profile));
    if (key == 0)
        return line.usageError("key 0 is the private key; no ring can have it");

    RingSegment segment;
    if (Attach result = segment.attach(int(key)); result != Attach::kAttached)
        return attachFailure(line, result, int(key), segment);
    if (watching)
        return watch(line, segment, int(key), seconds);
    RingCopy ring;
    if (!takeCopy(line, segment, int(key), ring))
        return kExitFailure;
    printRing(int(key), segment, ring);
    if (ring.damage == nullptr)
        return kExitOk;
    line.failure("the chain of cells of key %d is damaged: a writer killed inside a frame, or "
                 "another process wrote into the segment; a restarted writer re-creates it",
                 int(key));
    return kExitDamaged;
}
