// A peer on loopback for protocol cases no real server produces: it takes
// one connection and plays a script on it in its own thread.
#ifndef TARVO_TESTS_NET_SCRIPTED_SERVER_H
#define TARVO_TESTS_NET_SCRIPTED_SERVER_H

#include "loopback_port.h"

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tarvo::test
{

class Conversation
{
  public:
    explicit Conversation(int sock) : sock_(sock) {}

    void say(const std::string &text);
    // The client's next line without its line break; false once it closed.
    bool hear(std::string &line);
    // Reads until the client closes.
    void hearUntilClosed();
    // Every line heard so far.
    const std::vector<std::string> &heard() const { return heard_; }

  private:
    int sock_;
    std::string pending_;
    std::vector<std::string> heard_;
};

class ScriptedServer
{
  public:
    using Script = std::function<void(Conversation &)>;

    // Listens on 127.0.0.1 (AF_INET) or ::1 (AF_INET6) at a free port.
    ScriptedServer(int family, Script script);
    ~ScriptedServer(); // cuts the conversation short when it still runs
    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;

    const char *host() const { return host_; }
    int port() const { return listener_.port(); }

    // Waits for the script to end (call it once the client is done: a
    // connection not accepted by then is refused); every line it sent.
    std::vector<std::string> finish();

  private:
    void serve(Script script);

    const char *host_;
    LoopbackPort listener_;
    int connection_ = -1; // guarded by mutex_
    std::vector<std::string> heard_;
    std::mutex mutex_;
    std::thread thread_;
};

} // namespace tarvo::test

#endif
