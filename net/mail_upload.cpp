// E-mail sending: the exported calls around the SMTP dialogue.
#include "tarvo/mailupload.h"

#include "bounded_text.h"
#include "local_time.h"
#include "mail_internal.h"

#include <csignal>
#include <cstring>

namespace tarvo::net
{

NetConn mailConn{"email: ", 0, 0};

} // namespace tarvo::net

using namespace tarvo::net;

namespace
{

constexpr int kRelayPort = 25;
// "<prefix>." and "YYYYMMDD.hhmmss.jpg" fill attachName at most.
constexpr int kNamePrefixMax = MAIL_TEXT_SIZE - 1 - 20;

// "<namePrefix>.YYYYMMDD.hhmmss.jpg" of the local time.
void nameAttachment(MailJob *job)
{
    tm local = localTimeNow().calendar;
    TextBuilder name(job->attachName);
    if (job->namePrefix && job->namePrefix[0])
        name.format("%.*s.", kNamePrefixMax, job->namePrefix);
    name.format("%04d%02d%02d.%02d%02d%02d.jpg", local.tm_year + 1900, local.tm_mon + 1,
                local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
}

} // namespace

extern "C" {

int mailInit(MailJob *job)
{
    if (job == nullptr)
        return 0;
    memset(job, 0, sizeof *job);
    job->sock = kNoSocket;
    signal(SIGPIPE, SIG_IGN);
    return 0;
}

int mailDebug(int on)
{
    return setDebug(mailConn, on);
}

int mailForceStop(void)
{
    return raiseForceStop(mailConn);
}

int mailUpload(MailJob *job, char *data, unsigned length)
{
    if (job == nullptr || !job->server || !job->user || !job->password || !job->from ||
        (!job->to1 && !job->to2))
        return kMailMissingInput;
    if (!job->fixedName)
        nameAttachment(job);
    TextBuilder server(job->serverAddr);
    if (job->localRelay) {
        job->port = kRelayPort;
        server.append("127.0.0.1");
    } else {
        server.append(job->server);
    }
    job->reply = 0;
    if (server.complete())
        send_mail(job, data, int(length));
    else
        job->result = kMailConnect;
    closeConnection(mailConn, job->sock);
    return job->result;
}

} // extern "C"
