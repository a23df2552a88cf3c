// FTP upload: the exported calls around a transfer, login and the names of
// the uploaded file.
#include "bounded_text.h"
#include "ftp_internal.h"
#include "local_time.h"

#include <csignal>
#include <cstring>

namespace tarvo::net
{

NetConn ftpConn{"ftp: ", 0, 0};

} // namespace tarvo::net

using namespace tarvo::net;

namespace
{

// The login steps of ftpOpen: 0 or the failing step's code.
int logIn(FtpJob *job)
{
    job->ctrlSock = netConnect(ftpConn, job->host, job->port);
    if (job->ctrlSock < 0)
        return kFtpConnect;
    job->reply = readReply(ftpConn, job->ctrlSock);
    if (job->reply < 0)
        return kFtpGreeting;
    if (command(ftpConn, job->ctrlSock, job->reply, "USER %s\r\n", orEmpty(job->user)) != 331)
        return kFtpUser;
    if (command(ftpConn, job->ctrlSock, job->reply, "PASS %s\r\n", orEmpty(job->password)) != 230)
        return kFtpPassword;
    if (command(ftpConn, job->ctrlSock, job->reply, "REST 0\r\n") < 0)
        return kFtpRestart;
    if (command(ftpConn, job->ctrlSock, job->reply, "TYPE I\r\n") < 0)
        return kFtpType;
    return 0;
}

// Drops one leading "/" and makes the directory end in "/".
void normaliseDirectory(char *directory)
{
    if (directory[0] == '\0')
        return;
    if (directory[0] == '/')
        memmove(directory, directory + 1, strlen(directory));
    size_t length = strlen(directory);
    if (length == 0 || directory[length - 1] != '/')
        strcpy(directory + length, "/");
}

// workDir and, unless the caller fixed it, fileName of this upload; false
// when the directory does not fit in workDir.
bool nameUpload(FtpJob *job)
{
    TextBuilder workDir(job->workDir);
    if (job->fixedName) {
        workDir.append(job->directory);
        return workDir.complete();
    }
    LocalTime now = localTimeNow();
    const tm &local = now.calendar;
    if (job->subdir && job->subdir[0])
        workDir.format("%s%s/", job->directory, job->subdir);
    else
        workDir.append(job->directory);
    workDir.format("%04d%02d%02d/%02d/", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                   local.tm_hour);
    TextBuilder fileName(job->fileName);
    fileName.format("%02d%02d%02d_%ld.jpg", local.tm_hour, local.tm_min, local.tm_sec,
                    now.microseconds / 100000);
    return workDir.complete();
}

} // namespace

extern "C" {

int ftpInit(FtpJob *job)
{
    if (job == nullptr)
        return 0;
    job->ctrlSock = job->dataSock = kNoSocket;
    job->result = job->reply = 0;
    job->passive = 1;
    job->fixedName = 0;
    job->subdir = nullptr;
    signal(SIGPIPE, SIG_IGN);
    return 0;
}

int ftpDebug(int on)
{
    return setDebug(ftpConn, on);
}

int ftpForceStop(void)
{
    return raiseForceStop(ftpConn);
}

int ftpOpen(FtpJob *job)
{
    if (job == nullptr)
        return kFtpMissingInput;
    job->result = logIn(job);
    if (job->result != 0)
        ftpClose(job);
    return job->result;
}

void ftpClose(FtpJob *job)
{
    if (job == nullptr)
        return;
    closeConnection(ftpConn, job->dataSock);
    if (job->ctrlSock >= 0) {
        sendCommand(ftpConn, job->ctrlSock, "QUIT\r\n");
        closeConnection(ftpConn, job->ctrlSock);
    }
}

int ftpUpload(FtpJob *job, char *data, unsigned length)
{
    if (job == nullptr || !job->host || !job->user || !job->password || !job->directory || !data ||
        length == 0)
        return kFtpMissingInput;
    normaliseDirectory(job->directory);
    bool named = nameUpload(job);
    job->reply = 0;
    if (!named)
        return job->result = kFtpWorkDir;
    if (ftpOpen(job) == 0) {
        ftpWrite(job, data, int(length));
        ftpClose(job);
    }
    return job->result;
}

} // extern "C"
