#include "ring_reader.h"

#include "tarvo/ringbuf.h"

#include <ctime>

namespace tarvo::bench
{

namespace
{

// A consumer that has caught up waits a little before asking again, as one
// fed at a camera's frame rate would.  Asking again at once would keep two
// cores busy with readers spinning on the area lock instead of writing.
void backOff()
{
    timespec pause{0, 75'000};
    nanosleep(&pause, nullptr);
}

} // namespace

int readRingFrames(int key, uint32_t frameLength, ReaderLink &link)
{
    RingBuffer *ring = rbAttach(key, "bench reader");
    link.reportStart(ring != nullptr);
    if (ring == nullptr) return 1;
    FrameCheck check(frameLength, FrameCheck::Order::MaySkip, link.tally);
    while (!link.stopRequested()) {
        void *frame = rbLockRead(ring);
        if (frame == RB_RELEASED) break;
        if (frame == nullptr) {
            backOff();
            continue;
        }
        check.take(static_cast<const uint8_t *>(frame), rbGetCellLength(ring));
        rbUnlockRead(ring);
    }
    rbDetach(ring);
    return 0;
}

} // namespace tarvo::bench
