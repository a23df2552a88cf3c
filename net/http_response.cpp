// The HTTP client's response reader.  It reads into the buffer that held
// the request, so a header receive may also find the request's empty line
// where the response has not yet overwritten it.
#include "http_internal.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace tarvo::net
{

namespace
{

constexpr char kLengthField[] = "Content-Length: ";

// Reads and drops the rest of a body announced by Content-Length, each
// piece over the same place after the header; 0, or a status of failure.
int dropBody(NetConn &conn, int sock, char *buf, int headerLength, int bodyReceived)
{
    const char *field = strstr(buf, kLengthField);
    if (field == nullptr)
        return 0;
    long long remaining = strtoll(field + strlen(kLengthField), nullptr, 10) - bodyReceived;
    if (remaining <= 0)
        return 0;
    int room = kResponseRoom - headerLength;
    if (room <= 0)
        return kStatusMalformed;
    while (remaining > 0) {
        int got =
            recvLine(conn, sock, buf + headerLength, int(std::min<long long>(remaining, room)));
        if (got <= 0)
            return kStatusReceiveFailed;
        remaining -= got;
    }
    return 0;
}

} // namespace

int readResponse(NetConn &conn, int sock, char *buf)
{
    int received = 0;
    char *emptyLine = nullptr;
    while (emptyLine == nullptr) {
        if (received >= kResponseRoom)
            return kStatusMalformed;
        int got = recvHeader(conn, sock, buf + received, kResponseRoom - received);
        if (got < 0)
            return kStatusReceiveFailed;
        if (got == 0)
            return kStatusNothingReceived;
        received += got;
        emptyLine = strstr(buf, "\r\n\r\n");
    }
    *emptyLine = '\0';
    int headerLength = int(emptyLine + 4 - buf);
    if (int failed = dropBody(conn, sock, buf, headerLength, received - headerLength))
        return failed;

    const char *code = strstr(buf, "HTTP/1.");
    if (code == nullptr)
        return kStatusMalformed;
    code += strcspn(code, " ");
    code += strspn(code, " ");
    // The code as atoi reads it; one beyond an int, where atoi has no
    // defined value, is no status.
    errno = 0;
    long status = strtol(code, nullptr, 10);
    if (errno == ERANGE || status < INT_MIN || status > INT_MAX)
        return kStatusMalformed;
    const char *lineEnd = strstr(code, "\r\n");
    if (lineEnd == nullptr)
        return kStatusMalformed;
    size_t textLength = size_t(lineEnd - code);
    memmove(buf, code, textLength);
    buf[textLength] = '\0';
    trace(conn, "Got http response: %s\n", buf);
    return int(status);
}

} // namespace tarvo::net
