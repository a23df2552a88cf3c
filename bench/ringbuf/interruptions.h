// Interruptions (SIGINT, SIGTERM, SIGHUP) are held back and looked at between
// runs, so that no system call of a run is cut short and every ring is
// released on the way out.
#ifndef TARVO_BENCH_INTERRUPTIONS_H
#define TARVO_BENCH_INTERRUPTIONS_H

namespace tarvo::bench
{

// Also ignores SIGPIPE, so that a reader that dies shows as a failed write.
void holdBackInterruptions();
// Whether an interruption is waiting.
bool interrupted();

} // namespace tarvo::bench

#endif
