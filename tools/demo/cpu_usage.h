// Processor time of a process, from /proc.
#ifndef TARVO_DEMO_CPU_USAGE_H
#define TARVO_DEMO_CPU_USAGE_H

#include <sys/types.h>

namespace demo
{

// User and system time the process used so far, in seconds; -1 when it
// cannot be read (the process is gone).
double cpuSeconds(pid_t pid);

// Seconds of a monotonic clock.
double monotonicSeconds();

} // namespace demo

#endif
