// The supervisor's table of the server's processes, itself included, with
// the processor time each used, and the reports made from it.
#ifndef TARVO_DEMO_SERVER_PROCESSES_H
#define TARVO_DEMO_SERVER_PROCESSES_H

#include "board.h"
#include "config.h"

#include <sys/types.h>

#include <string>

namespace demo
{

// The supervisor's row follows the roles'.
inline constexpr int kSupervisorRow = kRoleCount;
inline constexpr int kProcessRows = kRoleCount + 1;

struct ServerProcess {
    pid_t pid = 0; // 0: not started
    bool running = false;
    int waitStatus = 0;
    double cpuAtStart = 0, cpuPrevious = 0, cpuLatest = 0; // seconds
};

struct ServerProcesses {
    ServerProcess rows[kProcessRows];
    double startedAt = 0, previousAt = 0, latestAt = 0; // monotonic seconds

    // Reads every running process's time; the first call sets the start.
    void sampleCpu(bool start);
};

const char *processName(int row);

// One line, per process: frames written (w) or read (r), the motion level
// in changed blocks, viewers (v), events logged, and CPU% since the
// previous sample.
std::string statusLine(const Board &board, const ServerProcesses &processes);

// The end of a run: what each process did, CPU% over the run, the event
// pictures.
void printSummary(const Board &board, const Config &config, const ServerProcesses &processes,
                  const char *reason);

} // namespace demo

#endif
