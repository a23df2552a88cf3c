// Feeds arbitrary schedule files to the loader and asks the result about a
// few moments of the week.
#include "tarvo/schedule.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace
{

// The loader reads schedule.ini in the working folder: give the fuzzer one.
bool enterScratchFolder()
{
    static const bool entered = [] {
        char pattern[] = "/tmp/tarvo-schedule-fuzz-XXXXXX";
        return mkdtemp(pattern) != nullptr && chdir(pattern) == 0;
    }();
    return entered;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (!enterScratchFolder())
        return 0;
    FILE *file = fopen("schedule.ini", "w");
    if (file == nullptr)
        return 0;
    fwrite(data, 1, size, file);
    fclose(file);

    Schedule *schedule = nullptr;
    if (sdLoad(&schedule) == 1) {
        const time_t monday = 1704067200;
        for (time_t moment = monday; moment < monday + 7 * 86400; moment += 86400 / 3 + 1)
            InSchedule(schedule, "alarm", moment);
        std::string firstName(reinterpret_cast<const char *>(data) + 1,
                              size > 1 ? std::min<size_t>(size - 1, 40) : 0);
        InSchedule(schedule, firstName.c_str(), monday);
        sdLoad(&schedule);
    }
    sdRelease(&schedule);
    return 0;
}
