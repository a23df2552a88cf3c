// The FTP client's connection instance, result codes, and the steps its
// calls share.
#ifndef TARVO_NET_FTP_INTERNAL_H
#define TARVO_NET_FTP_INTERNAL_H

#include "tarvo/ftpupload.h"

#include "connection.h"

namespace tarvo::net
{

extern NetConn ftpConn;

// The result codes of ftpupload.h, named by the step that failed.
enum FtpResult : int {
    kFtpMissingInput = -1, // returned, result untouched
    kFtpConnect = -101,
    kFtpGreeting = -102,
    kFtpUser = -103,
    kFtpPassword = -104,
    kFtpRestart = -105,
    kFtpType = -106,
    kFtpActiveLocalAddress = -201,
    kFtpActiveSocket = -202,
    kFtpActiveBind = -203,
    kFtpActiveListenAddress = -204,
    kFtpActiveListen = -205,
    kFtpLongPort = -206,
    kFtpPort = -207,
    kFtpPassiveLocalAddress = -301,
    // An LPSV answered with another code than 228: the data connection is
    // not made, and ftpWrite ends with the result it had.
    kFtpLongPassiveRefused = -302,
    kFtpLongPassiveCount = -303,
    kFtpLongPassiveFormat = -304,
    kFtpLongPassiveAddress = -305,
    kFtpPassive = -306,
    kFtpDataConnect = -307,
    kFtpNotLoggedIn = -501,
    kFtpWorkDir = -502,
    kFtpStore = -503,
    kFtpAccept = -504,
    kFtpDataSend = -505,
    kFtpTransferEnd = -506,
};

// Opens the data connection, passive or active as the job says: 0, or a
// failure code (kLongPassiveRefused included).
int openDataConnection(FtpJob *job);

} // namespace tarvo::net

#endif
