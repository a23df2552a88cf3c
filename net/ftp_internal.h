// The FTP client's connection instance and the steps its calls share.
#ifndef TARVO_NET_FTP_INTERNAL_H
#define TARVO_NET_FTP_INTERNAL_H

#include "tarvo/ftpupload.h"

#include "connection.h"

namespace tarvo::net
{

extern NetConn ftpConn;

// An LPSV answered with another code than 228: the data connection is not
// made, and ftpWrite ends with the result it had.
inline constexpr int kLongPassiveRefused = -302;

// Sends a printf-style command on the control connection, keeps the reply
// code in job->reply and returns it (-1 when it was not sent).
int ftpCommand(FtpJob *job, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Opens the data connection, passive or active as the job says: 0, or a
// failure code (kLongPassiveRefused included).
int openDataConnection(FtpJob *job);

} // namespace tarvo::net

#endif
