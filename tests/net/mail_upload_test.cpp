// E-mail to aiosmtpd on loopback, with and without AUTH LOGIN: what the
// server received, as Python's email package reads it; scripted peers for
// answers aiosmtpd does not give.
#include "tarvo/mailupload.h"

#include "loopback_port.h"
#include "peer_process.h"
#include "scripted_server.h"
#include "snapshot.h"

#include "support/capture.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <ctime>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

using namespace tarvo::test;

namespace
{

MailJob makeJob(const char *server, int port)
{
    MailJob job;
    mailInit(&job);
    job.server = const_cast<char *>(server);
    job.port = port;
    job.user = const_cast<char *>("cam");
    job.password = const_cast<char *>("secret");
    job.from = const_cast<char *>("camera@example.test");
    job.to1 = const_cast<char *>("ops@example.test");
    return job;
}

std::vector<std::string> linesOf(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// Whether name is prefix + "YYYYMMDD.hhmmss.jpg" of a second in the range.
bool namedByDate(const std::string &name, const std::string &prefix, time_t before, time_t after)
{
    for (time_t moment = before; moment <= after; moment++) {
        tm local{};
        localtime_r(&moment, &local);
        char date[32];
        strftime(date, sizeof date, "%Y%m%d.%H%M%S.jpg", &local);
        if (name == prefix + date)
            return true;
    }
    return false;
}

class MailToAiosmtpd : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        server_ = std::make_unique<PeerProcess>(
            "smtp_peer.py", std::vector<std::string>{folder_.path(), "cam", "secret"});
        TARVO_REQUIRE_PEER(*server_);
    }
    // A file the server saved for its n-th message.
    std::string saved(int message, const char *file)
    {
        return fileBytes(folder_.path() + "/" + std::to_string(message) + "/" + file);
    }

    TempDir folder_;
    std::unique_ptr<PeerProcess> server_;
};

TEST_F(MailToAiosmtpd, MessagesAsTheServerReadsThem)
{
    // 100 bytes of UTF-8 whose 45-byte words cut characters in two.
    std::string german = "Bewegung erkannt: T\xc3\xbcr 1 \xe2\x80\x93 Kamera S\xc3\xbc"
                         "d, Gr\xc3\xb6\xc3\x9f"
                         "e \xc3\xbc"
                         "berschritten \xc3\xa4\xc3\xb6\xc3\xbc \xc3\x9f\xc3\x9f\xc3\x9f"
                         " Ende gut, alles gut!!";
    struct Case {
        const char *what;
        int auth;
        const char *charset;
        std::string subject, seenSubject;
        const char *body, *to1, *to2;
        size_t dataLength;
        const char *fixedName;
        std::string toHeader;
        std::vector<std::string> envelope;
    };
    const std::vector<Case> cases = {
        {"login, encoded subject, two recipients, attachment",
         1,
         "UTF-8",
         german,
         german,
         "Motion at the back door.\r\nSecond line: 58 bytes of text.",
         "ops@example.test",
         "boss@example.test",
         20000,
         nullptr,
         "<ops@example.test>,<boss@example.test>",
         {"cam", "camera@example.test", "ops@example.test", "boss@example.test"}},
        {"no login, raw subject trimmed, second recipient only, fixed name",
         0,
         "",
         "Alarm\r\n",
         "Alarm",
         "",
         nullptr,
         "boss@example.test",
         57,
         "door.jpg",
         "<boss@example.test>",
         {"", "camera@example.test", "boss@example.test"}},
        {"no data: the text part alone",
         0,
         "ISO-8859-1",
         "Caf\xe9",
         "Caf\xc3\xa9",
         "short",
         "ops@example.test",
         "",
         0,
         nullptr,
         "<ops@example.test>",
         {"", "camera@example.test", "ops@example.test"}},
    };
    int message = 0;
    for (const Case &c : cases) {
        message++;
        MailJob job = makeJob("127.0.0.1", server_->port());
        job.auth = c.auth;
        job.to1 = const_cast<char *>(c.to1);
        job.to2 = const_cast<char *>(c.to2);
        job.namePrefix = const_cast<char *>("cam1");
        strcpy(job.charset, c.charset);
        strcpy(job.subject, c.subject.c_str());
        strcpy(job.body, c.body);
        strcpy(job.fromName, "Camera 1");
        if (c.fixedName) {
            job.fixedName = 1;
            strcpy(job.attachName, c.fixedName);
        }
        std::string data = snapshotBytes(c.dataLength, uint32_t(message));
        time_t before = time(nullptr);
        EXPECT_EQ(mailUpload(&job, c.dataLength ? data.data() : nullptr, unsigned(c.dataLength)), 0)
            << c.what << ": reply " << job.reply;
        time_t after = time(nullptr);
        EXPECT_EQ(job.reply, 221) << c.what;
        EXPECT_EQ(job.sock, -1);
        EXPECT_STREQ(job.serverAddr, "127.0.0.1");

        EXPECT_EQ(linesOf(saved(message, "envelope")), c.envelope) << c.what;
        EXPECT_EQ(saved(message, "headers"),
                  "From: Camera 1<camera@example.test>\nTo: " + c.toHeader + "\nCc: \n")
            << c.what;
        EXPECT_EQ(saved(message, "subject"), c.seenSubject) << c.what;
        EXPECT_EQ(saved(message, "body"), c.body) << c.what;
        std::vector<std::string> types = {"multipart/mixed", "text/plain"};
        if (c.dataLength) {
            types.push_back("image/jpeg");
            EXPECT_EQ(saved(message, "attachment.name"), job.attachName);
            EXPECT_TRUE(saved(message, "attachment") == data) << c.what;
        }
        EXPECT_EQ(linesOf(saved(message, "types")), types) << c.what;
        if (c.fixedName) {
            EXPECT_STREQ(job.attachName, c.fixedName);
        } else {
            EXPECT_TRUE(namedByDate(job.attachName, "cam1.", before, after)) << job.attachName;
        }
    }
    std::string raw = saved(1, "message");
    for (const char *piece :
         {"\r\nMIME-Version:1.0\r\nContent-Type: multipart/mixed; "
          "boundary=\"--=NextPart_QMAIL.MAPI1.0\"\r\nX-Status: Beta\r\nX-Mailer: Mail API "
          "V1.0\r\n\r\nThis is a multi-part message in MIME format.\r\n\r\n"
          "----=NextPart_QMAIL.MAPI1.0\r\nContent-Type: text/plain; charset=UTF-8\r\n"
          "Content-Transfer-Encoding: base64\r\n\r\n",
          "?=\r\n\t=?UTF-8?B?",
          "\r\n\r\n----=NextPart_QMAIL.MAPI1.0\r\nContent-Disposition:attachment;filename=\"cam1.",
          "\r\n\r\n----=NextPart_QMAIL.MAPI1.0--\r\n"}) {
        EXPECT_NE(raw.find(piece), std::string::npos) << piece;
    }
}

TEST_F(MailToAiosmtpd, SubjectOfOnlyALineBreakIsSentAsItIs)
{
    MailJob job = makeJob("127.0.0.1", server_->port());
    strcpy(job.subject, "\r\n");
    EXPECT_EQ(mailUpload(&job, nullptr, 0), 0);
    EXPECT_NE(saved(1, "message").find("\r\nSubject: \r\n\r\nMIME-Version:1.0\r\n"),
              std::string::npos);
}

TEST_F(MailToAiosmtpd, WrongPasswordIsRefusedAtItsStep)
{
    MailJob job = makeJob("127.0.0.1", server_->port());
    job.auth = 1;
    job.password = const_cast<char *>("wrong");
    EXPECT_EQ(mailUpload(&job, nullptr, 0), -106);
    EXPECT_EQ(job.result, -106);
    EXPECT_EQ(job.reply, 535);
    EXPECT_EQ(job.sock, -1);
}

TEST_F(MailToAiosmtpd, TracesOnlyWithDebug)
{
    MailJob job = makeJob("127.0.0.1", server_->port());
    job.auth = 1;
    strcpy(job.charset, "UTF-8");
    strcpy(job.subject, "Alarm");
    strcpy(job.body, "Body text");
    std::string data = snapshotBytes(100);
    mailDebug(1);
    std::string out = captureStdout([&] { EXPECT_EQ(mailUpload(&job, data.data(), 100), 0); });
    mailDebug(0);
    for (const std::string &piece : {
             "email: http connect ipv4: 127.0.0.1: " + std::to_string(server_->port()) + "\n",
             std::string("email: http send text data: 14 bytes\nehlo MAPI1.0\r\n\n"),
             std::string("email: http send text data: 6 bytes\nY2Ft\r\n\n"),
             std::string("email: http send RFC2047 subject: Alarm, charset: UTF-8\n"),
             std::string("email: http send base64 data from 9 text :\nBody text\n"),
             std::string("email: http send base64 data from 100 binary\n"),
             std::string("\nemail: http close!\n"),
         }) {
        EXPECT_NE(out.find(piece), std::string::npos) << piece << " in\n" << out;
    }
    EXPECT_EQ(captureStdout([&] { EXPECT_EQ(mailUpload(&job, data.data(), 100), 0); }), "");
}

// Answers SMTP commands by their first word until "quit".
void answerSmtp(Conversation &talk, const std::string &rcptAnswer)
{
    talk.say("220 scripted\r\n");
    for (std::string line; talk.hear(line);) {
        std::string verb = line.substr(0, line.find(' '));
        if (verb == "ehlo")
            talk.say("250-scripted\r\n250 AUTH LOGIN\r\n");
        else if (verb == "mail")
            talk.say("250 ok\r\n");
        else if (verb == "rcpt")
            talk.say(rcptAnswer);
        else if (verb == "data")
            talk.say("354 go on\r\n");
        else if (line == ".")
            talk.say("250 queued\r\n");
        else if (verb == "quit")
            return talk.say("221 bye\r\n");
    }
}

TEST(ScriptedSmtp, RefusedRecipientsAreNoError)
{
    ScriptedServer server(AF_INET6,
                          [](Conversation &talk) { answerSmtp(talk, "550 no such user\r\n"); });
    MailJob job = makeJob(server.host(), server.port());
    job.to2 = const_cast<char *>("boss@example.test");
    EXPECT_EQ(mailUpload(&job, nullptr, 0), 0);
    std::vector<std::string> heard = server.finish();
    std::vector<std::string> commands(heard.begin(), heard.begin() + 5);
    EXPECT_EQ(commands,
              (std::vector<std::string>{"ehlo MAPI1.0", "mail from: <camera@example.test>",
                                        "rcpt to: <ops@example.test>",
                                        "rcpt to: <boss@example.test>", "data"}));
    EXPECT_EQ(heard.back(), "quit");
}

TEST(MailWithoutServer, InputChecksConnectFailureAndLocalRelay)
{
    LoopbackPort closed(AF_INET, false);
    MailJob job = makeJob("127.0.0.1", closed.port());
    job.result = 9;
    job.to1 = nullptr;
    EXPECT_EQ(mailUpload(&job, nullptr, 0), -1);
    job.to1 = const_cast<char *>("ops@example.test");
    job.from = nullptr;
    EXPECT_EQ(mailUpload(&job, nullptr, 0), -1);
    EXPECT_EQ(job.result, 9) << "untouched";

    job = makeJob("127.0.0.1", closed.port());
    EXPECT_EQ(mailUpload(&job, nullptr, 0), -101);
    EXPECT_EQ(job.sock, -1);

    std::string longServer(MAIL_TEXT_SIZE, 'h');
    job.server = longServer.data();
    EXPECT_EQ(mailUpload(&job, nullptr, 0), -101) << "a server name that does not fit";

    job = makeJob("::1", closed.port());
    job.localRelay = 1;
    mailDebug(1);
    std::string out = captureStdout([&] { mailUpload(&job, nullptr, 0); });
    mailDebug(0);
    EXPECT_STREQ(job.serverAddr, "127.0.0.1");
    EXPECT_EQ(job.port, 25);
    EXPECT_EQ(out.rfind("email: http connect ipv4: 127.0.0.1: 25\n", 0), 0u) << out;
}

} // namespace
