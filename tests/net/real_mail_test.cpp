// E-mail to aiosmtpd, with and without AUTH LOGIN: the messages as Python's
// email package reads them where the server saved them.
#include "tarvo/mailupload.h"

#include "peer.h"

#include <cstring>

using namespace tarvo::test;

namespace
{

class Aiosmtpd : public RealServer
{
  protected:
    Aiosmtpd() : RealServer("smtp") {}

    MailJob job()
    {
        MailJob job;
        mailInit(&job);
        job.server = const_cast<char *>("127.0.0.1");
        job.port = peer_->port();
        job.user = const_cast<char *>("cam");
        job.password = const_cast<char *>("secret");
        job.from = const_cast<char *>("camera@example.test");
        strcpy(job.fromName, "Camera 1");
        return job;
    }
};

TEST_F(Aiosmtpd, MessagesAsTheServerReadsThem)
{
    // 100 bytes of UTF-8, cut into 45-byte words in the middle of characters.
    std::string german = "Bewegung erkannt: T\xc3\xbcr 1 \xe2\x80\x93 Kamera S\xc3\xbc"
                         "d, Gr\xc3\xb6\xc3\x9f"
                         "e \xc3\xbc"
                         "berschritten \xc3\xa4\xc3\xb6\xc3\xbc \xc3\x9f\xc3\x9f\xc3\x9f"
                         " Ende gut, alles gut!!";
    struct Case {
        int auth;
        const char *charset;
        std::string subject, seenSubject;
        const char *body, *to1, *to2, *fixedName, *toHeader, *envelope;
        size_t dataLength;
    };
    const Case cases[] = {
        {1, "UTF-8", german, german, "Motion at the back door.\r\nSecond line: 58 bytes of text.",
         "ops@example.test", "boss@example.test", nullptr, "<ops@example.test>,<boss@example.test>",
         "cam\ncamera@example.test\nops@example.test\nboss@example.test", 20000},
        {0, "", "Alarm\r\n", "Alarm", "", nullptr, "boss@example.test", "door.jpg",
         "<boss@example.test>", "\ncamera@example.test\nboss@example.test", 57},
        {0, "ISO-8859-1", "Caf\xe9", "Caf\xc3\xa9", "short", "ops@example.test", "", nullptr,
         "<ops@example.test>", "\ncamera@example.test\nops@example.test", 0},
    };
    int message = 0;
    for (const Case &c : cases) {
        std::string n = std::to_string(++message) + "/";
        MailJob mail = job();
        mail.auth = c.auth;
        mail.to1 = const_cast<char *>(c.to1);
        mail.to2 = const_cast<char *>(c.to2);
        mail.namePrefix = const_cast<char *>("cam1");
        strcpy(mail.charset, c.charset);
        strcpy(mail.subject, c.subject.c_str());
        strcpy(mail.body, c.body);
        if (c.fixedName) {
            mail.fixedName = 1;
            strcpy(mail.attachName, c.fixedName);
        }
        std::string data = snapshotBytes(c.dataLength, uint32_t(message));
        time_t before = time(nullptr);
        EXPECT_EQ(mailUpload(&mail, c.dataLength ? data.data() : nullptr, unsigned(data.size())), 0)
            << message << ": reply " << mail.reply;
        EXPECT_EQ(mail.reply, 221);
        EXPECT_EQ(mail.sock, -1);
        EXPECT_EQ(saved(n + "envelope"), c.envelope);
        EXPECT_EQ(saved(n + "headers"), std::string("From: Camera 1<camera@example.test>\nTo: ") +
                                            c.toHeader + "\nCc: \n");
        EXPECT_EQ(saved(n + "subject"), c.seenSubject);
        EXPECT_EQ(saved(n + "body"), c.body);
        EXPECT_EQ(saved(n + "types"),
                  std::string("multipart/mixed text/plain") + (c.dataLength ? " image/jpeg" : ""));
        EXPECT_TRUE(saved(n + "attachment") == (c.dataLength ? data : "")) << message;
        EXPECT_EQ(saved(n + "attachment.name"), c.dataLength ? mail.attachName : "");
        EXPECT_TRUE(c.fixedName ? mail.attachName == std::string(c.fixedName)
                                : ofSomeSecond(mail.attachName, "cam1.%Y%m%d.%H%M%S.jpg", before,
                                               time(nullptr)))
            << mail.attachName;
    }
    std::string raw = saved("1/message");
    for (const char *piece :
         {"\r\nMIME-Version:1.0\r\nContent-Type: multipart/mixed; "
          "boundary=\"--=NextPart_QMAIL.MAPI1.0\"\r\nX-Status: Beta\r\nX-Mailer: Mail API "
          "V1.0\r\n\r\nThis is a multi-part message in MIME format.\r\n\r\n"
          "----=NextPart_QMAIL.MAPI1.0\r\nContent-Type: text/plain; charset=UTF-8\r\n"
          "Content-Transfer-Encoding: base64\r\n\r\n",
          "?=\r\n\t=?UTF-8?B?",
          "\r\n\r\n----=NextPart_QMAIL.MAPI1.0\r\nContent-Disposition:attachment;filename=\"cam1.",
          "\r\n\r\n----=NextPart_QMAIL.MAPI1.0--\r\n"})
        EXPECT_NE(raw.find(piece), std::string::npos) << piece;
}

TEST_F(Aiosmtpd, SubjectOfALineBreakAloneIsKeptAndAWrongPasswordRefused)
{
    MailJob mail = job();
    mail.to1 = const_cast<char *>("ops@example.test");
    strcpy(mail.subject, "\r\n");
    EXPECT_EQ(mailUpload(&mail, nullptr, 0), 0);
    EXPECT_NE(saved("1/message").find("\r\nSubject: \r\n\r\nMIME-Version:1.0\r\n"),
              std::string::npos);
    mail.auth = 1;
    mail.password = const_cast<char *>("wrong");
    EXPECT_EQ(mailUpload(&mail, nullptr, 0), -106);
    EXPECT_EQ(mail.result, -106);
    EXPECT_EQ(mail.reply, 535);
    EXPECT_EQ(mail.sock, -1);
}

} // namespace
