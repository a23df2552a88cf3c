// The TCP layer under the three network clients: connect with a time-out,
// complete sends, bounded receives, the three-digit reply reader, and each
// client's debug and force-stop switches.
#ifndef TARVO_NET_CONNECTION_H
#define TARVO_NET_CONNECTION_H

#include <atomic>
#include <cstdint>

namespace tarvo::net
{

// One client's instance of the layer.  Another thread or a signal handler
// may set the switches at any moment, so they are lock-free atomic words;
// force stop is never cleared once raised.
struct NetConn {
    const char *prefix; // starts every trace line
    std::atomic<int32_t> debug;
    std::atomic<int32_t> forceStop;

    bool stopped() const { return forceStop.load(std::memory_order_relaxed) != 0; }
    bool tracing() const { return debug.load(std::memory_order_relaxed) != 0; }
};

inline int setDebug(NetConn &conn, int on)
{
    conn.debug = on ? 1 : 0;
    return 1;
}

inline int raiseForceStop(NetConn &conn)
{
    conn.forceStop = 1;
    return 1;
}

// Prints the prefix and the formatted text on standard output when debug is on.
void trace(const NetConn &conn, const char *format, ...) __attribute__((format(printf, 2, 3)));
// Prints `length` bytes of text and a line break when debug is on.
void traceText(const NetConn &conn, const char *text, int length);

// No connection, in a socket field or as a connect's result.
inline constexpr int kNoSocket = -1;
// A send or receive failed (or was force-stopped).
inline constexpr int kTransferFailed = -1;
// readReply: the receive failed, or brought nothing.
inline constexpr int kReplyReceiveFailed = -1;
inline constexpr int kNoReply = -2;
// A command was not sent: longer than kCommandSize - 1 bytes, or it did
// not go out whole.
inline constexpr int kCommandNotSent = -1;

// A receive waits this many times one second at most.
inline constexpr int kReceiveTries = 100;
inline constexpr int kConnectSeconds = 30;
// Reply chunks and formatted commands are this long, NUL included.
inline constexpr int kReplySize = 512;
inline constexpr int kCommandSize = 512;

enum class SendMode { Text, Binary, Silent };

// A connected socket to host:port (IPv4 tried first, then IPv6), or
// kNoSocket.
int netConnect(NetConn &conn, const char *host, int port);

// 0 when every byte went out, kTransferFailed on a socket error, or the count still
// unsent when force stop interrupted it; length itself when it is below 1
// or force stop was already raised (nothing is sent then).
int netSend(NetConn &conn, int sock, const void *data, int length, SendMode mode);

// Receive up to `capacity` bytes, until what arrived ends in CR LF, the peer
// closes, or 100 one-second waits passed; buffer needs capacity + 1 bytes
// and ends NUL-terminated.  The count, or kTransferFailed on error or force
// stop.
int recvLine(NetConn &conn, int sock, char *buffer, int capacity);
// As recvLine, and also stops once the buffer, read as a string from its
// start, holds an empty line (the bytes after the new data included).
int recvHeader(NetConn &conn, int sock, char *buffer, int capacity);

// Closes a descriptor (a negative one is ignored, giving 0).
int netClose(NetConn &conn, int sock);
// Closes a record's connection and marks it as none.
void closeConnection(NetConn &conn, int32_t &sock);

// The code of the next final reply line ("ddd" followed by a space or the
// end), skipping continuation lines; kReplyReceiveFailed or kNoReply.
int readReply(NetConn &conn, int sock);

// Sends the command as text and returns readReply's result, or
// kCommandNotSent.
int sendCommand(NetConn &conn, int sock, const char *command);
// The same for a printf-style command, whose result is also kept in
// `reply` (the record's last reply code).
int command(NetConn &conn, int sock, int32_t &reply, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

} // namespace tarvo::net

#endif
