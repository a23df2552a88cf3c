// The local calendar time that names uploads and fills notifications.
#ifndef TARVO_NET_LOCAL_TIME_H
#define TARVO_NET_LOCAL_TIME_H

#include <ctime>
#include <sys/time.h>

namespace tarvo::net
{

struct LocalTime {
    tm calendar;
    long microseconds; // within the second
};

inline LocalTime localTimeNow()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    LocalTime local{};
    localtime_r(&now.tv_sec, &local.calendar);
    local.microseconds = long(now.tv_usec);
    return local;
}

} // namespace tarvo::net

#endif
