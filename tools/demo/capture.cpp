// The capture process: the one writer of the streaming profile.  Each
// frame's cell is reserved before the frame is waited for, so that readers
// that caught up sleep in the kernel until it is published.
#include "frame_source.h"
#include "roles.h"

#include "tarvo/profile.h"
#include "tarvo/ringbuf.h"

#include <sched.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <vector>

namespace demo
{
namespace
{

constexpr int kCells = 8;

std::unique_ptr<FrameSource> openSource(int framesPerSecond)
{
    if (access("/dev/video0", F_OK) == 0)
        if (auto sensor = openSensor(framesPerSecond))
            return sensor;
    return openSimulatedSensor(framesPerSecond);
}

// Readers may take a lock again before they notice the release; the release
// then goes on where it stopped.
bool releaseRing(RingBuffer *ring)
{
    for (int attempt = 0; attempt < 100; attempt++) {
        if (rbRelease(ring) == 0)
            return true;
        sched_yield();
    }
    return false;
}

} // namespace

int runCapture(const Config &config, Board &board, int readyFd)
{
    std::unique_ptr<FrameSource> source = openSource(config.framesPerSecond);
    char name[32];
    snprintf(name, sizeof name, "Profile%02d", config.profile);
    RingBuffer *ring =
        rbInitial(pfGetPKey(config.profile), name, int(source->largestFrame()), kCells, 0);
    if (ring == nullptr)
        return 1;
    printf("capture: %s into profile %d\n", source->description(), config.profile);
    fflush(stdout);
    reportReady(readyFd);
    std::vector<uint8_t> skipped(source->largestFrame());
    unsigned long long dropped = 0;
    while (!stopRequested()) {
        void *cell = rbLockWrite(ring, source->nextLength());
        if (cell == RB_RELEASED)
            break;
        if (cell == nullptr) { // every cell held by readers: let a frame go by
            dropped++;
            source->waitInto(skipped.data());
            continue;
        }
        // Published whatever came, so that the writer lock is free again.
        bool framed = source->waitInto(cell);
        rbUnlockWrite(ring);
        if (framed)
            board.frames[kCapture]++;
    }
    if (dropped)
        printf("capture: %llu frames dropped, no free cell\n", dropped);
    return releaseRing(ring) ? 0 : 1;
}

} // namespace demo
