/* The records as a C caller lays them out: a field out of its fixed order
 * fails the build. */
#include <tarvo/ftpupload.h>
#include <tarvo/httpnotify.h>
#include <tarvo/mailupload.h>

#include <stddef.h>

#define FOLLOWS(type, before, after)                                                               \
    _Static_assert(offsetof(type, before) < offsetof(type, after),                                 \
                   #type ": " #before " before " #after)

_Static_assert(offsetof(HttpJob, sock) == 0 && offsetof(HttpJob, event) == 16, "HttpJob start");
FOLLOWS(HttpJob, sock, result);
FOLLOWS(HttpJob, result, status);
FOLLOWS(HttpJob, status, port);
FOLLOWS(HttpJob, event, path);
FOLLOWS(HttpJob, path, auth);
FOLLOWS(HttpJob, auth, buf);
FOLLOWS(HttpJob, buf, message);
FOLLOWS(HttpJob, message, host);
FOLLOWS(HttpJob, host, user);
FOLLOWS(HttpJob, user, password);
FOLLOWS(HttpJob, password, url);
_Static_assert(offsetof(FtpJob, ctrlSock) == 0 && offsetof(FtpJob, fixedName) == 24,
               "FtpJob start");
FOLLOWS(FtpJob, ctrlSock, dataSock);
FOLLOWS(FtpJob, dataSock, result);
FOLLOWS(FtpJob, result, reply);
FOLLOWS(FtpJob, reply, passive);
FOLLOWS(FtpJob, passive, port);
FOLLOWS(FtpJob, port, fixedName);
FOLLOWS(FtpJob, fixedName, host);
FOLLOWS(FtpJob, host, user);
FOLLOWS(FtpJob, user, password);
FOLLOWS(FtpJob, password, directory);
FOLLOWS(FtpJob, directory, subdir);
FOLLOWS(FtpJob, subdir, workDir);
FOLLOWS(FtpJob, workDir, fileName);
_Static_assert(offsetof(MailJob, sock) == 0 && offsetof(MailJob, fixedName) == 28, "MailJob start");
FOLLOWS(MailJob, sock, result);
FOLLOWS(MailJob, result, reply);
FOLLOWS(MailJob, reply, port);
FOLLOWS(MailJob, port, auth);
FOLLOWS(MailJob, auth, localRelay);
FOLLOWS(MailJob, localRelay, reserved);
FOLLOWS(MailJob, reserved, fixedName);
FOLLOWS(MailJob, fixedName, server);
FOLLOWS(MailJob, server, user);
FOLLOWS(MailJob, user, password);
FOLLOWS(MailJob, password, from);
FOLLOWS(MailJob, from, to1);
FOLLOWS(MailJob, to1, to2);
FOLLOWS(MailJob, to2, namePrefix);
FOLLOWS(MailJob, namePrefix, charset);
FOLLOWS(MailJob, charset, attachName);
FOLLOWS(MailJob, attachName, serverAddr);
FOLLOWS(MailJob, serverAddr, subject);
FOLLOWS(MailJob, subject, body);
FOLLOWS(MailJob, body, fromName);
