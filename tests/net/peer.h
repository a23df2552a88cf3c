// The network suites' peers, all on loopback: the real servers of
// peers/peers.py, sockets that refuse or never answer, and a scripted peer
// for protocol cases no real server produces.
#ifndef TARVO_TESTS_NET_PEER_H
#define TARVO_TESTS_NET_PEER_H

#include "support/child.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace tarvo::test
{

inline std::string fileBytes(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Every byte value, line breaks and NULs included, in an order that shows
// any byte lost, added or moved.
inline std::string snapshotBytes(size_t length, uint32_t seed = 1)
{
    std::string bytes(length, '\0');
    for (char &byte : bytes)
        byte = char((seed = seed * 1103515245u + 12345u) >> 23);
    return bytes;
}

// Whether text is the strftime pattern of a local second in [before, after].
inline bool ofSomeSecond(const std::string &text, const char *pattern, time_t before, time_t after)
{
    for (time_t moment = before; moment <= after; moment++) {
        char expected[512];
        tm local{};
        strftime(expected, sizeof expected, pattern, localtime_r(&moment, &local));
        if (text == expected)
            return true;
    }
    return false;
}

// A real server: peers.py KIND FOLDER, stopped with the object (or when
// this process dies, which closes the launcher's input).
class RealPeer
{
  public:
    RealPeer(const char *kind, const std::string &folder)
    {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0)
            return;
        fflush(nullptr);
        if ((pid_ = fork()) == 0) {
            dup2(in[0], 0);
            dup2(out[1], 1);
            execl("/usr/bin/python3", "python3", "-B", TARVO_NET_PEERS "/peers.py", kind,
                  folder.c_str(), nullptr);
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        input_ = in[1];
        FILE *announced = fdopen(out[0], "r");
        char line[256] = "", user[64], password[64];
        if (!fgets(line, sizeof line, announced))
            snprintf(line, sizeof line, "missing /usr/bin/python3 did not start peers.py");
        fclose(announced);
        if (sscanf(line, "ready port=%d user=%63s password=%63s", &port_, user, password) == 3)
            user_ = user, password_ = password;
        else
            unavailable_ = line;
    }
    ~RealPeer() { stop(); }

    void stop()
    {
        if (pid_ > 0) {
            close(input_);
            waitpid(pid_, nullptr, 0);
        }
        pid_ = -1;
    }
    int port() const { return port_; }
    const std::string &user() const { return user_; }
    const std::string &password() const { return password_; }
    const std::string &unavailable() const { return unavailable_; }

  private:
    pid_t pid_ = -1;
    int input_ = -1, port_ = 0;
    std::string user_, password_, unavailable_;
};

// In CI (CI=true) a missing peer fails the test; elsewhere it skips it.
#define TARVO_REQUIRE_PEER(peer)                                                                   \
    if (!(peer).unavailable().empty()) {                                                           \
        const char *ci = getenv("CI");                                                             \
        if (ci && std::string(ci) == "true")                                                       \
            FAIL() << (peer).unavailable();                                                        \
        GTEST_SKIP() << (peer).unavailable();                                                      \
    }

// The real-server suites' fixture: a server of one kind, its files in a
// folder of the test's own; a test that cannot have it is skipped.
class RealServer : public ::testing::Test
{
  protected:
    explicit RealServer(const char *kind) : kind_(kind) {}
    void SetUp() override
    {
        peer_.emplace(kind_, folder_.path());
        TARVO_REQUIRE_PEER(*peer_);
    }
    std::string saved(const std::string &name) { return fileBytes(folder_.path() + "/" + name); }

    const char *kind_;
    TempDir folder_;
    std::optional<RealPeer> peer_;
};

// A loopback socket at a free port: listening (connections complete and
// are never answered) or only bound (connections are refused).
class LoopbackPort
{
  public:
    LoopbackPort(int family, bool listening) : fd_(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in6 address{}; // an AF_INET address fits its start
        auto *ipv4 = reinterpret_cast<sockaddr_in *>(&address);
        socklen_t length = family == AF_INET6 ? sizeof address : sizeof *ipv4;
        address.sin6_family = sa_family_t(family);
        if (family == AF_INET6)
            address.sin6_addr = in6addr_loopback;
        else
            ipv4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto *any = reinterpret_cast<sockaddr *>(&address);
        if (bind(fd_, any, length) == 0 && (!listening || listen(fd_, 16) == 0) &&
            getsockname(fd_, any, &length) == 0)
            port_ = ntohs(family == AF_INET6 ? address.sin6_port : ipv4->sin_port);
    }
    ~LoopbackPort() { close(fd_); }
    int fd() const { return fd_; }
    int port() const { return port_; }

  private:
    int fd_, port_ = 0;
};

// Takes one connection, says the greeting, and answers each line whose
// first word is in `answers` (an empty answer says nothing) until the
// client closes.  Raises a note after the greeting and after each empty
// answer, when the client is left waiting.
class ScriptedPeer
{
  public:
    using Answers = std::map<std::string, std::string>;
    ScriptedPeer(int family, const std::string &greeting, const Answers &answers)
        : port_(family, true), host_(family == AF_INET6 ? "::1" : "127.0.0.1")
    {
        thread_ = std::thread([this, greeting, answers] {
            int sock = accept(port_.fd(), nullptr, nullptr);
            (void)!write(sock, greeting.data(), greeting.size());
            waiting.raise();
            std::string pending;
            char chunk[4096];
            for (ssize_t got; (got = read(sock, chunk, sizeof chunk)) > 0;) {
                pending.append(chunk, size_t(got));
                for (size_t end; (end = pending.find('\n')) != std::string::npos;) {
                    std::string word = pending.substr(0, pending.find_first_of(" \r\n"));
                    pending.erase(0, end + 1);
                    auto answer = answers.find(word);
                    if (answer == answers.end())
                        continue;
                    heard_ += (heard_.empty() ? "" : " ") + word;
                    (void)!write(sock, answer->second.data(), answer->second.size());
                    if (answer->second.empty())
                        waiting.raise();
                }
            }
            close(sock);
        });
    }
    ~ScriptedPeer() { finish(); }
    const char *host() const { return host_; }
    int port() const { return port_.port(); }

    // Waits for the client to be done; the first words answered, in order.
    std::string finish()
    {
        shutdown(port_.fd(), SHUT_RDWR); // a client that never came will not
        if (thread_.joinable())
            thread_.join();
        return heard_;
    }

    Signal waiting;

  private:
    LoopbackPort port_;
    const char *host_;
    std::string heard_;
    std::thread thread_;
};

} // namespace tarvo::test

#endif
