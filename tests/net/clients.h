// The three clients behind one face: one transfer as "cam" (of "snapshot"
// as pub/snap.jpg for FTP, passive unless `drop` is -1; with an encoded
// subject for mail), the n-th required input nulled when `drop` is n > 0.
#pragma once

#include "tarvo/ftpupload.h"
#include "tarvo/httpnotify.h"
#include "tarvo/mailupload.h"

#include <cstring>
#include <string>
#include <vector>

namespace tarvo::test
{

// The call's result, the record's (7 before), and its status or reply.
struct Outcome {
    int returned, result, detail;
};

inline char *text(const char *literal)
{
    return const_cast<char *>(literal);
}

inline Outcome httpTransfer(const char *host, int port, int drop)
{
    HttpJob job{};
    httpInit(&job);
    const char *in[] = {host, "cam", "secret", "/cgi/notify", ""};
    in[drop > 0 ? drop - 1 : 4] = nullptr;
    job.host = in[0], job.user = in[1], job.password = in[2], job.url = in[3];
    job.port = port, job.result = 7;
    return {httpNotify(&job), job.result, job.status};
}

inline Outcome ftpTransfer(const char *host, int port, int drop)
{
    FtpJob job{};
    ftpInit(&job);
    char directory[8] = "pub", *in[] = {text(host),       text("cam"), text("secret"), directory,
                                        text("snapshot"), text(""),    text("")};
    in[drop > 0 ? drop - 1 : 6] = nullptr; // the sixth stands for the length
    job.host = in[0], job.user = in[1], job.password = in[2], job.directory = in[3];
    job.port = port, job.result = 7, job.passive = drop != -1, job.fixedName = 1;
    strcpy(job.fileName, "snap.jpg");
    return {ftpUpload(&job, in[4], in[5] ? 8 : 0), job.result, job.reply};
}

inline Outcome mailTransfer(const char *host, int port, int drop)
{
    MailJob job;
    mailInit(&job);
    char *in[] = {text(host),         text("cam"),        text("secret"),
                  text("cam@x.test"), text("ops@x.test"), text("")};
    in[drop > 0 ? drop - 1 : 5] = nullptr;
    job.server = in[0], job.user = in[1], job.password = in[2], job.from = in[3], job.to1 = in[4];
    job.port = port, job.result = 7, job.auth = 1;
    strcpy(job.charset, "UTF-8");
    strcpy(job.subject, "Alarm");
    strcpy(job.body, "Body text");
    return {mailUpload(&job, text("snapshot"), 8), job.result, job.reply};
}

struct Client {
    const char *name, *peer, *host, *prefix; // peer: its real server in peers.py
    int (*debug)(int);
    int (*forceStop)();
    Outcome (*transfer)(const char *host, int port, int drop);
    int requiredInputs;
    std::vector<std::string> traced; // pieces of the debug lines of a transfer
};

// clang-format off
inline const Client kClients[] = {
    {"http", "nginx", "127.0.0.1", "hnotify: ", httpDebug, httpForceStop, httpTransfer, 4,
     {"hnotify: http connect ipv4: 127.0.0.1: ", "\nhnotify: http send text data: 84 bytes\nGET /cgi/notify HTTP/1.1\r\nHost: 127.0.0.1\r\n"
      "Authorization: Basic Y2FtOnNlY3JldA==\r\n\r\n\nhnotify: http recv data: ", "\nhnotify: Got http response: 200 OK\nhnotify: http close!\n"}},
    {"ftp", "ftp ftpd", "::1", "ftp: ", ftpDebug, ftpForceStop, ftpTransfer, 6,
     {"ftp: http connect ipv6: ::1: ", "\nftp: http recv data: ", "LPSV\r\n\n", "ftp: http send binary data: 8 bytes\nftp: http close!\n"}},
    {"mail", "smtp", "127.0.0.1", "email: ", mailDebug, mailForceStop, mailTransfer, 5,
     {"email: http connect ipv4: 127.0.0.1: ", "\nemail: http recv data: ", "email: http send text data: 14 bytes\nehlo MAPI1.0\r\n\n",
      "email: http send text data: 6 bytes\nY2Ft\r\n\n", "email: http send RFC2047 subject: Alarm, charset: UTF-8\n",
      "email: http send base64 data from 9 text :\nBody text\n", "email: http send base64 data from 8 binary\n", "email: http close!\n"}}};
// clang-format on

} // namespace tarvo::test
