// The FTP and e-mail uploads against a hostile server.  The input's first
// byte picks the client, the control connection's address family (IPv6
// makes the FTP client ask LPSV instead of PASV) and whether the data
// connection is refused, closed at once or taken; the rest are the server's
// replies, one piece per receive ("\" followed by another character
// separates the pieces).  connect() is replaced so that nothing leaves the
// process: the control connection becomes a packet feed of the replies and
// a data connection one end of a stream pair; getsockname() reports the
// chosen family.
#include "support/packet_feed.h"
#include "tarvo/ftpupload.h"
#include "tarvo/mailupload.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fuzzer/FuzzedDataProvider.h>
#include <netinet/in.h>

namespace
{

struct Server {
    int replies = -1;  // the feed's reader end, for the first connect
    int dataPeer = -1; // the far end of a data connection taken
    // bit 0: e-mail, else FTP; bit 1: IPv6; bits 2-3: the data connection
    // refused (0), closed at once (1) or taken; bit 4: log in; bit 5: a
    // charset for the subject.
    uint8_t choices = 0;
} server;

// The documented codes: 0 or a step's code, -1xx to -6xx.
bool isResultCode(int result)
{
    return result == 0 ||
           (result < -100 && result > -700 && -result % 100 < 10 && -result % 100 > 0);
}

} // namespace

extern "C" int connect(int sock, const sockaddr *, socklen_t)
{
    if (server.replies >= 0) { // the control connection
        dup2(server.replies, sock);
        server.replies = -1;
        return 0;
    }
    int behaviour = server.choices >> 2 & 3, ends[2];
    if (behaviour == 0 || socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
        errno = ECONNREFUSED;
        return -1;
    }
    dup2(ends[0], sock);
    close(ends[0]);
    if (behaviour == 1)
        close(ends[1]);
    else
        server.dataPeer = ends[1];
    return 0;
}

extern "C" int getsockname(int, sockaddr *address, socklen_t *length)
{
    sockaddr_in6 local{};
    local.sin6_family = server.choices & 2 ? AF_INET6 : AF_INET;
    memcpy(address, &local, std::min<size_t>(*length, sizeof local));
    *length = local.sin6_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static char upload[300] = "\xff\xd8 snapshot \xff\xd9";
    static char host[] = "127.0.0.1", user[] = "cam", password[] = "secret";
    if (size == 0)
        return 0;
    server.choices = data[0];
    FuzzedDataProvider input(data + 1, size - 1);
    tarvo::test::PacketFeed feed(tarvo::test::takePieces(input));
    server.replies = feed.fd;
    int firstFree = dup(2), result, leftOpen;
    close(firstFree);
    if (server.choices & 1) {
        MailJob job;
        mailInit(&job);
        job.server = host, job.user = user, job.password = password, job.from = user,
        job.to1 = user;
        job.auth = server.choices & 16, job.fixedName = 1, job.port = 25;
        strcpy(job.attachName, "snapshot.jpg");
        strcpy(job.charset, server.choices & 32 ? "utf-8" : "");
        strcpy(job.subject, "motion");
        result = mailUpload(&job, upload, sizeof upload);
        leftOpen = job.sock;
    } else {
        char directory[] = "/cam/front";
        FtpJob job;
        ftpInit(&job);
        job.host = host, job.user = user, job.password = password, job.directory = directory;
        job.port = 21, job.fixedName = 1;
        strcpy(job.fileName, "snapshot.jpg");
        result = ftpUpload(&job, upload, sizeof upload);
        leftOpen = std::max(job.ctrlSock, job.dataSock);
    }
    close(server.dataPeer);
    server.dataPeer = -1;
    int probe = dup(2);
    close(probe);
    if (!isResultCode(result) || leftOpen != -1 || probe != firstFree)
        __builtin_trap();
    return 0;
}
