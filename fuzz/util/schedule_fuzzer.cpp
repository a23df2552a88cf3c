// The schedule loader on arbitrary files (schedule.ini in a scratch working
// folder in memory: on a disk, rewriting the file costs most of the time),
// asked about moments through the week, then reloaded.
#include "tarvo/schedule.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static char folder[] = "/dev/shm/tarvo-schedule-fuzz-XXXXXX";
    static const bool entered = mkdtemp(folder) != nullptr && chdir(folder) == 0 &&
                                atexit([] { unlink("schedule.ini"), rmdir(folder); }) == 0;
    FILE *file = entered ? fopen("schedule.ini", "w") : nullptr;
    if (file == nullptr)
        return 0;
    fwrite(data, 1, size, file);
    fclose(file);
    Schedule *schedule = nullptr;
    if (sdLoad(&schedule) == 1) {
        for (time_t moment = 1704067200; moment < 1704067200 + 7 * 86400; moment += 28801)
            InSchedule(schedule, "alarm", moment);
        sdLoad(&schedule);
    }
    sdRelease(&schedule);
    return 0;
}
