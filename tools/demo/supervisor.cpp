// Starting, watching and stopping the server's processes.
#include "supervisor.h"

#include "cpu_usage.h"
#include "ipc_cleanup.h"
#include "roles.h"
#include "server_processes.h"

#include <fcntl.h>
#include <glob.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

namespace demo
{
namespace
{

constexpr double kTerminalInterval = 1, kPlainInterval = 5; // seconds between status lines
constexpr int kStartTimeoutMs = 30000, kStopTimeoutMs = 10000;

class Supervisor
{
  public:
    Supervisor(const Config &config, Board &board) : config_(config), board_(board)
    {
        terminal_ = isatty(STDOUT_FILENO);
    }
    bool open();
    bool start();
    std::string watch();
    bool stop();
    ServerProcesses &processes() { return processes_; }

  private:
    pid_t startRole(Role role);
    int runRole(Role role);
    bool awaitReady(Role role);
    bool takeSignals();
    bool relayOutput();
    void printLine(const std::string &line);
    void showStatus();
    bool running() const;

    const Config &config_;
    Board &board_;
    ServerProcesses processes_;
    bool terminal_;
    int signals_ = -1;
    int outputRead_ = -1, outputWrite_ = -1, readyRead_ = -1, readyWrite_ = -1;
    std::string pending_, status_, stopReason_;
};

bool Supervisor::open()
{
    sigset_t handled;
    sigemptyset(&handled);
    sigaddset(&handled, SIGINT);
    sigaddset(&handled, SIGTERM);
    sigaddset(&handled, SIGCHLD);
    sigprocmask(SIG_BLOCK, &handled, nullptr);
    signals_ = signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK);
    int output[2], ready[2];
    if (signals_ < 0 || pipe2(output, O_CLOEXEC) != 0 || pipe2(ready, O_CLOEXEC) != 0)
        return false;
    outputRead_ = output[0];
    outputWrite_ = output[1];
    readyRead_ = ready[0];
    readyWrite_ = ready[1];
    processes_.rows[kSupervisorRow].pid = getpid();
    processes_.rows[kSupervisorRow].running = true;
    return true;
}

int Supervisor::runRole(Role role)
{
    switch (role) {
    case kReceiver:
        return runReceiver(config_, board_, readyWrite_);
    case kEvents:
        return runEvents(config_, board_, readyWrite_);
    case kCapture:
        return runCapture(config_, board_, readyWrite_);
    case kMotion:
        return runMotion(config_, board_, readyWrite_);
    case kRecorder:
        return runRecorder(config_, board_, readyWrite_);
    default:
        return runStreaming(config_, board_, readyWrite_);
    }
}

// The child's output goes to the supervisor's pipe, line by line.
pid_t Supervisor::startRole(Role role)
{
    fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(outputWrite_, STDOUT_FILENO);
        dup2(outputWrite_, STDERR_FILENO);
        setvbuf(stdout, nullptr, _IOLBF, 0);
        enterRole(board_, role);
        int status = runRole(role);
        fflush(stdout);
        _exit(status);
    }
    if (pid > 0) {
        processes_.rows[role].pid = pid;
        processes_.rows[role].running = true;
    }
    return pid;
}

// Waits for the role's ready byte, relaying output meanwhile; false when
// the role ended or a stop signal came first.
bool Supervisor::awaitReady(Role role)
{
    double deadline = monotonicSeconds() + kStartTimeoutMs / 1000.0;
    while (monotonicSeconds() < deadline) {
        pollfd watched[3] = {
            {readyRead_, POLLIN, 0}, {outputRead_, POLLIN, 0}, {signals_, POLLIN, 0}};
        poll(watched, 3, 1000);
        if (watched[1].revents & POLLIN)
            relayOutput();
        if ((watched[2].revents & POLLIN) && takeSignals())
            return false;
        char byte;
        if ((watched[0].revents & POLLIN) && read(readyRead_, &byte, 1) == 1)
            return true;
    }
    printLine(std::string("demo: the ") + kRoleNames[role] + " process did not start in time");
    return false;
}

bool Supervisor::start()
{
    for (int role = 0; role < kRoleCount; role++) {
        if (role == kRecorder && config_.recordFile.empty())
            continue;
        if (startRole(Role(role)) < 0 || !awaitReady(Role(role)))
            return false;
    }
    close(readyWrite_);
    close(outputWrite_); // only the children write there: the pipe ends with them
    outputWrite_ = -1;
    processes_.sampleCpu(true);
    printf("demo: live view on http://127.0.0.1:%d/ (run folder %s%s)\n", board_.streamPort.load(),
           config_.runDir.c_str(), terminal_ ? "; Ctrl-C stops" : "");
    fflush(stdout);
    return true;
}

// Reaps ended children and reads stop signals: true when the server is to
// stop, with the first reason kept.
bool Supervisor::takeSignals()
{
    signalfd_siginfo signal;
    bool stopping = false;
    while (read(signals_, &signal, sizeof signal) == sizeof signal)
        if (signal.ssi_signo == SIGINT || signal.ssi_signo == SIGTERM) {
            stopping = true;
            if (stopReason_.empty())
                stopReason_ = signal.ssi_signo == SIGINT ? "on Ctrl-C" : "on SIGTERM";
        }
    for (int row = 0; row < kRoleCount; row++) {
        ServerProcess &process = processes_.rows[row];
        if (process.running && waitpid(process.pid, &process.waitStatus, WNOHANG) == process.pid) {
            process.running = false;
            stopping = true;
            if (stopReason_.empty())
                stopReason_ = std::string("because the ") + kRoleNames[row] + " process ended";
        }
    }
    return stopping;
}

void Supervisor::printLine(const std::string &line)
{
    if (terminal_)
        printf("\r\033[K%s\n%s", line.c_str(), status_.c_str());
    else
        printf("%s\n", line.c_str());
    fflush(stdout);
}

// Prints the whole lines that came from the children; false at the end.
bool Supervisor::relayOutput()
{
    char chunk[4096];
    ssize_t count = read(outputRead_, chunk, sizeof chunk);
    if (count <= 0)
        return false;
    pending_.append(chunk, size_t(count));
    size_t end;
    while ((end = pending_.find('\n')) != std::string::npos) {
        printLine(pending_.substr(0, end));
        pending_.erase(0, end + 1);
    }
    return true;
}

void Supervisor::showStatus()
{
    processes_.sampleCpu(false);
    status_ = statusLine(board_, processes_);
    if (!terminal_) {
        printf("%s\n", status_.c_str());
    } else {
        winsize window;
        if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 1)
            status_.resize(std::min(status_.size(), size_t(window.ws_col - 1)));
        printf("\r\033[K%s", status_.c_str());
    }
    fflush(stdout);
}

std::string Supervisor::watch()
{
    double interval = terminal_ ? kTerminalInterval : kPlainInterval;
    double now = monotonicSeconds();
    double deadline = config_.seconds > 0 ? now + config_.seconds : INFINITY;
    double nextStatus = now + interval;
    for (;;) {
        double wait = std::min(deadline, nextStatus) - monotonicSeconds();
        pollfd watched[2] = {{outputRead_, POLLIN, 0}, {signals_, POLLIN, 0}};
        poll(watched, 2, std::max(0, int(std::ceil(wait * 1000))));
        if (watched[0].revents & POLLIN)
            relayOutput();
        if ((watched[1].revents & POLLIN) && takeSignals())
            return stopReason_;
        now = monotonicSeconds();
        if (now >= deadline)
            return "after " + std::to_string(config_.seconds) + " s";
        if (now >= nextStatus) {
            showStatus();
            nextStatus += interval;
        }
    }
}

bool Supervisor::running() const
{
    for (int row = 0; row < kRoleCount; row++)
        if (processes_.rows[row].running)
            return true;
    return false;
}

// Asks every process to stop, waits for them, kills those that do not.
bool Supervisor::stop()
{
    processes_.sampleCpu(false);
    for (int row = 0; row < kRoleCount; row++)
        if (processes_.rows[row].running)
            kill(processes_.rows[row].pid, SIGTERM);
    double deadline = monotonicSeconds() + kStopTimeoutMs / 1000.0;
    while (running() && monotonicSeconds() < deadline) {
        pollfd watched[2] = {{outputRead_, POLLIN, 0}, {signals_, POLLIN, 0}};
        poll(watched, 2, 1000);
        if (watched[0].revents & POLLIN)
            relayOutput();
        takeSignals();
    }
    bool clean = true;
    for (int row = 0; row < kRoleCount; row++) {
        ServerProcess &process = processes_.rows[row];
        if (process.running) {
            printLine(std::string("demo: killing the ") + kRoleNames[row] + " process");
            kill(process.pid, SIGKILL);
            waitpid(process.pid, &process.waitStatus, 0);
            process.running = false;
        }
        if (process.pid != 0 &&
            (!WIFEXITED(process.waitStatus) || WEXITSTATUS(process.waitStatus) != 0)) {
            printLine(std::string("demo: the ") + kRoleNames[row] + " process ended " +
                      (WIFSIGNALED(process.waitStatus)
                           ? "by signal " + std::to_string(WTERMSIG(process.waitStatus))
                           : "with status " + std::to_string(WEXITSTATUS(process.waitStatus))));
            clean = false;
        }
    }
    if (outputWrite_ >= 0)
        close(outputWrite_);
    while (relayOutput())
        continue;
    if (terminal_)
        printf("\r\033[K");
    return clean;
}

// The pictures of an earlier run's events, which this run's would mix with.
void removeEventPictures()
{
    glob_t pictures;
    if (glob("event-*.pgm", 0, nullptr, &pictures) == 0)
        for (size_t i = 0; i < pictures.gl_pathc; i++)
            unlink(pictures.gl_pathv[i]);
    globfree(&pictures);
}

} // namespace

int supervise(const Config &config)
{
    if (profileInUse(config)) {
        fprintf(stderr, "demo: profile %d is in use: is another demo running?\n", config.profile);
        return 1;
    }
    if (int left = removeDemoObjects(config))
        printf("demo: removed %d System V objects an earlier run left\n", left);
    removeEventPictures();
    Board *board = makeBoard();
    if (board == nullptr)
        return 1;
    board->supervisor = getpid();
    Supervisor supervisor(config, *board);
    std::string reason = "because a process did not start";
    bool started = supervisor.open() && supervisor.start();
    if (started)
        reason = supervisor.watch();
    bool clean = supervisor.stop() && started;
    if (int left = removeDemoObjects(config)) {
        printf("demo: removed %d System V objects the processes left\n", left);
        clean = false;
    }
    printSummary(*board, config, supervisor.processes(), reason.c_str());
    return clean ? 0 : 1;
}

} // namespace demo
