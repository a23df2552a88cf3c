// Running a libmicrohttpd daemon on loopback until the stop signal.
#include "loopback_server.h"

#include "roles.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>

#include <cstdio>

namespace demo
{

int serveOnLoopback(int port, MHD_AccessHandlerCallback handler, void *context,
                    std::atomic<int32_t> &boundPort, int readyFd)
{
    // The daemon's threads inherit the blocked stop signals, so that they
    // reach this thread, waiting in sigsuspend below.
    sigset_t stopSignals, waiting;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    sigprocmask(SIG_BLOCK, &stopSignals, &waiting);
    signal(SIGPIPE, SIG_IGN);

    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    MHD_Daemon *daemon = MHD_start_daemon(
        MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_ERROR_LOG, 0,
        nullptr, nullptr, handler, context, MHD_OPTION_SOCK_ADDR, &address, MHD_OPTION_END);
    if (daemon == nullptr) {
        fprintf(stderr, "demo: cannot listen on 127.0.0.1:%d\n", port);
        return 1;
    }
    boundPort = MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT)->port;
    reportReady(readyFd);
    while (!stopRequested())
        sigsuspend(&waiting);
    MHD_stop_daemon(daemon);
    return 0;
}

MHD_Result answerText(MHD_Connection *connection, unsigned status, const char *contentType,
                      const char *text, size_t length)
{
    MHD_Response *response =
        MHD_create_response_from_buffer(length, const_cast<char *>(text), MHD_RESPMEM_MUST_COPY);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, contentType);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    MHD_Result result = MHD_queue_response(connection, status, response);
    MHD_destroy_response(response);
    return result;
}

} // namespace demo
