// The live view's page.
#ifndef TARVO_DEMO_LIVE_PAGE_H
#define TARVO_DEMO_LIVE_PAGE_H

namespace demo
{

// The page: the stream from /stream.mjpg, the changed blocks from /state
// drawn over it, and the events as they come.  Its script keeps what it
// shows in window.demo (framesSeen, overlay, events) for a test to read.
extern const char kLivePage[];

} // namespace demo

#endif
