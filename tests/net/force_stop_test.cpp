// Force stop, in child processes since a raised flag stays raised: every
// later transfer fails without sending anything, and a flag raised from a
// signal handler ends a wait on a server that never answers.
#include "tarvo/ftpupload.h"
#include "tarvo/httpnotify.h"
#include "tarvo/mailupload.h"

#include "loopback_port.h"
#include "scripted_server.h"

#include "support/child.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <poll.h>
#include <sys/socket.h>

using namespace tarvo::test;

namespace
{

// Each client's call against host:port; returns result, and status for HTTP.
struct Client {
    const char *name;
    int (*forceStop)();
    std::function<int(const char *host, int port, int &status)> transfer;
};

const Client kClients[] = {
    {"http", httpForceStop,
     [](const char *host, int port, int &status) {
         HttpJob job{};
         httpInit(&job);
         job.host = host;
         job.port = port;
         job.user = job.password = "";
         job.url = "/cgi/notify";
         int result = httpNotify(&job);
         status = job.status;
         return result;
     }},
    {"ftp", ftpForceStop,
     [](const char *host, int port, int &) {
         FtpJob job{};
         ftpInit(&job);
         char directory[8] = "pub"; // room for the "/" ftpUpload appends
         char data[] = "snapshot";
         job.host = const_cast<char *>(host);
         job.port = port;
         job.user = job.password = const_cast<char *>("cam");
         job.directory = directory;
         return ftpUpload(&job, data, 8);
     }},
    {"mail", mailForceStop,
     [](const char *host, int port, int &) {
         MailJob job;
         mailInit(&job);
         job.server = const_cast<char *>(host);
         job.port = port;
         job.user = job.password = const_cast<char *>("cam");
         job.from = job.to1 = const_cast<char *>("cam@example.test");
         return mailUpload(&job, nullptr, 0);
     }},
};

// Takes the connections queued on the listener; how many sent any byte.
int connectionsWithData(int listener, int &connections)
{
    int withData = 0;
    for (pollfd queued = {listener, POLLIN, 0}; poll(&queued, 1, 0) == 1;) {
        int sock = accept(listener, nullptr, nullptr);
        connections++;
        char byte;
        withData += recv(sock, &byte, 1, 0) > 0;
        close(sock);
    }
    return withData;
}

TEST(ForceStop, StaysRaisedAndEveryLaterTransferSendsNothing)
{
    for (const Client &client : kClients) {
        Child child([&] {
            LoopbackPort listening(AF_INET, true);
            if (client.forceStop() != 1)
                return 1;
            int wrong = 0;
            for (int round = 0; round < 2; round++) {
                int status = 0;
                wrong += client.transfer("127.0.0.1", listening.port(), status) != -102;
            }
            int connections = 0;
            wrong += connectionsWithData(listening.fd(), connections);
            return wrong * 10 + connections;
        });
        EXPECT_EQ(child.wait(), 2) << client.name << ": two connections, no data, -102 twice";
    }
}

void raiseForceStop(int)
{
    httpForceStop();
    ftpForceStop();
    mailForceStop();
}

TEST(ForceStop, FromASignalHandlerEndsTheWaitForASilentServer)
{
    struct Case {
        const Client &client;
        bool waitsForRequest; // else for the greeting
        int result, status;
    };
    const Case cases[] = {
        {kClients[0], true, 0, -1}, {kClients[1], false, -102, 0}, {kClients[2], false, -102, 0}};
    for (const Case &c : cases) {
        Signal waiting;
        ScriptedServer server(AF_INET, [&](Conversation &talk) {
            for (std::string line; c.waitsForRequest && talk.hear(line) && !line.empty();) {
            }
            waiting.raise();
            talk.hearUntilClosed();
        });
        Child child([&] {
            struct sigaction action {
            };
            action.sa_handler = raiseForceStop;
            sigaction(SIGUSR1, &action, nullptr);
            int status = 0;
            int result = c.client.transfer(server.host(), server.port(), status);
            return result == c.result && status == c.status ? 0 : 1;
        });
        ASSERT_EQ(waiting.await(), '!');
        kill(child.pid(), SIGUSR1);
        EXPECT_EQ(child.wait(), 0) << c.client.name;
    }
}

} // namespace
