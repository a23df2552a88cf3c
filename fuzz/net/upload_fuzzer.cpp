// The FTP and e-mail uploads against a hostile server: the input's last
// byte chooses the client and the server's ways, the rest are its replies,
// one piece per receive ("\" and another character separate the pieces).
// connect() and getsockname() are replaced: nothing leaves the process and
// no receive waits, the control connection being a packet feed of the
// replies and a data connection one end of a stream pair.
#include "support/packet_feed.h"
#include "tarvo/ftpupload.h"
#include "tarvo/mailupload.h"

#include <cerrno>
#include <cstring>
#include <fuzzer/FuzzedDataProvider.h>
#include <netinet/in.h>

// Bit 0: e-mail, else FTP; bit 1: the control connection is IPv6 (LPSV
// rather than PASV); bits 2-3: a data connection is refused (0), closed at
// once (1) or taken; bit 4: log in.
static uint8_t choices;
static int replies = -1, dataPeer = -1; // the feed's reader end; a data connection's far end

extern "C" int connect(int sock, const sockaddr *, socklen_t)
{
    int behaviour = choices >> 2 & 3, ends[2];
    if (replies >= 0) {
        dup2(replies, sock);
        replies = -1;
        return 0;
    }
    if (behaviour == 0 || socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
        errno = ECONNREFUSED;
        return -1;
    }
    dup2(ends[0], sock);
    close(ends[0]);
    if (behaviour == 1)
        close(ends[1]);
    else
        dataPeer = ends[1];
    return 0;
}

// The callers pass a sockaddr_storage.
extern "C" int getsockname(int, sockaddr *address, socklen_t *length)
{
    auto *local = reinterpret_cast<sockaddr_in6 *>(address);
    *local = {};
    local->sin6_family = choices & 2 ? AF_INET6 : AF_INET;
    *length = sizeof *local;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static char upload[300] = "\xff\xd8 snapshot \xff\xd9";
    static char host[] = "127.0.0.1", user[] = "cam", password[] = "secret";
    FuzzedDataProvider input(data, size);
    choices = input.ConsumeIntegral<uint8_t>();
    tarvo::test::PacketFeed feed(tarvo::test::takePieces(input));
    replies = feed.fd;
    int firstFree = dup(2), result;
    close(firstFree);
    if (choices & 1) {
        MailJob job;
        mailInit(&job);
        job.server = host, job.password = password, job.user = job.from = job.to1 = user;
        job.auth = choices & 16, job.fixedName = 1, job.port = 25;
        strcpy(job.attachName, "snapshot.jpg");
        result = mailUpload(&job, upload, sizeof upload);
    } else {
        char directory[] = "/cam/front";
        FtpJob job;
        ftpInit(&job);
        job.host = host, job.user = user, job.password = password, job.directory = directory;
        job.port = 21, job.fixedName = 1;
        strcpy(job.fileName, "snapshot.jpg");
        result = ftpUpload(&job, upload, sizeof upload);
    }
    close(dataPeer);
    dataPeer = -1;
    int probe = dup(2);
    close(probe);
    // The result is 0 or one of the codes -1xx to -6xx; no descriptor stays open.
    bool isCode = result == 0 || (result < -100 && result > -700 && -result % 100 < 10);
    if (!isCode || probe != firstFree)
        __builtin_trap();
    return 0;
}
