#include "reader_pool.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <new>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarvo::bench
{

namespace
{

using Clock = std::chrono::steady_clock;

// A reader that has not ended this long after the stop flag is taken as hung.
constexpr auto kStopLimit = std::chrono::seconds(5);

void sleepOneMillisecond()
{
    timespec pause{0, 1'000'000};
    nanosleep(&pause, nullptr);
}

} // namespace

struct ReaderPool::Shared {
    std::atomic<bool> stop;
    ReaderTally tallies[kReaders];
};

static_assert(std::atomic<bool>::is_always_lock_free, "the stop flag is shared between processes");

// Each reader closes its end of the pipe once it has reported, so a reader
// that dies before reporting shows as the end of the pipe, never as a hang.
void ReaderLink::reportStart(bool started)
{
    char note = started ? '+' : '-';
    (void)!write(readyPipe_, &note, 1);
    close(readyPipe_);
}

ReaderPool::ReaderPool()
{
    void *at =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    shared_ = at == MAP_FAILED ? nullptr : new (at) Shared{};
}

ReaderPool::~ReaderPool()
{
    for (pid_t pid : pids_) {
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
    if (readyPipe_[0] >= 0)
        close(readyPipe_[0]);
    if (shared_)
        munmap(shared_, sizeof(Shared));
}

bool ReaderPool::start(const Body &body, int readers)
{
    count_ = std::min(readers, kReaders);
    if (shared_ == nullptr || pipe(readyPipe_) != 0)
        return false;
    fflush(nullptr);
    for (int index = 0; index < count_; index++) {
        pids_[index] = fork();
        if (pids_[index] < 0)
            break;
        if (pids_[index] == 0) {
            // A reader must not outlive the benchmark, whatever ends it.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(readyPipe_[0]);
            ReaderLink link(shared_->tallies[index], shared_->stop, readyPipe_[1]);
            int status = body(index, link);
            fflush(nullptr);
            _exit(status);
        }
    }
    close(readyPipe_[1]);
    int started = 0;
    char note;
    while (read(readyPipe_[0], &note, 1) == 1)
        started += note == '+';
    return started == count_;
}

bool ReaderPool::awaitFrame(uint32_t number, std::chrono::milliseconds limit) const
{
    Clock::time_point end = Clock::now() + limit;
    for (;;) {
        bool allThere = true;
        for (int index = 0; index < count_; index++)
            allThere = allThere &&
                       shared_->tallies[index].lastNumber.load(std::memory_order_relaxed) >= number;
        if (allThere)
            return true;
        if (Clock::now() >= end)
            return false;
        sleepOneMillisecond();
    }
}

bool ReaderPool::stopAndWait(const Nudge &nudge)
{
    if (shared_ == nullptr)
        return false;
    shared_->stop.store(true, std::memory_order_release);
    Clock::time_point end = Clock::now() + kStopLimit;
    int running = int(std::count_if(pids_.begin(), pids_.end(), [](pid_t pid) { return pid > 0; }));
    bool allSucceeded = running == count_;
    while (running > 0 && Clock::now() < end) {
        for (pid_t &pid : pids_) {
            int status = 0;
            if (pid <= 0 || waitpid(pid, &status, WNOHANG) != pid)
                continue;
            allSucceeded = allSucceeded && WIFEXITED(status) && WEXITSTATUS(status) == 0;
            pid = 0;
            running--;
        }
        if (running > 0) {
            nudge();
            sleepOneMillisecond();
        }
    }
    // Readers still running now are hung; the destructor kills them.
    return allSucceeded && running == 0;
}

ReaderTotals ReaderPool::totals(uint32_t framesWritten) const
{
    ReaderTotals totals{};
    totals.slowestFrames = count_ > 0 ? UINT64_MAX : 0;
    for (int index = 0; index < count_; index++) {
        const ReaderTally &tally = shared_->tallies[index];
        uint64_t got = tally.frames + tally.faults;
        totals.frames += tally.frames;
        totals.slowestFrames = std::min<uint64_t>(totals.slowestFrames, tally.frames);
        totals.faults += tally.faults;
        totals.missed += got < framesWritten ? framesWritten - got : 0;
    }
    return totals;
}

} // namespace tarvo::bench
