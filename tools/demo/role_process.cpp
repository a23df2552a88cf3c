// What every role process does first: tie its life to the supervisor's and
// turn the stop signals into a flag.
#include "roles.h"

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace demo
{
namespace
{

volatile sig_atomic_t stopSignal = 0;

void onStopSignal(int)
{
    stopSignal = 1;
}

} // namespace

void enterRole(Board &board, Role role)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    std::string name = std::string("tarvo-") + kRoleNames[role];
    prctl(PR_SET_NAME, name.c_str());

    struct sigaction action = {};
    action.sa_handler = onStopSignal; // no SA_RESTART: waits end early
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    sigset_t signals;
    sigemptyset(&signals);
    sigprocmask(SIG_SETMASK, &signals, nullptr); // the supervisor blocks them
    // A supervisor that died before the death signal was armed.
    if (getppid() != board.supervisor)
        stopSignal = 1;
    board.pid[role] = getpid();
}

bool stopRequested()
{
    return stopSignal != 0;
}

void reportReady(int readyFd)
{
    char role = 1;
    if (write(readyFd, &role, 1) != 1)
        perror("demo: ready");
    close(readyFd);
}

} // namespace demo
