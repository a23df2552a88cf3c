// The bounded wait for a reader's next frame, and the clock it runs on.
#include "tarvo/ringbuf.h"

#include <sched.h>

namespace
{

constexpr int kPayloadWaitMs = 2000;

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
    for (;;) {
        if (void *payload = rbLockRead(rb))
            return payload;
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
