// The FTP data connection: passive (PASV, LPSV) or active (PORT, LPRT), in
// the address family of the control connection.
#include "ftp_internal.h"
#include "util/descriptor.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

using namespace tarvo::net;

namespace
{

// An answer to PASV or LPSV is read as one line of at most this many bytes.
constexpr int kPassiveAnswerSize = 1025;

struct DataAddress {
    char host[NI_MAXHOST];
    int port;
};

// Reads comma-separated decimal numbers as "%d,%d,..." would, but a number
// too large for a long is clamped instead of overflowing; how many were read.
int readNumbers(const char *text, long *numbers, int count)
{
    for (int read = 0; read < count; read++) {
        if (read > 0 && *text++ != ',')
            return read;
        char *end;
        numbers[read] = strtol(text, &end, 10);
        if (end == text)
            return read;
        text = end;
    }
    return count;
}

// Address and port numbers of a passive answer must be bytes before any
// arithmetic is done on them.
bool allBytes(const long *numbers, int count)
{
    return std::all_of(numbers, numbers + count, [](long n) { return n >= 0 && n <= 255; });
}

// Sends PASV or LPSV and reads the one-line answer; its code (also kept in
// job->reply), with the text between "(" and ")" of a 227 or 228 answer in
// numbers.  kReplyReceiveFailed when nothing usable came.
int passiveAnswer(FtpJob *job, const char *command, char (&numbers)[kPassiveAnswerSize + 1])
{
    numbers[0] = '\0';
    if (netSend(ftpConn, job->ctrlSock, command, int(strlen(command)), SendMode::Text) != 0)
        return kReplyReceiveFailed;
    char answer[kPassiveAnswerSize + 1];
    if (recvLine(ftpConn, job->ctrlSock, answer, kPassiveAnswerSize) <= 0)
        return kReplyReceiveFailed;
    job->reply = atoi(answer);
    if (job->reply != 227 && job->reply != 228)
        return job->reply;
    if (const char *open = strchr(answer, '(')) {
        size_t length = strcspn(open + 1, ")");
        memcpy(numbers, open + 1, length);
        numbers[length] = '\0';
    }
    return job->reply;
}

// LPSV: 0 with the address, or a failure code.
int longPassiveAddress(FtpJob *job, DataAddress &address)
{
    char numbers[kPassiveAnswerSize + 1];
    if (passiveAnswer(job, "LPSV\r\n", numbers) != 228)
        return kFtpLongPassiveRefused;
    long n[21] = {};
    if (readNumbers(numbers, n, 21) < 21)
        return kFtpLongPassiveCount;
    if (n[0] != 6 || n[1] != 16 || n[18] != 2)
        return kFtpLongPassiveFormat;
    if (!allBytes(n, 21))
        return kFtpDataConnect;
    sockaddr_in6 server{};
    server.sin6_family = AF_INET6;
    for (int i = 0; i < 16; i++)
        server.sin6_addr.s6_addr[i] = static_cast<unsigned char>(n[2 + i]);
    if (getnameinfo(reinterpret_cast<sockaddr *>(&server), sizeof server, address.host,
                    sizeof address.host, nullptr, 0, NI_NUMERICHOST) != 0)
        return kFtpLongPassiveAddress;
    address.port = int(n[19] * 256 + n[20]);
    return 0;
}

// PASV: 0 with the address, or a failure code.  The numbers are not
// counted; missing ones stay 0.
int passiveAddress(FtpJob *job, DataAddress &address)
{
    char numbers[kPassiveAnswerSize + 1];
    if (passiveAnswer(job, "PASV\r\n", numbers) != 227)
        return kFtpPassive;
    long n[6] = {};
    readNumbers(numbers, n, 6);
    if (!allBytes(n, 6))
        return kFtpDataConnect;
    snprintf(address.host, sizeof address.host, "%ld.%ld.%ld.%ld", n[0], n[1], n[2], n[3]);
    address.port = int(n[4] * 256 + n[5]);
    return 0;
}

int openPassive(FtpJob *job)
{
    sockaddr_storage local{};
    socklen_t length = sizeof local;
    if (getsockname(job->ctrlSock, reinterpret_cast<sockaddr *>(&local), &length) != 0)
        return kFtpPassiveLocalAddress;
    DataAddress server;
    int failed =
        local.ss_family == AF_INET6 ? longPassiveAddress(job, server) : passiveAddress(job, server);
    if (failed)
        return failed;
    closeConnection(ftpConn, job->dataSock);
    job->dataSock = netConnect(ftpConn, server.host, server.port);
    return job->dataSock < 0 ? kFtpDataConnect : 0;
}

// Announces the listening address with LPRT (IPv6) or PORT (IPv4).
int announceListener(FtpJob *job, const sockaddr_storage &listening)
{
    if (listening.ss_family == AF_INET6) {
        auto &ipv6 = reinterpret_cast<const sockaddr_in6 &>(listening);
        const unsigned char *a = ipv6.sin6_addr.s6_addr;
        auto port = reinterpret_cast<const unsigned char *>(&ipv6.sin6_port);
        int reply = command(ftpConn, job->ctrlSock, job->reply,
                            "LPRT 6,16,%u,%u,%u,%u,%u,%u,%u,%u,%u,%u,%u,%u,%u,%u,%u,%u,2,%u,%u\r\n",
                            a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9], a[10],
                            a[11], a[12], a[13], a[14], a[15], port[0], port[1]);
        return reply == 200 ? 0 : kFtpLongPort;
    }
    auto &ipv4 = reinterpret_cast<const sockaddr_in &>(listening);
    auto a = reinterpret_cast<const unsigned char *>(&ipv4.sin_addr);
    auto port = reinterpret_cast<const unsigned char *>(&ipv4.sin_port);
    int reply = command(ftpConn, job->ctrlSock, job->reply, "PORT %u,%u,%u,%u,%u,%u\r\n", a[0],
                        a[1], a[2], a[3], port[0], port[1]);
    return reply == 200 ? 0 : kFtpPort;
}

// Listens on the control connection's local address at a port the system
// picks, and tells the server; the listening socket becomes dataSock.
int openActive(FtpJob *job)
{
    sockaddr_storage local{};
    socklen_t length = sizeof local;
    if (getsockname(job->ctrlSock, reinterpret_cast<sockaddr *>(&local), &length) != 0)
        return kFtpActiveLocalAddress;
    tarvo::Descriptor listener(socket(local.ss_family, SOCK_STREAM, 0));
    if (listener.get() < 0)
        return kFtpActiveSocket;
    if (local.ss_family == AF_INET6)
        reinterpret_cast<sockaddr_in6 &>(local).sin6_port = 0;
    else
        reinterpret_cast<sockaddr_in &>(local).sin_port = 0;
    if (bind(listener.get(), reinterpret_cast<sockaddr *>(&local), length) != 0)
        return kFtpActiveBind;
    if (getsockname(listener.get(), reinterpret_cast<sockaddr *>(&local), &length) != 0)
        return kFtpActiveListenAddress;
    if (listen(listener.get(), 1) != 0)
        return kFtpActiveListen;
    if (int failed = announceListener(job, local))
        return failed;
    closeConnection(ftpConn, job->dataSock);
    job->dataSock = listener.release();
    return 0;
}

} // namespace

namespace tarvo::net
{

int openDataConnection(FtpJob *job)
{
    return job->passive ? openPassive(job) : openActive(job);
}

} // namespace tarvo::net
