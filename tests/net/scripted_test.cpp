// Protocol cases no real server produces, played by scripted peers: hostile
// and refusing FTP and SMTP replies at each phase, multi-line replies, and
// the force stop ending a wait for a silent peer, from a signal or a thread.
#include "clients.h"
#include "peer.h"

#include <csignal>
#include <pthread.h>

using namespace tarvo::test;

namespace
{

const ScriptedPeer::Answers kFtp = {{"USER", "331 password please\r\n"},
                                    {"PASS", "230 in\r\n"},
                                    {"REST", "350 ok\r\n"},
                                    {"TYPE", "200 binary\r\n"},
                                    {"CWD", "250 there\r\n"},
                                    {"MKD", "550 no\r\n"},
                                    {"PASV", "500 no\r\n"},
                                    {"LPSV", "500 no\r\n"},
                                    {"PORT", "500 no\r\n"},
                                    {"LPRT", "500 no\r\n"},
                                    {"STOR", "550 no\r\n"},
                                    {"QUIT", "221 bye\r\n"}};
const ScriptedPeer::Answers kSmtp = {{"ehlo", "250-peer.test\r\n250 AUTH LOGIN\r\n"},
                                     {"auth", "334 VXNlcm5hbWU6\r\n"},
                                     {"Y2Ft", "334 UGFzc3dvcmQ6\r\n"},
                                     {"c2VjcmV0", "235 in\r\n"},
                                     {"mail", "250 ok\r\n"},
                                     {"rcpt", "250 ok\r\n"},
                                     {"data", "354 go on\r\n"},
                                     {".", "250 queued\r\n"},
                                     {"quit", "221 bye\r\n"}};

int ftpAgainst(const ScriptedPeer &peer, int passive)
{
    FtpJob job{};
    ftpInit(&job);
    char directory[8] = "pub", data[] = "snapshot";
    job.host = const_cast<char *>(peer.host());
    job.port = peer.port(), job.passive = passive, job.fixedName = 1;
    job.user = job.password = text("cam");
    job.directory = directory;
    strcpy(job.fileName, "snap.jpg");
    return ftpUpload(&job, data, 8);
}

std::string passive(const char *code, const std::string &numbers)
{
    return code + (" Passive (" + numbers + ")\r\n");
}

TEST(ScriptedPeers, EachRepliesFailureCode)
{
    LoopbackPort closed(AF_INET, false), listening(AF_INET, true);
    auto port = [](int number, int high) {
        return std::to_string(high * 256 + number / 256) + "," + std::to_string(number % 256);
    };
    std::string closedPassive = "127,0,0,1," + port(closed.port(), 0);
    std::string wrapped = "127,0,0,1," + port(listening.port(), 1); // the high byte + 256
    const std::string login = "USER PASS REST TYPE CWD ";
    struct Case {
        bool mail;
        int family, passive;
        const char *greeting;
        ScriptedPeer::Answers answers;
        int result;
        std::string heard;
    };
    const Case cases[] = {
        {false,
         AF_INET,
         1,
         "220-Welcome\r\n220-to the peer\r\n220 ready\r\n",
         {{"USER", "230 already in\r\n"}},
         -103,
         "USER QUIT"},
        {false,
         AF_INET6,
         1,
         nullptr,
         {{"LPSV", passive("227", "127,0,0,1,4,1")}},
         0,
         login + "LPSV QUIT"},
        {false, AF_INET6, 1, nullptr, {}, 0, login + "LPSV QUIT"},
        {false,
         AF_INET6,
         1,
         nullptr,
         {{"LPSV", passive("228", "6,16,0,1")}},
         -303,
         login + "LPSV QUIT"},
        {false,
         AF_INET6,
         1,
         nullptr,
         {{"LPSV", passive("228", "4,4,127,0,0,1,0,0,0,0,0,0,0,0,0,0,0,0,2,4,1")}},
         -304,
         login + "LPSV QUIT"},
        {false,
         AF_INET6,
         1,
         nullptr,
         {{"LPSV", passive("228", "6,16,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1,2,99999999999,1")}},
         -307,
         login + "LPSV QUIT"},
        {false, AF_INET, 1, nullptr, {}, -306, login + "PASV QUIT"},
        {false,
         AF_INET,
         1,
         nullptr,
         {{"PASV", passive("227", closedPassive)}},
         -307,
         login + "PASV QUIT"},
        {false,
         AF_INET,
         1,
         nullptr,
         {{"PASV", passive("227", wrapped)}},
         -307,
         login + "PASV QUIT"},
        {false,
         AF_INET,
         1,
         nullptr,
         {{"PASV", passive("227", "127,0,0,1,16777216,1")}},
         -307,
         login + "PASV QUIT"},
        {false, AF_INET, 0, nullptr, {}, -207, login + "PORT QUIT"},
        {false, AF_INET6, 0, nullptr, {}, -206, login + "LPRT QUIT"},
        {false, AF_INET, 0, nullptr, {{"PORT", "200 ok\r\n"}}, -503, login + "PORT STOR QUIT"},
        {false, AF_INET, 1, nullptr, {{"CWD", "550 no\r\n"}}, -502, login + "CWD MKD QUIT"},
        {false,
         AF_INET,
         1,
         nullptr,
         {{"CWD", "550 no\r\n"}, {"MKD", "257 made\r\n"}},
         -502,
         login + "CWD MKD CWD QUIT"},
        {true,
         AF_INET6,
         0,
         nullptr,
         {{"rcpt", "550 no such user\r\n"}},
         0,
         "ehlo auth Y2Ft c2VjcmV0 mail rcpt data . quit"},
        {true, AF_INET, 0, nullptr, {{"ehlo", "500 what\r\n"}}, -103, "ehlo"},
        {true, AF_INET, 0, nullptr, {{"auth", "504 no\r\n"}}, -104, "ehlo auth"},
        {true, AF_INET, 0, nullptr, {{"Y2Ft", "535 no\r\n"}}, -105, "ehlo auth Y2Ft"},
        {true, AF_INET, 0, nullptr, {{"mail", "550 no\r\n"}}, -201, "ehlo auth Y2Ft c2VjcmV0 mail"},
        {true,
         AF_INET,
         0,
         nullptr,
         {{"quit", "500 no\r\n"}},
         -602,
         "ehlo auth Y2Ft c2VjcmV0 mail rcpt data . quit"},
    };
    for (const Case &c : cases) {
        ScriptedPeer::Answers answers = c.answers;
        answers.insert(c.mail ? kSmtp.begin() : kFtp.begin(), c.mail ? kSmtp.end() : kFtp.end());
        ScriptedPeer peer(c.family, c.greeting ? c.greeting : "220 ready\r\n", answers);
        int result =
            c.mail ? mailTransfer(peer.host(), peer.port(), 0).result : ftpAgainst(peer, c.passive);
        EXPECT_EQ(result, c.result) << c.heard;
        EXPECT_EQ(peer.finish(), c.heard);
    }
}

// A force stop ends a transfer waiting for a silent peer (HTTP after its
// request, the others for the greeting) and fails every later one before a
// byte is sent.  In a child each, as the flag stays raised.
TEST(ForceStop, EndsTheWaitAndStaysRaised)
{
    for (const Client &client : kClients) {
        for (bool bySignal : {true, false}) {
            bool http = client.transfer == httpTransfer;
            ScriptedPeer peer(AF_INET, "", {{"Host:", ""}});
            Child child([&] {
                signal(SIGUSR1, [](int) {
                    httpForceStop();
                    ftpForceStop();
                    mailForceStop();
                });
                pthread_t caller = pthread_self();
                int raised = 1;
                std::thread stopper([&] {
                    for (int note = 0; note < (http ? 2 : 1); note++)
                        peer.waiting.await();
                    if (bySignal)
                        pthread_kill(caller, SIGUSR1);
                    else
                        raised = client.forceStop();
                });
                Outcome stopped = client.transfer(peer.host(), peer.port(), 0);
                stopper.join();
                LoopbackPort later(AF_INET, true);
                Outcome after = client.transfer("127.0.0.1", later.port(), 0);
                char byte;
                bool silent = recv(accept(later.fd(), nullptr, nullptr), &byte, 1, 0) == 0;
                return int(stopped.result != (http ? 0 : -102) || stopped.detail != -1) +
                       2 * (after.result != -102) + 4 * !silent + 8 * (raised != 1);
            });
            EXPECT_EQ(child.wait(), 0) << client.name << (bySignal ? " by signal" : " by thread");
        }
    }
}

} // namespace
