// The scripted loopback peer.
#include "scripted_server.h"

#include <sys/socket.h>
#include <unistd.h>

namespace tarvo::test
{

void Conversation::say(const std::string &text)
{
    (void)!send(sock_, text.data(), text.size(), MSG_NOSIGNAL);
}

bool Conversation::hear(std::string &line)
{
    for (;;) {
        size_t lineEnd = pending_.find('\n');
        if (lineEnd != std::string::npos) {
            line = pending_.substr(0, lineEnd);
            pending_.erase(0, lineEnd + 1);
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            heard_.push_back(line);
            return true;
        }
        char chunk[4096];
        ssize_t got = recv(sock_, chunk, sizeof chunk, 0);
        if (got <= 0)
            return false;
        pending_.append(chunk, size_t(got));
    }
}

void Conversation::hearUntilClosed()
{
    char chunk[4096];
    while (recv(sock_, chunk, sizeof chunk, 0) > 0) {
    }
}

ScriptedServer::ScriptedServer(int family, Script script)
    : host_(family == AF_INET6 ? "::1" : "127.0.0.1"), listener_(family, true)
{
    thread_ = std::thread([this, script] { serve(script); });
}

ScriptedServer::~ScriptedServer()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (connection_ >= 0)
            shutdown(connection_, SHUT_RDWR);
    }
    finish();
}

void ScriptedServer::serve(Script script)
{
    int connection = accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        connection_ = connection;
    }
    if (connection < 0)
        return;
    Conversation conversation(connection);
    script(conversation);
    std::lock_guard<std::mutex> lock(mutex_);
    heard_ = conversation.heard();
    close(connection_);
    connection_ = -1;
}

std::vector<std::string> ScriptedServer::finish()
{
    // A client that has not connected by now never will: end the wait.
    shutdown(listener_.fd(), SHUT_RDWR);
    if (thread_.joinable())
        thread_.join();
    return heard_;
}

} // namespace tarvo::test
