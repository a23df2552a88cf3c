// Child processes for multi-process tests: started with fork, reaped with a
// bounded wait, killed when the test ends early.
#pragma once

#include <csignal>
#include <cstdio>
#include <sched.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

namespace tarvo::test
{

class Child
{
  public:
    // Runs body() in a new process, which exits with its result.  An alarm
    // ends a child that hangs, so a hanging library call fails the test.
    template <typename Body> explicit Child(Body &&body, unsigned limitSeconds = 60)
    {
        fflush(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            alarm(limitSeconds);
            int result = std::forward<Body>(body)();
            fflush(nullptr);
            _exit(result);
        }
    }
    ~Child()
    {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    // Exit status of the child (0..255), or 1000 + signal when it was killed.
    int wait()
    {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }

    int killAndWait()
    {
        kill(pid_, SIGKILL);
        return wait();
    }

  private:
    pid_t pid_ = -1;
};

// A one-way pipe for "I am ready" notes between processes.
class Signal
{
  public:
    Signal()
    {
        if (pipe(fds_) != 0)
            fds_[0] = fds_[1] = -1;
    }
    ~Signal()
    {
        close(fds_[0]);
        close(fds_[1]);
    }
    Signal(const Signal &) = delete;
    Signal &operator=(const Signal &) = delete;

    void raise(char note = '!') { (void)!write(fds_[1], &note, 1); }
    // Blocks for the next note; 0 when the other end is gone.
    char await()
    {
        char note = 0;
        return read(fds_[0], &note, 1) == 1 ? note : 0;
    }

  private:
    int fds_[2];
};

// Waits until `count` processes block on the System V semaphore `id`, as
// they do on a lock another process holds.
inline void awaitBlockedOn(int id, int count)
{
    while (semctl(id, 0, GETZCNT) != count)
        sched_yield();
}

} // namespace tarvo::test
