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

// Answers by first word; "" is the greeting.
const ScriptedPeer::Answers kFtp = {
    {"", "220 ready\r\n"},  {"USER", "331 password\r\n"}, {"PASS", "230 in\r\n"},
    {"REST", "350 ok\r\n"}, {"TYPE", "200 binary\r\n"},   {"CWD", "250 there\r\n"},
    {"MKD", "550 no\r\n"},  {"PASV", "500 no\r\n"},       {"LPSV", "500 no\r\n"},
    {"PORT", "500 no\r\n"}, {"LPRT", "500 no\r\n"},       {"STOR", "550 no\r\n"},
    {"QUIT", "221 bye\r\n"}};
const ScriptedPeer::Answers kSmtp = {{"", "220 ready\r\n"},
                                     {"ehlo", "250-peer.test\r\n250 AUTH LOGIN\r\n"},
                                     {"auth", "334 VXNlcm5hbWU6\r\n"},
                                     {"Y2Ft", "334 UGFzc3dvcmQ6\r\n"},
                                     {"c2VjcmV0", "235 in\r\n"},
                                     {"mail", "250 ok\r\n"},
                                     {"rcpt", "250 ok\r\n"},
                                     {"data", "354 go on\r\n"},
                                     {".", "250 queued\r\n"},
                                     {"quit", "221 bye\r\n"}};

// Uploads snap.jpg into pub/ as "cam", passive or active.
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

TEST(ScriptedPeers, EachRefusalAndHostileReplyGivesItsCode)
{
    LoopbackPort closed(AF_INET, false), listening(AF_INET, true);
    auto port = [](int number, int high) {
        return std::to_string(high * 256 + number / 256) + "," + std::to_string(number % 256);
    };
    // PASV to a closed port, and to a listening one but for a high byte + 256.
    std::string toClosed = "PASV 227 (127,0,0,1," + port(closed.port(), 0) + ")";
    std::string wrapped = "PASV 227 (127,0,0,1," + port(listening.port(), 1) + ")";
    const std::string in = "USER PASS REST TYPE CWD ", mailed = "ehlo auth Y2Ft c2VjcmV0 mail ";
    struct Case {
        char kind;                        // p/P passive over IPv4/IPv6, a/A active, m/M mail
        std::vector<std::string> changes; // "VERB answer" or "LINE answer"
        int result;
        std::string heard;
    };
    // clang-format off
    const Case cases[] = {
        {'p', {" 220-Welcome\r\n220-to the peer\r\n220 ready", "USER 230 in already"}, -103, "USER QUIT"},
        {'P', {"LPSV 227 (127,0,0,1,4,1)"}, 0, in + "LPSV QUIT"},
        {'P', {}, 0, in + "LPSV QUIT"},
        {'P', {"LPSV 228 (6,16,0,1)"}, -303, in + "LPSV QUIT"},
        {'P', {"LPSV 228 (4,4,127,0,0,1,0,0,0,0,0,0,0,0,0,0,0,0,2,4,1)"}, -304, in + "LPSV QUIT"},
        {'P', {"LPSV 228 (6,16,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1,2,99999999999,1)"}, -307, in + "LPSV QUIT"},
        {'p', {}, -306, in + "PASV QUIT"},
        {'p', {toClosed}, -307, in + "PASV QUIT"},
        {'p', {wrapped}, -307, in + "PASV QUIT"},
        {'p', {"PASV 227 (127,0,0,1,16777216,1)"}, -307, in + "PASV QUIT"},
        {'a', {}, -207, in + "PORT QUIT"},
        {'A', {}, -206, in + "LPRT QUIT"},
        {'a', {"PORT 200 ok"}, -503, in + "PORT STOR QUIT"},
        {'p', {"CWD 550 no", "CWD /pub/ 250 there"}, -306, "USER PASS REST TYPE CWD /pub/ PASV QUIT"},
        {'p', {"CWD 550 no"}, -502, in + "CWD MKD QUIT"},
        {'p', {"CWD 550 no", "MKD 257 made"}, -502, in + "CWD MKD CWD QUIT"},
        {'M', {"rcpt 550 no such user"}, 0, mailed + "rcpt data . quit"},
        {'m', {"ehlo 500 what"}, -103, "ehlo"},
        {'m', {"auth 504 no"}, -104, "ehlo auth"},
        {'m', {"Y2Ft 535 no"}, -105, "ehlo auth Y2Ft"},
        {'m', {"mail 550 no"}, -201, mailed},
        {'m', {"quit 500 no"}, -602, mailed + "rcpt data . quit"},
    };
    // clang-format on
    for (const Case &c : cases) {
        bool mail = tolower(c.kind) == 'm';
        ScriptedPeer::Answers answers = mail ? kSmtp : kFtp;
        for (const std::string &change : c.changes) {
            size_t space = change.find(' '); // the one before the answer's code
            while (!isdigit(change[space + 1]))
                space = change.find(' ', space + 1);
            answers[change.substr(0, space)] = change.substr(space + 1) + "\r\n";
        }
        ScriptedPeer peer(isupper(c.kind) ? AF_INET6 : AF_INET, answers);
        int result = mail ? mailTransfer(peer.host(), peer.port(), "cam", "secret", 0).result
                          : ftpAgainst(peer, tolower(c.kind) == 'p');
        EXPECT_EQ(result, c.result) << c.heard;
        EXPECT_EQ(peer.finish(), c.heard.substr(0, c.heard.find_last_not_of(' ') + 1));
    }
}

// A force stop ends a transfer waiting for a silent peer (HTTP after its
// request, the others for the greeting) and fails every later one before a
// byte is sent.  Peer and client are children (the flag stays raised), forked
// while this process has no other thread.
TEST(ForceStop, EndsTheWaitAndStaysRaised)
{
    for (const Client &client : kClients) {
        for (bool bySignal : {true, false}) {
            bool http = client.transfer == httpTransfer;
            LoopbackPort silent(AF_INET, true);
            Signal waiting;
            Child peer([&] {
                int sock = accept(silent.fd(), nullptr, nullptr);
                std::string heard;
                char chunk[512];
                for (ssize_t got; http && heard.find("\r\n\r\n") == std::string::npos &&
                                  (got = read(sock, chunk, sizeof chunk)) > 0;)
                    heard.append(chunk, size_t(got));
                waiting.raise();
                while (read(sock, chunk, sizeof chunk) > 0) {
                }
                return 0;
            });
            Child child([&] {
                signal(SIGUSR1, [](int) {
                    httpForceStop();
                    ftpForceStop();
                    mailForceStop();
                });
                pthread_t caller = pthread_self();
                int raised = 1;
                std::thread stopper([&] {
                    waiting.await();
                    if (bySignal)
                        pthread_kill(caller, SIGUSR1);
                    else
                        raised = client.forceStop();
                });
                Outcome stopped = client.transfer("127.0.0.1", silent.port(), "cam", "secret", 0);
                stopper.join();
                LoopbackPort later(AF_INET, true);
                Outcome after = client.transfer("127.0.0.1", later.port(), "cam", "secret", 0);
                char byte;
                bool quiet = recv(accept(later.fd(), nullptr, nullptr), &byte, 1, 0) == 0;
                return int(stopped.result != (http ? 0 : -102) || stopped.detail != -1) +
                       2 * (after.result != -102) + 4 * !quiet + 8 * (raised != 1);
            });
            EXPECT_EQ(child.wait(), 0) << client.name << (bySignal ? " by signal" : " by thread");
        }
    }
}

} // namespace
