// Name resolution, the timed connect and the close of the connection layer.
#include "connection.h"
#include "util/descriptor.h"

#include "tarvo/netconn.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace tarvo::net
{

namespace
{

struct HostAddress {
    int family;
    unsigned char bytes[16];
};

// The first address of host, resolved as IPv4 and else as IPv6, copied out
// of the resolver's static answer while g_mutex_sock is held.
bool resolve(const char *host, HostAddress &address)
{
    pthread_mutex_lock(&g_mutex_sock);
    const hostent *entry = gethostbyname(host);
    if (entry == nullptr)
        entry = gethostbyname2(host, AF_INET6);
    bool usable = entry != nullptr && entry->h_addr_list[0] != nullptr &&
                  ((entry->h_addrtype == AF_INET6 && entry->h_length == 16) ||
                   (entry->h_addrtype == AF_INET && entry->h_length == 4));
    if (usable) {
        address.family = entry->h_addrtype;
        memcpy(address.bytes, entry->h_addr_list[0], size_t(entry->h_length));
    }
    pthread_mutex_unlock(&g_mutex_sock);
    return usable;
}

// Connects a blocking socket, waiting at most kConnectSeconds for the
// handshake; the socket is blocking again afterwards.
bool connectWithin(int sock, const sockaddr *address, socklen_t length)
{
    int flags = fcntl(sock, F_GETFL);
    if (flags < 0 || fcntl(sock, F_SETFL, flags | O_NONBLOCK) < 0)
        return false;
    if (connect(sock, address, length) != 0) {
        if (errno != EINPROGRESS)
            return false;
        pollfd writable = {sock, POLLOUT, 0};
        if (poll(&writable, 1, kConnectSeconds * 1000) < 1)
            return false;
        int error = 0;
        socklen_t size = sizeof error;
        if (getsockopt(sock, SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0)
            return false;
    }
    return fcntl(sock, F_SETFL, flags) == 0;
}

int connectFailed(const NetConn &conn)
{
    trace(conn, "http connect fail!\n");
    return kNoSocket;
}

} // namespace

int netConnect(NetConn &conn, const char *host, int port)
{
    HostAddress resolved;
    if (host == nullptr || !resolve(host, resolved))
        return connectFailed(conn);
    tarvo::Descriptor sock(socket(resolved.family, SOCK_STREAM, 0));
    if (sock.get() < 0)
        return connectFailed(conn);

    sockaddr_storage address{};
    socklen_t length;
    if (resolved.family == AF_INET6) {
        auto *ipv6 = reinterpret_cast<sockaddr_in6 *>(&address);
        ipv6->sin6_family = AF_INET6;
        ipv6->sin6_port = htons(uint16_t(port));
        memcpy(&ipv6->sin6_addr, resolved.bytes, 16);
        length = sizeof *ipv6;
        trace(conn, "http connect ipv6: %s: %d\n", host, port);
    } else {
        auto *ipv4 = reinterpret_cast<sockaddr_in *>(&address);
        ipv4->sin_family = AF_INET;
        ipv4->sin_port = htons(uint16_t(port));
        memcpy(&ipv4->sin_addr, resolved.bytes, 4);
        length = sizeof *ipv4;
        trace(conn, "http connect ipv4: %s: %d\n", host, port);
    }
    if (!connectWithin(sock.get(), reinterpret_cast<const sockaddr *>(&address), length))
        return connectFailed(conn);
    return sock.release();
}

int netClose(NetConn &conn, int sock)
{
    if (sock < 0)
        return 0;
    trace(conn, "http close!\n");
    return close(sock);
}

void closeConnection(NetConn &conn, int32_t &sock)
{
    netClose(conn, sock);
    sock = kNoSocket;
}

} // namespace tarvo::net
