// Each client against its real server: HTTP notifications to nginx as its
// log saw them, FTP uploads to pyftpdlib (IPv4) and inetutils ftpd (IPv6)
// as they landed, mail to aiosmtpd as Python's email package reads it; and
// what the three share: debug lines, refused input, refused connections.
#include "clients.h"
#include "peer.h"

#include "support/capture.h"

#include <sstream>

using namespace tarvo::test;

namespace
{

struct Nginx : RealServer {
    Nginx() : RealServer("nginx") {}
};

TEST_F(Nginx, NotificationsInOrderAsCallerAndServerSeeThem)
{
    std::string longUser(HTTP_CREDENTIALS_MAX - 6, 'u'), slashes(300, '/');
    struct Case {
        bool keep; // the record as the last call left it, else a fresh one
        const char *user, *password, *url, *event, *message, *path;
        int returned, status;
        const char *target; // a strftime pattern; null: refused, nothing sent
    };
    // clang-format off
    const Case cases[] = {
        {0, "cam", "secret", "/cgi/notify?e=#s&m=#m", "", nullptr, "", 0, 200, "/cgi/notify?e=detected&m=error"},
        {1, "", "", "", "", nullptr, "/cgi/notify?again", 0, 200, "/cgi/notify?again"}, // old credentials
        {0, "", "", "/cgi/notify?e=#s", "door", nullptr, "", 0, 401, "/cgi/notify?e=door"},
        {0, "cam", "wrong", "/cgi/notify", "", "", "", 0, 401, "/cgi/notify"},
        {0, "cam", "secret", "/x/#s?m=#m&t=#t&h=##s&y=#y#", "a b/c", "x&y=1", "", 0, 404,
         "/x/a+b%%2Fc?m=x%%26y%%3D1&t=%m%%2F%d%%2F%Y+%H%%3A%M%%3A%S&h=#a+b%%2Fc&y=#y#"},
        {0, "", "", nullptr, "", nullptr, "", -1, 0, nullptr},
        {0, longUser.c_str(), "secret", "/cgi/notify", "", nullptr, "", -102, 0, nullptr},
        {0, "", "", "/cgi/notify?m=#m", "", slashes.c_str(), "", -102, 0, nullptr}};
    // clang-format on
    HttpJob job{};
    std::string expected;
    for (const Case &c : cases) {
        if (!c.keep) {
            httpInit(&job);
            job.host = "127.0.0.1", job.port = port_;
        }
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
    stop(); // nginx's log is complete once it has stopped
    EXPECT_EQ(saved("access.log"), expected);
}

struct FtpServers : RealServer, ::testing::WithParamInterface<const char *> {
    FtpServers() : RealServer(GetParam()) {}
};

TEST_P(FtpServers, PassiveAndActiveIntoTheDatedTreeAFixedNameTwiceAWrongPassword)
{
    const char *host = GetParam() == std::string("ftpd") ? "::1" : "127.0.0.1";
    for (int passive : {1, 0, 2, 3, -1}) {
        char directory[16] = "/pub", subdir[] = "cam1", fixed[16] = "/pub/fixed";
        std::string data = snapshotBytes(passive > 1 ? 4000 : 150000, uint32_t(passive + 2));
        FtpJob job{};
        ftpInit(&job);
        job.host = text(host), job.port = port_, job.user = user_.data();
        job.password = passive < 0 ? text("wrong") : password_.data();
        job.directory = passive > 1 ? fixed : directory;
        job.subdir = subdir, job.passive = passive == 1, job.fixedName = passive > 1;
        strcpy(job.fileName, "snap.jpg");
        time_t before = time(nullptr);
        EXPECT_EQ(ftpUpload(&job, data.data(), unsigned(data.size())), passive < 0 ? -104 : 0);
        EXPECT_EQ(job.reply, passive < 0 ? 530 : 226);
        EXPECT_EQ(job.ctrlSock + job.dataSock, -2);
        if (passive < 0)
            continue;
        std::string name = job.fileName;
        EXPECT_TRUE(passive > 1 ? name == "snap.jpg" && job.workDir == std::string("pub/fixed/")
                                : ofSomeSecond(job.workDir + name.replace(7, 1, "t"),
                                               "pub/cam1/%Y%m%d/%H/%H%M%S_t.jpg", before) &&
                                      isdigit(job.fileName[7]) && strlen(job.fileName) == 12)
            << job.workDir << job.fileName;
        EXPECT_STREQ(job.directory, passive > 1 ? "pub/fixed/" : "pub/");
        EXPECT_TRUE(saved(std::string(job.workDir) + job.fileName) == data) << passive;
    }
}

INSTANTIATE_TEST_SUITE_P(Real, FtpServers, ::testing::Values("pyftpdlib", "ftpd"),
                         [](const auto &info) { return std::string(info.param); });

struct Aiosmtpd : RealServer {
    Aiosmtpd() : RealServer("smtp") {}
};

TEST_F(Aiosmtpd, MessagesAsTheServerReadsThem)
{
    std::string umlauts; // 100 bytes of UTF-8: 45-byte words cut characters
    for (int i = 0; i < 50; i++)
        umlauts += "\xc3\xbc";
    struct Case {
        int auth;
        const char *charset, *subject, *seenSubject, *body, *to1, *to2, *fixedName, *envelope;
        size_t length;
    };
    // clang-format off
    const Case cases[] = {
        {1, "UTF-8", umlauts.c_str(), umlauts.c_str(), "Motion at the back door.\r\nSecond line: 58 bytes.",
         "ops@x.test", "boss@x.test", nullptr, "cam\ncam@x.test\nops@x.test\nboss@x.test", 20000},
        {0, "", "Alarm\r\n", "Alarm", "", nullptr, "boss@x.test", "door.jpg", "\ncam@x.test\nboss@x.test", 57},
        {0, "ISO-8859-1", "Caf\xe9", "Caf\xc3\xa9", "short", "ops@x.test", nullptr, nullptr, "\ncam@x.test\nops@x.test", 0},
        {0, "", "\r\n", "", "", "ops@x.test", nullptr, nullptr, "\ncam@x.test\nops@x.test", 0},
        {1, "", "", "", "", "ops@x.test", nullptr, nullptr, nullptr, 0}};
    // clang-format on
    int message = 0;
    for (const Case &c : cases) {
        MailJob mail;
        mailInit(&mail);
        mail.server = text("127.0.0.1"), mail.port = port_, mail.auth = c.auth;
        mail.user = text("cam"), mail.password = text(c.envelope ? "secret" : "wrong");
        mail.from = text("cam@x.test"), mail.to1 = text(c.to1), mail.to2 = text(c.to2);
        mail.namePrefix = text("cam1"), mail.fixedName = c.fixedName != nullptr;
        strcpy(mail.attachName, c.fixedName ? c.fixedName : "");
        strcpy(mail.charset, c.charset);
        strcpy(mail.subject, c.subject);
        strcpy(mail.body, c.body);
        strcpy(mail.fromName, "Camera 1");
        std::string data = snapshotBytes(c.length, uint32_t(message)), n;
        time_t before = time(nullptr);
        EXPECT_EQ(mailUpload(&mail, c.length ? data.data() : nullptr, unsigned(c.length)),
                  c.envelope ? 0 : -106);
        EXPECT_EQ(mail.reply, c.envelope ? 221 : 535);
        EXPECT_EQ(mail.sock, -1);
        if (!c.envelope || (n = std::to_string(++message) + "/", c.subject[0] == '\r'))
            continue;
        EXPECT_EQ(saved(n + "envelope"), c.envelope);
        EXPECT_EQ(saved(n + "headers"),
                  "From: Camera 1<cam@x.test>\nTo: " + std::string(c.to1 ? "<ops@x.test>" : "") +
                      (c.to1 && c.to2 ? "," : "") + (c.to2 ? "<boss@x.test>" : "") + "\nCc: \n");
        EXPECT_EQ(saved(n + "subject"), c.seenSubject);
        EXPECT_EQ(saved(n + "body"), c.body);
        EXPECT_EQ(saved(n + "types"), c.length ? "multipart/mixed text/plain image/jpeg"
                                               : "multipart/mixed text/plain");
        EXPECT_TRUE(saved(n + "attachment") == data.substr(0, c.length)) << n;
        EXPECT_EQ(saved(n + "attachment.name"), c.length ? mail.attachName : "");
        EXPECT_TRUE(c.fixedName ? mail.attachName == std::string(c.fixedName)
                                : ofSomeSecond(mail.attachName, "cam1.%Y%m%d.%H%M%S.jpg", before));
    }
    std::string first = saved("1/message"), last = saved("4/message");
    EXPECT_NE(last.find("\r\nSubject: \r\n\r\nMIME-Version:1.0\r\n"), std::string::npos);
    for (const char *piece :
         {"\r\nMIME-Version:1.0\r\nContent-Type: multipart/mixed; "
          "boundary=\"--=NextPart_QMAIL.MAPI1.0\"\r\nX-Status: Beta\r\nX-Mailer: Mail API "
          "V1.0\r\n\r\nThis is a multi-part message in MIME format.\r\n\r\n"
          "----=NextPart_QMAIL.MAPI1.0\r\nContent-Type: text/plain; charset=UTF-8\r\n"
          "Content-Transfer-Encoding: base64\r\n\r\n",
          "?=\r\n\t=?UTF-8?B?",
          "\r\n\r\n----=NextPart_QMAIL.MAPI1.0\r\nContent-Disposition:attachment;filename=\"cam1.",
          "\r\n\r\n----=NextPart_QMAIL.MAPI1.0--\r\n"})
        EXPECT_NE(first.find(piece), std::string::npos) << piece;
}

struct EachClient : RealServer, ::testing::WithParamInterface<Client> {
    EachClient() : RealServer(GetParam().peer) {}
};

TEST_P(EachClient, TracesRefusedInputAndConnectFailure)
{
    const Client &c = GetParam();
    const char *user = user_.c_str(), *password = password_.c_str();
    EXPECT_EQ(c.debug(1), 1);
    std::string out =
        captureStdout([&] { EXPECT_EQ(c.transfer(c.host, port_, user, password, 0).returned, 0); });
    for (const std::string &piece : c.traced)
        EXPECT_NE(out.find(piece), std::string::npos) << piece << " in\n" << out;
    EXPECT_EQ(out.rfind(c.traced[0] + std::to_string(port_) + "\n", 0), 0u) << out;
    LoopbackPort closed(AF_INET, false);
    std::string refused = c.prefix + std::string("http connect ipv4: 127.0.0.1: ") +
                          std::to_string(closed.port()) + "\n" + c.prefix + "http connect fail!\n";
    Outcome failed;
    EXPECT_EQ(captureStdout([&] { failed = c.transfer("127.0.0.1", closed.port(), "", "", 0); }),
              refused);
    EXPECT_EQ(failed.returned, -101);
    EXPECT_EQ(failed.result, -101);
    EXPECT_EQ(c.debug(0), 1);
    out = captureStdout([&] {
        EXPECT_EQ(c.transfer(c.host, port_, user, password, 0).returned, 0);
        for (int drop = 1; drop <= c.requiredInputs; drop++) {
            Outcome outcome = c.transfer(c.host, port_, user, password, drop);
            EXPECT_EQ(outcome.returned, -1) << "input " << drop;
            EXPECT_EQ(outcome.result, 7) << "untouched";
        }
    });
    EXPECT_EQ(out, "");
}

INSTANTIATE_TEST_SUITE_P(Clients, EachClient, ::testing::ValuesIn(kClients),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
