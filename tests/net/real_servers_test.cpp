// Each client against its real server: notifications to nginx as its log
// saw them, uploads to pyftpdlib (IPv4) and inetutils ftpd (IPv6) as they
// landed, mail to aiosmtpd as Python's email package reads it; and what
// the three share: debug lines, refused input, refused connections, and
// transfers from several threads while the caller resolves names itself.
#include "clients.h"
#include "peers.h"
#include "tarvo/netconn.h"

#include "support/capture.h"

#include <fcntl.h>
#include <netdb.h>
#include <thread>

using namespace tarvo::test;

namespace
{

// Every byte value, in an order that shows any byte lost, added or moved.
std::string snapshotBytes(size_t length)
{
    std::string bytes(length, '\0');
    for (size_t i = 0; i < length; i++)
        bytes[i] = char(i * 7 + i / 256);
    return bytes;
}

// Whether text is the strftime pattern of a local second from before to now
// (one more: time() may lag behind the clock the library reads).
bool ofSomeSecond(const std::string &text, const char *pattern, time_t before)
{
    char expected[512];
    for (tm local{}; before <= time(nullptr) + 1; before++)
        if (strftime(expected, sizeof expected, pattern, localtime_r(&before, &local)) &&
            text == expected)
            return true;
    return false;
}

using Nginx = RealServer;

TEST_P(Nginx, NotificationsAsCallerAndServerSeeThem)
{
    std::string user(HTTP_CREDENTIALS_MAX - 7, 'u'), longer = user + "u", expected;
    std::string message(HTTP_PATH_SIZE - 15, 'm'), more = message + "m";
    std::string longest = "/cgi/notify?m=" + message;
    struct Case {
        bool keep; // the record as the last call left it, else a fresh one
        const char *user, *password, *url, *event, *message, *path;
        int returned, status;
        const char *target; // a strftime pattern; null: refused, nothing sent
    };
    // clang-format off
    const Case cases[] = {
        {0, "cam", "secret", "/cgi/notify?e=#s&m=#m&t=#t&h=##s&y=#y#", "a b/;?:@&=+$,%<>~", "", "", 0, 200,
         "/cgi/notify?e=a+b%%2F%%3B%%3F%%3A%%40%%26%%3D%%2B%%24%%2C%%25<>~&m=error&t=%m%%2F%d%%2F%Y+%H%%3A%M%%3A%S&h=#a+b%%2F%%3B%%3F%%3A%%40%%26%%3D%%2B%%24%%2C%%25<>~&y=#y#"},
        {1, "", "", "", "", nullptr, "/cgi/notify?again", 0, 200, "/cgi/notify?again"}, // old credentials
        {0, "", "", "/cgi/notify?e=#s", "", nullptr, "", 0, 401, "/cgi/notify?e=detected"},
        {0, "cam", "wrong", "/cgi/notify", "", nullptr, "", 0, 401, "/cgi/notify"},
        {0, "", "", "/x/#m", "", "x&y=1", "", 0, 404, "/x/x%%26y%%3D1"},
        {0, user.c_str(), "secret", "/cgi/notify", "", nullptr, "", 0, 401, "/cgi/notify"},
        {0, longer.c_str(), "secret", "/cgi/notify", "", nullptr, "", -102, 0, nullptr},
        {0, "", "", "/cgi/notify?m=#m", "", message.c_str(), "", 0, 401, longest.c_str()},
        {0, "", "", "/cgi/notify?m=#m", "", more.c_str(), "", -102, 0, nullptr}};
    // clang-format on
    HttpJob job{};
    for (const Case &c : cases) {
        if (!c.keep)
            httpInit(&job), job.host = "127.0.0.1", job.port = server.port;
        job.user = c.user, job.password = c.password, job.url = c.url, job.message = c.message;
        strcpy(job.event, c.event);
        strcpy(job.path, c.path);
        time_t before = time(nullptr);
        EXPECT_EQ(httpNotify(&job), c.returned) << c.url;
        EXPECT_EQ(job.status, c.status) << c.url;
        if (!c.target)
            continue;
        EXPECT_STREQ(job.buf, c.status == 200   ? "200 OK"
                              : c.status == 401 ? "401 Unauthorized"
                                                : "404 Not Found");
        EXPECT_TRUE(ofSomeSecond(job.path, c.target, before)) << job.path;
        expected += std::string("GET ") + job.path + " HTTP/1.1|127.0.0.1|" +
                    (job.auth[0] ? job.auth : "-") + "|" + std::to_string(c.status) + "\n";
    }
    // Requests of HTTP_BUF_SIZE - 1 bytes and one more: zeros lengthen the host.
    for (int extra : {0, 1}) {
        std::string host = std::string(HTTP_BUF_SIZE - 46 + extra, '0') + "177.0.0.1";
        job.host = host.c_str(), job.url = "/cgi/notify"; // no credentials, as the last row
        EXPECT_EQ(httpNotify(&job), -102 * extra);
        expected += extra ? "" : "GET /cgi/notify HTTP/1.1|" + host + "|-|401\n";
    }
    server.stop(); // nginx's log is complete once it has stopped
    EXPECT_EQ(server.saved("access.log"), expected);
}

using Ftp = RealServer;

TEST_P(Ftp, PassiveActiveIntoTheDatedTreeAFixedNameAWrongPassword)
{
    char *host = text(GetParam() == std::string("ftp ftpd") ? "::1" : "127.0.0.1");
    for (int mode : {1, 0, 2, -1}) { // passive, active, fixed name, wrong password
        char directory[16] = "/pub", fixed[16] = "/pub/fixed", subdir[] = "cam1";
        std::string data = snapshotBytes(mode == 2 ? 4000 : 150000);
        FtpJob job{};
        ftpInit(&job);
        job.host = host, job.port = server.port, job.user = text("cam");
        job.password = text(mode < 0 ? "wrong" : "secret");
        job.directory = mode == 2 ? fixed : directory, job.subdir = subdir;
        job.passive = mode == 1, job.fixedName = mode == 2;
        strcpy(job.fileName, "snap.jpg");
        time_t before = time(nullptr);
        EXPECT_EQ(ftpUpload(&job, data.data(), unsigned(data.size())), mode < 0 ? -104 : 0);
        EXPECT_EQ(job.reply, mode < 0 ? 530 : 226);
        EXPECT_EQ(job.ctrlSock + job.dataSock, -2);
        EXPECT_STREQ(job.directory, mode == 2 ? "pub/fixed/" : "pub/");
        std::string name = job.workDir + std::string(job.fileName), at = name;
        EXPECT_TRUE(mode < 0 || server.saved(name) == data) << name;
        EXPECT_TRUE(mode < 0 ||
                    (mode == 2 ? name == "pub/fixed/snap.jpg"
                               : isdigit(at[at.size() - 5]) &&
                                     ofSomeSecond(at.replace(at.size() - 5, 1, "t"),
                                                  "pub/cam1/%Y%m%d/%H/%H%M%S_t.jpg", before)))
            << name;
    }
}

using Smtp = RealServer;

TEST_P(Smtp, MessagesAsPythonsEmailPackageReadsThem)
{
    std::string umlauts, body = "Motion at the back door.\r\nSecond line.";
    for (int i = 0; i < 50; i++) // 100 bytes of UTF-8: 45-byte words cut the characters
        umlauts += "\xc3\xbc";
    struct Case {
        int auth;
        const char *charset, *subject, *to1, *to2, *attachName, *envelope, *seenSubject;
        size_t length;
    };
    // clang-format off
    const Case cases[] = {
        {1, "UTF-8", umlauts.c_str(), "ops@x.test", "boss@x.test", nullptr, "cam\ncam@x.test\nops@x.test\nboss@x.test", umlauts.c_str(), 20000},
        {0, "", "Alarm\r\n", nullptr, "boss@x.test", "door.jpg", "\ncam@x.test\nboss@x.test", "Alarm", 57},
        {0, "ISO-8859-1", "Caf\xe9", "ops@x.test", nullptr, nullptr, "\ncam@x.test\nops@x.test", "Caf\xc3\xa9", 0},
        {0, "", "\r\n", "ops@x.test", nullptr, nullptr, "\ncam@x.test\nops@x.test", nullptr, 0}, // ends the header
        {1, "", "", "ops@x.test", nullptr, nullptr, nullptr, nullptr, 0}}; // a wrong password
    // clang-format on
    int message = 0;
    for (const Case &c : cases) {
        MailJob mail;
        mailInit(&mail);
        mail.server = text("127.0.0.1"), mail.port = server.port, mail.auth = c.auth;
        mail.user = text("cam"), mail.password = text(c.envelope ? "secret" : "wrong");
        mail.from = text("cam@x.test"), mail.to1 = text(c.to1), mail.to2 = text(c.to2);
        mail.namePrefix = text("cam1"), mail.fixedName = c.attachName != nullptr;
        strcpy(mail.attachName, c.attachName ? c.attachName : "");
        strcpy(mail.charset, c.charset);
        strcpy(mail.subject, c.subject);
        strcpy(mail.body, body.c_str());
        strcpy(mail.fromName, "Camera 1");
        std::string data = snapshotBytes(c.length), n;
        time_t before = time(nullptr);
        EXPECT_EQ(mailUpload(&mail, c.length ? data.data() : nullptr, unsigned(c.length)),
                  c.envelope ? 0 : -106);
        EXPECT_EQ(mail.reply, c.envelope ? 221 : 535);
        EXPECT_EQ(mail.sock, -1);
        EXPECT_TRUE(c.attachName ? mail.attachName == std::string(c.attachName)
                                 : ofSomeSecond(mail.attachName, "cam1.%Y%m%d.%H%M%S.jpg", before));
        if (!c.envelope)
            continue;
        std::string to = std::string(c.to1 ? "<ops@x.test>" : "") + (c.to1 && c.to2 ? "," : "") +
                         (c.to2 ? "<boss@x.test>" : "");
        std::string expected =
            c.envelope + ("\nFrom: Camera 1<cam@x.test>\nTo: " + to + "\nCc: \n") +
            (c.seenSubject
                 ? "X-Mailer: Mail API V1.0\nX-Status: Beta\n" + std::string(c.seenSubject) +
                       "\nmultipart/mixed text/plain" + (c.length ? " image/jpeg\n" : "\n") + body +
                       "\n" + (c.length ? mail.attachName : "") + "\ntoo long: []"
                 : "X-Mailer: None\nX-Status: None\n\ntext/plain\nMIME-Version:1.0\r\n");
        EXPECT_EQ(server.saved(n = std::to_string(++message)).substr(0, expected.size()), expected);
        EXPECT_TRUE(server.saved(n + ".jpg") == data) << n;
    }
}

using EachClient = RealServer;

const Client &clientServedBy(const char *peer)
{
    return *std::find_if(std::begin(kClients), std::end(kClients),
                         [&](const Client &c) { return c.peer == std::string(peer); });
}

TEST_P(EachClient, TracesRefusedInputAndConnectFailure)
{
    const Client &c = clientServedBy(GetParam());
    EXPECT_EQ(c.debug(1), 1);
    std::string out =
        captureStdout([&] { EXPECT_EQ(c.transfer(c.host, server.port, 0).returned, 0); });
    for (const std::string &piece : c.traced)
        EXPECT_NE(out.find(piece), std::string::npos) << piece << " in\n" << out;
    EXPECT_EQ(out.rfind(c.traced[0] + std::to_string(server.port) + "\n", 0), 0u) << out;
    LoopbackPort closed(false);
    int next; // the lowest free descriptor as the transfer starts: its socket's, closed after
    Outcome failed;
    EXPECT_EQ(captureStdout([&] {
                  close(next = dup(0));
                  failed = c.transfer("127.0.0.1", closed.port, 0);
              }),
              c.prefix + ("http connect ipv4: 127.0.0.1: " + std::to_string(closed.port)) + "\n" +
                  c.prefix + "http connect fail!\n");
    EXPECT_EQ(std::pair(failed.returned, failed.result), std::pair(-101, -101));
    EXPECT_EQ(fcntl(next, F_GETFD), -1);
    EXPECT_EQ(c.debug(0), 1);
    out = captureStdout([&] {
        for (int drop = 1; drop <= c.requiredInputs; drop++) {
            Outcome outcome = c.transfer(c.host, server.port, drop);
            EXPECT_EQ(std::pair(outcome.returned, outcome.result), std::pair(-1, 7)) << drop;
        }
    });
    EXPECT_EQ(out, "");
}

// The clients hold g_mutex_sock while they resolve, so the caller's own
// resolver answers, read under the same lock, are never overwritten.
TEST_P(EachClient, TransfersFromSeveralThreadsWhileTheCallerResolves)
{
    const Client &c = clientServedBy(GetParam());
    ASSERT_EQ(c.transfer(c.host, server.port, 0).returned, 0); // FTP's directory made
    std::atomic<int> running = 3, failed = 0, misread = 0;
    std::vector<std::jthread> threads(3);
    for (std::jthread &thread : threads)
        thread = std::jthread([&] {
            for (int i = 0; i < 4; i++)
                failed += c.transfer(c.host, server.port, 0).returned != 0;
            running--;
        });
    for (const hostent *entry; running > 0; sched_yield()) {
        pthread_mutex_lock(&g_mutex_sock);
        entry = gethostbyname("127.0.0.2");
        misread += !entry || memcmp(entry->h_addr_list[0], "\x7f\0\0\x02", 4) != 0;
        pthread_mutex_unlock(&g_mutex_sock);
    }
    EXPECT_EQ(std::pair(failed.load(), misread.load()), std::pair(0, 0));
}

auto named = [](const auto &info) {
    return std::string(info.param).substr(info.param[0] == 'f' ? 4 : 0);
};
INSTANTIATE_TEST_SUITE_P(Real, Nginx, ::testing::Values("nginx"), named);
INSTANTIATE_TEST_SUITE_P(Real, Ftp, ::testing::Values("ftp pyftpdlib", "ftp ftpd"), named);
INSTANTIATE_TEST_SUITE_P(Real, Smtp, ::testing::Values("smtp"), named);
INSTANTIATE_TEST_SUITE_P(Real, EachClient, ::testing::Values("nginx", "ftp ftpd", "smtp"), named);

} // namespace
