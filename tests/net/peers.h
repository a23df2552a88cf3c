// The network suites' peers, all on loopback: the real servers and scripted
// peers of peers/peers.py, and sockets that refuse or never answer.
#pragma once

#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/stat.h>

namespace tarvo::test
{

// "peers.py FOLDER COMMAND", serving from a folder of its own as user "cam",
// password "secret", until stop() closes its input; port 0 when it cannot.
struct Peer {
    explicit Peer(const std::string &command)
    {
        std::string announcements = folder.path() + "/announce"; // a FIFO
        mkfifo(announcements.c_str(), 0600);
        launcher = popen(("exec /usr/bin/python3 -B " TARVO_NET_PEERS "/peers.py " + folder.path() +
                          " " + command + " >" + announcements)
                             .c_str(),
                         "w");
        FILE *announced = fopen(announcements.c_str(), "r");
        fgets(line, sizeof line, announced);
        fclose(announced);
        sscanf(line, "ready %d", &port);
    }
    ~Peer() { stop(); }
    void stop()
    {
        if (launcher)
            pclose(launcher);
        launcher = nullptr;
    }
    std::string saved(const std::string &name) const
    {
        std::ifstream in(folder.path() + "/" + name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    TempDir folder;
    FILE *launcher;
    char line[256] = "missing python3 did not run peers.py";
    int port = 0;
};

// The real-server suites' fixture: the test is skipped (failed when
// CI=true) when its server cannot run here.
struct RealServer : ::testing::TestWithParam<const char *> {
    void SetUp() override
    {
        if (server.port == 0 && getenv("CI") && getenv("CI") == std::string("true"))
            FAIL() << server.line;
        else if (server.port == 0)
            GTEST_SKIP() << server.line;
    }
    Peer server{GetParam()};
};

// A loopback socket at a free port: listening (connections complete and
// are never answered) or only bound (connections are refused).
struct LoopbackPort {
    explicit LoopbackPort(bool listening)
    {
        sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t length = sizeof address;
        auto *any = reinterpret_cast<sockaddr *>(&address);
        if (bind(fd, any, length) == 0 && (!listening || listen(fd, 16) == 0))
            getsockname(fd, any, &length);
        port = ntohs(address.sin_port);
    }
    ~LoopbackPort() { close(fd); }
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), port;
};

} // namespace tarvo::test
