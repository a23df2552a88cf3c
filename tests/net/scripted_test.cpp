// Protocol cases no real server produces, played by scripted peers: hostile
// and refusing FTP and SMTP replies at each phase, multi-line and cut
// replies; and the force stop ending a wait for a silent peer.
#include "clients.h"
#include "peers.h"

#include "support/child.h"

#include <atomic>
#include <csignal>
#include <poll.h>
#include <pthread.h>
#include <thread>
#include <tuple>

using namespace tarvo::test;

namespace
{

// "REQUEST reply", answered by first word (or whole line); "" is the greeting.
// clang-format off
const std::vector<std::string> kFtp = {
    " 220 ready", "USER 331 password", "PASS 230 in", "REST 350 ok", "TYPE 200 binary", "CWD 250 there",
    "MKD 550 no", "PASV 500 no", "LPSV 500 no", "PORT 500 no", "LPRT 500 no", "STOR 550 no", "QUIT 221 bye"};
const std::vector<std::string> kSmtp = {
    " 220 ready", "ehlo 250-peer.test\r\n250 AUTH LOGIN", "auth 334 VXNlcm5hbWU6", "Y2Ft 334 UGFzc3dvcmQ6",
    "c2VjcmV0 235 in", "mail 250 ok", "rcpt 250 ok", "data 354 go on", ". 250 queued", "quit 221 bye"};
// clang-format on

// peers.py's command for a peer on host answering as `base` with `changes`.
std::string script(const char *host, const std::vector<std::string> &base,
                   const std::vector<std::string> &changes)
{
    std::string command = std::string("script ") + host;
    for (const auto &answers : {base, changes})
        for (const std::string &answer : answers)
            command += " '" + answer + "'";
    return command;
}

TEST(ScriptedPeers, EachRefusalAndHostileReplyGivesItsCode)
{
    LoopbackPort closed(false), listening(true);
    auto port = [](int number, int high) {
        return std::to_string(high * 256 + number / 256) + "," + std::to_string(number % 256) + ")";
    };
    const std::string in = "USER PASS REST TYPE CWD ", mailed = "ehlo auth Y2Ft c2VjcmV0 mail";
    struct Case {
        char kind; // p/P passive over IPv4/IPv6, a/A active, m/M mail
        std::vector<std::string> changes;
        int result;
        std::string heard;
    };
    // clang-format off
    const Case cases[] = {
        {'p', {" 220-Welcome\r\n220-to the peer\r\n220 ready", "USER 230 in already"}, -103, "USER QUIT"},
        {'P', {"LPSV 227 (127,0,0,1,4,1)"}, 0, in + "LPSV QUIT"}, // not 228: nothing stored
        {'P', {"LPSV 228 (6,16,0,1)"}, -303, in + "LPSV QUIT"},
        {'P', {"LPSV 228 (4,4,127,0,0,1,0,0,0,0,0,0,0,0,0,0,0,0,2,4,1)"}, -304, in + "LPSV QUIT"},
        {'P', {"LPSV 228 (6,16,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1,2,99999999999,1)"}, -307, in + "LPSV QUIT"},
        {'p', {}, -306, in + "PASV QUIT"},
        {'p', {"PASV 227 (127,0,0,1," + port(closed.port, 0)}, -307, in + "PASV QUIT"},
        {'p', {"PASV 227 (127,0,0,1," + port(listening.port, 1)}, -307, in + "PASV QUIT"}, // + 256
        {'p', {"PASV 227 (127,0,0,1,16777216,1)"}, -307, in + "PASV QUIT"},
        {'a', {}, -207, in + "PORT QUIT"},
        {'A', {}, -206, in + "LPRT QUIT"},
        {'a', {"PORT 200 ok"}, -503, in + "PORT STOR QUIT"},
        {'p', {"CWD 550 no", "CWD /pub/ 250 there"}, -306, "USER PASS REST TYPE CWD /pub/ PASV QUIT"},
        {'p', {"CWD 550 no"}, -502, in + "CWD MKD QUIT"},
        {'p', {"CWD 550 no", "MKD 257 made"}, -502, in + "CWD MKD CWD QUIT"},
        {'M', {"rcpt 550 no such user"}, 0, mailed + " rcpt data . quit"},
        {'m', {"ehlo 500 what"}, -103, "ehlo"},
        {'m', {"auth 504 no"}, -104, "ehlo auth"},
        {'m', {"Y2Ft 535 no"}, -105, "ehlo auth Y2Ft"},
        {'m', {"mail 550 no"}, -201, mailed},
        {'m', {"quit 500 no"}, -602, mailed + " rcpt data . quit"}};
    // clang-format on
    for (const Case &c : cases) {
        const char *host = isupper(c.kind) ? "::1" : "127.0.0.1";
        Peer peer(script(host, tolower(c.kind) == 'm' ? kSmtp : kFtp, c.changes));
        ASSERT_NE(peer.port, 0) << peer.line;
        Outcome outcome = (tolower(c.kind) == 'm' ? mailTransfer : ftpTransfer)(
            host, peer.port, tolower(c.kind) == 'a' ? -1 : 0);
        peer.stop();
        EXPECT_EQ(outcome.result, c.result) << c.heard;
        EXPECT_EQ(peer.saved("heard"), c.heard);
    }
}

// At each bound and past it: lines of 511 bytes and CR LF (FTP user 504, mail user 381 in base64),
// work directory 255, server 127 (zeros, 127.0.0.1), name prefix cut to 107, lengths to INT_MAX.
TEST(ScriptedPeers, InputAtEachBoundAndPastIt)
{
    const std::string zeros(MAIL_TEXT_SIZE - 10, '0'), dir(FTP_WORKDIR_SIZE - 2, 'd');
    std::string encoded, in = "USER PASS REST TYPE ";
    for (int i = 0; i < 127; i++)
        encoded += "dXV1"; // 381 "u"
    // clang-format off
    const std::tuple<char, size_t, std::string, unsigned, int, std::string> cases[] = {
        {'f', 504, dir + "/", INT_MAX, -306, in + "CWD PASV QUIT"}, {'f', 505, "pub", 1, -103, "QUIT"},
        {'f', 0, dir + "d/", 1, -502, ""}, {'f', 0, "pub", INT_MAX + 1u, -501, in + "QUIT"},
        {'m', 381, zeros + "177.0.0.1", 8, 0, "ehlo auth " + encoded + " c2VjcmV0 mail rcpt data . quit"},
        {'m', 382, "127.0.0.1", 8, -105, "ehlo auth"}, {'m', 0, zeros + "0177.0.0.1", 8, -101, ""},
        {'m', 0, "127.0.0.1", INT_MAX + 1u, -502, "ehlo auth Y2Ft c2VjcmV0 mail rcpt data"}};
    // clang-format on
    for (const auto &[kind, userLength, where, length, expected, heard] : cases) {
        std::string command = "script 127.0.0.1 '" + encoded + " 334 UGFzc3dvcmQ6' '" + encoded +
                              "dQ== 334 UGFzc3dvcmQ6'"; // users 381 and 382
        for (const std::string &answer : kind == 'm' ? kSmtp : kFtp)
            command += " '" + answer + "'";
        Peer peer(command);
        std::string user = userLength ? std::string(userLength, 'u') : "cam", at = where;
        std::string prefix(MAIL_TEXT_SIZE - 21 + (expected != 0), 'p'); // 107 or 108
        int result;
        if (kind == 'f') {
            FtpJob job{};
            ftpInit(&job);
            job.host = text("127.0.0.1"), job.user = user.data(), job.password = text("secret");
            job.port = peer.port, job.directory = at.data(), job.fixedName = 1;
            result = ftpUpload(&job, text("snapshot"), length);
        } else {
            MailJob job;
            mailInit(&job);
            job.server = at.data(), job.user = user.data(), job.password = text("secret");
            job.port = peer.port, job.auth = 1, job.namePrefix = prefix.data();
            job.from = text("cam@x.test"), job.to1 = text("ops@x.test");
            result = mailUpload(&job, text("snapshot"), length);
            EXPECT_EQ(std::string(job.attachName, 108), prefix.substr(0, 107) + ".");
        }
        peer.stop();
        EXPECT_EQ(result, expected) << heard;
        EXPECT_EQ(peer.saved("heard"), heard);
    }
}

// A force stop, raised by a signal or from another thread, ends a transfer
// waiting for a silent peer (HTTP after its request, the others for the
// greeting) and fails every later one before a byte is sent.  The client
// is a child (the flag stays raised), this process its peer.
TEST(ForceStop, EndsTheWaitAndStaysRaised)
{
    signal(SIGUSR1, [](int) {
        httpForceStop();
        ftpForceStop();
        mailForceStop();
    });
    for (const Client &client : kClients) {
        for (bool bySignal : {true, false}) {
            bool http = client.transfer == httpTransfer;
            LoopbackPort silent(true), later(true);
            Signal waiting;
            Child child([&] {
                pthread_t caller = pthread_self();
                std::thread stopper([&] {
                    waiting.await();
                    bySignal ? pthread_kill(caller, SIGUSR1) : client.forceStop();
                });
                Outcome stopped = client.transfer("127.0.0.1", silent.port, 0);
                stopper.join();
                Outcome after = client.transfer("127.0.0.1", later.port, 0);
                return int(stopped.result != (http ? 0 : -102) || stopped.detail != -1) +
                       2 * (after.result != -102);
            });
            char request[84]; // what the HTTP client sends before it waits
            int sock = accept(silent.fd, nullptr, nullptr), late;
            if (http)
                recv(sock, request, sizeof request, MSG_WAITALL);
            waiting.raise();
            EXPECT_EQ(recv(late = accept(later.fd, nullptr, nullptr), request, 1, 0), 0);
            EXPECT_EQ(child.wait(), 0) << client.name << (bySignal ? " by signal" : " by thread");
            close(sock);
            close(late);
        }
    }
}

// An upload whose data connection is never read blocks in its send, which
// a force stop cannot reach; a signal to the sending thread, caught without
// SA_RESTART, ends it and the upload fails with -505.
TEST(ForceStop, ASignalEndsADataSendThePeerDoesNotRead)
{
    struct sigaction interrupt = {};
    interrupt.sa_handler = [](int) {};
    sigaction(SIGUSR2, &interrupt, nullptr); // no SA_RESTART
    LoopbackPort data(true);
    std::string at = std::to_string(data.port / 256) + "," + std::to_string(data.port % 256);
    Peer peer(script("127.0.0.1", kFtp, {"STOR 150 go", "PASV 227 (127,0,0,1," + at + ")"}));
    ASSERT_NE(peer.port, 0) << peer.line;
    std::string snapshot(32 << 20, 'x'); // more than both socket buffers hold
    std::atomic<int> result = 1;
    std::jthread uploader([&] {
        FtpJob job{};
        ftpInit(&job);
        job.host = text("127.0.0.1"), job.port = peer.port, job.directory = text("");
        job.user = text("cam"), job.password = text("secret");
        result = ftpUpload(&job, snapshot.data(), unsigned(snapshot.size()));
    });
    pollfd arrived = {accept(data.fd, nullptr, nullptr), POLLIN, 0};
    poll(&arrived, 1, -1);                    // the upload has passed STOR and is sending
    for (; result == 1; poll(nullptr, 0, 10)) // until a signal meets the send blocked
        pthread_kill(uploader.native_handle(), SIGUSR2);
    EXPECT_EQ(result, -505);
    close(arrived.fd);
}

} // namespace
