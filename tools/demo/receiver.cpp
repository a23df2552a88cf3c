// The notification receiver: a small HTTP server on loopback standing in
// for the operator's server; it prints each request that arrives.
#include "loopback_server.h"
#include "roles.h"

#include <cstdio>

namespace demo
{
namespace
{

MHD_Result receive(void *context, MHD_Connection *connection, const char *url, const char *method,
                   const char *, const char *, size_t *, void **)
{
    Board &board = *static_cast<Board *>(context);
    const char *authorization =
        MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_AUTHORIZATION);
    // The query string arrives decoded, as arguments.
    const char *what = MHD_lookup_connection_value(connection, MHD_GET_ARGUMENT_KIND, "what");
    const char *at = MHD_lookup_connection_value(connection, MHD_GET_ARGUMENT_KIND, "at");
    printf("receiver: %s %s what=\"%s\" at=\"%s\"%s%s\n", method, url, what ? what : "",
           at ? at : "", authorization ? ", " : "", authorization ? authorization : "");
    fflush(stdout);
    board.notificationsReceived++;
    static const char kAnswer[] = "received\n";
    return answerText(connection, MHD_HTTP_OK, "text/plain", kAnswer, sizeof kAnswer - 1);
}

} // namespace

int runReceiver(const Config &config, Board &board, int readyFd)
{
    return serveOnLoopback(config.receiverPort, receive, &board, board.receiverPort, readyFd);
}

} // namespace demo
