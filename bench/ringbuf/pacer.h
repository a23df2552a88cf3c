// A fixed frame rate for a writer: it sleeps until each frame's time, taken
// from the first frame's time, so that a late wake-up does not delay the
// frames after it (a writer behind its times does not sleep at all).
#ifndef TARVO_BENCH_PACER_H
#define TARVO_BENCH_PACER_H

#include <cstdint>

namespace tarvo::bench
{

// Nanoseconds on the monotonic clock.
int64_t monotonicNanoseconds();

class Pacer
{
  public:
    // The first frame's time is now.
    explicit Pacer(double framesPerSecond);
    // Sleeps until the next frame's time.
    void awaitNextFrame();

  private:
    int64_t period_;
    int64_t next_;
};

} // namespace tarvo::bench

#endif
