// The network suites' peers, all on loopback: the real servers of
// peers/peers.py, sockets that refuse or never answer, and a scripted peer
// for protocol cases no real server produces.
#ifndef TARVO_TESTS_NET_PEER_H
#define TARVO_TESTS_NET_PEER_H

#include "support/child.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fstream>
#include <map>
#include <sys/stat.h>
#include <thread>

namespace tarvo::test
{

inline std::string fileBytes(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Every byte value in an order that shows any byte lost, added or moved.
inline std::string snapshotBytes(size_t length, uint32_t seed = 1)
{
    std::string bytes(length, '\0');
    for (char &byte : bytes)
        byte = char((seed = seed * 1103515245u + 12345u) >> 23);
    return bytes;
}

// Whether text is the strftime pattern of a local second in [before, now].
inline bool ofSomeSecond(const std::string &text, const char *pattern, time_t before)
{
    char expected[512];
    for (time_t moment = before, now = time(nullptr); moment <= now; moment++) {
        tm local{};
        strftime(expected, sizeof expected, pattern, localtime_r(&moment, &local));
        if (text == expected)
            return true;
    }
    return false;
}

// The real-server suites' fixture: "peers.py KIND FOLDER" serving from a
// folder of the test's own, and stopped (by closing its input) with the
// test.  A test that cannot have it is skipped, or fails when CI=true.
class RealServer : public ::testing::Test
{
  protected:
    explicit RealServer(const char *kind) : kind_(kind) {}
    void SetUp() override
    {
        std::string announcements = folder_.path() + "/announce"; // a FIFO
        mkfifo(announcements.c_str(), 0600);
        launcher_ = popen(("exec /usr/bin/python3 -B " TARVO_NET_PEERS "/peers.py " +
                           std::string(kind_) + " " + folder_.path() + " >" + announcements)
                              .c_str(),
                          "w");
        FILE *announced = fopen(announcements.c_str(), "r");
        char line[256] = "missing python3 did not run peers.py", user[64], password[64];
        fgets(line, sizeof line, announced);
        fclose(announced);
        if (sscanf(line, "ready port=%d user=%63s password=%63s", &port_, user, password) == 3)
            user_ = user, password_ = password;
        else if (getenv("CI") && std::string(getenv("CI")) == "true")
            FAIL() << line;
        else
            GTEST_SKIP() << line;
    }
    void TearDown() override { stop(); }
    void stop()
    {
        if (launcher_)
            pclose(launcher_);
        launcher_ = nullptr;
    }
    std::string saved(const std::string &name) { return fileBytes(folder_.path() + "/" + name); }

    const char *kind_;
    TempDir folder_;
    FILE *launcher_ = nullptr;
    int port_ = 0;
    std::string user_, password_;
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
        if (bind(fd_, any, length) == 0 && (!listening || listen(fd_, 16) == 0))
            getsockname(fd_, any, &length);
        port_ = ntohs(family == AF_INET6 ? address.sin6_port : ipv4->sin_port);
    }
    ~LoopbackPort() { close(fd_); }
    int fd() const { return fd_; }
    int port() const { return port_; }

  private:
    int fd_, port_;
};

// Takes one connection, says the answer to "" (the greeting), and answers
// each line found in `answers`, else by its first word, until the client
// closes.
class ScriptedPeer
{
  public:
    using Answers = std::map<std::string, std::string>;
    ScriptedPeer(int family, Answers answers)
        : port_(family, true), host_(family == AF_INET6 ? "::1" : "127.0.0.1")
    {
        thread_ = std::thread([this, answers] {
            int sock = accept(port_.fd(), nullptr, nullptr);
            std::string greeting = answers.at("");
            (void)!write(sock, greeting.data(), greeting.size());
            std::string pending;
            char chunk[4096];
            for (ssize_t got; (got = read(sock, chunk, sizeof chunk)) > 0;) {
                pending.append(chunk, size_t(got));
                for (size_t end; (end = pending.find('\n')) != std::string::npos;
                     pending.erase(0, end + 1)) {
                    std::string line = pending.substr(0, pending.find_first_of("\r\n"));
                    auto answer = answers.count(line)
                                      ? answers.find(line)
                                      : answers.find(line.substr(0, line.find(' ')));
                    if (answer == answers.end() || answer->first.empty())
                        continue;
                    heard_ += (heard_.empty() ? "" : " ") + answer->first;
                    (void)!write(sock, answer->second.data(), answer->second.size());
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

  private:
    LoopbackPort port_;
    const char *host_;
    std::string heard_;
    std::thread thread_;
};

} // namespace tarvo::test

#endif
