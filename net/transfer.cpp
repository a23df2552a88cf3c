// Complete sends and bounded receives of the connection layer.
#include "connection.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>

namespace tarvo::net
{

namespace
{

constexpr int kWaitMilliseconds = 1000;

bool endsInLineBreak(const char *buffer, int received)
{
    return received >= 3 && buffer[received - 2] == '\r' && buffer[received - 1] == '\n';
}

// Whether the buffer, read as a string from its start but never beyond its
// capacity + 1 bytes, holds an empty line.  Bytes after the new data (left
// from earlier use of the buffer) take part, as they always have.
bool holdsEmptyLine(const char *buffer, int capacity)
{
    std::string_view text(buffer, strnlen(buffer, size_t(capacity) + 1));
    return text.find("\r\n\r\n") != std::string_view::npos;
}

int pendingError(int sock)
{
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(sock, SOL_SOCKET, SO_ERROR, &error, &size) != 0)
        return errno;
    return error;
}

// recvLine and recvHeader: see connection.h.
int receive(NetConn &conn, int sock, char *buffer, int capacity, bool untilEmptyLine)
{
    int received = 0;
    if (capacity < 0)
        capacity = 0;
    if (capacity > 0 && !conn.stopped()) {
        int tries = 0;
        for (;;) {
            pollfd readable = {sock, POLLIN, 0};
            int ready = poll(&readable, 1, kWaitMilliseconds);
            if (ready < 0)
                return kTransferFailed;
            if (ready == 0) {
                // errno may be left from an earlier call; a time-out that
                // finds EINTR there ends the receive all the same.
                if (errno == EINTR)
                    return kTransferFailed;
                tries++;
            } else {
                if (conn.stopped())
                    break;
                if (pendingError(sock) != 0)
                    return kTransferFailed;
                ssize_t got = recv(sock, buffer + received, size_t(capacity - received), 0);
                if (got < 0)
                    return kTransferFailed;
                if (got == 0)
                    break;
                received += int(got);
                if (endsInLineBreak(buffer, received))
                    break;
                if (untilEmptyLine && holdsEmptyLine(buffer, capacity))
                    break;
                tries++;
            }
            if (tries >= kReceiveTries || received >= capacity || conn.stopped())
                break;
        }
    }
    buffer[received] = '\0';
    trace(conn, "http recv data: %d bytes\n", received);
    traceText(conn, buffer, received);
    return conn.stopped() ? kTransferFailed : received;
}

} // namespace

int netSend(NetConn &conn, int sock, const void *data, int length, SendMode mode)
{
    if (mode == SendMode::Text) {
        trace(conn, "http send text data: %d bytes\n", length);
        traceText(conn, static_cast<const char *>(data), length);
    } else if (mode == SendMode::Binary) {
        trace(conn, "http send binary data: %d bytes\n", length);
    }
    if (length < 1 || conn.stopped())
        return length;
    auto *next = static_cast<const char *>(data);
    int remaining = length;
    for (;;) {
        ssize_t sent = send(sock, next, size_t(remaining), 0);
        if (sent < 0) {
            trace(conn, "http send fail at %d!\n", remaining);
            return kTransferFailed;
        }
        next += sent;
        remaining -= int(sent);
        if (remaining == 0)
            return 0;
        if (conn.stopped())
            return remaining;
    }
}

int recvLine(NetConn &conn, int sock, char *buffer, int capacity)
{
    return receive(conn, sock, buffer, capacity, false);
}

int recvHeader(NetConn &conn, int sock, char *buffer, int capacity)
{
    return receive(conn, sock, buffer, capacity, true);
}

} // namespace tarvo::net
