/* The records as a C caller lays them out: a field out of its fixed order
 * fails the build. */
#include <tarvo/ftpupload.h>
#include <tarvo/httpnotify.h>
#include <tarvo/mailupload.h>

#include <stddef.h>

#define IN_ORDER(type, a, b, c)                                                                    \
    (offsetof(type, a) < offsetof(type, b) && offsetof(type, b) < offsetof(type, c))

_Static_assert(offsetof(HttpJob, sock) == 0 && IN_ORDER(HttpJob, sock, result, status) &&
                   IN_ORDER(HttpJob, status, port, event) && IN_ORDER(HttpJob, event, path, auth) &&
                   IN_ORDER(HttpJob, auth, buf, message) &&
                   IN_ORDER(HttpJob, message, host, user) &&
                   IN_ORDER(HttpJob, user, password, url) && offsetof(HttpJob, event) == 16,
               "HttpJob");
_Static_assert(offsetof(FtpJob, ctrlSock) == 0 && IN_ORDER(FtpJob, ctrlSock, dataSock, result) &&
                   IN_ORDER(FtpJob, result, reply, passive) &&
                   IN_ORDER(FtpJob, passive, port, fixedName) &&
                   IN_ORDER(FtpJob, fixedName, host, user) &&
                   IN_ORDER(FtpJob, user, password, directory) &&
                   IN_ORDER(FtpJob, directory, subdir, workDir) &&
                   IN_ORDER(FtpJob, subdir, workDir, fileName) && offsetof(FtpJob, fixedName) == 24,
               "FtpJob");
_Static_assert(offsetof(MailJob, sock) == 0 && IN_ORDER(MailJob, sock, result, reply) &&
                   IN_ORDER(MailJob, reply, port, auth) &&
                   IN_ORDER(MailJob, auth, localRelay, reserved) &&
                   IN_ORDER(MailJob, reserved, fixedName, server) &&
                   IN_ORDER(MailJob, server, user, password) &&
                   IN_ORDER(MailJob, password, from, to1) &&
                   IN_ORDER(MailJob, to1, to2, namePrefix) &&
                   IN_ORDER(MailJob, namePrefix, charset, attachName) &&
                   IN_ORDER(MailJob, attachName, serverAddr, subject) &&
                   IN_ORDER(MailJob, subject, body, fromName) && offsetof(MailJob, fixedName) == 28,
               "MailJob");
