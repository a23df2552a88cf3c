// A real server for a suite: one of the launchers in peers/, run by the
// host's Python on loopback, stopped when the object goes (also when the
// test fails or dies: the launcher stops its server when our pipe closes).
#ifndef TARVO_TESTS_NET_PEER_PROCESS_H
#define TARVO_TESTS_NET_PEER_PROCESS_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tarvo::test
{

class PeerProcess
{
  public:
    // Starts peers/<launcher> with the arguments and waits until it is ready
    // or says why it cannot run.
    PeerProcess(const std::string &launcher, const std::vector<std::string> &arguments);
    ~PeerProcess() { stop(); }
    PeerProcess(const PeerProcess &) = delete;
    PeerProcess &operator=(const PeerProcess &) = delete;

    bool ready() const { return unavailable_.empty(); }
    // Why the peer is not ready.
    const std::string &unavailable() const { return unavailable_; }
    // A value the launcher announced ("port", ...), "" when it did not.
    std::string value(const std::string &key) const;
    int port() const { return atoi(value("port").c_str()); }

    // Stops the server and waits for the launcher to finish.
    void stop();

  private:
    pid_t pid_ = -1;
    int input_ = -1;  // the launcher's standard input, closed to stop it
    int output_ = -1; // its standard output
    std::string unavailable_;
    std::map<std::string, std::string> values_;
};

// In CI (CI=true) a missing peer fails the test; elsewhere it skips it.
#define TARVO_REQUIRE_PEER(peer)                                                                   \
    do {                                                                                           \
        if (!(peer).ready()) {                                                                     \
            const char *ci = getenv("CI");                                                         \
            if (ci && std::string(ci) == "true")                                                   \
                FAIL() << "peer not available: " << (peer).unavailable();                          \
            GTEST_SKIP() << "peer not available: " << (peer).unavailable();                        \
        }                                                                                          \
    } while (0)

} // namespace tarvo::test

#endif
