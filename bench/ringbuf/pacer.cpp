#include "pacer.h"

#include <cerrno>
#include <ctime>
#include <sys/prctl.h>

namespace tarvo::bench
{

namespace
{

constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;

} // namespace

int64_t monotonicNanoseconds()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
}

Pacer::Pacer(double framesPerSecond)
    : period_(int64_t(double(kNanosecondsPerSecond) / framesPerSecond)),
      next_(monotonicNanoseconds())
{
    // The default slack of 50 us would make every wake-up late by as much.
    prctl(PR_SET_TIMERSLACK, 1);
}

void Pacer::awaitNextFrame()
{
    next_ += period_;
    timespec at{time_t(next_ / kNanosecondsPerSecond), long(next_ % kNanosecondsPerSecond)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr) == EINTR) {
    }
}

} // namespace tarvo::bench
