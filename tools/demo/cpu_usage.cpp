// Reading a process's processor time from /proc/PID/stat.
#include "cpu_usage.h"

#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace demo
{

double cpuSeconds(pid_t pid)
{
    char path[64], line[1024];
    snprintf(path, sizeof path, "/proc/%d/stat", int(pid));
    FILE *file = fopen(path, "r");
    if (file == nullptr)
        return -1;
    bool read = fgets(line, sizeof line, file) != nullptr;
    fclose(file);
    // The fields after the name, which ends at the last ')': state is the
    // third field, utime and stime the fourteenth and fifteenth.
    const char *rest = read ? strrchr(line, ')') : nullptr;
    unsigned long user = 0, system = 0;
    if (rest == nullptr || sscanf(rest + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu",
                                  &user, &system) != 2)
        return -1;
    return double(user + system) / double(sysconf(_SC_CLK_TCK));
}

double monotonicSeconds()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

} // namespace demo
