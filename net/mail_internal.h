// The e-mail client's connection instance and result codes.
#ifndef TARVO_NET_MAIL_INTERNAL_H
#define TARVO_NET_MAIL_INTERNAL_H

#include "connection.h"

namespace tarvo::net
{

extern NetConn mailConn;

// The result codes of mailupload.h, named by the step that failed.
enum MailResult : int {
    kMailMissingInput = -1, // returned, result untouched
    kMailConnect = -101,
    kMailGreeting = -102,
    kMailHello = -103,
    kMailAuth = -104,
    kMailUser = -105,
    kMailPassword = -106,
    kMailFrom = -201,
    kMailFirstRecipient = -202,
    kMailSecondRecipient = -203,
    kMailData = -204,
    kMailFromHeader = -301,
    kMailToHeader = -302,
    kMailCcHeader = -303,
    kMailSubjectField = -304,
    kMailRawSubject = -305,
    kMailEncodedSubject = -306,
    kMailSubjectEnd = -307,
    kMailMimeHeader = -308,
    kMailTextPartStart = -401,
    kMailTextCharset = -402,
    kMailTextPartHeaderEnd = -403,
    kMailTextBody = -404,
    kMailAttachmentHeader = -501,
    kMailAttachmentData = -502,
    kMailMessageEnd = -601,
    kMailQuit = -602,
};

} // namespace tarvo::net

#endif
