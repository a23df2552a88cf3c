/* The network clients' records and calls as a C program sees them: fields
 * in their fixed order, and the defaults the Init calls set. */
#include <tarvo/ftpupload.h>
#include <tarvo/httpnotify.h>
#include <tarvo/mailupload.h>
#include <tarvo/netconn.h>

#include <stddef.h>
#include <string.h>

#define FOLLOWS(type, before, after) (offsetof(type, before) < offsetof(type, after))

int main(void)
{
    HttpJob http;
    FtpJob ftp;
    MailJob mail;
    int inOrder = offsetof(HttpJob, sock) == 0 && FOLLOWS(HttpJob, sock, result) &&
                  FOLLOWS(HttpJob, result, status) && FOLLOWS(HttpJob, status, port) &&
                  offsetof(HttpJob, event) == 16 && FOLLOWS(HttpJob, event, path) &&
                  FOLLOWS(HttpJob, path, auth) && FOLLOWS(HttpJob, auth, buf) &&
                  FOLLOWS(HttpJob, buf, message) && FOLLOWS(HttpJob, message, host) &&
                  FOLLOWS(HttpJob, host, user) && FOLLOWS(HttpJob, user, password) &&
                  FOLLOWS(HttpJob, password, url) && offsetof(FtpJob, ctrlSock) == 0 &&
                  offsetof(FtpJob, fixedName) == 24 && FOLLOWS(FtpJob, fixedName, host) &&
                  FOLLOWS(FtpJob, host, user) && FOLLOWS(FtpJob, user, password) &&
                  FOLLOWS(FtpJob, password, directory) && FOLLOWS(FtpJob, directory, subdir) &&
                  FOLLOWS(FtpJob, subdir, workDir) && FOLLOWS(FtpJob, workDir, fileName) &&
                  offsetof(MailJob, sock) == 0 && offsetof(MailJob, fixedName) == 28 &&
                  FOLLOWS(MailJob, fixedName, server) && FOLLOWS(MailJob, server, user) &&
                  FOLLOWS(MailJob, user, password) && FOLLOWS(MailJob, password, from) &&
                  FOLLOWS(MailJob, from, to1) && FOLLOWS(MailJob, to1, to2) &&
                  FOLLOWS(MailJob, to2, namePrefix) && FOLLOWS(MailJob, namePrefix, charset) &&
                  offsetof(MailJob, attachName) == offsetof(MailJob, charset) + 16 &&
                  offsetof(MailJob, serverAddr) == offsetof(MailJob, attachName) + 128 &&
                  offsetof(MailJob, subject) == offsetof(MailJob, serverAddr) + 128 &&
                  offsetof(MailJob, body) == offsetof(MailJob, subject) + 128 &&
                  offsetof(MailJob, fromName) == offsetof(MailJob, body) + 256;
    if (!inOrder)
        return 1;

    memset(&http, 0x55, sizeof http);
    memset(&ftp, 0x55, sizeof ftp);
    memset(&mail, 0x55, sizeof mail);
    httpInit(&http);
    ftpInit(&ftp);
    mailInit(&mail);
    if (http.sock != -1 || http.result != 0 || http.status != 0 || http.event[0] || http.path[0] ||
        http.auth[0])
        return 2;
    if (ftp.ctrlSock != -1 || ftp.dataSock != -1 || ftp.result != 0 || ftp.reply != 0 ||
        ftp.passive != 1 || ftp.fixedName != 0 || ftp.subdir != NULL)
        return 3;
    if (mail.sock != -1 || mail.result != 0 || mail.reserved != 0 || mail.server != NULL ||
        mail.fromName[127] != 0)
        return 4;
    if (httpDebug(0) != 1 || ftpDebug(0) != 1 || mailDebug(0) != 1)
        return 5;
    return pthread_mutex_trylock(&g_mutex_sock) == 0 && pthread_mutex_unlock(&g_mutex_sock) == 0
               ? 0
               : 6;
}
