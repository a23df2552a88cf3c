// An HTTP server on 127.0.0.1, for the live view and the notification
// receiver: libmicrohttpd with a thread per connection, so that a handler
// may wait for the next frame.
#ifndef TARVO_DEMO_LOOPBACK_SERVER_H
#define TARVO_DEMO_LOOPBACK_SERVER_H

#include <microhttpd.h>

#include <atomic>
#include <cstdint>

namespace demo
{

// Serves on port (0: any free one) until a stop signal comes; the bound
// port goes to boundPort before readyFd is told.  The process's exit status.
int serveOnLoopback(int port, MHD_AccessHandlerCallback handler, void *context,
                    std::atomic<int32_t> &boundPort, int readyFd);

// Queues a whole response of text: the handler's result.
MHD_Result answerText(MHD_Connection *connection, unsigned status, const char *contentType,
                      const char *text, size_t length);

} // namespace demo

#endif
