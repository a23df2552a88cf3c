#include "interruptions.h"

#include <csignal>

namespace tarvo::bench
{

namespace
{

constexpr int kInterruptions[] = {SIGINT, SIGTERM, SIGHUP};

} // namespace

void holdBackInterruptions()
{
    sigset_t held;
    sigemptyset(&held);
    for (int signal : kInterruptions)
        sigaddset(&held, signal);
    sigprocmask(SIG_BLOCK, &held, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

bool interrupted()
{
    sigset_t pending;
    sigpending(&pending);
    for (int signal : kInterruptions)
        if (sigismember(&pending, signal))
            return true;
    return false;
}

} // namespace tarvo::bench
