/* The records as a C caller lays them out: a field out of its fixed order,
 * or a 32-bit field of another width, fails the build. */
#include <tarvo/ftpupload.h>
#include <tarvo/httpnotify.h>
#include <tarvo/mailupload.h>

#include <stddef.h>

#define IN_ORDER(t, a, b, c, d, e)                                                                 \
    (offsetof(t, a) < offsetof(t, b) && offsetof(t, b) < offsetof(t, c) &&                         \
     offsetof(t, c) < offsetof(t, d) && offsetof(t, d) < offsetof(t, e))

_Static_assert(offsetof(HttpJob, sock) == 0 && offsetof(HttpJob, event) == 16 &&
                   IN_ORDER(HttpJob, sock, result, status, port, event) &&
                   IN_ORDER(HttpJob, event, path, auth, buf, message) &&
                   IN_ORDER(HttpJob, message, host, user, password, url),
               "HttpJob");
_Static_assert(offsetof(FtpJob, ctrlSock) == 0 && offsetof(FtpJob, fixedName) == 24 &&
                   IN_ORDER(FtpJob, ctrlSock, dataSock, result, reply, passive) &&
                   IN_ORDER(FtpJob, passive, port, fixedName, host, user) &&
                   IN_ORDER(FtpJob, user, password, directory, subdir, workDir) &&
                   IN_ORDER(FtpJob, directory, subdir, workDir, fileName, fileName[1]),
               "FtpJob");
_Static_assert(offsetof(MailJob, sock) == 0 && offsetof(MailJob, fixedName) == 28 &&
                   IN_ORDER(MailJob, sock, result, reply, port, auth) &&
                   IN_ORDER(MailJob, auth, localRelay, reserved, fixedName, server) &&
                   IN_ORDER(MailJob, server, user, password, from, to1) &&
                   IN_ORDER(MailJob, to1, to2, namePrefix, charset, attachName) &&
                   IN_ORDER(MailJob, attachName, serverAddr, subject, body, fromName),
               "MailJob");
