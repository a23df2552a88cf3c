// Starting and stopping the launchers in peers/.
#include "peer_process.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace tarvo::test
{

namespace
{

constexpr char kPython[] = "/usr/bin/python3";
constexpr int kStartSeconds = 60;
constexpr int kStopSeconds = 30;

// Appends what arrives on fd to text until a line break, the end, or the
// time limit; false unless a whole line came.
bool readLine(int fd, std::string &text, int seconds)
{
    for (;;) {
        pollfd readable = {fd, POLLIN, 0};
        int ready = poll(&readable, 1, seconds * 1000);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return false;
        char c;
        if (read(fd, &c, 1) != 1)
            return false;
        if (c == '\n')
            return true;
        text += c;
    }
}

// Reads and drops what arrives on fd until its end (every writer gone);
// false when the time ran out first.
bool awaitEnd(int fd, int seconds)
{
    char chunk[256];
    for (;;) {
        pollfd readable = {fd, POLLIN, 0};
        int ready = poll(&readable, 1, seconds * 1000);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return false;
        ssize_t got = read(fd, chunk, sizeof chunk);
        if (got <= 0)
            return got == 0;
    }
}

} // namespace

PeerProcess::PeerProcess(const std::string &launcher, const std::vector<std::string> &arguments)
{
    int input[2], output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
        unavailable_ = "no pipes";
        return;
    }
    // -B: no bytecode files in the source tree.
    std::vector<std::string> words = {kPython, "-B", std::string(TARVO_NET_PEERS) + "/" + launcher};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        setpgid(0, 0); // the whole group can be ended if the launcher hangs
        dup2(input[0], 0);
        dup2(output[1], 1);
        execv(kPython, argv.data());
        printf("missing %s cannot run: %s\n", kPython, strerror(errno));
        fflush(stdout);
        _exit(127);
    }
    close(input[0]);
    close(output[1]);
    input_ = input[1];
    output_ = output[0];

    std::string line;
    bool complete = pid_ > 0 && readLine(output_, line, kStartSeconds);
    std::istringstream announcement(line);
    std::string verdict;
    announcement >> verdict;
    if (complete && verdict == "ready") {
        for (std::string field; announcement >> field;) {
            size_t equals = field.find('=');
            values_[field.substr(0, equals)] =
                equals == std::string::npos ? "" : field.substr(equals + 1);
        }
    } else if (complete && verdict == "missing") {
        unavailable_ = line.substr(verdict.size() + 1);
    } else {
        unavailable_ = launcher + " did not announce itself (\"" + line + "\")";
    }
}

std::string PeerProcess::value(const std::string &key) const
{
    auto found = values_.find(key);
    return found == values_.end() ? std::string() : found->second;
}

void PeerProcess::stop()
{
    if (pid_ <= 0)
        return;
    close(input_);
    if (!awaitEnd(output_, kStopSeconds))
        kill(-pid_, SIGKILL);
    close(output_);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

} // namespace tarvo::test
