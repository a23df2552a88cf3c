#include "ring_reader.h"

#include "tarvo/ringbuf.h"

#include <ctime>

namespace tarvo::bench
{

namespace
{

void backOff()
{
    timespec pause{0, 75'000};
    nanosleep(&pause, nullptr);
}

} // namespace

int readRingFrames(int key, uint32_t frameLength, RingReading reading, ReaderLink &link)
{
    RingBuffer *ring = rbAttach(key, "bench reader");
    // Nothing is written yet: this read finds no frame and parks the reader.
    if (ring != nullptr && rbLockRead(ring) != nullptr) {
        rbDetach(ring);
        ring = nullptr;
    }
    link.reportStart(ring != nullptr);
    if (ring == nullptr)
        return 1;
    FrameCheck check(frameLength, FrameCheck::Order::MaySkip, link.tally);
    for (;;) {
        void *frame = reading == RingReading::AsConsumer ? rbGetPayload(ring) : rbLockRead(ring);
        // Frames that come after the stop flag (those written to wake the
        // reader) do not count; rbDetach gives back one still held.
        if (frame == RB_RELEASED || link.stopRequested())
            break;
        if (frame == nullptr) {
            if (reading == RingReading::WithBackOff)
                backOff();
            continue;
        }
        check.take(static_cast<const uint8_t *>(frame), rbGetCellLength(ring));
        rbEndPayload(ring);
    }
    rbDetach(ring);
    return 0;
}

} // namespace tarvo::bench
