// The three-digit reply reader of the FTP and e-mail clients, and commands
// answered by one reply.
#include "bounded_text.h"
#include "connection.h"

#include <cctype>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace tarvo::net
{

namespace
{

bool isDigit(char c)
{
    return isdigit(static_cast<unsigned char>(c)) != 0;
}

// The start of the chunk's last line: past every CR LF that ends before the
// end of the received bytes.
const char *lastLine(const char *chunk, int received)
{
    const char *line = chunk;
    for (const char *lineEnd = strstr(line, "\r\n"); lineEnd && lineEnd + 2 < chunk + received;
         lineEnd = strstr(line, "\r\n"))
        line = lineEnd + 2;
    return line;
}

// A final reply line: starts more than three bytes before the end of the
// received data, and reads three digits followed by a space or its end.
bool isFinalReply(const char *line, const char *receivedEnd)
{
    return receivedEnd - line > 3 && strnlen(line, 4) >= 3 && (line[3] == ' ' || line[3] == '\0') &&
           isDigit(line[0]) && isDigit(line[1]) && isDigit(line[2]);
}

} // namespace

int readReply(NetConn &conn, int sock)
{
    char chunk[kReplySize];
    for (;;) {
        int received = recvLine(conn, sock, chunk, kReplySize - 1);
        if (received < 0)
            return kReplyReceiveFailed;
        if (received == 0)
            return kNoReply;
        if (received >= 3 && chunk[received - 2] == '\r' && chunk[received - 1] == '\n')
            chunk[received - 2] = '\0';
        const char *line = lastLine(chunk, received);
        if (isFinalReply(line, chunk + received))
            return atoi(line);
    }
}

int sendCommand(NetConn &conn, int sock, const char *command)
{
    if (netSend(conn, sock, command, int(strlen(command)), SendMode::Text) != 0)
        return kCommandNotSent;
    return readReply(conn, sock);
}

int command(NetConn &conn, int sock, int32_t &reply, const char *format, ...)
{
    char line[kCommandSize];
    TextBuilder text(line);
    va_list arguments;
    va_start(arguments, format);
    text.vformat(format, arguments);
    va_end(arguments);
    reply = text.complete() ? sendCommand(conn, sock, line) : kCommandNotSent;
    return reply;
}

} // namespace tarvo::net
