// The status line and the summary.
#include "server_processes.h"

#include "cpu_usage.h"

#include <cstdio>

namespace demo
{
namespace
{

double percent(double cpuSeconds, double wallSeconds)
{
    return wallSeconds > 0 ? 100.0 * cpuSeconds / wallSeconds : 0;
}

} // namespace

void ServerProcesses::sampleCpu(bool start)
{
    double now = monotonicSeconds();
    previousAt = start ? now : latestAt;
    latestAt = now;
    if (start)
        startedAt = now;
    for (ServerProcess &row : rows) {
        double used = row.running ? cpuSeconds(row.pid) : -1;
        row.cpuPrevious = start ? used : row.cpuLatest;
        if (used >= 0)
            row.cpuLatest = used;
        if (start)
            row.cpuAtStart = row.cpuLatest;
    }
}

const char *processName(int row)
{
    return row == kSupervisorRow ? "supervisor" : kRoleNames[row];
}

std::string statusLine(const Board &board, const ServerProcesses &processes)
{
    char line[512];
    double interval = processes.latestAt - processes.previousAt, total = 0;
    int length = snprintf(line, sizeof line, "%4.0fs", processes.latestAt - processes.startedAt);
    for (int row = 0; row < kProcessRows && length < int(sizeof line); row++) {
        const ServerProcess &process = processes.rows[row];
        if (process.pid == 0)
            continue;
        char detail[64] = "";
        unsigned long long frames = row < kRoleCount ? board.frames[row].load() : 0;
        if (row == kCapture)
            snprintf(detail, sizeof detail, " %lluw", frames);
        else if (row == kMotion)
            snprintf(detail, sizeof detail, " %llur %d blocks", frames, board.motionLevel.load());
        else if (row == kRecorder)
            snprintf(detail, sizeof detail, " %llur", frames);
        else if (row == kStreaming)
            snprintf(detail, sizeof detail, " %llur %dv", frames, board.viewers.load());
        else if (row == kEvents)
            snprintf(detail, sizeof detail, " %u", board.eventsLogged.load());
        double used = percent(process.cpuLatest - process.cpuPrevious, interval);
        total += used;
        length += snprintf(line + length, sizeof line - size_t(length), " | %s%s %.1f%%",
                           processName(row), detail, used);
    }
    if (length < int(sizeof line))
        snprintf(line + length, sizeof line - size_t(length), " | all %.1f%%", total);
    return line;
}

void printSummary(const Board &board, const Config &config, const ServerProcesses &processes,
                  const char *reason)
{
    double seconds = processes.latestAt - processes.startedAt;
    printf("demo: ran %.1f s at %d frames/s, stopped %s\n", seconds, config.framesPerSecond,
           reason);
    double total = 0;
    for (int row = 0; row < kProcessRows; row++) {
        const ServerProcess &process = processes.rows[row];
        if (process.pid == 0)
            continue;
        double used = percent(process.cpuLatest - process.cpuAtStart, seconds);
        total += used;
        printf("  %-10s pid %-7d cpu %5.2f%%", processName(row), int(process.pid), used);
        if (row == kCapture)
            printf("  %llu frames written", (unsigned long long)board.frames[kCapture]);
        else if (row == kMotion || row == kRecorder)
            printf("  %llu frames read", (unsigned long long)board.frames[row]);
        else if (row == kStreaming)
            printf("  %llu frames sent to viewers", (unsigned long long)board.frames[kStreaming]);
        else if (row == kEvents)
            printf("  %u events raised, %u logged", board.eventsRaised.load(),
                   board.eventsLogged.load());
        else if (row == kReceiver)
            printf("  %u notifications received", board.notificationsReceived.load());
        putchar('\n');
    }
    printf("  whole server: %.2f%% of one core\n", total);
    if (!config.recordFile.empty())
        printf("  recording: %s/%s, %llu bytes\n", config.runDir.c_str(), config.recordFile.c_str(),
               (unsigned long long)board.recordedBytes);
    for (unsigned number = 1; number <= board.eventsRaised; number++)
        printf("  event %u: %s/event-%03u.pgm\n", number, config.runDir.c_str(), number);
}

} // namespace demo
