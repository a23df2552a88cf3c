// ftpWrite: into the work directory, then one file over a data connection.
#include "bounded_text.h"
#include "ftp_internal.h"

#include <cstring>
#include <sys/socket.h>

using namespace tarvo::net;

namespace
{

constexpr int kDirectoryChanged = 250;
constexpr int kDirectoryMade = 257;

// Enters workDir: by its absolute path, else component by component from
// the login directory, making the ones that are missing.
bool enterWorkDir(FtpJob *job)
{
    if (command(ftpConn, job->ctrlSock, job->reply, "CWD /%s\r\n", job->workDir) ==
        kDirectoryChanged)
        return true;
    const char *name = job->workDir;
    for (const char *slash; (slash = strchr(name, '/')) != nullptr; name = slash + 1) {
        int length = int(slash - name);
        if (command(ftpConn, job->ctrlSock, job->reply, "CWD %.*s\r\n", length, name) ==
            kDirectoryChanged)
            continue;
        if (command(ftpConn, job->ctrlSock, job->reply, "MKD %.*s\r\n", length, name) !=
                kDirectoryMade ||
            command(ftpConn, job->ctrlSock, job->reply, "CWD %.*s\r\n", length, name) !=
                kDirectoryChanged)
            return false;
    }
    return true;
}

// The steps after the login: 0 or the failing step's code.
int store(FtpJob *job, char *data, int length)
{
    if (job->ctrlSock < 0 || length < 1 || data == nullptr)
        return kFtpNotLoggedIn;
    if (!isTerminated(job->workDir) || (job->workDir[0] && !enterWorkDir(job)))
        return kFtpWorkDir;
    if (int failed = openDataConnection(job))
        return failed;
    if (!isTerminated(job->fileName))
        return kFtpStore;
    int stored = command(ftpConn, job->ctrlSock, job->reply, "STOR %s\r\n", job->fileName);
    if (stored != 150 && stored != 125)
        return kFtpStore;
    if (!job->passive) {
        int accepted = accept(job->dataSock, nullptr, nullptr);
        if (accepted < 0)
            return kFtpAccept;
        netClose(ftpConn, job->dataSock);
        job->dataSock = accepted;
    }
    if (netSend(ftpConn, job->dataSock, data, length, SendMode::Binary) != 0)
        return kFtpDataSend;
    closeConnection(ftpConn, job->dataSock);
    job->reply = readReply(ftpConn, job->ctrlSock);
    if (job->reply != 226 && job->reply != 250)
        return kFtpTransferEnd;
    return 0;
}

} // namespace

extern "C" int ftpWrite(FtpJob *job, char *data, int length)
{
    if (job == nullptr)
        return kFtpMissingInput;
    int outcome = store(job, data, length);
    if (outcome != kFtpLongPassiveRefused)
        job->result = outcome;
    return job->result;
}
