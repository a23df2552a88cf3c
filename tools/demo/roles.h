// The processes of the demo server: each runs one role until the supervisor
// (or its own death signal) asks it to stop, then gives back what it used.
#ifndef TARVO_DEMO_ROLES_H
#define TARVO_DEMO_ROLES_H

#include "board.h"
#include "config.h"

namespace demo
{

// The command of the motion event records on the event channel.
inline constexpr int kMotionEvent = 1;

// Each returns the process's exit status.  readyFd gets one byte once the
// role serves (capture: the profile exists; readers: they opened it; events:
// the channel exists; streaming and receiver: they listen).
int runCapture(const Config &config, Board &board, int readyFd);
int runMotion(const Config &config, Board &board, int readyFd);
int runRecorder(const Config &config, Board &board, int readyFd);
int runEvents(const Config &config, Board &board, int readyFd);
int runStreaming(const Config &config, Board &board, int readyFd);
int runReceiver(const Config &config, Board &board, int readyFd);

// Set up a freshly forked child for its role: it dies with its parent, stops
// on SIGTERM or SIGINT (see stopRequested), and is named after the role.
void enterRole(Board &board, Role role);

// True once SIGTERM or SIGINT arrived; blocking calls of the roles return
// early then, as their handler does not restart them.
bool stopRequested();

// Tell the supervisor that the role serves.
void reportReady(int readyFd);

} // namespace demo

#endif
