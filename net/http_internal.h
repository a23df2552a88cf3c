// The HTTP client's connection instance, result codes and the steps
// below its exported calls.
#ifndef TARVO_NET_HTTP_INTERNAL_H
#define TARVO_NET_HTTP_INTERNAL_H

#include "bounded_text.h"
#include "connection.h"

#include <string_view>

namespace tarvo::net
{

extern NetConn httpConn;

// The result codes of httpnotify.h.
enum HttpResult : int {
    kHttpMissingInput = -1, // returned, result untouched
    kHttpConnect = -101,
    kHttpNotSent = -102,
};

// The response reader's failures, kept in status.
enum HttpStatusFailure : int {
    kStatusReceiveFailed = -1, // also a body cut short
    kStatusNothingReceived = -2,
    kStatusMalformed = -3,
};

// Room the response reader uses in a record's buf (which has 4 bytes more).
inline constexpr int kResponseRoom = 1024;

// Expands a notification template ("#s" event, "#m" message or "error",
// "#t" local time, all URL-encoded) into path; false when it was cut.
bool expandTemplate(const char *url, std::string_view event, const char *message,
                    TextBuilder &path);

// Reads a response into buf (kResponseRoom + 1 bytes at least, holding the
// request before): the status code with buf holding its status text, or -1
// receive error or short body, -2 nothing arrived before the empty line, -3
// no empty line within kResponseRoom bytes, no status line, or a status
// code beyond an int.
int readResponse(NetConn &conn, int sock, char *buf);

} // namespace tarvo::net

#endif
