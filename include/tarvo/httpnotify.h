/*
 * HTTP event notification: one GET request, built from a caller's template
 * and optionally carrying Basic credentials, per call; the response's status
 * is left in the caller's record.
 *
 * Each client of the library (HTTP, FTP, e-mail) has two process-wide
 * switches.  With debug on, every step prints a trace line beginning
 * "hnotify: " on standard output.  Force stop makes every later transfer of
 * the client fail at its next send or receive (a running one at its next
 * check: before each send, after each one-second receive wait); it is meant
 * to be raised from another thread or a signal handler and is never
 * cleared again in the life of the process, not even by httpInit.  A send
 * blocked on a server that does not read does not see a force stop raised
 * from another thread: only a signal to the calling thread, caught by a
 * handler installed without SA_RESTART, ends it (the request then fails).
 *
 * Connections are made with a 30-second time-out to the first address of
 * the host (IPv4 first, then IPv6); a receive gives up after 100 one-second
 * waits without a complete line.  httpInit sets SIGPIPE to be ignored, so a
 * peer that goes away makes a send fail instead of ending the process.
 */
#ifndef TARVO_HTTPNOTIFY_H
#define TARVO_HTTPNOTIFY_H

#include <stdint.h>

#include "api.h"

TARVO_BEGIN_DECLS

#define HTTP_EVENT_SIZE 128
#define HTTP_PATH_SIZE 512
#define HTTP_AUTH_SIZE 256
#define HTTP_BUF_SIZE 1028
/* Longest "user:password" whose "Basic " form fits in auth. */
#define HTTP_CREDENTIALS_MAX 186

/* The caller's record of one notification; the field order is fixed. */
typedef struct HttpJob {
    int32_t sock;   /* connection, -1 when none */
    int32_t result; /* 0, or -101 connect failed, -102 request not sent */
    int32_t status; /* HTTP status of the last response, -1/-2/-3, or 0 */
    int32_t port;
    char event[HTTP_EVENT_SIZE]; /* text for "#s" */
    char path[HTTP_PATH_SIZE];   /* request target */
    char auth[HTTP_AUTH_SIZE];   /* "Basic ..." or empty */
    char buf[HTTP_BUF_SIZE];     /* request text, then the status text */
    const char *message;         /* text for "#m", may be null */
    const char *host;
    const char *user;
    const char *password;
    const char *url; /* request template */
} HttpJob;

/* sock = -1, result = status = 0, event, path and auth emptied; SIGPIPE
 * ignored.  Always 0 (a null record is left alone). */
TARVO_API int httpInit(HttpJob *job);

/* The switches described above; both return 1. */
TARVO_API int httpDebug(int on);
TARVO_API int httpForceStop(void);

/*
 * One notification: returns result, or -1 (record untouched) when job,
 * host, user, password or url is null.
 *
 * status becomes 0, and an empty event becomes "detected".  When user or
 * password is non-empty, auth becomes "Basic " and the base64 form of
 * "user:password"; otherwise auth keeps what it held, so credentials given
 * once go on being sent until the caller empties auth.  A non-empty url is
 * expanded into path: "#s" is the URL-encoded event, "#m" the URL-encoded
 * message ("error" when it is null or empty), "#t" the URL-encoded local
 * time "MM/DD/YYYY hh:mm:ss"; any other "#" stays as it is (also a "#"
 * inside the event or message, which some servers refuse with 400).  An empty url
 * sends path as the caller left it.  Then download() runs and the
 * connection is closed.
 *
 * Bounds: "user:password" longer than HTTP_CREDENTIALS_MAX bytes, or a
 * path expanding to more than HTTP_PATH_SIZE - 1 bytes, gives result -102
 * without connecting (auth keeps its old value; path holds the expansion
 * cut to its size).  Text fields are read up to their first NUL or their
 * end.
 */
TARVO_API int httpNotify(HttpJob *job);

/*
 * Connects to host:port (result -101 on failure) and sends, from buf,
 * "GET <path> HTTP/1.1", "Host: <host>" (no port, and an IPv6 literal
 * without brackets, which many servers answer with 400) and, when auth is
 * non-empty, "Authorization: <auth>", each ended by CR LF, then an empty
 * line.  A failed or force-stopped send, or a request longer than
 * HTTP_BUF_SIZE - 1 bytes, gives -102.  Otherwise result = 0 whatever the
 * answer, and status is the response's status code with buf holding the
 * rest of its status line (e.g. "404 Not Found"), or -1 (receive error or
 * body shorter than its Content-Length), -2 (nothing more arrived before
 * the header's empty line) or -3 (no empty line within 1024 bytes, no
 * "HTTP/1." status line, or a status code beyond an int).  The body is
 * read and dropped.  Returns result; the connection is left open in sock
 * (httpNotify closes it).  A null job gives -1.
 */
TARVO_API int download(HttpJob *job);

TARVO_END_DECLS

#endif
