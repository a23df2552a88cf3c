// The supervisor: starts the server's processes, shows their status while
// they run, stops them all when the time is up, on Ctrl-C or when one of
// them ends, removes what a killed process left, and sums the run up.
#ifndef TARVO_DEMO_SUPERVISOR_H
#define TARVO_DEMO_SUPERVISOR_H

#include "config.h"

namespace demo
{

// The demo's exit status: 0 when every process ended cleanly.
int supervise(const Config &config);

} // namespace demo

#endif
