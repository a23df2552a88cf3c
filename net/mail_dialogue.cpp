// send_mail: the SMTP dialogue and the MIME message it carries.
#include "tarvo/mailupload.h"

#include "bounded_text.h"
#include "encodings.h"
#include "mail_internal.h"

#include <cstdarg>
#include <cstring>

using namespace tarvo::net;

namespace
{

constexpr char kMimeHeader[] =
    "MIME-Version:1.0\r\n"
    "Content-Type: multipart/mixed; boundary=\"--=NextPart_QMAIL.MAPI1.0\"\r\n"
    "X-Status: Beta\r\n"
    "X-Mailer: Mail API V1.0\r\n"
    "\r\n"
    "This is a multi-part message in MIME format.\r\n"
    "\r\n";
constexpr char kTextPartStart[] = "----=NextPart_QMAIL.MAPI1.0\r\nContent-Type: text/plain";
constexpr char kPartBodyStart[] = "\r\nContent-Transfer-Encoding: base64\r\n\r\n";
constexpr char kAttachmentStart[] = "\r\n\r\n----=NextPart_QMAIL.MAPI1.0\r\n"
                                    "Content-Disposition:attachment;filename=\"%.*s\"\r\n"
                                    "Content-Type:%s;name=\"%.*s\"\r\n"
                                    "Content-Transfer-Encoding: base64\r\n\r\n";
constexpr char kMessageEnd[] = "\r\n\r\n----=NextPart_QMAIL.MAPI1.0--\r\n.\r\n";

bool nonEmpty(const char *text)
{
    return text && text[0];
}

// Sends the base64 form of text as a command line.
int base64Command(MailJob *job, const char *text)
{
    char line[kCommandSize];
    TextBuilder encoded(line);
    base64Encode(text, int(strlen(text)), encoded);
    encoded.append("\r\n");
    return encoded.complete() ? command(mailConn, job->sock, job->reply, "%s", line)
                              : kCommandNotSent;
}

// Sends message text that gets no reply; false when not all of it went out.
bool sendText(MailJob *job, std::string_view text)
{
    return netSend(mailConn, job->sock, text.data(), int(text.size()), SendMode::Text) == 0;
}

// Sends a printf-style line that gets no reply; false when it is longer
// than kCommandSize - 1 bytes or not all of it went out.
bool sendLine(MailJob *job, const char *format, ...) __attribute__((format(printf, 2, 3)));
bool sendLine(MailJob *job, const char *format, ...)
{
    char line[kCommandSize];
    TextBuilder text(line);
    va_list arguments;
    va_start(arguments, format);
    text.vformat(format, arguments);
    va_end(arguments);
    return text.complete() && sendText(job, std::string_view(line, size_t(text.length())));
}

// The subject without one trailing LF and then one trailing CR, unless
// that leaves nothing.
std::string_view trimmedSubject(const MailJob *job)
{
    std::string_view subject = fieldText(job->subject), trimmed = subject;
    if (!trimmed.empty() && trimmed.back() == '\n')
        trimmed.remove_suffix(1);
    if (!trimmed.empty() && trimmed.back() == '\r')
        trimmed.remove_suffix(1);
    return trimmed.empty() ? subject : trimmed;
}

int logIn(MailJob *job)
{
    if (!isTerminated(job->serverAddr))
        return kMailConnect;
    job->sock = netConnect(mailConn, job->serverAddr, job->port);
    if (job->sock < 0)
        return kMailConnect;
    job->reply = readReply(mailConn, job->sock);
    if (job->reply < 0)
        return kMailGreeting;
    if (command(mailConn, job->sock, job->reply, "ehlo MAPI1.0\r\n") != 250)
        return kMailHello;
    if (!job->auth)
        return 0;
    if (command(mailConn, job->sock, job->reply, "auth login\r\n") != 334)
        return kMailAuth;
    if (base64Command(job, orEmpty(job->user)) != 334)
        return kMailUser;
    if (base64Command(job, orEmpty(job->password)) != 235)
        return kMailPassword;
    return 0;
}

int sendEnvelope(MailJob *job)
{
    if (command(mailConn, job->sock, job->reply, "mail from: <%s>\r\n", orEmpty(job->from)) != 250)
        return kMailFrom;
    if (nonEmpty(job->to1) &&
        command(mailConn, job->sock, job->reply, "rcpt to: <%s>\r\n", job->to1) < 0)
        return kMailFirstRecipient;
    if (nonEmpty(job->to2) &&
        command(mailConn, job->sock, job->reply, "rcpt to: <%s>\r\n", job->to2) < 0)
        return kMailSecondRecipient;
    if (command(mailConn, job->sock, job->reply, "data\r\n") < 0)
        return kMailData;
    return 0;
}

bool sendToLine(MailJob *job)
{
    char line[kCommandSize];
    TextBuilder to(line);
    to.append("To: ");
    if (nonEmpty(job->to1))
        to.format("<%s>", job->to1);
    if (nonEmpty(job->to2))
        to.format("%s<%s>", nonEmpty(job->to1) ? "," : "", job->to2);
    to.append("\r\n");
    return to.complete() && sendText(job, std::string_view(line, size_t(to.length())));
}

int sendHeaders(MailJob *job)
{
    std::string_view fromName = fieldText(job->fromName);
    if (!sendLine(job, "From: %.*s<%s>\r\n", int(fromName.size()), fromName.data(),
                  orEmpty(job->from)))
        return kMailFromHeader;
    if (!sendToLine(job))
        return kMailToHeader;
    if (!sendText(job, "Cc: \r\n"))
        return kMailCcHeader;
    std::string_view subject = trimmedSubject(job), charset = fieldText(job->charset);
    if (!sendText(job, "Subject: "))
        return kMailSubjectField;
    if (charset.empty()) {
        if (!sendText(job, subject))
            return kMailRawSubject;
    } else if (sendEncodedSubject(mailConn, job->sock, subject, charset) != 0) {
        return kMailEncodedSubject;
    }
    if (!sendText(job, "\r\n"))
        return kMailSubjectEnd;
    if (!sendText(job, kMimeHeader))
        return kMailMimeHeader;
    return 0;
}

int sendTextPart(MailJob *job)
{
    std::string_view charset = fieldText(job->charset), body = fieldText(job->body);
    if (!sendText(job, kTextPartStart))
        return kMailTextPartStart;
    if (!charset.empty() && !sendLine(job, "; charset=%.*s", int(charset.size()), charset.data()))
        return kMailTextCharset;
    if (!sendText(job, kPartBodyStart))
        return kMailTextPartHeaderEnd;
    if (sendBase64Lines(mailConn, job->sock, body.data(), int(body.size()), Base64Mode::Text) != 0)
        return kMailTextBody;
    return 0;
}

int sendAttachment(MailJob *job, const char *data, int length)
{
    std::string_view name = fieldText(job->attachName);
    if (!sendLine(job, kAttachmentStart, int(name.size()), name.data(), "image/jpeg",
                  int(name.size()), name.data()))
        return kMailAttachmentHeader;
    if (sendBase64Lines(mailConn, job->sock, data, length, Base64Mode::Binary) != 0)
        return kMailAttachmentData;
    return 0;
}

int endMessage(MailJob *job)
{
    if (command(mailConn, job->sock, job->reply, "%s", kMessageEnd) < 0)
        return kMailMessageEnd;
    if (command(mailConn, job->sock, job->reply, "quit\r\n") != 221)
        return kMailQuit;
    return 0;
}

// Every step in order: 0, or the first failing step's code.
int converse(MailJob *job, const char *data, int length)
{
    int failed = logIn(job);
    if (!failed)
        failed = sendEnvelope(job);
    if (!failed)
        failed = sendHeaders(job);
    if (!failed)
        failed = sendTextPart(job);
    if (!failed && data && length != 0)
        failed = sendAttachment(job, data, length);
    if (!failed)
        failed = endMessage(job);
    return failed;
}

} // namespace

extern "C" int send_mail(MailJob *job, char *data, int length)
{
    if (job == nullptr)
        return kMailMissingInput;
    job->result = converse(job, data, length);
    return job->result;
}
