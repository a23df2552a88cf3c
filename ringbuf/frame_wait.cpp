// The bounded wait for a reader's next frame, and the clock it runs on.
#include "area.h"

#include <sched.h>

using namespace tarvo::ring;

namespace
{

constexpr int kPayloadWaitMs = 2000;

// What a parked reader can see of the writer without any lock: the write
// position and the header of the cell it is parked on.
struct ParkedView {
    uint32_t writeCell;
    uint32_t state;
    uint32_t seq;
    uint32_t length;

    bool operator==(const ParkedView &) const = default;
};

// The view of a reader parked on the write position while it shows no frame;
// nothing in any other case.
bool viewParked(const RingBuffer *rb, ParkedView &view)
{
    if (rb->hold != kParked || rb->cell != peekWritePosition(rb))
        return false;
    view = {__atomic_load_n(&header(rb)->writeCell, __ATOMIC_ACQUIRE),
            peek(rb->cell, Field::WStat), peek(rb->cell, Field::Seq),
            peek(rb->cell, Field::Length)};
    return view.state == kWritePosition;
}

} // namespace

extern "C" {

int CalTimeDuration(const struct timeval *start)
{
    if (start == nullptr)
        return 0;
    timeval now;
    gettimeofday(&now, nullptr);
    int32_t seconds = int32_t(now.tv_sec) - int32_t(start->tv_sec);
    int32_t micros = int32_t(now.tv_usec) - int32_t(start->tv_usec);
    return int32_t(uint32_t(seconds) * 1000u) + micros / 1000;
}

void *rbGetPayload(RingBuffer *rb)
{
    if (rb == nullptr)
        return nullptr;
    timeval start;
    gettimeofday(&start, nullptr);
    ParkedView seen{};
    bool parked = false;
    for (;;) {
        // A reader that found nothing, parked on the write position, asks
        // again only once the writer has touched that cell or moved on:
        // until then rbLockRead could only say the same again, and its look
        // at the writer lock would cost the writer a system call's worth of
        // contention every time.
        ParkedView now;
        bool unchanged = parked && viewParked(rb, now) && now == seen && !releasing(rb);
        if (!unchanged) {
            if (void *payload = rbLockRead(rb))
                return payload;
            parked = viewParked(rb, seen);
        }
        if (CalTimeDuration(&start) >= kPayloadWaitMs)
            return nullptr;
        // No sleep, but the processor goes to the writer first when it waits.
        sched_yield();
    }
}

void rbEndPayload(RingBuffer *rb)
{
    rbUnlockRead(rb);
}

} // extern "C"
