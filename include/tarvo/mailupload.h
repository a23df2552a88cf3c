/*
 * E-mail sending over SMTP: one message to one or two recipients, with
 * optional AUTH LOGIN, as a MIME multipart message holding a base64 text
 * part and, when data are given, one base64 "image/jpeg" attachment.  A
 * non-empty charset makes the subject RFC 2047 encoded words and names the
 * text part's charset.
 *
 * mailDebug and mailForceStop are the client's switches: with debug on
 * every step prints a trace line beginning "email: " on standard output;
 * force stop makes every later transfer of this client fail at its next
 * send or receive and is never cleared in the life of the process (mailInit
 * does not clear it either).  Connections time out after 30 seconds, a
 * reply after 100 one-second waits.  mailInit sets SIGPIPE to be ignored.
 *
 * A reply whose continuation lines never end (a server that keeps sending
 * "250-" lines) is ended only by mailForceStop.  A send blocked on a server
 * that does not read does not see a force stop raised from another thread:
 * only a signal to the calling thread, caught by a handler installed
 * without SA_RESTART, ends it (the step then fails).
 *
 * The message carries no Date and no Message-ID header, and receiving
 * servers do not add them: spam filters may mark such mail down.
 *
 * Result codes, stored in result:
 *   -101 connect (also a server name longer than MAIL_TEXT_SIZE - 1 bytes)
 *   -102 no greeting  -103 "ehlo" not answered 250
 *   -104 "auth login" not answered 334  -105 user not answered 334
 *   -106 password not answered 235
 *   -201 "mail from" not answered 250  -202/-203 no answer to "rcpt to"
 *   for to1/to2 (a refused recipient is not an error)  -204 no answer to
 *   "data"
 *   -301 From, -302 To, -303 Cc, -304 "Subject: ", -305 raw subject,
 *   -306 encoded subject, -307 its line end, -308 MIME header block
 *   -401..-404 text part, -501/-502 attachment header and data
 *   -601 no answer to the end of the message  -602 "quit" not answered 221
 *
 * Every command and header line is formatted into 512 bytes; one that would
 * be longer (long addresses, a user or password of more than 381 bytes) is
 * not sent and fails its step with the code above.  Text fields are read up
 * to their first NUL or their end.
 */
#ifndef TARVO_MAILUPLOAD_H
#define TARVO_MAILUPLOAD_H

#include <stdint.h>

#include "api.h"

TARVO_BEGIN_DECLS

#define MAIL_CHARSET_SIZE 16
#define MAIL_TEXT_SIZE 128
#define MAIL_BODY_SIZE 256

/* The caller's record of one message; the field order is fixed. */
typedef struct MailJob {
    int32_t sock;       /* connection, -1 when none */
    int32_t result;     /* 0 or one of the codes above */
    int32_t reply;      /* last reply code read (-1 receive error, -2 none) */
    int32_t port;       /* server port; set to 25 by localRelay */
    int32_t auth;       /* non-zero: log in with "auth login" */
    int32_t localRelay; /* non-zero: send through 127.0.0.1 port 25 */
    int32_t reserved;
    int32_t fixedName; /* non-zero: keep the caller's attachName */
    char *server;
    char *user;     /* required, also without auth */
    char *password; /* required, also without auth */
    char *from;
    char *to1; /* one address each; at least one of them required */
    char *to2;
    char *namePrefix;                /* optional start of the attachment name */
    char charset[MAIL_CHARSET_SIZE]; /* empty: subject sent raw */
    char attachName[MAIL_TEXT_SIZE];
    char serverAddr[MAIL_TEXT_SIZE]; /* the host actually contacted */
    char subject[MAIL_TEXT_SIZE];
    char body[MAIL_BODY_SIZE];
    char fromName[MAIL_TEXT_SIZE]; /* display name before the address */
} MailJob;

/* Zero-fills the record, sock = -1; SIGPIPE ignored.  Always 0 (a null
 * record is left alone). */
TARVO_API int mailInit(MailJob *job);

/* The switches described above; both return 1. */
TARVO_API int mailDebug(int on);
TARVO_API int mailForceStop(void);

/*
 * The whole sending: returns result, or -1 (record untouched) when job,
 * server, user, password or from is null or both recipients are null.
 *
 * Unless fixedName is set, attachName becomes "<namePrefix>." (when
 * namePrefix is non-empty, cut to its first 107 bytes) followed by
 * "YYYYMMDD.hhmmss.jpg" of the local time.  serverAddr becomes server, or
 * "127.0.0.1" with port 25 when localRelay is set.  Then send_mail, and
 * the connection is closed.  length is taken as an int: more than INT_MAX
 * bytes fails with -502.
 */
TARVO_API int mailUpload(MailJob *job, char *data, unsigned length);

/*
 * The SMTP dialogue with serverAddr:port: greeting, "ehlo MAPI1.0", the
 * optional login, "mail from", "rcpt to" for each non-empty recipient,
 * "data", the headers (From, To, an empty Cc, Subject without one trailing
 * LF and CR unless that leaves nothing), the MIME parts and the end, then
 * "quit".  The attachment is sent only when data is non-null and length
 * non-zero.  Returns 0 or result; the connection stays open in sock
 * (mailUpload closes it).  A null job gives -1.
 */
TARVO_API int send_mail(MailJob *job, char *data, int length);

TARVO_END_DECLS

#endif
