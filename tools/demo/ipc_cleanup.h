// The System V objects under the demo's keys: the profile's segment and
// locks, the event channel's queue and lock, the schedule's lock.
#ifndef TARVO_DEMO_IPC_CLEANUP_H
#define TARVO_DEMO_IPC_CLEANUP_H

#include "config.h"

namespace demo
{

// True when a process is attached to the profile's segment: a demo runs.
bool profileInUse(const Config &config);

// Removes whatever exists under the demo's keys (what a killed run left);
// the number of objects removed.
int removeDemoObjects(const Config &config);

} // namespace demo

#endif
