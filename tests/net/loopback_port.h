// A socket on a free loopback port: listening (connections complete and
// wait unanswered), or only bound, so that connections are refused.
#ifndef TARVO_TESTS_NET_LOOPBACK_PORT_H
#define TARVO_TESTS_NET_LOOPBACK_PORT_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tarvo::test
{

class LoopbackPort
{
  public:
    LoopbackPort(int family, bool listening) : sock_(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_storage address{};
        socklen_t length = family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
        address.ss_family = sa_family_t(family);
        if (family == AF_INET6)
            reinterpret_cast<sockaddr_in6 &>(address).sin6_addr = in6addr_loopback;
        else
            reinterpret_cast<sockaddr_in &>(address).sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto *any = reinterpret_cast<sockaddr *>(&address);
        if (bind(sock_, any, length) == 0 && (!listening || listen(sock_, 16) == 0) &&
            getsockname(sock_, any, &length) == 0)
            port_ = ntohs(family == AF_INET6 ? reinterpret_cast<sockaddr_in6 &>(address).sin6_port
                                             : reinterpret_cast<sockaddr_in &>(address).sin_port);
    }
    ~LoopbackPort() { close(sock_); }
    LoopbackPort(const LoopbackPort &) = delete;
    LoopbackPort &operator=(const LoopbackPort &) = delete;

    int port() const { return port_; }
    int fd() const { return sock_; }

  private:
    int sock_;
    int port_ = 0;
};

} // namespace tarvo::test

#endif
