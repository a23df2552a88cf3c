// The network clients at work for one event.
#include "notify.h"

#include "tarvo/ftpupload.h"
#include "tarvo/httpnotify.h"
#include "tarvo/mailupload.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace demo
{
namespace
{

void notifyHttp(const Config &config, const Board &board, unsigned number, int changedBlocks)
{
    HttpJob job;
    httpInit(&job);
    bool ownReceiver = config.httpHost.empty();
    job.host = ownReceiver ? "127.0.0.1" : config.httpHost.c_str();
    job.port = ownReceiver ? board.receiverPort.load() : config.httpPort;
    job.user = config.httpUser.c_str();
    job.password = config.httpPassword.c_str();
    job.url = config.httpUrl.c_str();
    snprintf(job.event, sizeof job.event, "motion %u", number);
    std::string message = std::to_string(changedBlocks) + " blocks changed";
    job.message = message.c_str();
    if (httpNotify(&job) == 0)
        printf("motion: event %u notified to %s:%d, %d %s\n", number, job.host, job.port,
               job.status, job.buf);
    else
        printf("motion: event %u not notified to %s:%d (%d)\n", number, job.host, job.port,
               job.result);
}

void uploadFtp(const Config &config, unsigned number, std::vector<char> &snapshot)
{
    FtpJob job;
    ftpInit(&job);
    std::string host = config.ftpHost, user = config.ftpUser, password = config.ftpPassword;
    char directory[FTP_WORKDIR_SIZE]; // ftpUpload may add a '/' in place
    snprintf(directory, sizeof directory - 1, "%s", config.ftpDirectory.c_str());
    job.host = host.data();
    job.port = config.ftpPort;
    job.user = user.data();
    job.password = password.data();
    job.directory = directory;
    job.passive = config.ftpPassive;
    int result = ftpUpload(&job, snapshot.data(), unsigned(snapshot.size()));
    printf("motion: event %u snapshot to ftp://%s/%s%s: %d\n", number, host.c_str(), job.workDir,
           job.fileName, result);
}

void sendMail(const Config &config, unsigned number, int changedBlocks, std::vector<char> &snapshot)
{
    MailJob job;
    mailInit(&job);
    std::string server = config.mailServer, user = config.mailUser;
    std::string password = config.mailPassword, from = config.mailFrom, to = config.mailTo;
    std::string prefix = "event" + std::to_string(number);
    job.server = server.data();
    job.port = config.mailPort;
    job.auth = config.mailAuth;
    job.user = user.data();
    job.password = password.data();
    job.from = from.data();
    job.to1 = to.data();
    job.namePrefix = prefix.data();
    snprintf(job.subject, sizeof job.subject, "%s", config.mailSubject.c_str());
    snprintf(job.body, sizeof job.body, "Motion event %u: %d blocks changed.", number,
             changedBlocks);
    int result = mailUpload(&job, snapshot.data(), unsigned(snapshot.size()));
    printf("motion: event %u mailed to %s through %s:%d: %d\n", number, to.c_str(), server.c_str(),
           job.port, result);
}

} // namespace

void notifyEvent(const Config &config, const Board &board, unsigned number, int changedBlocks,
                 std::vector<char> &snapshot)
{
    notifyHttp(config, board, number, changedBlocks);
    if (!config.ftpHost.empty())
        uploadFtp(config, number, snapshot);
    if (!config.mailServer.empty())
        sendMail(config, number, changedBlocks, snapshot);
    fflush(stdout);
}

} // namespace demo
