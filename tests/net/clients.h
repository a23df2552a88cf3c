// The three clients behind one face, for the cases they share: one transfer
// as user "cam" with password "secret", and the trace pieces it prints.
#ifndef TARVO_TESTS_NET_CLIENTS_H
#define TARVO_TESTS_NET_CLIENTS_H

#include "tarvo/ftpupload.h"
#include "tarvo/httpnotify.h"
#include "tarvo/mailupload.h"

#include <cstring>
#include <string>
#include <vector>

namespace tarvo::test
{

// What the call returned, the record's result (7 before the call), and its
// HTTP status or last reply code.
struct Outcome {
    int returned, result, detail;
};

struct Client {
    const char *name, *peer, *prefix; // peer: the real server's kind in peers.py
    int (*debug)(int);
    int (*forceStop)();
    // One transfer to host:port; `drop` > 0 nulls that many-th required input.
    Outcome (*transfer)(const char *host, int port, int drop);
    int requiredInputs;
    std::vector<std::string> traced; // pieces of its debug lines, after the connect
};

inline char *text(const char *literal)
{
    return const_cast<char *>(literal);
}

inline Outcome httpTransfer(const char *host, int port, int drop)
{
    HttpJob job{};
    httpInit(&job);
    const char *inputs[] = {host, "cam", "secret", "/cgi/notify"};
    if (drop)
        inputs[drop - 1] = nullptr;
    job.host = inputs[0], job.user = inputs[1], job.password = inputs[2], job.url = inputs[3];
    job.port = port, job.result = 7;
    return {httpNotify(&job), job.result, job.status};
}

inline Outcome ftpTransfer(const char *host, int port, int drop)
{
    FtpJob job{};
    ftpInit(&job);
    char directory[8] = "pub", data[] = "snapshot";
    char *inputs[] = {text(host), text("cam"), text("secret"), directory, data};
    if (drop && drop <= 5)
        inputs[drop - 1] = nullptr;
    job.host = inputs[0], job.user = inputs[1], job.password = inputs[2];
    job.directory = inputs[3], job.port = port, job.result = 7;
    return {ftpUpload(&job, inputs[4], drop == 6 ? 0 : 8), job.result, job.reply};
}

inline Outcome mailTransfer(const char *host, int port, int drop)
{
    MailJob job;
    mailInit(&job);
    char *inputs[] = {text(host), text("cam"), text("secret"), text("camera@example.test")};
    if (drop && drop <= 4)
        inputs[drop - 1] = nullptr;
    job.server = inputs[0], job.user = inputs[1], job.password = inputs[2], job.from = inputs[3];
    job.to1 = drop == 5 ? nullptr : text("ops@example.test");
    job.port = port, job.result = 7, job.auth = 1;
    strcpy(job.charset, "UTF-8");
    strcpy(job.subject, "Alarm");
    strcpy(job.body, "Body text");
    return {mailUpload(&job, text("snapshot"), 8), job.result, job.reply};
}

inline const Client kClients[] = {
    {"http",
     "nginx",
     "hnotify: ",
     httpDebug,
     httpForceStop,
     httpTransfer,
     4,
     {"hnotify: http send text data: 84 bytes\nGET /cgi/notify HTTP/1.1\r\nHost: 127.0.0.1\r\n"
      "Authorization: Basic Y2FtOnNlY3JldA==\r\n\r\n\nhnotify: http recv data: ",
      "\nhnotify: Got http response: 200 OK\nhnotify: http close!\n"}},
    {"ftp",
     "pyftpdlib",
     "ftp: ",
     ftpDebug,
     ftpForceStop,
     ftpTransfer,
     6,
     {"ftp: http recv data: ", "ftp: http send text data: 10 bytes\nUSER cam\r\n\n",
      "ftp: http send text data: 6 bytes\nPASV\r\n\n", "ftp: http send binary data: 8 bytes\n",
      "ftp: http close!\n"}},
    {"mail",
     "smtp",
     "email: ",
     mailDebug,
     mailForceStop,
     mailTransfer,
     5,
     {"email: http recv data: ", "email: http send text data: 14 bytes\nehlo MAPI1.0\r\n\n",
      "email: http send text data: 6 bytes\nY2Ft\r\n\n",
      "email: http send RFC2047 subject: Alarm, charset: UTF-8\n",
      "email: http send base64 data from 9 text :\nBody text\n",
      "email: http send base64 data from 8 binary\n", "email: http close!\n"}},
};

} // namespace tarvo::test

#endif
